// Pass 1: which camera pairs to trust, and their relative poses from
// essential matrices (translation known up to scale).
#pragma once

#include <string>
#include <vector>

#include "zord/solver/camera_coverage.h"
#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_options.h"

namespace zord {

// Maximum spanning tree of the camera graph, edges weighted by shared samples.
struct CameraTree {
  int root = -1;
  std::vector<int> parent;  // -1 for the root and for cameras the tree does not reach
  std::vector<int> order;   // cameras in the tree, each after its parent
};

// Only pairs sharing at least `min_shared_frames` frames are edges. The root is
// the active camera with the most shared samples.
CameraTree BuildCameraTree(const CameraLinks& links, const std::vector<bool>& active,
                           int min_shared_frames);

struct PairPose {
  Extrinsics relative;          // child from parent: X_child = R X_parent + t, |t| = 1
  int samples = 0;              // correspondences used
  int inliers = 0;              // those consistent with the pose
  double squared_error_px = 0;  // two-view reprojection error of the inliers...
  int residuals = 0;            // ...over this many coordinates
  std::string problem;          // empty on success, else why the pair failed
};

PairPose EstimatePairPose(const SampleSet& set, int parent, int child,
                          const std::vector<Intrinsics>& lenses, const SolverOptions& options);

}  // namespace zord
