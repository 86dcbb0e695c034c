#include "zord/solver/group_cost.h"

#include <ceres/jet.h>
#include <ceres/rotation.h>

#include <utility>

namespace zord {

GroupCost::GroupCost(Group group, const std::vector<double>* offsets, const Intrinsics* fixed_lens)
    : group_(std::move(group)), offsets_(offsets), fixed_lens_(fixed_lens) {
  set_num_residuals(2 * static_cast<int>(group_.samples.size()));
  mutable_parameter_block_sizes()->assign({6, 6});
  if (!fixed_lens_) mutable_parameter_block_sizes()->push_back(8);
}

bool GroupCost::Evaluate(double const* const* parameters, double* residuals,
                         double** jacobians) const {
  const double* camera = parameters[0];
  const double* wand = parameters[1];
  Intrinsics lens;
  if (fixed_lens_) {
    lens = *fixed_lens_;
  } else {
    const double* l = parameters[2];
    lens.fx = l[0], lens.fy = l[0] * l[1], lens.cx = l[2], lens.cy = l[3];
    lens.k1 = l[4], lens.k2 = l[5], lens.p1 = l[6], lens.p2 = l[7];
  }
  // The rotation with its derivatives by the angle-axis vector.
  using Jet3 = ceres::Jet<double, 3>;
  const Jet3 angle_axis[3] = {Jet3(camera[0], 0), Jet3(camera[1], 1), Jet3(camera[2], 2)};
  Jet3 r[9];
  ceres::AngleAxisToRotationMatrix(angle_axis, ceres::RowMajorAdapter3x3(r));
  Eigen::Matrix3d rotation;
  for (int i = 0; i < 9; ++i) rotation(i / 3, i % 3) = r[i].a;
  const Eigen::Vector3d translation(camera[3], camera[4], camera[5]);
  const Eigen::Vector3d centre(wand[0], wand[1], wand[2]), direction(wand[3], wand[4], wand[5]);

  const std::vector<Sample>& samples = group_.set->frames[group_.frame].samples;
  for (size_t k = 0; k < group_.samples.size(); ++k) {
    const Sample& s = samples[group_.samples[k]];
    const double offset = (*offsets_)[s.led];
    const Eigen::Vector3d x = centre + offset * direction;
    const Eigen::Vector3d p = rotation * x + translation;
    const double xn = p.x() / p.z(), yn = p.y() / p.z();
    Eigen::Map<Eigen::Vector2d>(residuals + 2 * k) = DistortToPixel(lens, xn, yn) - s.pixel;
    if (!jacobians) continue;
    const Eigen::Matrix<double, 2, 3> by_point = PixelByCameraPoint(lens, p);
    using Rows = Eigen::Map<Eigen::Matrix<double, 2, Eigen::Dynamic, Eigen::RowMajor>>;
    if (jacobians[0]) {
      Rows j(jacobians[0] + 12 * k, 2, 6);
      Eigen::Matrix3d by_angle;
      for (int i = 0; i < 3; ++i)
        for (int a = 0; a < 3; ++a)
          by_angle(i, a) = r[3 * i].v[a] * x.x() + r[3 * i + 1].v[a] * x.y() + r[3 * i + 2].v[a] * x.z();
      j.leftCols<3>() = by_point * by_angle;
      j.rightCols<3>() = by_point;
    }
    if (jacobians[1]) {
      Rows j(jacobians[1] + 12 * k, 2, 6);
      j.leftCols<3>() = by_point * rotation;
      j.rightCols<3>() = offset * j.leftCols<3>();
    }
    if (!fixed_lens_ && jacobians[2]) {
      const double* l = parameters[2];
      const double r2 = xn * xn + yn * yn, radial = 1 + r2 * (lens.k1 + lens.k2 * r2);
      const double xd = xn * radial + 2 * lens.p1 * xn * yn + lens.p2 * (r2 + 2 * xn * xn);
      const double yd = yn * radial + lens.p1 * (r2 + 2 * yn * yn) + 2 * lens.p2 * xn * yn;
      Rows j(jacobians[2] + 16 * k, 2, 8);
      j << xd, 0, 1, 0, lens.fx * xn * r2, lens.fx * xn * r2 * r2, lens.fx * 2 * xn * yn,
          lens.fx * (r2 + 2 * xn * xn),  //
          l[1] * yd, l[0] * yd, 0, 1, lens.fy * yn * r2, lens.fy * yn * r2 * r2,
          lens.fy * (r2 + 2 * yn * yn), lens.fy * 2 * xn * yn;
    }
  }
  return true;
}

}  // namespace zord
