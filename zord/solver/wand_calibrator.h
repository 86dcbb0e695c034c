// Calibrates the cameras from captured wand frames in four passes:
//   1. relative poses of camera pairs (essential matrices) over a spanning
//      tree of the camera graph;
//   2. the pairs chained into one frame, made metric with the wand;
//   3. robust bundle adjustment and outlier rejection;
//   4. final least-squares refinement (optionally of the lenses too) and a
//      check of every camera on its own.
// Each pass ends with a PassReport through the callback, on the calling
// thread; the first failed pass ends the run. Re-entrant: runs may proceed in
// parallel on different threads.
#pragma once

#include <functional>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/solver_options.h"
#include "zord/solver/solver_result.h"
#include "zord/solver/wand_data.h"

namespace zord {

struct CalibrationInput {
  std::vector<Intrinsics> cameras;  // nominal lenses; the count is the number of cameras
  std::vector<WandFrame> frames;    // in capture order
  std::vector<WandLed> wand;        // a straight wand's LEDs (mm)
};

using PassCallback = std::function<void(const PassReport&)>;

// A cancelled run reports nothing further and returns kCancelled.
CalibrationResult CalibrateWand(const CalibrationInput& input, const SolverOptions& options,
                                const PassCallback& on_pass = {});

}  // namespace zord
