// Passes 3 and 4: bundle adjustment of the camera poses (and optionally the
// lenses) together with every frame's wand pose, the wand geometry held fixed
// so that the wand sets the scale.
#pragma once

#include <string>

#include "zord/solver/calib_state.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_options.h"
#include "zord/solver/wand_data.h"

namespace zord {

struct BundleSettings {
  bool robust = false;             // Huber loss of options.robust_loss_px
  bool refine_intrinsics = false;  // focal length (aspect kept), principal point, k1
  bool refine_aspect = false;      // with refine_intrinsics: fy on its own as well
  int fixed_camera = 0;            // held fixed to remove the gauge freedom
  double function_tolerance = 1e-9;
};

struct BundleOutcome {
  bool ok = false;
  bool cancelled = false;
  std::string problem;  // why it failed
  int parameters = 0;   // free parameters (tangent space)
  long residuals = 0;   // coordinates
  int iterations = 0;
};

// Adjusts `state` in place over its inlier samples. Frames whose inliers are
// seen by fewer than two cameras lose their wand pose and inliers.
BundleOutcome AdjustBundle(const SampleSet& set, const StraightWand& wand,
                           const BundleSettings& settings, const SolverOptions& options,
                           CalibState* state);

}  // namespace zord
