#include "zord/solver/wand_refit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

namespace zord {
namespace {

struct View {
  Eigen::Matrix3d rotation;
  Eigen::Vector3d translation;
  const Intrinsics* lens;
};

// Huber on a camera's squared error in one frame, its knee scaled with the
// number of samples as in the bundle adjustment: cost and weight.
struct Robust {
  double knee_px;
  double Cost(double squared, int count) const {
    if (knee_px <= 0) return squared;
    const double a = knee_px * std::sqrt(double(count));
    return squared <= a * a ? squared : 2 * a * std::sqrt(squared) - a * a;
  }
  double Weight(double squared, int count) const {
    if (knee_px <= 0) return 1;
    const double a = knee_px * std::sqrt(double(count));
    return squared <= a * a ? 1 : a / std::sqrt(squared);
  }
};

class FrameFit {
 public:
  FrameFit(const SampleFrame& frame, const std::vector<int>& samples, const StraightWand& wand,
           const std::vector<View>& views, Robust robust)
      : frame_(frame), samples_(samples), wand_(wand), views_(views), robust_(robust) {}

  // Robust cost at (centre, direction); with `h` and `g` also the weighted
  // normal equations of a step in the tangent space given by `basis`.
  double Evaluate(const Eigen::Vector3d& centre, const Eigen::Vector3d& direction,
                  const Eigen::Matrix<double, 3, 2>& basis, Eigen::Matrix<double, 5, 5>* h,
                  Eigen::Matrix<double, 5, 1>* g) const {
    if (h) h->setZero(), g->setZero();
    double cost = 0;
    Eigen::Matrix<double, Eigen::Dynamic, 5> jacobian;
    Eigen::VectorXd residual;
    for (size_t first = 0; first < samples_.size();) {
      const int camera = frame_.samples[samples_[first]].camera;
      size_t last = first;
      while (last < samples_.size() && frame_.samples[samples_[last]].camera == camera) ++last;
      const int count = static_cast<int>(last - first);
      const View& view = views_[camera];
      const Intrinsics& l = *view.lens;
      jacobian.resize(2 * count, 5);
      residual.resize(2 * count);
      for (int k = 0; k < count; ++k) {
        const Sample& s = frame_.samples[samples_[first + k]];
        const double offset = wand_.offsets[s.led];
        const Eigen::Vector3d p = view.rotation * (centre + offset * direction) + view.translation;
        const double xn = p.x() / p.z(), yn = p.y() / p.z();
        residual.segment<2>(2 * k) = DistortToPixel(l, xn, yn) - s.pixel;
        if (!h) continue;
        const Eigen::Matrix<double, 2, 3> to_point = PixelByCameraPoint(l, p) * view.rotation;
        jacobian.block<2, 3>(2 * k, 0) = to_point;
        jacobian.block<2, 2>(2 * k, 3) = offset * to_point * basis;
      }
      const double squared = residual.squaredNorm();
      cost += robust_.Cost(squared, count);
      if (h) {
        const double w = robust_.Weight(squared, count);
        h->noalias() += w * jacobian.transpose() * jacobian;
        g->noalias() += w * jacobian.transpose() * residual;
      }
      first = last;
    }
    return cost;
  }

 private:
  const SampleFrame& frame_;
  const std::vector<int>& samples_;
  const StraightWand& wand_;
  const std::vector<View>& views_;
  Robust robust_;
};

Eigen::Matrix<double, 3, 2> TangentBasis(const Eigen::Vector3d& d) {
  const Eigen::Vector3d any = std::abs(d.x()) < 0.9 ? Eigen::Vector3d::UnitX() : Eigen::Vector3d::UnitY();
  Eigen::Matrix<double, 3, 2> basis;
  basis.col(0) = d.cross(any).normalized();
  basis.col(1) = d.cross(basis.col(0));
  return basis;
}

// Levenberg-Marquardt on one frame's wand pose (5 unknowns); the step is
// taken only when it lowers the cost.
void FitFrame(const FrameFit& fit, WandPose* pose) {
  Eigen::Vector3d centre = pose->centre, direction = pose->direction.normalized();
  double lambda = 1e-4;
  Eigen::Matrix<double, 5, 5> h;
  Eigen::Matrix<double, 5, 1> g;
  Eigen::Matrix<double, 3, 2> basis = TangentBasis(direction);
  double cost = fit.Evaluate(centre, direction, basis, &h, &g);
  for (int iteration = 0; iteration < 20; ++iteration) {
    Eigen::Matrix<double, 5, 5> damped = h;
    damped.diagonal() += lambda * h.diagonal().cwiseMax(1e-12);
    const Eigen::Matrix<double, 5, 1> step = -damped.ldlt().solve(g);
    if (!step.allFinite() || step.squaredNorm() < 1e-18) break;
    const Eigen::Vector3d next_centre = centre + step.head<3>();
    const Eigen::Vector3d next_direction = (direction + basis * step.tail<2>()).normalized();
    const double next = fit.Evaluate(next_centre, next_direction, basis, nullptr, nullptr);
    if (next < cost) {
      const bool converged = cost - next <= 1e-12 * cost;
      centre = next_centre;
      direction = next_direction;
      lambda = std::max(lambda / 10, 1e-9);
      if (converged) break;
      basis = TangentBasis(direction);
      cost = fit.Evaluate(centre, direction, basis, &h, &g);
    } else {
      lambda *= 10;
      if (lambda > 1e6) break;
    }
  }
  pose->centre = centre;
  pose->direction = direction;
}

}  // namespace

int RefitWandPoses(const SampleSet& set, const StraightWand& wand,
                   const std::vector<size_t>& frames, double robust_loss_px, CalibState* state) {
  std::vector<View> views(set.cameras);
  for (int c = 0; c < set.cameras; ++c)
    views[c] = {state->poses[c].rotation.toRotationMatrix(), state->poses[c].translation,
                &state->lenses[c]};
  int posed = 0;
  std::vector<int> samples;
  for (size_t f : frames) {
    if (!state->wand[f]) continue;
    const SampleFrame& frame = set.frames[f];
    samples.clear();
    int cameras = 0;
    for (size_t i = 0; i < frame.samples.size(); ++i) {
      if (!state->use[frame.samples[i].camera] || !state->inlier[f][i]) continue;
      cameras += samples.empty() || frame.samples[samples.back()].camera != frame.samples[i].camera;
      samples.push_back(static_cast<int>(i));
    }
    if (cameras < 2) {
      state->wand[f].reset();
      std::fill(state->inlier[f].begin(), state->inlier[f].end(), false);
      continue;
    }
    FitFrame(FrameFit(frame, samples, wand, views, Robust{robust_loss_px}), &*state->wand[f]);
    ++posed;
  }
  return posed;
}

std::vector<size_t> FramesOutside(size_t count, const std::vector<size_t>& subset) {
  std::vector<size_t> rest;
  size_t next = 0;
  for (size_t f = 0; f < count; ++f) {
    while (next < subset.size() && subset[next] < f) ++next;
    if (next == subset.size() || subset[next] != f) rest.push_back(f);
  }
  return rest;
}

}  // namespace zord
