// The capture engine behind zord: what the network layer asks of the simulated
// installation. The server's frame clock calls Step() on its own thread while
// client requests arrive on the network thread, so every method is thread-safe.
//
// Units are the server's: millimetres, world Y up, floor at y = 0. Scale and
// the client's LoadPose are applied by the client library, never here; the
// global transform (ZOR_GLOBAL_TRANSFORM) is applied here, to everything the
// engine reports.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zorsock/wire.h"
#include "zorsock/zorsock.h"

namespace zord {

// One frame of results, as streamed to clients.
struct FrameData {
  // Set by the caller of Step(): whether any session streams these kinds, so
  // the engine can skip producing them.
  bool want_images = true;
  bool want_detectors = true;

  int32_t number = 0;
  int64_t time_us = 0;  // steady clock at the frame's capture, microseconds
  std::vector<ZORMarker> markers;      // LEDs of enabled trackers, id = (tracker << 12) | index
  std::vector<ZORRigid> rigids;        // enabled rigid trackers
  std::vector<ZORImage> images;        // every 2D detection of every camera
  std::vector<ZORDetector> detectors;  // one per camera
  bool wand_capture = false;           // the wand was being captured for calibration
};

// A raw data recording sent for replay (docs/rpd.md): the cameras it was made
// with and every frame's 2D detections, in order.
struct RawRecording {
  zorsock::wire::RawHeader header;
  std::vector<zorsock::wire::RawFrame> frames;
  size_t images = 0;  // over all frames
};

// Who is asking: state changes from slave sessions are refused by the server
// before they reach the engine; calibration requests need a calibration session.
struct ClientContext {
  int session = 0;
  uint32_t flags = 0;  // zorInit flags
};

class Engine {
 public:
  virtual ~Engine() = default;

  // Advance the simulation by one frame of `dt` seconds and produce its results
  // into `out` (its vectors are cleared first; its want_* flags are read).
  virtual void Step(int32_t frame_number, double dt, int64_t time_us, FrameData& out) = 0;
  // Cameras with their current (calibrated) poses; cond < 0 while uncalibrated.
  virtual std::vector<ZORCamera> Cameras() const = 0;

  // Sessions. A calibration session (flags & ZOR_FLAG_CALIBRATE) may reset and
  // replace the calibration.
  virtual void SessionOpened(const ClientContext& who) = 0;
  virtual void SessionClosed(const ClientContext& who) = 0;

  // Requests. Each returns ZOR_NO_ERROR or an error code (ZOR_INVALID_VALUE,
  // ZOR_INVALID_ENUM, ZOR_INVALID_OPERATION).
  virtual int TrackerOp(const ClientContext& who, int id, int op) = 0;
  virtual int TrackerOpi(const ClientContext& who, int id, int op, int value) = 0;
  virtual int TrackerOpf(const ClientContext& who, int id, int param, float value) = 0;
  virtual int MarkerInts(const ClientContext& who, int marker_id, int code,
                         const std::vector<int32_t>& values) = 0;
  virtual int MarkerFloats(const ClientContext& who, int marker_id, int code,
                           const std::vector<float>& values) = 0;
  virtual int SetInteger(const ClientContext& who, int code, int value) = 0;
  virtual int SetFloats(const ClientContext& who, int code, const std::vector<float>& values) = 0;
  virtual int GetFloats(const ClientContext& who, int code, std::vector<float>& out) = 0;
  virtual int GetInts(const ClientContext& who, int code, std::vector<int32_t>& out) = 0;
  // Strings the engine owns (ZOR_CALIB_MESSAGE pops the next calibration
  // message; empty when none).
  virtual int GetString(const ClientContext& who, int code, std::string& out) = 0;

  // Operator control (zordctl, tests): a JSON request, a JSON reply.
  virtual std::string Control(const std::string& request_json) = 0;

  // Raw data. The cameras raw frames describe (none: the engine offers no raw
  // data), and replacing the camera input by a recording (ZOR_NO_ERROR, or an
  // error code with the reason in `why`).
  virtual zorsock::wire::RawHeader RawDataHeader() const { return {}; }
  virtual int StartReplay(std::shared_ptr<const RawRecording> recording, std::string* why) {
    (void)recording;
    *why = "this server cannot replay recordings";
    return ZOR_INVALID_OPERATION;
  }
};

}  // namespace zord
