// How well the wand data determines each camera's pose: the covariance of the
// camera's centre and orientation from the calibration's own data, with its
// lens free within what is known of it beforehand. The solver holds the lens
// or refuses the camera on this figure; the client can show it.
#pragma once

#include <limits>

namespace zord {

struct CalibState;
struct SampleSet;
struct StraightWand;

// How far a real lens may differ from its nominal description (one sigma).
struct LensPrior {
  double focal = 0.01;   // fraction of the focal length
  double aspect = 1e-3;  // of fy / fx, when it is refined at all
  double centre_px = 5;
  double k1 = 0.01;
};

struct PoseUncertainty {
  bool determined = false;  // false: the data cannot fix this pose at all
  // One sigma along the worst direction, infinite when not determined.
  double position_mm = std::numeric_limits<double>::infinity();
  double rotation_deg = std::numeric_limits<double>::infinity();
  int samples = 0;  // the camera's inlier samples that entered
};

// The camera's pose covariance from its inlier samples of the posed wand
// frames (the wand poses taken as known: the other cameras fix them), its
// pixel noise `sigma_px`, and its focal length, principal point and k1 (and
// aspect with `free_aspect`) free under `prior` about their current values;
// without a prior the lens is taken as exact.
PoseUncertainty CameraPoseUncertainty(const SampleSet& set, const StraightWand& wand,
                                      const CalibState& state, int camera, double sigma_px,
                                      const LensPrior* prior, bool free_aspect);

}  // namespace zord
