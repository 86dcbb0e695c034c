// Alignment in the calibration engine: the three-point construction and its
// flip, the cameras' vote, the index list, the rigid-body kind and the
// stillness detection that takes the wand's resting places.
#include <gtest/gtest.h>

#include <cmath>

#include "calib/calib_session.h"
#include "calib/jitter.h"
#include "link/zorsock_double.h"

namespace {

ZORMarker Point(float x, float y, float z, float cond = 1.0f) { return {0, 1, x, y, z, cond, 0}; }

ZORCamera CameraAt(float height) { return {0, {0, height, 0, 1, 0, 0, 0}, 1.0f, 0}; }

// Where the session's pending pose puts (x, y, z).
Vec3 Aligned(const CalibSession& s, float x, float y, float z) {
  float m[16], p[3] = {x, y, z}, out[3];
  convert_pm(s.pose.data(), m);
  mult_mv3_v3(m, p, out);
  return {out[0] + m[12], out[1] + m[13], out[2] + m[14]};
}

void ExpectNear(const Vec3& a, const Vec3& b) {
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-5) << i;
}

class CalibAlignTest : public testing::Test {
 protected:
  void SetUp() override { zordouble::Reset(); }
  CalibSession session{128, 0.001f};
};

TEST_F(CalibAlignTest, ThreePointsGiveOriginXAxisAndFloorPlaneAndFlipTurnsThemOver) {
  // Off the axes: origin at P0, +X towards P1, P2 on the +Z side.
  const ZORMarker p0 = Point(1, 2, 3), p1 = Point(3, 2, 3), p2 = Point(1, 2, 4);
  ASSERT_TRUE(session.alignFromPoints(p0, p1, p2, false));
  ExpectNear(Aligned(session, 1, 2, 3), {0, 0, 0});
  ExpectNear(Aligned(session, 3, 2, 3), {2, 0, 0});
  ExpectNear(Aligned(session, 1, 2, 4), {0, 0, 1});
  ExpectNear(Aligned(session, 1, 3, 3), {0, 1, 0});  // up stays up

  ASSERT_TRUE(session.alignFromPoints(p0, p1, p2, true));  // a half turn about X
  ExpectNear(Aligned(session, 1, 2, 4), {0, 0, -1});
  ExpectNear(Aligned(session, 1, 3, 3), {0, -1, 0});

  ASSERT_TRUE(session.flipAlignment());  // and back
  ExpectNear(Aligned(session, 1, 3, 3), {0, 1, 0});

  // One valid point is enough; none leaves the pose as it was.
  const Pose before = session.pose;
  EXPECT_FALSE(session.alignFromPoints(Point(0, 0, 0, 0), Point(1, 0, 0, 0), Point(0, 0, 1, 0), false));
  EXPECT_TRUE(equals(session.pose, before));
  EXPECT_TRUE(session.alignFromPoints(Point(0, 0, 0), Point(1, 0, 0, 0), Point(0, 0, 1, 0), false));
}

TEST_F(CalibAlignTest, TheCamerasVoteInTheirOrder) {
  const ZORMarker p0 = Point(0, 0, 0), p1 = Point(1, 0, 0), p2 = Point(0, 0, 1);
  const auto flipped = [&](std::vector<ZORCamera> cameras) {
    session.cameras = cameras;
    EXPECT_TRUE(session.alignWithCheck(p0, p1, p2));
    return Aligned(session, 0, 1, 0)[1] < 0;
  };
  EXPECT_TRUE(flipped({CameraAt(-2), CameraAt(-3)}));
  EXPECT_TRUE(flipped({CameraAt(2), CameraAt(-3)}));  // above counts only after below
  EXPECT_FALSE(flipped({CameraAt(-2), CameraAt(3)}));
  EXPECT_FALSE(flipped({CameraAt(2), CameraAt(3)}));
  EXPECT_FALSE(flipped({}));
  ZORCamera uncalibrated = CameraAt(-2);
  uncalibrated.cond = -1;
  EXPECT_FALSE(flipped({uncalibrated}));
}

TEST_F(CalibAlignTest, IndexListPicksTheWorkingEntriesAndSkipsThosePastTheEnd) {
  session.setAlignKind(2);
  session.markers = {Point(9, 9, 9), Point(0, 0, 0), Point(1, 0, 0), Point(0, 0, 1)};
  session.alignIndices = {1, 2, 3};
  ASSERT_TRUE(session.computeAlignment());
  ExpectNear(Aligned(session, 1, 0, 0), {1, 0, 0});
  session.alignIndices = {0, 1, 5};
  EXPECT_FALSE(session.computeAlignment());
  session.alignIndices = {1};
  EXPECT_FALSE(session.computeAlignment());

  // The wand: two points fail, the third succeeds and ends the wand alignment.
  session.setAlignKind(3);
  session.alignWandPoints = {Point(0, 0, 0), Point(1, 0, 0)};
  EXPECT_FALSE(session.computeAlignment());
  session.alignWandPoints.push_back(Point(0, 0, 1));
  EXPECT_TRUE(session.computeAlignment());
  EXPECT_TRUE(session.alignIndices.empty());
  EXPECT_FALSE(session.computeAlignment());
  session.clearAlignPoints();
  EXPECT_EQ(session.alignPointCount(), 0);
}

