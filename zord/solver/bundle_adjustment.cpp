#include "zord/solver/bundle_adjustment.h"

#include <ceres/ceres.h>
#include <ceres/product_manifold.h>
#include <ceres/sphere_manifold.h>

#include <algorithm>
#include <array>
#include <memory>

#include "zord/solver/group_cost.h"

namespace zord {
namespace {

class CancelCallback : public ceres::IterationCallback {
 public:
  explicit CancelCallback(const SolverOptions& options) : options_(options) {}
  ceres::CallbackReturnType operator()(const ceres::IterationSummary&) override {
    return options_.Cancelled() ? ceres::SOLVER_ABORT : ceres::SOLVER_CONTINUE;
  }

 private:
  const SolverOptions& options_;
};

std::array<double, 6> CameraBlock(const Extrinsics& e) {
  const Eigen::AngleAxisd aa(e.rotation);
  const Eigen::Vector3d v = aa.angle() * aa.axis();
  return {v.x(), v.y(), v.z(), e.translation.x(), e.translation.y(), e.translation.z()};
}

Extrinsics FromCameraBlock(const std::array<double, 6>& b) {
  const Eigen::Vector3d v(b[0], b[1], b[2]);
  Extrinsics e;
  e.rotation = v.norm() > 0 ? Eigen::Quaterniond(Eigen::AngleAxisd(v.norm(), v.normalized()))
                            : Eigen::Quaterniond::Identity();
  e.translation = {b[3], b[4], b[5]};
  return e;
}

// The samples of each (frame, camera) that enter the adjustment; drops the
// wand pose of frames seen by fewer than two cameras.
std::vector<Group> MakeGroups(const SampleSet& set, const std::vector<size_t>& frames,
                              CalibState* state) {
  std::vector<Group> groups;
  for (size_t f : frames) {
    if (!state->wand[f]) continue;
    const SampleFrame& frame = set.frames[f];
    const size_t first = groups.size();
    for (const SampleRange& range : CameraRanges(frame, set.cameras)) {
      Group g{&set, static_cast<int>(f), {}};
      for (int i = range.first; i < range.second; ++i)
        if (state->use[frame.samples[i].camera] && state->inlier[f][i]) g.samples.push_back(i);
      if (!g.samples.empty()) groups.push_back(std::move(g));
    }
    if (groups.size() - first < 2) {
      groups.resize(first);
      state->wand[f].reset();
      std::fill(state->inlier[f].begin(), state->inlier[f].end(), false);
    }
  }
  return groups;
}

}  // namespace

BundleOutcome AdjustBundle(const SampleSet& set, const StraightWand& wand,
                           const BundleSettings& settings, const SolverOptions& options,
                           CalibState* state) {
  BundleOutcome out;
  std::vector<size_t> frames = settings.frames;
  if (frames.empty()) {
    frames.resize(set.frames.size());
    for (size_t f = 0; f < frames.size(); ++f) frames[f] = f;
  }
  const std::vector<Group> groups = MakeGroups(set, frames, state);
  if (groups.empty()) {
    out.problem = "no wand frame is seen by two cameras";
    return out;
  }

  std::vector<std::array<double, 6>> cameras(set.cameras);
  std::vector<std::array<double, 8>> lenses(set.cameras);
  std::vector<unsigned> terms(set.cameras, 0);
  std::vector<std::unique_ptr<ceres::SubsetManifold>> held_terms(set.cameras);
  for (int c = 0; c < set.cameras; ++c) {
    cameras[c] = CameraBlock(state->poses[c]);
    const Intrinsics& k = state->lenses[c];
    lenses[c] = {k.fx, k.fy / k.fx, k.cx, k.cy, k.k1, k.k2, k.p1, k.p2};
    if (static_cast<size_t>(c) < settings.lens_terms.size()) terms[c] = settings.lens_terms[c];
    if (!terms[c]) continue;
    std::vector<int> held;
    auto hold = [&](unsigned term, std::initializer_list<int> indices) {
      if (!(terms[c] & term)) held.insert(held.end(), indices);
    };
    hold(kLensFocal, {0});
    hold(kLensAspect, {1});
    hold(kLensCentre, {2, 3});
    hold(kLensRadial1, {4});
    hold(kLensRadial2, {5});
    hold(kLensTangential, {6, 7});
    held_terms[c] = std::make_unique<ceres::SubsetManifold>(8, held);
  }
  std::vector<std::array<double, 6>> wands(set.frames.size());
  for (size_t f : frames) {
    if (!state->wand[f]) continue;
    const WandPose& p = *state->wand[f];
    const Eigen::Vector3d d = p.direction.normalized();
    wands[f] = {p.centre.x(), p.centre.y(), p.centre.z(), d.x(), d.y(), d.z()};
  }

  ceres::Problem::Options problem_options;
  problem_options.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  problem_options.manifold_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem problem(problem_options);
  ceres::ProductManifold<ceres::EuclideanManifold<3>, ceres::SphereManifold<3>> wand_manifold;
  // Huber on a group acts on its total error: scale the knee with its size.
  std::vector<std::unique_ptr<ceres::HuberLoss>> losses(wand.offsets.size() + 1);
  for (size_t n = 1; n < losses.size(); ++n)
    losses[n] = std::make_unique<ceres::HuberLoss>(options.robust_loss_px *
                                                   std::sqrt(static_cast<double>(n)));

  for (const Group& g : groups) {
    const int camera = set.frames[g.frame].samples[g.samples.front()].camera;
    const int count = static_cast<int>(g.samples.size());
    ceres::LossFunction* loss =
        settings.robust ? losses[std::min<size_t>(count, losses.size() - 1)].get() : nullptr;
    double* cam = cameras[camera].data();
    double* w = wands[g.frame].data();
    if (terms[camera]) {
      problem.AddResidualBlock(new GroupCost(g, &wand.offsets, nullptr), loss, cam, w,
                               lenses[camera].data());
    } else {
      problem.AddResidualBlock(new GroupCost(g, &wand.offsets, &state->lenses[camera]), loss, cam, w);
    }
    out.residuals += 2 * count;
  }

  auto* ordering = new ceres::ParameterBlockOrdering;
  int camera_parameters = 0;
  for (size_t f : frames) {
    if (!state->wand[f] || !problem.HasParameterBlock(wands[f].data())) continue;
    problem.SetManifold(wands[f].data(), &wand_manifold);
    ordering->AddElementToGroup(wands[f].data(), 0);
    out.parameters += 5;
  }
  for (int c = 0; c < set.cameras; ++c) {
    if (!problem.HasParameterBlock(cameras[c].data())) continue;
    ordering->AddElementToGroup(cameras[c].data(), 1);
    if (c == settings.fixed_camera) {
      problem.SetParameterBlockConstant(cameras[c].data());
    } else {
      out.parameters += 6;
      camera_parameters += 6;
    }
    if (terms[c]) {
      ordering->AddElementToGroup(lenses[c].data(), 1);
      const int free = held_terms[c]->TangentSize();
      out.parameters += free;
      camera_parameters += free;
      if (free < 8) problem.SetManifold(lenses[c].data(), held_terms[c].get());
    }
  }
  if (!problem.HasParameterBlock(cameras[settings.fixed_camera].data())) {
    delete ordering;
    out.problem = "the reference camera sees none of the wand frames";
    return out;
  }

  ceres::Solver::Options solver;
  // The reduced camera system is small and dense unless there are very many cameras.
  solver.linear_solver_type = camera_parameters <= 1200 ? ceres::DENSE_SCHUR : ceres::SPARSE_SCHUR;
  solver.linear_solver_ordering.reset(ordering);
  solver.num_threads = options.num_threads;
  solver.max_num_iterations = options.max_iterations;
  solver.function_tolerance = settings.function_tolerance;
  solver.gradient_tolerance = 1e-14;
  solver.parameter_tolerance = 1e-12;
  solver.logging_type = ceres::SILENT;
  CancelCallback cancel(options);
  solver.callbacks.push_back(&cancel);

  ceres::Solver::Summary summary;
  ceres::Solve(solver, &problem, &summary);
  out.iterations = static_cast<int>(summary.iterations.size());
  if (options.Cancelled()) {
    out.cancelled = true;
    out.problem = "cancelled";
    return out;
  }
  if (summary.termination_type == ceres::FAILURE ||
      summary.termination_type == ceres::USER_FAILURE || !summary.IsSolutionUsable()) {
    out.problem = "the adjustment did not converge: " + summary.message;
    return out;
  }

  for (int c = 0; c < set.cameras; ++c) {
    if (!problem.HasParameterBlock(cameras[c].data())) continue;
    state->poses[c] = FromCameraBlock(cameras[c]);
    if (terms[c]) {
      Intrinsics& k = state->lenses[c];
      const std::array<double, 8>& l = lenses[c];
      k.fx = l[0];
      k.fy = l[0] * l[1];
      k.cx = l[2];
      k.cy = l[3];
      k.k1 = l[4];
      k.k2 = l[5];
      k.p1 = l[6];
      k.p2 = l[7];
    }
  }
  for (size_t f : frames) {
    if (!state->wand[f]) continue;
    const auto& w = wands[f];
    state->wand[f]->centre = {w[0], w[1], w[2]};
    state->wand[f]->direction = Eigen::Vector3d(w[3], w[4], w[5]).normalized();
  }
  out.ok = true;
  return out;
}

}  // namespace zord
