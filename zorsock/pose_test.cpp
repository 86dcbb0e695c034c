// The pose and vector helpers shared by client and server.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "zorsock/geometry.h"

namespace {

// Applies a pose to a point through its matrix: the reference every
// composition is checked against.
Vec3 Apply(const Pose& p, const Vec3& x) {
  float m[16];
  convert_pm(p.data(), m);
  Vec3 r;
  mult_mv3_v3(m, x.data(), r.data());
  return {r.x() + m[12], r.y() + m[13], r.z() + m[14]};
}

Pose MakePose(float x, float y, float z, Vec3 axis, float angle) {
  Pose p;
  p[0] = x, p[1] = y, p[2] = z;
  p.fromAxisAngle(axis, angle);
  return p;
}

void ExpectNear(const Vec3& a, const Vec3& b, float tol) {
  EXPECT_NEAR(a.x(), b.x(), tol);
  EXPECT_NEAR(a.y(), b.y(), tol);
  EXPECT_NEAR(a.z(), b.z(), tol);
}

TEST(Vec3Test, LengthAndAxes) {
  Vec3 zero;
  EXPECT_TRUE(equals(zero.setLength(1), Vec3(0, 0, 0)));
  Vec3 nan(NAN, 0, 0);
  nan.setLength(1);  // left untouched, no report
  EXPECT_TRUE(std::isnan(nan.x()));
  EXPECT_TRUE(equals(Vec3(3, 4, 0).setLength(10), Vec3(6, 8, 0)));

  EXPECT_TRUE(equals(axisVector(6), Vec3()));
  EXPECT_TRUE(equals(axisVector(-1), Vec3()));
  EXPECT_TRUE(equals(axisVector(4), Vec3(0, -1, 0)));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(axisIndex(axisVector(i)), i);
  EXPECT_EQ(axisIndex(Vec3(0.5f, 0, 0)), 0);  // unknown directions read as +X
  EXPECT_EQ(axisIndex(Vec3(0, 0, -1)), 5);
}

TEST(PoseTest, ConjugateKeepsThePositionAndPrint) {
  Pose q = MakePose(1, 2, 3, Vec3(0, 0, 1), 1.0f);
  Pose qc = q;
  qc.conjugate();
  EXPECT_EQ(qc[0], 1);  // position is deliberately not inverted
  EXPECT_EQ(qc[6], -q[6]);

  q.identity();
  char buf[128] = {};
  FILE* f = fmemopen(buf, sizeof buf, "w");
  q.print(f);
  std::fclose(f);
  EXPECT_EQ(std::string(buf), "(0.0000,0.0000,0.0000,1.0000,0.0000,0.0000,0.0000)\n");
}

TEST(PoseTest, RotationBetween) {
  Pose r = rotationBetween(Vec3(1, 0, 0), Vec3(0, 1, 0), true);
  EXPECT_NEAR(r[3], std::cos(M_PI / 4), 1e-6);
  EXPECT_NEAR(r[6], std::sin(M_PI / 4), 1e-6);
  EXPECT_NEAR(r[4], 0, 1e-7);
  ExpectNear(Apply(r, Vec3(1, 0, 0)), Vec3(0, 1, 0), 1e-6f);

  EXPECT_TRUE(equals(rotationBetween(Vec3(0, 1, 0), Vec3(0, 1, 0), true), Pose()));
  EXPECT_TRUE(equals(rotationBetween(Vec3(1, 0, 0), Vec3(0, 1, 0), false), Pose()));
  EXPECT_TRUE(equals(rotationBetween(Vec3(1, 0, 0), Vec3(-1, 0, 0), true), Pose()));
  // A dot product just past 1 must not leak NaNs into the result.
  EXPECT_TRUE(equals(rotationBetween(Vec3(1.0000001f, 0, 0), Vec3(1, 0, 0), true), Pose()));
}

TEST(PoseLibraryTest, MatrixRoundTrip) {
  Pose p;
  p[0] = 10, p[1] = 20, p[2] = 30;
  float m[16];
  convert_pm(p.data(), m);
  const float id[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(m[i], id[i]) << i;
  Pose back;
  convert_mp(m, back.data());
  EXPECT_TRUE(equals(back, p));

  // A general rotation survives the round trip up to the quaternion's sign.
  Pose g = MakePose(-4, 5, 6, Vec3(1, -2, 0.5f), 2.5f);
  convert_pm(g.data(), m);
  convert_mp(m, back.data());
  normalize_p(back.data());
  const float sign = back[3] * g[3] < 0 ? -1.0f : 1.0f;
  for (int i = 3; i < 7; ++i) EXPECT_NEAR(back[i] * sign, g[i], 1e-6);
  // Column-major: a rotation of +90 degrees about Z maps X onto Y, so the
  // first column is (0, 1, 0).
  Pose z90 = MakePose(1000, 2000, 3000, Vec3(0, 0, 1), static_cast<float>(M_PI / 2));
  convert_pm(z90.data(), m);
  EXPECT_NEAR(m[1], 1, 1e-6);
  EXPECT_NEAR(m[4], -1, 1e-6);
  // A direction ignores the translation; in place is allowed.
  Vec3 v(1, 0, 0);
  mult_mv3_v3(m, v.data(), v.data());
  ExpectNear(v, Vec3(0, 1, 0), 1e-6f);
}

TEST(PoseLibraryTest, ComposeAndInvert) {
  const Pose a = MakePose(100, -20, 5, Vec3(0.3f, 1, 0.2f), 0.7f);
  const Pose b = MakePose(-7, 40, 12, Vec3(1, 0, 0), -1.2f);
  const Vec3 x(3, -4, 25);

  Pose ab;
  mult_pp(a.data(), b.data(), ab.data());
  // b first, then a.
  ExpectNear(Apply(ab, x), Apply(a, Apply(b, x)), 1e-3f);

  Pose inv = a;
  invert_p(inv.data());
  ExpectNear(Apply(inv, Apply(a, x)), x, 1e-3f);
  Pose both;
  mult_pp(a.data(), inv.data(), both.data());
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(both[i], 0, 1e-4);
  EXPECT_NEAR(std::fabs(both[3]), 1, 1e-6);

  Pose scaled = a;
  for (int i = 3; i < 7; ++i) scaled[i] *= 3;
  normalize_p(scaled.data());
  for (int i = 0; i < 7; ++i) EXPECT_NEAR(scaled[i], a[i], 1e-6);
  Pose zero;
  zero[3] = 0;
  normalize_p(zero.data());  // stays finite
  EXPECT_EQ(zero[3], 0);
}

}  // namespace
