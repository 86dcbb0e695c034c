// Points from calibrated views: linear triangulation of LEDs and the straight
// wand's pose from its triangulated LEDs.
#pragma once

#include <Eigen/Core>
#include <optional>
#include <vector>

#include "zord/solver/camera_model.h"
#include "zord/solver/sample_set.h"
#include "zord/solver/solver_result.h"

namespace zord {

// Least-squares point whose projections best match the normalized image
// points (x/z, y/z) in each view. Empty when the views are degenerate or the
// point would lie behind one of them.
std::optional<Eigen::Vector3d> TriangulateNormalized(
    const std::vector<Extrinsics>& views, const std::vector<Eigen::Vector2d>& normalized);

// Pixel error of a world point against a detection.
double ReprojectionErrorPx(const Intrinsics& lens, const Extrinsics& pose,
                           const Eigen::Vector3d& world, const Eigen::Vector2d& pixel);

// Each LED of a frame triangulated from the cameras in `use` that see it
// (indexed by LED; empty when fewer than two such cameras agree). Views whose
// error exceeds `reject_px` are dropped one by one, worst first.
std::vector<std::optional<Eigen::Vector3d>> TriangulateLeds(const SampleFrame& frame, int leds,
                                                            const std::vector<Extrinsics>& poses,
                                                            const std::vector<Intrinsics>& lenses,
                                                            const std::vector<bool>& use,
                                                            double reject_px);

// Straight line c + offset * d through LED positions (d unit); needs two
// distinct offsets. `points` is indexed like `offsets`.
std::optional<WandPose> FitWandPose(const std::vector<double>& offsets,
                                    const std::vector<std::optional<Eigen::Vector3d>>& points);

// Where a wand pose puts the LED at `offset` along the wand.
inline Eigen::Vector3d WandLedPosition(const WandPose& pose, double offset) {
  return pose.centre + offset * pose.direction;
}

}  // namespace zord
