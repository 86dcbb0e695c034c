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

// Lens values a bundle adjustment may refine, as a bit set per camera.
enum LensTerm : unsigned {
  kLensFocal = 1,       // fx, with fy following at the nominal aspect
  kLensAspect = 2,      // fy on its own
  kLensCentre = 4,      // cx, cy
  kLensRadial1 = 8,     // k1
  kLensRadial2 = 16,    // k2
  kLensTangential = 32  // p1, p2
};

struct BundleSettings {
  bool robust = false;     // Huber loss of options.robust_loss_px
  // Per camera, the LensTerm bits refined; empty or 0: the lens is held.
  std::vector<unsigned> lens_terms;
  int fixed_camera = 0;    // held fixed to remove the gauge freedom
  double function_tolerance = 1e-9;
  // Frames adjusted (indices into the sample set); empty: all of them. Wand
  // poses of frames left out are kept as they are.
  std::vector<size_t> frames;
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
