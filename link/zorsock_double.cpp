#include "link/zorsock_double.h"
#include "zorsock/activity.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zordouble {

namespace {

State state;

// Records a call and its outcome: a configured failure queues its error.
int Record(const std::string& call, const std::string& name) {
  state.calls.push_back(call);
  auto failure = state.failing.find(name);
  state.status = failure == state.failing.end() ? 1 : 0;
  if (!state.status) state.errors.push_back(failure->second);
  return state.status;
}

// Marks of what has been taken from the head frame, per kind.
struct Taken {
  bool markers = false, rigids = false, images = false, detectors = false;
} taken;

void PopWhenDone() {
  if (state.queue.empty()) return;
  const Frame& head = state.queue.front();
  if ((head.markers.empty() || taken.markers) && (head.rigids.empty() || taken.rigids) &&
      (head.images.empty() || taken.images) && (head.detectors.empty() || taken.detectors)) {
    state.queue.pop_front();
    taken = {};
  }
}

template <typename Record_>
int Hand(const std::vector<Record_> Frame::*kind, bool Taken::*mark, unsigned bit, Record_* out,
         int capacity) {
  if (state.failGet & bit) return -1;
  if (state.holdGet & bit) return 0;
  if (state.queue.empty()) return 0;
  const auto& records = state.queue.front().*kind;
  if (records.empty() || taken.*mark) return 0;
  const int n = std::min<int>(capacity, int(records.size()));
  std::memcpy(out, records.data(), n * sizeof(Record_));
  taken.*mark = true;
  PopWhenDone();
  return n;
}


}  // namespace

State& Double() { return state; }

void Reset() {
  state = State{};
  taken = {};
}

void Push(const Frame& frame) {
  state.newest = frame.number;
  if (frame.markers.empty() && frame.rigids.empty() && frame.images.empty() &&
      frame.detectors.empty())
    return;
  state.queue.push_back(frame);
}

Frame MarkerFrame(int number, int count) {
  Frame frame;
  frame.number = number;
  for (int i = 0; i < count; ++i)
    frame.markers.push_back({i, number, float(i), 0, 0, 1.0f, 0});
  return frame;
}

Frame MarkerRigidFrame(int number, int markers, int rigids) {
  Frame frame = MarkerFrame(number, markers);
  for (int i = 0; i < rigids; ++i)
    frame.rigids.push_back({i, number, {0, 0, 0, 1, 0, 0, 0}, 1.0f, 0});
  return frame;
}

std::string Call(const std::string& name, std::initializer_list<long long> args) {
  std::string text = name + "(";
  bool first = true;
  for (long long a : args) {
    if (!first) text += ",";
    text += std::to_string(a);
    first = false;
  }
  return text + ")";
}

bool Called(const std::string& call) {
  return std::find(state.calls.begin(), state.calls.end(), call) != state.calls.end();
}

int CountCalls(const std::string& prefix) {
  return int(std::count_if(state.calls.begin(), state.calls.end(),
                           [&](const std::string& c) { return c.rfind(prefix, 0) == 0; }));
}

}  // namespace zordouble

using namespace zordouble;

