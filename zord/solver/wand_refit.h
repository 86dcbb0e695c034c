// Wand poses fitted again with the cameras and lenses held. Each frame's pose
// then depends on that frame's samples alone, so this is a small solve per
// frame: it gives the frames that a joint adjustment left out (it ran on an
// even subset) poses that agree with its cameras.
#pragma once

#include <vector>

#include "zord/solver/calib_state.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/wand_data.h"

namespace zord {

// Refits the wand pose of each listed frame that has one, from its inlier
// samples of cameras in use; with `robust_loss_px` > 0 each camera's samples
// in the frame are weighted as the robust bundle adjustment does (Huber). A
// frame whose inliers come from fewer than two cameras loses its wand pose
// and inliers, as in the bundle adjustment. Returns the frames posed.
int RefitWandPoses(const SampleSet& set, const StraightWand& wand,
                   const std::vector<size_t>& frames, double robust_loss_px, CalibState* state);

// The frames of the sample set not in `subset` (sorted indices).
std::vector<size_t> FramesOutside(size_t count, const std::vector<size_t>& subset);

}  // namespace zord
