// zor_scan: asks for zord servers over UDP and collects the distinct answers
// until the time-out (or the first answer, when one host was asked).
#include <asio.hpp>
#include <chrono>
#include <cstring>
#include <optional>
#include <set>

#include "zorsock/address.h"
#include "zorsock/wire.h"
#include "zorsock/zorsock.h"

namespace {

using asio::ip::udp;
using Clock = std::chrono::steady_clock;

constexpr int kScanBadArgument = -1;
constexpr int kScanSocketError = -2;

bool IsBroadcastTarget(const std::string& target) {
  if (target.empty()) return true;
  std::error_code ec;
  const auto address = asio::ip::make_address_v4(target, ec);
  // 255.255.255.255 or a subnet broadcast address (host part all ones, /24).
  return !ec && (address == asio::ip::address_v4::broadcast() || (address.to_uint() & 0xFF) == 0xFF);
}

void WriteResult(char* slot, const std::string& address, const std::string& description) {
  std::memset(slot, 0, ZOR_SCAN_RESULT_SIZE);
  std::strncpy(slot, address.c_str(), 255);
  std::strncpy(slot + 256, description.c_str(), 255);
}

}  // namespace

extern "C" int zor_scan(const char* target, int port, const char* ident, int timeout_us,
                        char* results, int max) {
  if (port <= 0 || port > 65535 || timeout_us < 0 || max < 0 || (max > 0 && !results))
    return kScanBadArgument;
  const std::string target_text = target ? target : "";
  const bool broadcast = IsBroadcastTarget(target_text);

  asio::io_context io;
  udp::socket socket(io);
  std::error_code ec;
  socket.open(udp::v4(), ec);
  if (ec) return kScanSocketError;
  socket.set_option(asio::socket_base::broadcast(true), ec);

  std::vector<udp::endpoint> destinations;
  const auto udp_port = static_cast<uint16_t>(port);
  if (broadcast) {
    const auto address = target_text.empty() ? asio::ip::address_v4::broadcast()
                                              : asio::ip::make_address_v4(target_text);
    destinations.emplace_back(address, udp_port);
    destinations.emplace_back(asio::ip::address_v4::loopback(), udp_port);
  } else {
    // A configured server may carry its TCP port ("host:port"); ask its host.
    const auto parsed = zorsock::ParseServerAddress(target_text, ZOR_DEFAULT_PORT);
    if (!parsed) return kScanBadArgument;
    udp::resolver resolver(io);
    const auto found = resolver.resolve(udp::v4(), parsed->host, std::to_string(port), ec);
    if (ec || found.empty()) return ZOR_ERR_RESOLVE;
    destinations.push_back(found.begin()->endpoint());
  }

  zorsock::wire::DiscoveryQuery query;
  query.identity = ident ? ident : "";
  const auto datagram = zorsock::wire::EncodeQuery(query);
  int sent = 0;
  for (const auto& destination : destinations) {
    socket.send_to(asio::buffer(datagram), destination, 0, ec);
    if (!ec) ++sent;
  }
  if (sent == 0) return kScanSocketError;

  const auto deadline = Clock::now() + std::chrono::microseconds(timeout_us);
  std::set<std::string> seen;
  int found = 0;
  uint8_t buffer[zorsock::wire::kMaxDatagram];
  udp::endpoint sender;
  bool receiving = false;
  std::function<void()> receive = [&] {
    receiving = true;
    socket.async_receive_from(asio::buffer(buffer), sender, [&](std::error_code e, size_t n) {
      receiving = false;
      if (e) return;
      const auto answer = zorsock::wire::DecodeAnswer(buffer, n);
      if (answer) {
        const std::string host = answer->host.empty() ? sender.address().to_string() : answer->host;
        const std::string address =
            zorsock::FormatServerAddress(host, answer->port, ZOR_DEFAULT_PORT);
        if (seen.insert(address).second && found < max) {
          WriteResult(results + size_t(found) * ZOR_SCAN_RESULT_SIZE, address, answer->description);
          ++found;
        }
      }
      const bool done = found >= max || (!broadcast && found > 0);
      if (!done) receive();
    });
  };
  receive();
  while (receiving && io.run_one_until(deadline) > 0) {
  }
  socket.close(ec);  // ends a receive still waiting
  io.restart();
  io.run();
  return found;
}
