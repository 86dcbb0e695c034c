// Value types for positions, directions and rigid transforms: the 3-vector,
// the Pose (position in mm, then the unit quaternion w, x, y, z) and the signed
// axis index shared by the alignment tools. The composition functions
// (mult_pp, convert_pm, ...) are the C functions of zorsock.h; these types
// hand them their storage through data().
#pragma once

#include <cstdio>

#include "zorsock/zorsock.h"

struct Vec3 {
  float v[3] = {0, 0, 0};

  Vec3() = default;
  Vec3(float x, float y, float z) : v{x, y, z} {}

  float x() const { return v[0]; }
  float y() const { return v[1]; }
  float z() const { return v[2]; }
  float& operator[](int i) { return v[i]; }
  float operator[](int i) const { return v[i]; }
  float* data() { return v; }
  const float* data() const { return v; }

  Vec3& set(float x, float y, float z);
  Vec3& zero() { return set(0, 0, 0); }
  Vec3& subtract(const Vec3& b);  // this -= b
  Vec3& scale(float s);           // this *= s
  // Scales to length L; a zero (or not-a-number) vector is left as it is.
  Vec3& setLength(float length);

  float length() const;
};

bool equals(const Vec3& a, const Vec3& b);  // exact comparison
Vec3 difference(const Vec3& a, const Vec3& b);  // a - b
float dot(const Vec3& a, const Vec3& b);
Vec3 cross(const Vec3& a, const Vec3& b);

// Signed axes: 0 = +X, 1 = +Y, 2 = +Z, 3 = -X, 4 = -Y, 5 = -Z.
Vec3 axisVector(int index);  // the zero vector outside 0..5
int axisIndex(const Vec3& v);  // exact match in that order; anything else reads as 0 (+X)

struct Pose {
  float v[7] = {0, 0, 0, 1, 0, 0, 0};

  float* data() { return v; }
  const float* data() const { return v; }
  float& operator[](int i) { return v[i]; }
  float operator[](int i) const { return v[i]; }
  Vec3 position() const { return {v[0], v[1], v[2]}; }

  Pose& identity();
  // Negates the quaternion's vector part: the inverse rotation of a unit
  // quaternion. The position is deliberately kept (callers rotate directions).
  Pose& conjugate();
  // Sets the rotation to `angle` radians about `axis`; the position is kept.
  Pose& fromAxisAngle(const Vec3& axis, float angle);
  // Prints "(x,y,z,w,qx,qy,qz)" with four decimals and a line end.
  void print(FILE* out = stdout) const;
};

bool equals(const Pose& a, const Pose& b);  // exact comparison
void copy(const Pose& src, Pose& dst);
// The rotation turning unit vector a onto unit vector b (identity when `active`
// is false, or when a and b are parallel, antiparallel or degenerate).
Pose rotationBetween(const Vec3& a, const Vec3& b, bool active);

// RGBA colour, components 0..1.
struct Colour {
  float v[4] = {0, 0, 0, 1};
  Colour& set(float r, float g, float b, float a) {
    v[0] = r, v[1] = g, v[2] = b, v[3] = a;
    return *this;
  }
  const float* data() const { return v; }
};
