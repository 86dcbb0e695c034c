// ZOR: the client's one session with the capture server. It opens and closes
// the connection through zorsock, pushes the client's settings and trackers,
// and assembles complete frames of markers, rigids, images and detectors
// (plus the latest cameras) for the rest of the program to read.
//
// Operations return 1 done (or a count), 0 nothing done, negative a library
// error; diagnostics are single lines on standard output.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "link/connection_settings.h"
#include "link/tracker.h"
#include "zorsock/frame_assembler.h"
#include "zorsock/geometry.h"
#include "zorsock/zorsock.h"

// ErrorText contexts: general codes, a failed Init for the console, and the
// same for a dialog.
enum ZORErrorContext { kErrorGeneral = 0, kErrorInitConsole = 256, kErrorInitDialog = 257 };

class ZOR {
 public:
  static constexpr int kPollsPerTick = 48;   // frames the pump takes per timer tick
  static constexpr int kFlushPolls = 480;

  // markerCapacity: markers expected per frame (room reserved up front);
  // scale: factor the server applies to everything it sends.
  ZOR(int markerCapacity, float scale);
  virtual ~ZOR();
  ZOR(const ZOR&) = delete;
  ZOR& operator=(const ZOR&) = delete;

  // Connects and pushes settings and trackers. Returns zorInit's result (>= 0)
  // on success, its negative code when it failed, -1 when the server refused
  // the set-up.
  // A derived session may open differently (the calibration session does).
  virtual int32_t Init(const ConnectionSettings& settings, bool startStreaming, bool setFrequency);
  void SetStreaming(bool on);
  int32_t SetFrequency(float f);
  void LoadPose(const float newPose[7]);

  // Sends every tracker, unscaled, in list order.
  void CreateTrackers();
  Tracker* FindTracker(int32_t id);
  // Appends a tracker to the list (it is sent on the next CreateTrackers).
  Tracker* AddTracker(std::unique_ptr<Tracker> tracker);
  bool RemoveTracker(int32_t id);
  // Destroys every tracker but keepId (-1: all) on the server; the list stays.
  void RemoveAllTrackers(int32_t keepId);

  // One step of the frame loop: 1 a frame was delivered, 0 none yet, -1 the
  // session ended (lastError says why).
  int32_t Poll();
  virtual int32_t FetchFrame();

  // Takes up to maxFrames frames, calling onFrame after each; stops at the
  // first Poll that delivers nothing. The main window runs this once a tick.
  struct PumpResult {
    int frames = 0;     // frames delivered
    int32_t last = 0;   // result of the last Poll (-1: the link failed)
  };
  template <typename OnFrame>
  PumpResult Pump(int maxFrames, OnFrame&& onFrame);
  PumpResult Pump(int maxFrames) {
    return Pump(maxFrames, [] {});
  }

  void Flush();
  virtual void Done();

  // Raw data (the server's 2D stream) into or out of request.rpdFile, by
  // request.rpdMode: 1 records from this open session, 2 sends a file while
  // no session is open. Returns 1 opened, 0 not applicable here, a negative
  // library code when it failed (the request's mode is then reset to 0).
  int32_t rpdOpen(ConnectionSettings& request);
  int32_t rpdClose();

  static std::string ErrorText(int32_t code, int context, const std::string& server);

  bool connected() const { return running != 0; }
  bool slave() const { return (flags & ZOR_FLAG_SLAVE) != 0; }

  // Session state, in the order the rest of the program knows it.
  int32_t running = 0;
  float frequency = 0.0f;  // server frame rate as last read back
  uint32_t flags = 0;      // the connection's flags (bit 0: slave)
  float scale;
  Pose pose;               // global pose sent with zorLoadPose
  int32_t lastFrame = 0;   // number of the last frame delivered
  int32_t lastError = 0;   // code last read by Poll
  std::vector<std::unique_ptr<Tracker>> trackers;

  // The delivered frame.
  std::vector<ZORMarker> markers;
  std::vector<ZORRigid> rigids;
  std::vector<ZORImage> images;
  std::vector<ZORDetector> detectors;
  std::vector<ZORCamera> cameras;

 protected:
  void ResetFrames();

  ZORFrameAssembler assembler;
};

template <typename OnFrame>
ZOR::PumpResult ZOR::Pump(int maxFrames, OnFrame&& onFrame) {
  PumpResult result;
  for (int i = 0; i < maxFrames; ++i) {
    result.last = Poll();
    if (result.last < 1) break;
    ++result.frames;
    onFrame();
  }
  return result;
}
