// The spread of the wand's length as calibrated cameras measure it: each
// frame's two outer LEDs triangulated on their own from the views that agree
// (a check that the wand model of the solve cannot hide).
#pragma once

#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/wand_data.h"

namespace zord {

struct WandLengths {
  int frames = 0;      // frames in which both outer LEDs were triangulated
  double mean_mm = 0;
  double std_mm = -1;  // sample standard deviation; -1 with fewer than two frames
};

// Samples are undistorted again with `lenses` (the set's may use nominal ones).
WandLengths MeasureWandLengths(const SampleSet& set, const StraightWand& wand,
                               const std::vector<Extrinsics>& poses,
                               const std::vector<Intrinsics>& lenses, const std::vector<bool>& use,
                               double reject_px);

}  // namespace zord
