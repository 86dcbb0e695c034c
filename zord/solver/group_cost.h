// The bundle adjustment's residuals: what one camera sees of the wand in one
// frame, with derivatives worked out by hand.
#pragma once

#include <ceres/cost_function.h>

#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"

namespace zord {

// Residuals of the samples one camera has of the wand in one frame. Grouping
// them shares the camera rotation and keeps the problem small.
struct Group {
  const SampleSet* set;
  int frame;
  std::vector<int> samples;  // indices into the frame's samples
};

// The adjustment evaluates these hundreds of thousands of times per
// iteration, and the chain pixel <- camera point <- (camera pose, wand pose,
// lens) is short, so the derivatives are written out rather than automatic.
// Parameter blocks: camera (angle-axis, translation), wand (centre,
// direction), and, when the lens is free, the lens block (fx, fy / fx, cx,
// cy, k1, k2, p1, p2).
class GroupCost : public ceres::CostFunction {
 public:
  // `offsets`: each LED's place along the wand; `fixed_lens` null: the lens
  // is the third parameter block.
  GroupCost(Group group, const std::vector<double>* offsets, const Intrinsics* fixed_lens);

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override;

 private:
  Group group_;
  const std::vector<double>* offsets_;
  const Intrinsics* fixed_lens_;
};

}  // namespace zord
