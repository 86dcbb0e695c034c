// What zord does with a client's request: the settings the server owns (its
// frame clock, each session's streams, interpolation, its description) are
// answered here, the rest goes to the engine. State changes from slave
// sessions are refused here, before the engine sees them.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "zord/server/engine.h"
#include "zord/server/server_clock.h"
#include "zorsock/wire.h"

namespace zord {

// A session's stream switches; read by the frame fan-out on other threads.
struct StreamSwitches {
  std::atomic<bool> streaming{false};
  std::atomic<unsigned> kinds{kMarkerBit | kRigidBit};

  // The kinds this session is sent now (0 while streaming is off).
  unsigned sent() const { return streaming ? kinds.load() : 0u; }
};

class RequestHandler {
 public:
  // `status` adds the server's own figures to the clock's status reply.
  RequestHandler(Engine& engine, FrameClock& clock, std::string description,
                 std::function<nlohmann::json()> status = {});

  // `control` is a zorControl connection: it may only send control requests.
  zorsock::wire::Reply Handle(const ClientContext& who, bool control, StreamSwitches& streams,
                     const zorsock::wire::Request& request);

  // Operator control: {"cmd":"clock",...} is the server's, the rest the engine's.
  std::string Control(const std::string& request_json);

  const std::string& description() const { return description_; }

 private:
  int Dispatch(const ClientContext& who, StreamSwitches& streams, const zorsock::wire::Request& request,
               zorsock::wire::Reply& reply);
  int SetInteger(const ClientContext& who, StreamSwitches& streams, int code, int value);
  nlohmann::json ClockControl(const nlohmann::json& request);

  Engine& engine_;
  FrameClock& clock_;
  const std::string description_;
  const std::function<nlohmann::json()> status_;
  std::atomic<int> interpolate_{0};
};

// Whether a request changes server state (and so is refused to slaves).
bool ChangesState(const zorsock::wire::Request& request);

}  // namespace zord
