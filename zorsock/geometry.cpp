#include "zorsock/geometry.h"

#include <cmath>

Vec3& Vec3::set(float x, float y, float z) {
  v[0] = x, v[1] = y, v[2] = z;
  return *this;
}

Vec3& Vec3::subtract(const Vec3& b) {
  for (int i = 0; i < 3; ++i) v[i] -= b.v[i];
  return *this;
}

Vec3& Vec3::scale(float s) {
  for (float& c : v) c *= s;
  return *this;
}

Vec3& Vec3::setLength(float target) {
  const float len = length();
  if (len > 0) scale(target / len);  // false for zero and for NaN
  return *this;
}

float Vec3::length() const { return std::sqrt(dot(*this, *this)); }

bool equals(const Vec3& a, const Vec3& b) {
  return a.v[0] == b.v[0] && a.v[1] == b.v[1] && a.v[2] == b.v[2];
}

Vec3 difference(const Vec3& a, const Vec3& b) { return Vec3(a).subtract(b); }

float dot(const Vec3& a, const Vec3& b) {
  return a.v[0] * b.v[0] + a.v[1] * b.v[1] + a.v[2] * b.v[2];
}

Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a.v[1] * b.v[2] - a.v[2] * b.v[1], a.v[2] * b.v[0] - a.v[0] * b.v[2],
          a.v[0] * b.v[1] - a.v[1] * b.v[0]};
}

Vec3 axisVector(int index) {
  Vec3 a;
  if (index < 0 || index > 5) return a;
  a[index % 3] = index < 3 ? 1.0f : -1.0f;
  return a;
}

int axisIndex(const Vec3& v) {
  for (int i = 0; i < 6; ++i) {
    if (equals(v, axisVector(i))) return i;
  }
  return 0;
}

Pose& Pose::identity() {
  *this = Pose{};
  return *this;
}

Pose& Pose::conjugate() {
  v[4] = -v[4], v[5] = -v[5], v[6] = -v[6];
  return *this;
}

Pose& Pose::fromAxisAngle(const Vec3& axis, float angle) {
  Vec3 unit = axis;
  unit.setLength(1.0f);
  const float h = angle / 2;
  const float s = std::sin(h);
  v[3] = std::cos(h);
  v[4] = unit.x() * s, v[5] = unit.y() * s, v[6] = unit.z() * s;
  return *this;
}

void Pose::print(FILE* out) const {
  std::fprintf(out, "(%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f)\n", v[0], v[1], v[2], v[3], v[4], v[5],
               v[6]);
}

bool equals(const Pose& a, const Pose& b) {
  for (int i = 0; i < 7; ++i) {
    if (a.v[i] != b.v[i]) return false;
  }
  return true;
}

void copy(const Pose& src, Pose& dst) { dst = src; }

Pose rotationBetween(const Vec3& a, const Vec3& b, bool active) {
  Pose p;
  Vec3 axis = cross(a, b);
  axis.setLength(1.0f);
  if (active) p.fromAxisAngle(axis, std::acos(dot(a, b)));
  bool finite = true;
  for (int i = 3; i < 7; ++i) finite = finite && std::isfinite(p.v[i]);
  // A zero axis (parallel or antiparallel vectors) has no defined rotation.
  if (!finite || axis.length() == 0) p.identity();
  return p;
}
