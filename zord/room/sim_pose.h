// A rigid transform (position in mm, unit quaternion) and its conversion to
// the 7-float pose x, y, z, qw, qx, qy, qz that clients see.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <optional>

namespace zord {

struct RigidPlacement {
  Eigen::Vector3d position = Eigen::Vector3d::Zero();
  Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();

  Eigen::Vector3d Apply(const Eigen::Vector3d& p) const { return rotation * p + position; }
  // this ∘ other: first other, then this.
  RigidPlacement Then(const RigidPlacement& other) const {
    return {Apply(other.position), (rotation * other.rotation).normalized()};
  }
  bool IsIdentity() const {
    return position.isZero(0) && rotation.w() == 1 && rotation.vec().isZero(0);
  }
};

// The rotation of a quaternion given by any finite components, or nullopt for
// a zero (or non-finite) one. Components are first divided by the largest
// magnitude, so huge (1e154) or tiny (1e-200) ones neither overflow nor
// underflow the norm: a plain normalized() would turn them into (0, 0, 0, 0).
inline std::optional<Eigen::Quaterniond> UnitQuaternion(double w, double x, double y, double z) {
  const double largest = std::max({std::abs(w), std::abs(x), std::abs(y), std::abs(z)});
  if (!std::isfinite(largest) || largest == 0) return std::nullopt;
  // A rotation already unit to rounding is kept bit for bit, so a saved
  // state loads back to exactly what was saved.
  const double norm2 = w * w + x * x + y * y + z * z;
  if (std::abs(norm2 - 1) < 1e-12) return Eigen::Quaterniond(w, x, y, z);
  return Eigen::Quaterniond(w / largest, x / largest, y / largest, z / largest).normalized();
}

inline void ToPose7(const Eigen::Vector3d& p, const Eigen::Quaterniond& q, float* out) {
  out[0] = static_cast<float>(p.x());
  out[1] = static_cast<float>(p.y());
  out[2] = static_cast<float>(p.z());
  out[3] = static_cast<float>(q.w());
  out[4] = static_cast<float>(q.x());
  out[5] = static_cast<float>(q.y());
  out[6] = static_cast<float>(q.z());
}

inline void ToPose7(const RigidPlacement& pose, float* out) { ToPose7(pose.position, pose.rotation, out); }

}  // namespace zord
