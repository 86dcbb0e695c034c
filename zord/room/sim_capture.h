// Wand data captured for the camera calibration: every frame of a capture, the
// 2D detections of the calibration tracker's LEDs in every camera. Captures
// add up until discarded. This is what the calibration solver takes.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <Eigen/Core>

#include "zord/solver/camera_model.h"
#include "zord/solver/capture_tally.h"

namespace zord {

struct CalibrationObservation {
  int32_t camera;
  int32_t led;   // LED id
  float u, v;    // pixels as detected (distorted)
};

struct CalibrationFrame {
  int32_t frame;   // server frame number
  uint32_t first;  // range in CalibrationCapture::observations
  uint32_t count;
};

struct WandMarker {
  int32_t led;
  Eigen::Vector3d position;  // local frame of the wand, mm
};

struct CalibrationCapture {
  std::vector<CalibrationFrame> frames;  // frames with at least one observation
  std::vector<CalibrationObservation> observations;
  std::vector<WandMarker> wand;          // tracker 1's markers with a position
  std::vector<Intrinsics> nominal;       // each camera's lens before calibration, by camera id
  // Live counts of the frames above as the solver will see them (empty until
  // the first frame is counted; not kept when counting is off).
  CaptureTally tally;

  std::span<const CalibrationObservation> Observations(const CalibrationFrame& f) const {
    return {observations.data() + f.first, f.count};
  }
  void Append(int32_t frame, std::span<const CalibrationObservation> seen) {
    if (seen.empty()) return;
    frames.push_back({frame, static_cast<uint32_t>(observations.size()),
                      static_cast<uint32_t>(seen.size())});
    observations.insert(observations.end(), seen.begin(), seen.end());
  }
  void Clear() {
    frames.clear();
    observations.clear();
    tally.Reset(tally.cameras());
  }
};

}  // namespace zord