TEST_F(CalibAlignTest, RigidBodyKindTakesTheOneBodyInViewAsTheWorld) {
  session.setAlignKind(1);
  const ZORRigid body{3, 1, {0.5f, 0, 0, std::sqrt(0.5f), 0, std::sqrt(0.5f), 0}, 1.0f, 4};
  ZORRigid unseen = body;
  unseen.cond = 0;
  session.rigids = {body, body};
  EXPECT_FALSE(session.computeAlignment());
  session.rigids = {unseen, body};
  ASSERT_TRUE(session.computeAlignment());
  ExpectNear(Aligned(session, 0.5f, 0, 0), {0, 0, 0});
  ExpectNear(Aligned(session, 0.5f, 0, -1), {1, 0, 0});  // the body's +X
}

TEST_F(CalibAlignTest, StillnessTakesOnePointPerRestingPlace) {
  session.setAlignKind(3);
  session.pose[0] = 1.0f;  // shown shifted: points go back to unaligned coordinates
  ZORRigid wand{2, 100, {1.2f, 0, 0, 1, 0, 0, 0}, 1.0f, 8};
  const auto at = [&](int frame, float x) {
    wand.frame = frame;
    wand.pose[0] = x;
    session.rigids = {wand};
    return session.detectStillness();
  };
  at(100, 1.2f);
  EXPECT_FALSE(at(100 + StillnessDetector::kStillFrames - 1, 1.23f).capture);
  const StillnessDetector::Step taken = at(100 + StillnessDetector::kStillFrames, 1.21f);
  EXPECT_TRUE(taken.capture && taken.waiting);
  ASSERT_EQ(session.alignPointCount(), 1);
  EXPECT_NEAR(session.alignWandPoints[0].x, 0.21f, 1e-6);
  EXPECT_TRUE(at(3000, 1.2f).waiting);  // once per place
  EXPECT_EQ(session.alignPointCount(), 1);

  EXPECT_TRUE(at(3001, 1.3f).moved);  // moved on: a new place
  session.autoSnapshot = false;
  EXPECT_FALSE(at(5000, 1.3f).capture);
  session.stillness.requested = true;  // "Snapshot"
  EXPECT_TRUE(at(5001, 1.3f).capture);
  EXPECT_EQ(session.alignPointCount(), 2);

  session.rigids = {wand, wand};  // two bodies in view: no decision
  EXPECT_FALSE(session.detectStillness().waiting);

  // Frames received before the operator was asked are passed over (the wand
  // rested from 6000 to 9000), until the server restarts its numbering.
  StillnessDetector still;
  still.Reset(9000);
  const auto seen = [&](int frame) {
    wand.frame = frame;
    return still.Observe(wand, true).capture;
  };
  EXPECT_FALSE(seen(6000) || seen(9000) || seen(9001));
  EXPECT_TRUE(seen(9001 + StillnessDetector::kStillFrames));
  still.Reset(9000);
  EXPECT_FALSE(seen(8000) || seen(10) || seen(10 + StillnessDetector::kStillFrames - 1));
  EXPECT_TRUE(seen(10 + StillnessDetector::kStillFrames));
}

TEST(JitterTest, RadiusIsTheMeanDistanceOfTheSeenSamplesFromTheirMean) {
  JitterTest test;
  test.Start(3, 3);
  const int32_t body = 3 << 12;
  test.Collect({{body, 1, 0, 0, 0, 1, 0}, {body + 1, 1, 5, 5, 5, 1, 0}, {7, 1, 9, 9, 9, 1, 0}});
  test.Collect({{body, 2, 2, 0, 0, 1, 0}, {body + 1, 2, 5, 5, 5, 1, 0}, {body, 2, 50, 0, 0, 0, 0}});
  const auto radii = test.Stop();
  ASSERT_EQ(radii.size(), 3u);
  EXPECT_DOUBLE_EQ(*radii[0], 1.0);  // (0,0,0) and (2,0,0); the unseen sample does not count
  EXPECT_DOUBLE_EQ(*radii[1], 0.0);  // perfectly still
  EXPECT_FALSE(radii[2]);            // never seen
  test.Start(3, 2);
  EXPECT_TRUE(test.Stop().empty());  // nothing at all: the radius calculation fails
}

}  // namespace
