// A camera posed again from the wand as the other cameras place it: for a
// camera that started from a wrong pose, for example one facing a shiny wall
// whose pair estimate followed the wand's reflection rather than the wand.
#pragma once

#include "zord/solver/calib_state.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/wand_data.h"

namespace zord {

// RANSAC over the camera's detections against the LEDs of the frames' wand
// poses (its lens as in `state`); on success `pose` is the pose most of
// them agree on within `threshold_px`. False when fewer than `min_inliers`
// agree. The LEDs a camera reports twice in a frame count too: facing a
// mirror, a camera may see the wand itself only together with its image.
bool ResectCamera(const SampleSet& set, const StraightWand& wand, const CalibState& state,
                  int camera, double threshold_px, int min_inliers, Extrinsics* pose);

}  // namespace zord
