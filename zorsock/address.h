// Server addresses as users type them ("host", "host:port", "[v6]:port") and
// the zorInit codes for socket failures (the negated Windows socket numbers
// that clients expect).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

namespace zorsock {

struct ServerAddress {
  std::string host;
  uint16_t port = 0;
};

// nullopt for an empty host or a port that is not a number in 1..65535.
std::optional<ServerAddress> ParseServerAddress(const std::string& text, uint16_t default_port);
// The inverse: the port is left out when it is the default one.
std::string FormatServerAddress(const std::string& host, uint16_t port, uint16_t default_port);

// ZOR_ERR_CONNECTION_REFUSED and friends for a failed connect.
int ConnectErrorCode(const std::error_code& ec);

}  // namespace zorsock
