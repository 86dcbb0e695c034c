// The zor* C functions over the one global connection. Calls are expected
// from one thread; a mutex still keeps zorDone from pulling the connection
// from under a call made elsewhere. It is recursive because a waiting call
// runs the caller's wait hook, from which the caller may make further calls.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "zorsock/activity.h"
#include "zorsock/codes.h"
#include "zorsock/feedback_wire.h"
#include "zorsock/library.h"
#include "zorsock/transform.h"
#include "zorsock/wait.h"
#include "zorsock/zorsock.h"

namespace zorsock {

namespace {

struct Library {
  std::recursive_mutex mu;
  std::unique_ptr<Connection> connection;
  ErrorQueue errors;
  std::atomic<int> status{1};
  ClientTransform transform;
  ConnectionOptions options;
};

Library& Lib() {
  static Library lib;
  return lib;
}

int Succeed(int result = 1) {
  Lib().status = 1;
  return result;
}

// Records a failed call: queues `code` (unless 0) and returns `result`.
int Failed(int code, int result = 0) {
  Lib().status = 0;
  if (code != ZOR_NO_ERROR) Lib().errors.Push(code);
  return result;
}

// Sends a request on the current connection; nullopt (with the failure
// recorded) unless the server answered with status 0.
std::optional<wire::Reply> Ask(wire::Request request) {
  Library& lib = Lib();
  if (!lib.connection) {
    Failed(ZOR_NOT_CONNECTED);
    return std::nullopt;
  }
  int error = 0;
  auto reply = lib.connection->Call(std::move(request), &error);
  if (!reply) {
    Failed(error);
    return std::nullopt;
  }
  if (reply->status != ZOR_NO_ERROR) {
    Failed(reply->status);
    return std::nullopt;
  }
  Succeed();
  return reply;
}

wire::Request MakeRequest(wire::Op op, int target, int code) {
  wire::Request r;
  r.op = op;
  r.target = target;
  r.code = code;
  return r;
}

int AskStatus(wire::Request request) { return Ask(std::move(request)) ? 1 : 0; }

int CopyString(const std::string& text, char* buffer) {
  const size_t n = std::min(text.size(), static_cast<size_t>(ZOR_STRING_MAX - 1));
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return static_cast<int>(n);
}

// Hands out the head frame's records of one kind, in the caller's frame.
template <typename Record>
int TakeRecords(Kind kind, Record* out, int capacity) {
  Library& lib = Lib();
  std::lock_guard lock(lib.mu);
  if (!lib.connection) return Failed(ZOR_NOT_CONNECTED, -1);
  if (!out || capacity < 0) return Failed(ZOR_INVALID_VALUE, -1);
  const int n = lib.connection->frames().Take(kind, out, capacity);
  if constexpr (std::is_same_v<Record, ZORMarker> || std::is_same_v<Record, ZORRigid>) {
    lib.transform.Apply(out, n);
  }
  return Succeed(n);
}

// Answers the per-frame queries the library keeps itself; false for codes the
// server owns.
bool LocalInts(Library& lib, int code, int* values, int* count) {
  FrameQueue& frames = lib.connection->frames();
  auto head_has = [&](Kind kind) {
    values[0] = frames.HeadHas(kind) ? 1 : 0;
    *count = 1;
  };
  switch (code) {
    case ZOR_SEND_MARKERS: head_has(Kind::kMarkers); return true;
    case ZOR_SEND_RIGIDS: head_has(Kind::kRigids); return true;
    case ZOR_SEND_IMAGES: head_has(Kind::kImages); return true;
    case ZOR_SEND_DETECTORS: head_has(Kind::kDetectors); return true;
    case ZOR_FRAME_NUMBER:
      values[0] = frames.newest();
      *count = 1;
      return true;
    case ZOR_FRAMES_DROPPED:
      values[0] = static_cast<int>(std::min<int64_t>(frames.dropped(), INT32_MAX));
      *count = 1;
      return true;
    case ZOR_FRAME_TIME: {
      const auto t = static_cast<uint64_t>(frames.head_time_us());
      values[0] = static_cast<int>(static_cast<uint32_t>(t));
      values[1] = static_cast<int>(static_cast<uint32_t>(t >> 32));
      *count = 2;
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

void SetConnectionOptions(const ConnectionOptions& options) {
  std::lock_guard lock(Lib().mu);
  Lib().options = options;
}

ConnectionOptions GetConnectionOptions() {
  std::lock_guard lock(Lib().mu);
  return Lib().options;
}

bool HasOpenSession() {
  std::lock_guard lock(Lib().mu);
  return Lib().connection && Lib().connection->open();
}

size_t ReceiveBufferCapacity() {
  std::lock_guard lock(Lib().mu);
  return Lib().connection ? Lib().connection->receive_capacity() : 0;
}

}  // namespace zorsock

using namespace zorsock;

extern "C" {

int zorInit(const char* server, unsigned int flags) {
  Library& lib = Lib();
  // From a wait hook, a call is under way: the connection is not ours to replace.
  if (CallWaiting()) return Failed(ZOR_NO_ERROR, ZOR_ERR_ALREADY_CONNECTED);
  std::lock_guard lock(lib.mu);
  if (lib.connection) {
    if (lib.connection->open()) return Failed(ZOR_NO_ERROR, ZOR_ERR_ALREADY_CONNECTED);
    lib.connection.reset();  // a link that ended without zorDone
  }
  if (!server) return Failed(ZOR_NO_ERROR, ZOR_ERR_RESOLVE);
  lib.errors.Clear();
  std::unique_ptr<Connection> connection;
  const int result = Connection::Open(server, flags, lib.options, lib.errors, &connection);
  if (result < 0) return Failed(ZOR_NO_ERROR, result);
  lib.connection = std::move(connection);
  return Succeed(result);
}

void zorDone(void) {
  Library& lib = Lib();
  if (CallWaiting()) return;  // the waiting call still uses the connection
  std::lock_guard lock(lib.mu);
  lib.connection.reset();
  Succeed();
}

int zorGetStatus(void) { return Lib().status; }

int zorGetError(void) { return Lib().errors.Pop(); }

int zorSetInteger(int code, int value) {
  std::lock_guard lock(Lib().mu);
  auto r = MakeRequest(wire::Op::kSetInteger, 0, code);
  r.ints = {value};
  return AskStatus(std::move(r));
}

int zorNotify(int activity) {
  std::lock_guard lock(Lib().mu);
  Library& lib = Lib();
  if (!lib.connection) return 0;
  auto r = MakeRequest(wire::Op::kSetInteger, 0, ZOR_CLIENT_ACTIVITY);
  r.ints = {activity};
  int error = 0;
  const auto reply = lib.connection->Call(std::move(r), &error);
  return reply && reply->status == ZOR_NO_ERROR ? 1 : 0;
}

int zorSetFloat(int code, float value) {
  std::lock_guard lock(Lib().mu);
  auto r = MakeRequest(wire::Op::kSetFloats, 0, code);
  r.floats = {value};
  return AskStatus(std::move(r));
}

int zorSetFloatv(int code, const float* values) {
  std::lock_guard lock(Lib().mu);
  if (!values) return Failed(ZOR_INVALID_VALUE);
  auto r = MakeRequest(wire::Op::kSetFloats, 0, code);
  r.floats.assign(values, values + wire::FloatCount(code));
  return AskStatus(std::move(r));
}

int zorGetFloatv(int code, float* values) {
  std::lock_guard lock(Lib().mu);
  if (!values) return Failed(ZOR_INVALID_VALUE);
  auto reply = Ask(MakeRequest(wire::Op::kGetFloats, 0, code));
  if (!reply) return 0;
  const int n = std::min<int>(static_cast<int>(reply->floats.size()), wire::FloatCount(code));
  std::copy_n(reply->floats.begin(), n, values);
  return n;
}

int zorGetIntegerv(int code, int* values) {
  Library& lib = Lib();
  std::lock_guard lock(lib.mu);
  if (!values) return Failed(ZOR_INVALID_VALUE);
  if (!lib.connection) return Failed(ZOR_NOT_CONNECTED);
  int count = 0;
  if (LocalInts(lib, code, values, &count)) return Succeed(count);
  auto reply = Ask(MakeRequest(wire::Op::kGetInts, 0, code));
  if (!reply) return 0;
  const int n = std::min<int>(static_cast<int>(reply->ints.size()), wire::IntCount(code));
  std::copy_n(reply->ints.begin(), n, values);
  return n;
}

int zorGetString(int code, char* buffer) {
  std::lock_guard lock(Lib().mu);
  if (!buffer) return Failed(ZOR_INVALID_VALUE, -1);
  if (code == ZOR_VERSION) return Succeed(CopyString(LibraryVersion(), buffer));
  if (const char* text = CodeText(code)) return Succeed(CopyString(text, buffer));
  buffer[0] = '\0';
  // Asking for the text of an unknown code is how clients report a failed
  // connect: no connection is then no error of its own.
  const bool server_string = code == ZOR_SERVER_NAME || code == ZOR_CALIB_MESSAGE;
  if (!Lib().connection) return Failed(server_string ? ZOR_NOT_CONNECTED : ZOR_NO_ERROR, 0);
  if (code == ZOR_CALIB_MESSAGE) {
    // The server pushes these with the stream: asked for every frame, they are
    // answered here without a round trip.
    std::string text;
    return Succeed(Lib().connection->TakeCalibMessage(&text) ? CopyString(text, buffer) : 0);
  }
  auto reply = Ask(MakeRequest(wire::Op::kGetString, 0, code));
  if (!reply) return -1;
  return CopyString(reply->text, buffer);
}

int zorScale(float scale) {
  std::lock_guard lock(Lib().mu);
  if (!std::isfinite(scale) || scale <= 0) return Failed(ZOR_INVALID_VALUE);
  Lib().transform.scale = scale;
  return Succeed();
}

int zorLoadPose(const float pose[7]) {
  std::lock_guard lock(Lib().mu);
  if (!pose || !std::all_of(pose, pose + 7, [](float v) { return std::isfinite(v); }))
    return Failed(ZOR_INVALID_VALUE);
  std::array<float, 7> p;
  std::copy_n(pose, 7, p.begin());
  if (p[3] == 0 && p[4] == 0 && p[5] == 0 && p[6] == 0) return Failed(ZOR_INVALID_VALUE);
  normalize_p(p.data());
  Lib().transform.pose = p;
  return Succeed();
}

int zorGetMarkers(ZORMarker* out, int capacity) {
  return TakeRecords(Kind::kMarkers, out, capacity);
}

int zorGetRigids(ZORRigid* out, int capacity) { return TakeRecords(Kind::kRigids, out, capacity); }

int zorGetImages(ZORImage* out, int capacity) { return TakeRecords(Kind::kImages, out, capacity); }

int zorGetDetectors(ZORDetector* out, int capacity) {
  return TakeRecords(Kind::kDetectors, out, capacity);
}

int zorGetCameras(ZORCamera* out, int capacity) {
  Library& lib = Lib();
  std::lock_guard lock(lib.mu);
  if (!lib.connection) return Failed(ZOR_NOT_CONNECTED, -1);
  if (!out || capacity < 0) return Failed(ZOR_INVALID_VALUE, -1);
  const auto cameras = lib.connection->cameras();
  const int n = std::min<int>(capacity, static_cast<int>(cameras.size()));
  std::copy_n(cameras.begin(), n, out);
  lib.transform.Apply(out, n);
  return Succeed(n);
}

int zorTracker(int id, int op) {
  std::lock_guard lock(Lib().mu);
  return AskStatus(MakeRequest(wire::Op::kTracker, id, op));
}

int zorTrackeri(int id, int op, int value) {
  std::lock_guard lock(Lib().mu);
  auto r = MakeRequest(wire::Op::kTrackerInt, id, op);
  r.ints = {value};
  return AskStatus(std::move(r));
}

int zorTrackerf(int id, int param, float value) {
  std::lock_guard lock(Lib().mu);
  auto r = MakeRequest(wire::Op::kTrackerFloat, id, param);
  r.floats = {value};
  return AskStatus(std::move(r));
}

int zorMarkeriv(int markerId, int code, const int* values) {
  std::lock_guard lock(Lib().mu);
  if (!values) return Failed(ZOR_INVALID_VALUE);
  auto r = MakeRequest(wire::Op::kMarkerInts, markerId, code);
  r.ints.assign(values, values + wire::IntCount(code));
  return AskStatus(std::move(r));
}

int zorMarkerfv(int markerId, int code, const float* values) {
  std::lock_guard lock(Lib().mu);
  if (!values) return Failed(ZOR_INVALID_VALUE);
  auto r = MakeRequest(wire::Op::kMarkerFloats, markerId, code);
  if (code == ZOR_MARKER_POSITION) {
    r.floats.assign(values, values + 3);
    Lib().transform.ToServer(r.floats.data());
  } else {
    r.floats.assign(values, values + wire::FloatCount(code));
  }
  return AskStatus(std::move(r));
}

}  // extern "C"

namespace {

// The feedback getters: asks for `code` and decodes the reply's floats or
// ints, whichever `decode` reads, into `out`; false (with the failure
// recorded) when either fails.
template <typename Value, typename Decoded>
bool AskFeedback(int code, bool (*decode)(const std::vector<Value>&, Decoded*), Decoded* out) {
  constexpr bool kFloats = std::is_same_v<Value, float>;
  auto reply = Ask(MakeRequest(kFloats ? wire::Op::kGetFloats : wire::Op::kGetInts, 0, code));
  if (!reply) return false;
  bool decoded;
  if constexpr (kFloats) {
    decoded = decode(reply->floats, out);
  } else {
    decoded = decode(reply->ints, out);
  }
  if (!decoded) return Failed(ZOR_PROTOCOL_ERROR, false);
  return true;
}

// Copies up to `capacity` items; returns how many there are.
template <typename T>
int CopyOut(const std::vector<T>& items, T* out, int capacity) {
  const int n = static_cast<int>(items.size());
  std::copy_n(items.begin(), std::min(n, capacity), out);
  return n;
}

}  // namespace

extern "C" int zorGetCoverage(ZORCoverageSummary* summary, ZORCoverage* cameras, int capacity,
                              int* shared_frames) {
  std::lock_guard lock(Lib().mu);
  if (!summary || capacity < 0 || (capacity > 0 && !cameras)) return Failed(ZOR_INVALID_VALUE, -1);
  wire::CoverageReply coverage;
  if (!AskFeedback(ZOR_CALIB_COVERAGE, wire::DecodeCoverage, &coverage)) return -1;
  *summary = coverage.summary;
  const int n = CopyOut(coverage.cameras, cameras, capacity);
  if (shared_frames && n <= capacity)
    std::copy(coverage.shared_frames.begin(), coverage.shared_frames.end(), shared_frames);
  return n;
}

extern "C" int zorGetCalibResult(ZORCalibSummary* summary, ZORCameraResult* cameras, int capacity) {
  std::lock_guard lock(Lib().mu);
  if (!summary || capacity < 0 || (capacity > 0 && !cameras)) return Failed(ZOR_INVALID_VALUE, -1);
  wire::ResultReply result;
  if (!AskFeedback(ZOR_CALIB_RESULT, wire::DecodeResult, &result)) return -1;
  *summary = result.summary;
  return CopyOut(result.cameras, cameras, capacity);
}

// The feedback lists: up to `capacity` records to `out`; returns how many
// there are, -1 when the request failed.
template <typename Value, typename Record>
int GetList(int code, bool (*decode)(const std::vector<Value>&, std::vector<Record>*),
            Record* out, int capacity) {
  std::lock_guard lock(Lib().mu);
  if (capacity < 0 || (capacity > 0 && !out)) return Failed(ZOR_INVALID_VALUE, -1);
  std::vector<Record> list;
  if (!AskFeedback(code, decode, &list)) return -1;
  return CopyOut(list, out, capacity);
}

extern "C" int zorGetCameraWatch(ZORCameraWatch* cameras, int capacity) {
  return GetList(ZOR_CAMERA_WATCH, wire::DecodeWatch, cameras, capacity);
}

extern "C" int zorGetCameraModels(ZORCameraModel* cameras, int capacity) {
  return GetList(ZOR_CAMERA_MODELS, wire::DecodeModels, cameras, capacity);
}
