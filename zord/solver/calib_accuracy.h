// How close a calibration is to the truth, for tests and the benchmark. A
// calibration cannot know the world frame, so the solved cameras are first
// aligned to the true ones by a rigid motion (the wand fixes the scale).
#pragma once

#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/wand_calibrator.h"

namespace zord {

struct PoseErrors {
  double position_rms_mm = 0, position_max_mm = 0;
  double rotation_rms_deg = 0, rotation_max_deg = 0;
  std::vector<double> position_mm;  // per camera (0 for those not compared)
};

// Compares the cameras flagged in `use` (at least three).
PoseErrors CompareCameraPoses(const std::vector<Extrinsics>& solved,
                              const std::vector<Extrinsics>& truth, const std::vector<bool>& use);

// Standard deviation over frames of the distance between the wand's outermost
// LEDs, triangulated with the given cameras; also their mean through `mean`.
double WandLengthStd(const CalibrationInput& input, const std::vector<Extrinsics>& poses,
                     const std::vector<Intrinsics>& lenses, double* mean = nullptr);

}  // namespace zord
