// Blocking steps of opening a connection, each bounded by a deadline: resolve
// and connect, the handshake, one request and its reply. Used by zorInit
// before the connection's I/O thread takes over, and by the one-shot control
// and raw-data connections.
#pragma once

#include <asio.hpp>
#include <chrono>
#include <string>

#include "zorsock/address.h"
#include "zorsock/wire.h"

namespace zorsock {

using Clock = std::chrono::steady_clock;

// One received message: its type and payload.
struct Message {
  wire::Type type = wire::Type::kHello;
  wire::Bytes payload;
};

class Dialer {
 public:
  // Runs its steps on `io`, which must not be running on another thread.
  explicit Dialer(asio::io_context& io) : io_(io), socket_(io) {}

  // 0 when connected, else ZOR_ERR_RESOLVE or a ZOR_ERR_* socket code.
  int Connect(const ServerAddress& address, Clock::time_point deadline);
  // Sends HELLO and reads the answer: 0 with the welcome filled in, or
  // ZOR_ERR_HANDSHAKE (refused, not a zord, closed) / ZOR_ERR_TIMED_OUT.
  int Handshake(const wire::Hello& hello, Clock::time_point deadline, wire::Welcome* welcome,
                std::string* why);
  // Sends a request and waits for its reply; false with the reason on failure.
  bool Call(const wire::Request& request, Clock::time_point deadline, wire::Reply* reply,
            std::string* why);

  std::error_code Write(const wire::Bytes& bytes, Clock::time_point deadline);
  std::error_code Read(Message* message, Clock::time_point deadline, std::string* why);

  asio::ip::tcp::socket& socket() { return socket_; }

 private:
  // Runs the operation `start` begins until it reports, or closes the socket
  // at the deadline and reports timed_out.
  template <typename Start>
  std::error_code RunUntil(Clock::time_point deadline, Start start);

  asio::io_context& io_;
  asio::ip::tcp::socket socket_;
};

}  // namespace zorsock
