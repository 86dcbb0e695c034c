#include "zorsock/dial.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "zorsock/wait.h"
#include "zorsock/zorsock.h"

namespace zorsock {

template <typename Start>
std::error_code Dialer::RunUntil(Clock::time_point deadline, Start start) {
  std::optional<std::error_code> result;
  io_.restart();
  start([&result](std::error_code ec) { result = ec; });
  // In slices, so the caller's wait hook runs between them.
  WaitPacer pacer;
  while (!result && !io_.stopped()) {
    const auto now = Clock::now();
    if (now >= deadline) break;
    if (now >= pacer.due()) {
      RunWaitHook();
      continue;
    }
    io_.run_one_until(std::min(deadline, pacer.due()));
  }
  if (result) return *result;
  // Time is up: closing the socket makes the pending operation finish now.
  std::error_code ignored;
  socket_.close(ignored);
  io_.restart();
  io_.run();
  return asio::error::timed_out;
}

namespace {

// The system resolver may block for as long as it likes, so it runs on a
// thread of its own; a caller that stops waiting leaves it to finish alone.
struct Lookup {
  std::mutex mu;
  std::condition_variable done_cv;
  bool done = false;
  std::error_code error;
  std::vector<asio::ip::tcp::endpoint> endpoints;
};

std::error_code Resolve(const ServerAddress& address, Clock::time_point deadline,
                        std::vector<asio::ip::tcp::endpoint>* endpoints) {
  std::error_code ec;
  const auto ip = asio::ip::make_address(address.host, ec);
  if (!ec) {  // given as a number: nothing to look up
    endpoints->assign(1, asio::ip::tcp::endpoint(ip, address.port));
    return {};
  }
  auto lookup = std::make_shared<Lookup>();
  std::thread([lookup, host = address.host, port = std::to_string(address.port)] {
    asio::io_context io;
    asio::ip::tcp::resolver resolver(io);
    std::error_code error;
    auto found = resolver.resolve(host, port, error);
    std::lock_guard lock(lookup->mu);
    lookup->error = error;
    for (const auto& entry : found) lookup->endpoints.push_back(entry.endpoint());
    lookup->done = true;
    lookup->done_cv.notify_all();
  }).detach();
  std::unique_lock lock(lookup->mu);
  if (!WaitWithHook(lock, lookup->done_cv, deadline, [&] { return lookup->done; }))
    return asio::error::timed_out;
  *endpoints = lookup->endpoints;
  return lookup->error;
}

}  // namespace

int Dialer::Connect(const ServerAddress& address, Clock::time_point deadline) {
  std::vector<asio::ip::tcp::endpoint> endpoints;
  const std::error_code resolved = Resolve(address, deadline, &endpoints);
  if (resolved == asio::error::timed_out) return ZOR_ERR_TIMED_OUT;
  if (resolved || endpoints.empty()) return ZOR_ERR_RESOLVE;
  if (Clock::now() >= deadline) return ZOR_ERR_TIMED_OUT;

  const std::error_code connected = RunUntil(deadline, [&](auto done) {
    asio::async_connect(socket_, endpoints,
                        [done](std::error_code ec, const auto&) { done(ec); });
  });
  if (connected) return ConnectErrorCode(connected);
  std::error_code ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  return 0;
}

std::error_code Dialer::Write(const wire::Bytes& bytes, Clock::time_point deadline) {
  return RunUntil(deadline, [&](auto done) {
    asio::async_write(socket_, asio::buffer(bytes),
                      [done](std::error_code ec, size_t) { done(ec); });
  });
}

std::error_code Dialer::Read(Message* message, Clock::time_point deadline, std::string* why) {
  uint8_t head[wire::kHeaderSize];
  std::error_code ec = RunUntil(deadline, [&](auto done) {
    asio::async_read(socket_, asio::buffer(head), [done](std::error_code e, size_t) { done(e); });
  });
  if (ec) {
    *why = ec.message();
    return ec;
  }
  const auto header = wire::DecodeHeader(head, why);
  if (!header) return asio::error::invalid_argument;
  message->type = header->type;
  message->payload.resize(header->payload_size());
  ec = RunUntil(deadline, [&](auto done) {
    asio::async_read(socket_, asio::buffer(message->payload),
                     [done](std::error_code e, size_t) { done(e); });
  });
  if (ec) *why = ec.message();
  return ec;
}

int Dialer::Handshake(const wire::Hello& hello, Clock::time_point deadline,
                      wire::Welcome* welcome, std::string* why) {
  if (std::error_code ec = Write(wire::EncodeHello(hello), deadline)) {
    *why = ec.message();
    return ec == asio::error::timed_out ? ZOR_ERR_TIMED_OUT : ZOR_ERR_HANDSHAKE;
  }
  Message answer;
  if (std::error_code ec = Read(&answer, deadline, why))
    return ec == asio::error::timed_out ? ZOR_ERR_TIMED_OUT : ZOR_ERR_HANDSHAKE;
  const uint8_t* p = answer.payload.data();
  const size_t n = answer.payload.size();
  if (answer.type == wire::Type::kRefuse) {
    const auto refuse = wire::DecodeRefuse(p, n);
    *why = refuse ? "refused: " + refuse->message : "refused";
    return ZOR_ERR_HANDSHAKE;
  }
  const auto decoded =
      answer.type == wire::Type::kWelcome ? wire::DecodeWelcome(p, n) : std::nullopt;
  if (!decoded || decoded->version != wire::kVersion) {
    *why = "the peer does not speak this protocol";
    return ZOR_ERR_HANDSHAKE;
  }
  *welcome = *decoded;
  return 0;
}

bool Dialer::Call(const wire::Request& request, Clock::time_point deadline, wire::Reply* reply,
                  std::string* why) {
  if (std::error_code ec = Write(wire::EncodeRequest(request), deadline)) {
    *why = ec.message();
    return false;
  }
  // The server may push other messages first (it does not, to control
  // connections, but tolerate it).
  for (;;) {
    Message message;
    if (Read(&message, deadline, why)) return false;
    if (message.type == wire::Type::kFinished) {
      *why = "the server is shutting down";
      return false;
    }
    if (message.type != wire::Type::kReply) continue;
    auto decoded = wire::DecodeReply(message.payload.data(), message.payload.size());
    if (!decoded) {
      *why = "malformed reply";
      return false;
    }
    if (decoded->seq != request.seq) continue;
    *reply = std::move(*decoded);
    return true;
  }
}

}  // namespace zorsock
