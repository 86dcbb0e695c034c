#include "zorsock/control.h"

#include <cstdio>

#include "zorsock/dial.h"
#include "zorsock/zorsock.h"

namespace zorsock {

namespace {

// Control requests may run a calibration or write files: allow them time.
constexpr auto kControlTimeout = std::chrono::seconds(30);

std::string Fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return {};
}

}  // namespace

std::string zorControl(const std::string& server, const std::string& json, std::string* error,
                       const std::string& token) {
  const auto address = ParseServerAddress(server, ZOR_DEFAULT_PORT);
  if (!address) return Fail(error, "invalid server address '" + server + "'");
  asio::io_context io;
  Dialer dialer(io);
  const auto connect_deadline = Clock::now() + std::chrono::milliseconds(ZOR_CONNECT_TIMEOUT_MS);
  if (const int code = dialer.Connect(*address, connect_deadline); code != 0)
    return Fail(error, "cannot connect to " + server + " (" + std::to_string(code) + ")");

  wire::Hello hello;
  hello.role = wire::Role::kControl;
  hello.identity = wire::ControlIdentity(token);
  wire::Welcome welcome;
  std::string why;
  if (dialer.Handshake(hello, connect_deadline, &welcome, &why) != 0)
    return Fail(error, "handshake with " + server + " failed: " + why);

  wire::Request request;
  request.seq = 1;
  request.op = wire::Op::kControl;
  request.text = json;
  wire::Reply reply;
  if (!dialer.Call(request, Clock::now() + kControlTimeout, &reply, &why))
    return Fail(error, "no reply from " + server + ": " + why);
  if (reply.status != ZOR_NO_ERROR && reply.text.empty()) {
    char text[64];
    std::snprintf(text, sizeof text, "the server refused the request (0x%x)", reply.status);
    return Fail(error, text);
  }
  return reply.text;
}

}  // namespace zorsock
