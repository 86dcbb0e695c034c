// What the benches ask a running zord about its own side of a session.
#pragma once

#include <cstdlib>
#include <string>

#include "zorsock/control.h"

// Frames the server dropped for its sessions because they were not read in
// time (its own count, over a control connection), -1 when it cannot say.
inline long long ServerDrops(const std::string& address) {
  std::string error;
  const std::string reply = zorControl(address, R"({"cmd":"clock"})", &error);
  const std::string key = "\"session_frames_dropped\":";
  const auto at = reply.find(key);
  return at == std::string::npos ? -1 : std::atoll(reply.c_str() + at + key.size());
}
