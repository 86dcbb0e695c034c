#include "zord/solver/triangulation.h"

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <limits>

namespace zord {

std::optional<Eigen::Vector3d> TriangulateNormalized(
    const std::vector<Extrinsics>& views, const std::vector<Eigen::Vector2d>& normalized) {
  if (views.size() < 2 || views.size() != normalized.size()) return std::nullopt;
  // Each view gives two linear equations in the point: (x r3 - r1) X = t1 - x t3.
  Eigen::Matrix3d normal = Eigen::Matrix3d::Zero();
  Eigen::Vector3d rhs = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < views.size(); ++i) {
    const Eigen::Matrix3d r = views[i].rotation.toRotationMatrix();
    const Eigen::Vector3d& t = views[i].translation;
    for (int k = 0; k < 2; ++k) {
      const Eigen::RowVector3d row = normalized[i](k) * r.row(2) - r.row(k);
      const double b = t(k) - normalized[i](k) * t(2);
      normal += row.transpose() * row;
      rhs += row.transpose() * b;
    }
  }
  // Nearly parallel rays give a point without a depth.
  const Eigen::Vector3d spectrum = normal.selfadjointView<Eigen::Lower>().eigenvalues();
  if (!(spectrum(0) > 1e-12 * spectrum(2))) return std::nullopt;
  const Eigen::LDLT<Eigen::Matrix3d> ldlt(normal);
  if (ldlt.info() != Eigen::Success || !ldlt.isPositive()) return std::nullopt;
  const Eigen::Vector3d point = ldlt.solve(rhs);
  if (!point.allFinite()) return std::nullopt;
  for (const Extrinsics& view : views)
    if (view.ToCamera(point).z() <= 0) return std::nullopt;
  return point;
}

double ReprojectionErrorPx(const Intrinsics& lens, const Extrinsics& pose,
                           const Eigen::Vector3d& world, const Eigen::Vector2d& pixel) {
  Eigen::Vector2d uv;
  if (!Project(lens, pose, world, &uv)) return std::numeric_limits<double>::infinity();
  return (uv - pixel).norm();
}

std::vector<std::optional<Eigen::Vector3d>> TriangulateLeds(const SampleFrame& frame, int leds,
                                                            const std::vector<Extrinsics>& poses,
                                                            const std::vector<Intrinsics>& lenses,
                                                            const std::vector<bool>& use,
                                                            double reject_px) {
  std::vector<std::vector<const Sample*>> by_led(leds);
  for (const Sample& s : frame.samples)
    if (use[s.camera]) by_led[s.led].push_back(&s);

  std::vector<std::optional<Eigen::Vector3d>> out(leds);
  std::vector<Extrinsics> views;
  std::vector<Eigen::Vector2d> points;
  for (int led = 0; led < leds; ++led) {
    std::vector<const Sample*>& seen = by_led[led];
    while (seen.size() >= 2) {
      views.clear();
      points.clear();
      for (const Sample* s : seen) {
        views.push_back(poses[s->camera]);
        points.push_back(s->normalized);
      }
      out[led] = TriangulateNormalized(views, points);
      if (!out[led]) break;
      size_t worst = 0;
      double worst_error = -1;
      for (size_t i = 0; i < seen.size(); ++i) {
        const double e = ReprojectionErrorPx(lenses[seen[i]->camera], poses[seen[i]->camera],
                                             *out[led], seen[i]->pixel);
        if (e > worst_error) worst_error = e, worst = i;
      }
      if (worst_error <= reject_px) break;
      out[led].reset();
      seen.erase(seen.begin() + static_cast<long>(worst));
    }
  }
  return out;
}

std::optional<WandPose> FitWandPose(const std::vector<double>& offsets,
                                    const std::vector<std::optional<Eigen::Vector3d>>& points) {
  // Per axis a linear regression of position on offset: slope = direction.
  double n = 0, s_mean = 0;
  Eigen::Vector3d p_mean = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < offsets.size(); ++i) {
    if (!points[i]) continue;
    n += 1;
    s_mean += offsets[i];
    p_mean += *points[i];
  }
  if (n < 2) return std::nullopt;
  s_mean /= n;
  p_mean /= n;
  double s_var = 0;
  Eigen::Vector3d cov = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < offsets.size(); ++i) {
    if (!points[i]) continue;
    s_var += (offsets[i] - s_mean) * (offsets[i] - s_mean);
    cov += (offsets[i] - s_mean) * (*points[i] - p_mean);
  }
  if (s_var < 1e-6 || cov.norm() < 1e-9) return std::nullopt;
  WandPose pose;
  pose.direction = cov.normalized();
  pose.centre = p_mean - s_mean * pose.direction;
  return pose;
}

}  // namespace zord
