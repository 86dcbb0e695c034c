// zord's answer to discovery queries (zor_scan): a UDP socket on the
// discovery port that tells every well-formed query where the server listens
// and what it is called.
#pragma once

#include <asio.hpp>
#include <string>

#include "zorsock/wire.h"

namespace zord {

class DiscoveryResponder {
 public:
  // answer.host empty: the querier uses the address the answer came from.
  DiscoveryResponder(asio::io_context& io, zorsock::wire::DiscoveryAnswer answer, bool verbose);

  // Binds the UDP port (0: any free port) on the listen address.
  bool Open(const std::string& listen, int port, std::string* error);
  void Close();
  int port() const { return port_; }

 private:
  void Receive();

  asio::ip::udp::socket socket_;
  const zorsock::wire::Bytes answer_;
  const bool verbose_;
  int port_ = 0;
  uint8_t buffer_[zorsock::wire::kMaxDatagram] = {};
  asio::ip::udp::endpoint sender_;
};

}  // namespace zord
