#include "zord/server/discovery.h"

#include <cstdio>

namespace zord {

DiscoveryResponder::DiscoveryResponder(asio::io_context& io, zorsock::wire::DiscoveryAnswer answer,
                                       bool verbose)
    : socket_(io), answer_(zorsock::wire::EncodeAnswer(answer)), verbose_(verbose) {}

bool DiscoveryResponder::Open(const std::string& listen, int port, std::string* error) {
  std::error_code ec;
  const auto address = asio::ip::make_address(listen, ec);
  if (ec) {
    *error = "invalid listen address '" + listen + "'";
    return false;
  }
  const asio::ip::udp::endpoint endpoint(address, static_cast<uint16_t>(port));
  socket_.open(endpoint.protocol(), ec);
  if (!ec) socket_.bind(endpoint, ec);
  if (ec) {
    *error = "cannot open the discovery port " + listen + ":" + std::to_string(port) + ": " +
             ec.message();
    socket_.close(ec);
    return false;
  }
  port_ = socket_.local_endpoint(ec).port();
  Receive();
  return true;
}

void DiscoveryResponder::Close() {
  std::error_code ignored;
  socket_.close(ignored);
}

void DiscoveryResponder::Receive() {
  socket_.async_receive_from(asio::buffer(buffer_), sender_, [this](std::error_code ec, size_t n) {
    if (ec == asio::error::operation_aborted || !socket_.is_open()) return;
    if (!ec) {
      if (const auto query = zorsock::wire::DecodeQuery(buffer_, n)) {
        if (verbose_)
          std::fprintf(stderr, "zord: discovery query from %s (%s)\n",
                       sender_.address().to_string().c_str(), query->identity.c_str());
        std::error_code ignored;  // a querier that went away is not our problem
        socket_.send_to(asio::buffer(answer_), sender_, 0, ignored);
      }
    }
    Receive();
  });
}

}  // namespace zord
