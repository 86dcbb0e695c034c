// Watches a calibrated installation for cameras that have moved since their
// calibration: each camera's live reprojection residual against LEDs
// triangulated by the other cameras alone, smoothed, compared with the level
// it settled at after the calibration. A camera whose residual stays well
// above that level is flagged until it settles again or the calibration
// changes.
#pragma once

#include <cstdint>
#include <vector>

#include "zord/room/detect.h"
#include "zord/room/recon.h"

namespace zord {

struct BumpWatchOptions {
  double checks_per_second = 60;   // frames looked at, at most (the rest are skipped)
  double smoothing_s = 0.25;       // time constant of the live residual
  double settle_s = 2.0;           // after a calibration change: learning its level
  double alert_px = 0.6;           // flagged above level + this...
  double alert_factor = 3.0;       // ...and above this times the level
  double clear_px = 0.3;           // cleared again below level + this
  int min_views = 3;               // an LED needs this many calibrated views to check one
  int max_leds = 16;               // LEDs looked at per check, taken in turn (bounds the cost)
};

struct CameraWatch {
  double level_px = -1;     // the residual it settled at after calibration; -1 while learning
  double residual_px = -1;  // live residual (smoothed); -1 before any check
  bool moved = false;
};

class BumpWatch {
 public:
  explicit BumpWatch(BumpWatchOptions options = {}) : options_(options) {}

  // Starts over for a new calibration of `cameras` cameras.
  void Reset(int cameras);
  // One frame: `slots` are the LED slots triangulated this frame, `dt` the
  // frame time in seconds. True when the frame was looked at.
  bool Check(const std::vector<CalibratedCamera>& rig, const Detector& detector,
             const std::vector<int>& slots, double dt);

  const std::vector<CameraWatch>& cameras() const { return cameras_; }

 private:
  struct Sum {
    double squared = 0;
    int count = 0;
  };
  BumpWatchOptions options_;
  std::vector<CameraWatch> cameras_;
  std::vector<Sum> learn_;  // residuals while learning the level
  double since_reset_s_ = 0;
  double since_check_s_ = 0;
  size_t next_slot_ = 0;  // where the next check starts in the frame's slots
  std::vector<Detection> others_;  // scratch
  std::vector<Sum> frame_;         // scratch, per camera
};

}  // namespace zord
