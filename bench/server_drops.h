// What the benches ask a running zord about its own side of a session.
#pragma once

#include <cstdlib>
#include <string>

#include "zorsock/control.h"

// Frames the server dropped, by its own count over a control connection: those
// its I/O thread had no room for (handed on by the frame clock faster than it
// could send them, `frames_dropped`) and those its sessions had no room for
// (not read in time, `session_frames_dropped`); -1 when it cannot say.
inline long long ServerDrops(const std::string& address) {
  std::string error;
  const std::string reply = zorControl(address, R"({"cmd":"clock"})", &error);
  long long total = 0;
  for (const std::string key : {"\"frames_dropped\":", "\"session_frames_dropped\":"}) {
    const auto at = reply.find(key);
    if (at == std::string::npos) return -1;
    total += std::atoll(reply.c_str() + at + key.size());
  }
  return total;
}
