#include "zorsock/address.h"

#include <asio/error.hpp>
#include <charconv>

#include "zorsock/zorsock.h"

namespace zorsock {

std::optional<ServerAddress> ParseServerAddress(const std::string& text, uint16_t default_port) {
  ServerAddress out;
  out.port = default_port;
  std::string port_text;
  if (!text.empty() && text.front() == '[') {  // [v6] or [v6]:port
    const size_t close = text.find(']');
    if (close == std::string::npos) return std::nullopt;
    out.host = text.substr(1, close - 1);
    if (close + 1 < text.size()) {
      if (text[close + 1] != ':') return std::nullopt;
      port_text = text.substr(close + 2);
      if (port_text.empty()) return std::nullopt;
    }
  } else if (const size_t colon = text.find(':');
             colon != std::string::npos && text.find(':', colon + 1) == std::string::npos) {
    out.host = text.substr(0, colon);
    port_text = text.substr(colon + 1);
    if (port_text.empty()) return std::nullopt;
  } else {
    out.host = text;  // a name, a v4 address, or a bare v6 address
  }
  if (out.host.empty()) return std::nullopt;
  if (!port_text.empty()) {
    unsigned port = 0;
    const auto [end, ec] = std::from_chars(port_text.data(), port_text.data() + port_text.size(), port);
    if (ec != std::errc() || end != port_text.data() + port_text.size() || port == 0 ||
        port > 65535)
      return std::nullopt;
    out.port = static_cast<uint16_t>(port);
  }
  return out;
}

std::string FormatServerAddress(const std::string& host, uint16_t port, uint16_t default_port) {
  const bool v6 = host.find(':') != std::string::npos;
  if (port == default_port) return host;
  return (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

int ConnectErrorCode(const std::error_code& ec) {
  if (ec == asio::error::connection_refused) return ZOR_ERR_CONNECTION_REFUSED;
  if (ec == asio::error::network_unreachable || ec == asio::error::network_down)
    return ZOR_ERR_NETWORK_UNREACHABLE;
  if (ec == asio::error::host_unreachable || ec == asio::error::host_not_found)
    return ZOR_ERR_HOST_UNREACHABLE;
  if (ec == asio::error::timed_out) return ZOR_ERR_TIMED_OUT;
  // Anything else (reset, address not available, ...) means nobody answered
  // usefully at that address.
  return ZOR_ERR_HOST_UNREACHABLE;
}

}  // namespace zorsock
