#include "zord/solver/calib_accuracy.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>

#include "zord/solver/sample_set.h"
#include "zord/solver/triangulation.h"
#include "zord/solver/wand_lengths.h"

namespace zord {

PoseErrors CompareCameraPoses(const std::vector<Extrinsics>& solved,
                              const std::vector<Extrinsics>& truth, const std::vector<bool>& use) {
  std::vector<int> cameras;
  for (size_t c = 0; c < use.size(); ++c)
    if (use[c]) cameras.push_back(static_cast<int>(c));
  const long n = static_cast<long>(cameras.size());
  Eigen::Matrix3Xd from(3, n), to(3, n);
  for (long i = 0; i < n; ++i) {
    from.col(i) = solved[cameras[i]].Centre();
    to.col(i) = truth[cameras[i]].Centre();
  }
  const Eigen::Matrix4d align = Eigen::umeyama(from, to, false);
  const Eigen::Matrix3d a = align.topLeftCorner<3, 3>();
  const Eigen::Vector3d b = align.topRightCorner<3, 1>();

  PoseErrors out;
  out.position_mm.assign(use.size(), 0);
  for (long i = 0; i < n; ++i) {
    const double position = (a * from.col(i) + b - to.col(i)).norm();
    out.position_mm[cameras[i]] = position;
    const Eigen::Matrix3d moved = solved[cameras[i]].rotation.toRotationMatrix() * a.transpose();
    const double rotation =
        Eigen::AngleAxisd(truth[cameras[i]].rotation.toRotationMatrix() * moved.transpose())
            .angle() *
        180 / M_PI;
    out.position_rms_mm += position * position;
    out.rotation_rms_deg += rotation * rotation;
    out.position_max_mm = std::max(out.position_max_mm, position);
    out.rotation_max_deg = std::max(out.rotation_max_deg, rotation);
  }
  out.position_rms_mm = std::sqrt(out.position_rms_mm / std::max(1L, n));
  out.rotation_rms_deg = std::sqrt(out.rotation_rms_deg / std::max(1L, n));
  return out;
}

double WandLengthStd(const CalibrationInput& input, const std::vector<Extrinsics>& poses,
                     const std::vector<Intrinsics>& lenses, double* mean) {
  StraightWand wand;
  SampleSet set;
  std::string error;
  if (!MakeStraightWand(input.wand, 2.0, &wand, &error) ||
      !BuildSampleSet(lenses, input.frames, wand, 0, &set, &error))
    return -1;
  const WandLengths lengths =
      MeasureWandLengths(set, wand, poses, lenses, std::vector<bool>(lenses.size(), true), 5.0);
  if (lengths.std_mm < 0) return -1;
  if (mean) *mean = lengths.mean_mm;
  return lengths.std_mm;
}

}  // namespace zord
