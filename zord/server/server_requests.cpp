#include "zord/server/server_requests.h"

#include <nlohmann/json.hpp>

namespace zord {

namespace {

using zorsock::wire::Op;

// The stream switch a ZOR_SEND_* code sets, 0 for other codes.
unsigned StreamBit(int code) {
  switch (code) {
    case ZOR_SEND_MARKERS: return kMarkerBit;
    case ZOR_SEND_RIGIDS: return kRigidBit;
    case ZOR_SEND_IMAGES: return kImageBit;
    case ZOR_SEND_DETECTORS: return kDetectorBit;
    default: return 0;
  }
}

bool IsOwnStreamSwitch(int code) { return code == ZOR_STREAMING || StreamBit(code) != 0; }

int OnOff(bool on) { return on ? ZOR_ON : ZOR_OFF; }

}  // namespace

bool ChangesState(const zorsock::wire::Request& request) {
  switch (request.op) {
    case Op::kTracker:
    case Op::kTrackerInt:
    case Op::kTrackerFloat:
    case Op::kMarkerInts:
    case Op::kMarkerFloats:
    case Op::kSetFloats:
      return true;
    case Op::kSetInteger:
      return !IsOwnStreamSwitch(request.code);  // a slave may switch its own streams
    default:
      return false;
  }
}

RequestHandler::RequestHandler(Engine& engine, FrameClock& clock, std::string description,
                               std::function<nlohmann::json()> status)
    : engine_(engine),
      clock_(clock),
      description_(std::move(description)),
      status_(std::move(status)) {}

zorsock::wire::Reply RequestHandler::Handle(const ClientContext& who, bool control,
                                            StreamSwitches& streams,
                                            const zorsock::wire::Request& request) {
  zorsock::wire::Reply reply;
  reply.seq = request.seq;
  if (control != (request.op == Op::kControl)) {
    reply.status = ZOR_INVALID_OPERATION;  // control requests only on control connections
  } else if ((who.flags & ZOR_FLAG_SLAVE) && ChangesState(request)) {
    reply.status = ZOR_INVALID_OPERATION;
  } else {
    reply.status = Dispatch(who, streams, request, reply);
  }
  if (reply.status != ZOR_NO_ERROR) {  // a failed request answers nothing else
    reply.ints.clear();
    reply.floats.clear();
    if (!control) reply.text.clear();
  }
  return reply;
}

int RequestHandler::Dispatch(const ClientContext& who, StreamSwitches& streams,
                             const zorsock::wire::Request& r, zorsock::wire::Reply& reply) {
  const auto first_int = [&r](int* value) {
    if (r.ints.size() != 1) return false;
    *value = r.ints[0];
    return true;
  };
  switch (r.op) {
    case Op::kTracker:
      return engine_.TrackerOp(who, r.target, r.code);
    case Op::kTrackerInt: {
      int value = 0;
      if (!first_int(&value)) return ZOR_INVALID_VALUE;
      return engine_.TrackerOpi(who, r.target, r.code, value);
    }
    case Op::kTrackerFloat:
      if (r.floats.size() != 1) return ZOR_INVALID_VALUE;
      return engine_.TrackerOpf(who, r.target, r.code, r.floats[0]);
    case Op::kMarkerInts:
      return engine_.MarkerInts(who, r.target, r.code, r.ints);
    case Op::kMarkerFloats:
      return engine_.MarkerFloats(who, r.target, r.code, r.floats);
    case Op::kSetInteger: {
      int value = 0;
      if (!first_int(&value)) return ZOR_INVALID_VALUE;
      return SetInteger(who, streams, r.code, value);
    }
    case Op::kSetFloats:
      if (r.code == ZOR_FREQUENCY) {
        if (r.floats.size() != 1) return ZOR_INVALID_VALUE;
        return clock_.SetFrequency(r.floats[0]) ? ZOR_NO_ERROR : ZOR_INVALID_VALUE;
      }
      return engine_.SetFloats(who, r.code, r.floats);
    case Op::kGetFloats:
      if (r.code == ZOR_FREQUENCY) {
        reply.floats = {static_cast<float>(clock_.frequency())};
        return ZOR_NO_ERROR;
      }
      return engine_.GetFloats(who, r.code, reply.floats);
    case Op::kGetInts:
      if (r.code == ZOR_STREAMING) {
        reply.ints = {OnOff(streams.streaming)};
      } else if (const unsigned bit = StreamBit(r.code)) {
        reply.ints = {OnOff(streams.kinds & bit)};
      } else if (r.code == ZOR_INTERPOLATE) {
        reply.ints = {interpolate_.load()};
      } else if (r.code == ZOR_FRAME_NUMBER) {
        reply.ints = {clock_.status().frame};
      } else if (r.code == ZOR_FREQUENCY) {
        reply.ints = {static_cast<int32_t>(clock_.frequency())};
      } else {
        return engine_.GetInts(who, r.code, reply.ints);
      }
      return ZOR_NO_ERROR;
    case Op::kGetString:
      if (r.code == ZOR_SERVER_NAME) {
        reply.text = description_;
        return ZOR_NO_ERROR;
      }
      return engine_.GetString(who, r.code, reply.text);
    case Op::kControl:
      reply.text = Control(r.text);
      return ZOR_NO_ERROR;
  }
  return ZOR_INVALID_ENUM;
}

int RequestHandler::SetInteger(const ClientContext& who, StreamSwitches& streams, int code,
                               int value) {
  if (IsOwnStreamSwitch(code)) {
    if (value != ZOR_ON && value != ZOR_OFF) return ZOR_INVALID_VALUE;
    const bool on = value == ZOR_ON;
    if (code == ZOR_STREAMING) {
      streams.streaming = on;
    } else if (on) {
      streams.kinds |= StreamBit(code);
    } else {
      streams.kinds &= ~StreamBit(code);
    }
    return ZOR_NO_ERROR;
  }
  if (code == ZOR_INTERPOLATE) {
    if (value < 0) return ZOR_INVALID_VALUE;
    interpolate_ = value;
    return ZOR_NO_ERROR;
  }
  if (code == ZOR_FREQUENCY) return clock_.SetFrequency(value) ? ZOR_NO_ERROR : ZOR_INVALID_VALUE;
  return engine_.SetInteger(who, code, value);
}

std::string RequestHandler::Control(const std::string& request_json) {
  using nlohmann::json;
  const json request = json::parse(request_json, nullptr, false);
  const bool clock = request.is_object() && request.contains("cmd") && request["cmd"] == "clock";
  if (!clock) return engine_.Control(request_json);
  try {
    return ClockControl(request).dump();
  } catch (const json::exception& e) {  // a field of the wrong type
    return json{{"ok", false}, {"error", e.what()}}.dump();
  }
}

nlohmann::json RequestHandler::ClockControl(const nlohmann::json& request) {
  using nlohmann::json;
  const json action = request.value("action", json("status"));
  if (action == "rewind") {
    clock_.Rewind();
  } else if (action == "pause") {
    clock_.Pause(true);
  } else if (action == "resume") {
    clock_.Pause(false);
  } else if (action == "silence") {
    clock_.Silence(request.value("on", true));
  } else if (action == "frequency") {
    const json hz = request.value("hz", json());
    if (!hz.is_number() || !clock_.SetFrequency(hz.get<double>()))
      return {{"ok", false}, {"error", "frequency must be a number in 30..960"}};
  } else if (action != "status") {
    return {{"ok", false},
            {"error", "unknown clock action; expected rewind, pause, resume, silence, "
                      "frequency or status"}};
  }
  const FrameClock::Status s = clock_.status();
  json reply = status_ ? status_() : json::object();
  reply.update({{"ok", true},
                {"frame", s.frame},
                {"frequency", s.frequency},
                {"paused", s.paused},
                {"silent", s.silent}});
  return reply;
}

}  // namespace zord
