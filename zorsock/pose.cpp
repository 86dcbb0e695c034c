// The pose functions of the client library. Poses are x, y, z, qw, qx, qy, qz;
// matrices are 4x4 column-major as OpenGL takes them. Arithmetic is done in
// double precision and stored as float.
#include <Eigen/Geometry>

#include "zorsock/zorsock.h"

namespace {

Eigen::Quaterniond Rotation(const float* p) {
  return Eigen::Quaterniond(p[3], p[4], p[5], p[6]);
}

Eigen::Vector3d Position(const float* p) { return {p[0], p[1], p[2]}; }

// Rotation matrix of a quaternion that need not be unit length; a zero
// quaternion gives the identity rather than NaNs.
Eigen::Matrix3d RotationMatrix(const float* p) {
  Eigen::Quaterniond q = Rotation(p);
  if (q.squaredNorm() == 0) return Eigen::Matrix3d::Identity();
  return q.normalized().toRotationMatrix();
}

void Store(const Eigen::Vector3d& t, const Eigen::Quaterniond& q, float* out) {
  out[0] = static_cast<float>(t.x());
  out[1] = static_cast<float>(t.y());
  out[2] = static_cast<float>(t.z());
  out[3] = static_cast<float>(q.w());
  out[4] = static_cast<float>(q.x());
  out[5] = static_cast<float>(q.y());
  out[6] = static_cast<float>(q.z());
}

}  // namespace

extern "C" {

void mult_pp(const float* a, const float* b, float* out) {
  const Eigen::Quaterniond q = Rotation(a) * Rotation(b);
  const Eigen::Vector3d t = Position(a) + RotationMatrix(a) * Position(b);
  Store(t, q, out);
}

void convert_pm(const float* pose, float* m) {
  const Eigen::Matrix3d r = RotationMatrix(pose);
  for (int col = 0; col < 3; ++col) {
    for (int row = 0; row < 3; ++row) m[col * 4 + row] = static_cast<float>(r(row, col));
    m[col * 4 + 3] = 0;
  }
  m[12] = pose[0], m[13] = pose[1], m[14] = pose[2], m[15] = 1;
}

void convert_mp(const float* m, float* pose) {
  Eigen::Matrix3d r;
  for (int col = 0; col < 3; ++col) {
    for (int row = 0; row < 3; ++row) r(row, col) = m[col * 4 + row];
  }
  Store({m[12], m[13], m[14]}, Eigen::Quaterniond(r), pose);
}

void invert_p(float* pose) {
  const Eigen::Quaterniond q = Rotation(pose).conjugate();
  const Eigen::Matrix3d r = RotationMatrix(pose).transpose();
  Store(-(r * Position(pose)), q, pose);
}

void normalize_p(float* pose) {
  const Eigen::Quaterniond q = Rotation(pose);
  if (q.squaredNorm() == 0) return;
  Store(Position(pose), q.normalized(), pose);
}

void mult_mv3_v3(const float* m, const float* v, float* out) {
  float r[3];
  for (int row = 0; row < 3; ++row) r[row] = m[row] * v[0] + m[4 + row] * v[1] + m[8 + row] * v[2];
  out[0] = r[0], out[1] = r[1], out[2] = r[2];
}

}  // extern "C"