extern "C" {

int zorInit(const char* server, unsigned int flags) {
  state.calls.push_back("zorInit(" + std::string(server) + "," + std::to_string(flags) + ")");
  state.connected = state.initResult >= 0;
  state.status = state.connected;
  return state.initResult;
}

void zorDone(void) {
  state.calls.push_back("zorDone()");
  state.connected = false;
}

int zorGetStatus(void) { return state.status; }

int zorGetError(void) {
  if (state.errors.empty()) return ZOR_NO_ERROR;
  const int e = state.errors.front();
  state.errors.pop_front();
  return e;
}

int zorSetInteger(int code, int value) {
  return Record(Call("zorSetInteger", {code, value}), "zorSetInteger");
}

// A notice leaves the status and the errors alone, as the library's does.
int zorNotify(int activity) {
  state.calls.push_back(Call("zorNotify", {activity}));
  return state.connected ? 1 : 0;
}

int zorSetFloat(int code, float value) {
  const int ok = Record(Call("zorSetFloat", {code, (long long)value}), "zorSetFloat");
  if (ok && code == ZOR_FREQUENCY) state.frequency = value;
  return ok;
}

int zorSetFloatv(int code, const float* values) {
  const int n = code == ZOR_GLOBAL_TRANSFORM ? 7 : 1;
  state.lastFloatv.assign(values, values + n);
  return Record(Call("zorSetFloatv", {code}), "zorSetFloatv");
}

int zorGetFloatv(int code, float* values) {
  if (code == ZOR_GLOBAL_TRANSFORM) {
    std::copy(state.globalTransform.begin(), state.globalTransform.end(), values);
    return 7;
  }
  if (code != ZOR_FREQUENCY) return 0;
  *values = state.frequency;
  return 1;
}

int zorGetIntegerv(int code, int* values) {
  const int sendBit = code == ZOR_SEND_MARKERS ? 1
                      : code == ZOR_SEND_RIGIDS ? 2
                      : code == ZOR_SEND_IMAGES ? 4
                      : code == ZOR_SEND_DETECTORS ? 8 : 0;
  if (sendBit && state.sendOverride >= 0) {
    *values = (state.sendOverride & sendBit) != 0;
    return 1;
  }
  const Frame* head = state.queue.empty() ? nullptr : &state.queue.front();
  switch (code) {
    case ZOR_SEND_MARKERS:
      *values = head && !head->markers.empty() && !taken.markers;
      return 1;
    case ZOR_SEND_RIGIDS:
      *values = head && !head->rigids.empty() && !taken.rigids;
      return 1;
    case ZOR_SEND_IMAGES:
      *values = head && !head->images.empty() && !taken.images;
      return 1;
    case ZOR_SEND_DETECTORS:
      *values = head && !head->detectors.empty() && !taken.detectors;
      return 1;
    case ZOR_FRAME_NUMBER:
      if (state.newest < 0) return 0;
      *values = state.newest;
      return 1;
  }
  return 0;
}

int zorGetString(int code, char* buffer) {
  if (code == ZOR_CALIB_MESSAGE) {
    if (state.calibMessages.empty()) return 0;
    const std::string message = state.calibMessages.front();
    state.calibMessages.pop_front();
    std::snprintf(buffer, ZOR_STRING_MAX, "%s", message.c_str());
    return int(std::strlen(buffer));
  }
  if (code == ZOR_CONNECTION_LOST) return int(std::strlen(std::strcpy(buffer, "Connection Lost")));
  if (code != ZOR_VERSION || state.version.empty()) return 0;
  std::strcpy(buffer, state.version.c_str());
  return int(state.version.size());
}

int zorScale(float scale) { return Record(Call("zorScale", {(long long)(scale * 1000)}), "zorScale"); }
int zorLoadPose(const float*) { return Record("zorLoadPose()", "zorLoadPose"); }

int zorGetMarkers(ZORMarker* out, int capacity) {
  return Hand(&Frame::markers, &Taken::markers, 1, out, capacity);
}
int zorGetRigids(ZORRigid* out, int capacity) {
  return Hand(&Frame::rigids, &Taken::rigids, 2, out, capacity);
}
int zorGetImages(ZORImage* out, int capacity) {
  return Hand(&Frame::images, &Taken::images, 4, out, capacity);
}
int zorGetDetectors(ZORDetector* out, int capacity) {
  return Hand(&Frame::detectors, &Taken::detectors, 8, out, capacity);
}
int zorGetCameras(ZORCamera* out, int capacity) {
  if (state.failGet & 16) return -1;
  const int n = std::min<int>(capacity, int(state.cameras.size()));
  std::copy_n(state.cameras.begin(), n, out);
  return n;
}

int zorTracker(int id, int op) { return Record(Call("zorTracker", {id, op}), "zorTracker"); }
int zorTrackeri(int id, int op, int value) {
  return Record(Call("zorTrackeri", {id, op, value}), "zorTrackeri");
}
int zorTrackerf(int id, int param, float value) {
  return Record(Call("zorTrackerf", {id, param, (long long)value}), "zorTrackerf");
}
int zorMarkeriv(int markerId, int code, const int* values) {
  return Record(Call("zorMarkeriv", {markerId, code, values[0]}), "zorMarkeriv");
}
int zorMarkerfv(int markerId, int code, const float* v) {
  return Record(Call("zorMarkerfv", {markerId, code, (long long)v[0], (long long)v[1], (long long)v[2]}),
                "zorMarkerfv");
}

int zorRPDOpen(const char*, const char* fileName, int mode) {
  state.calls.push_back("zorRPDOpen(" + std::to_string(mode) + ")");
  state.rpdFile = fileName;
  return state.rpdOpenResult;
}
int zorRPDSend(void) { return Record("zorRPDSend()", "zorRPDSend"); }
int zorRPDRecv(void) {
  state.calls.push_back("zorRPDRecv()");
  if (state.rpdRecv.empty()) return 0;
  const int result = state.rpdRecv.front();
  state.rpdRecv.pop_front();
  return result;
}
const char* zorRPDError(void) { return "test double"; }
int zorRPDClose(void) { return Record("zorRPDClose()", "zorRPDClose"); }

int zor_scan(const char*, int, const char*, int, char*, int) { return 0; }

}  // extern "C"
