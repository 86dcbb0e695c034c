// Operator control of zord (zordctl, tests): one JSON request over a
// short-lived connection of its own, one JSON reply.
#pragma once

#include <string>

namespace zorsock {

// The server's JSON reply; empty with *error set when the server cannot be
// reached, refuses, or does not answer within 30 seconds.
// `token` is the one zord was started with (--control-token); needed only
// from another machine.
std::string zorControl(const std::string& server, const std::string& json, std::string* error,
                       const std::string& token = {});

}  // namespace zorsock

using zorsock::zorControl;
