#include "zord/solver/pose_uncertainty.h"

#include <ceres/ceres.h>
#include <ceres/rotation.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <array>
#include <cmath>

#include "zord/solver/calib_state.h"
#include "zord/solver/triangulation.h"

namespace zord {
namespace {

// One detection, with the pose parametrised about its current value: a small
// turn of the camera and a shift of its centre, so that the covariance of
// these six numbers is directly the pose's uncertainty in degrees and mm.
struct DetectionCost {
  Eigen::Vector3d in_camera;  // the LED in the current camera frame
  Eigen::Matrix3d rotation;   // current world-to-camera rotation
  Eigen::Vector2d pixel;
  double weight;  // stands for this many detections, in the square root
  template <typename T>
  bool operator()(const T* turn, const T* shift, const T* lens, T* residuals) const {
    T moved[3];
    for (int i = 0; i < 3; ++i) {
      moved[i] = T(in_camera[i]) - (T(rotation(i, 0)) * shift[0] + T(rotation(i, 1)) * shift[1] +
                                    T(rotation(i, 2)) * shift[2]);
    }
    T p[3];
    ceres::AngleAxisRotatePoint(turn, moved, p);
    const auto uv = DistortToPixel(p[0] / p[2], p[1] / p[2], lens[0], lens[0] * lens[1], lens[2],
                                   lens[3], lens + 4);
    residuals[0] = (uv(0) - T(pixel.x())) * weight;
    residuals[1] = (uv(1) - T(pixel.y())) * weight;
    return true;
  }
};

// The prior knowledge of the lens, in the units of the pixel residuals: each
// value's distance from its current one in sigmas, times the pixel noise.
struct PriorCost {
  std::array<double, 8> centre, weight;
  template <typename T>
  bool operator()(const T* lens, T* residuals) const {
    for (int i = 0; i < 8; ++i) residuals[i] = (lens[i] - T(centre[i])) * T(weight[i]);
    return true;
  }
};

double LargestStd(const Eigen::Matrix3d& cov) {
  return std::sqrt(std::max(0.0, Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(cov).eigenvalues()(2)));
}

// A camera's information grows evenly with its detections: beyond this many,
// an even subset weighted up to the whole gives the same covariance for less.
constexpr int kMaxDetections = 3000;

}  // namespace

PoseUncertainty CameraPoseUncertainty(const SampleSet& set, const StraightWand& wand,
                                      const CalibState& state, int camera, double sigma_px,
                                      const LensPrior* lens_prior, bool free_aspect) {
  PoseUncertainty out;
  const Extrinsics& pose = state.poses[camera];
  const Eigen::Matrix3d rotation = pose.rotation.toRotationMatrix();
  const Intrinsics& k = state.lenses[camera];
  std::array<double, 3> turn{0, 0, 0}, shift{0, 0, 0};
  std::array<double, 8> lens{k.fx, k.fy / k.fx, k.cx, k.cy, k.k1, k.k2, k.p1, k.p2};

  std::vector<std::pair<size_t, int>> detections;  // frame, sample
  for (size_t f = 0; f < set.frames.size(); ++f) {
    if (!state.wand[f]) continue;
    const SampleRange range = CameraRange(set.frames[f], camera);
    for (int i = range.first; i < range.second; ++i)
      if (state.inlier[f][i]) detections.emplace_back(f, i);
  }
  out.samples = static_cast<int>(detections.size());
  const std::vector<size_t> picked = SelectEvenly(detections.size(), kMaxDetections);
  const double weight = std::sqrt(static_cast<double>(detections.size()) / std::max<size_t>(1, picked.size()));
  ceres::Problem problem;
  for (size_t p : picked) {
    const auto [f, i] = detections[p];
    const Sample& s = set.frames[f].samples[i];
    const Eigen::Vector3d led = WandLedPosition(*state.wand[f], wand.offsets[s.led]);
    problem.AddResidualBlock(new ceres::AutoDiffCostFunction<DetectionCost, 2, 3, 3, 8>(
                                 new DetectionCost{pose.ToCamera(led), rotation, s.pixel, weight}),
                             nullptr, turn.data(), shift.data(), lens.data());
  }
  if (out.samples < 3 || !(sigma_px > 0)) return out;
  if (!lens_prior) {
    problem.SetParameterBlockConstant(lens.data());
  } else {
  const LensPrior& prior = *lens_prior;
  // k2 and the tangential terms (and the aspect unless it is free) are held.
  const double sigma[8] = {prior.focal * k.fx, prior.aspect, prior.centre_px, prior.centre_px,
                           prior.k1,           1,            1,               1};
  PriorCost* cost = new PriorCost{lens, {}};
  for (int i = 0; i < 8; ++i) cost->weight[i] = sigma_px / sigma[i];
  problem.AddResidualBlock(new ceres::AutoDiffCostFunction<PriorCost, 8, 8>(cost), nullptr,
                           lens.data());
  std::vector<int> held = {5, 6, 7};
  if (!free_aspect) held.push_back(1);
  problem.SetManifold(lens.data(), new ceres::SubsetManifold(8, held));
  }

  ceres::Covariance::Options options;
  options.algorithm_type = ceres::DENSE_SVD;
  options.num_threads = 1;
  ceres::Covariance covariance(options);
  const std::vector<std::pair<const double*, const double*>> blocks = {
      {turn.data(), turn.data()}, {shift.data(), shift.data()}};
  if (!covariance.Compute(blocks, &problem)) return out;
  Eigen::Matrix3d turn_cov, shift_cov;
  covariance.GetCovarianceBlock(turn.data(), turn.data(), turn_cov.data());
  covariance.GetCovarianceBlock(shift.data(), shift.data(), shift_cov.data());
  // The problem is in pixels; the covariance of unit-variance residuals
  // scales with the noise's variance.
  const double variance = sigma_px * sigma_px;
  out.determined = true;
  out.position_mm = LargestStd(shift_cov * variance);
  out.rotation_deg = LargestStd(turn_cov * variance) * 180 / M_PI;
  return out;
}

}  // namespace zord
