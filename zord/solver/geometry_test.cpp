// Triangulation, the camera tree, the accuracy measures and the adjustment's
// derivatives on exact data.
#include <ceres/gradient_checker.h>
#include <gtest/gtest.h>

#include "zord/solver/calib_accuracy.h"
#include "zord/solver/group_cost.h"
#include "zord/solver/relative_poses.h"
#include "zord/solver/triangulation.h"

namespace zord {
namespace {

Extrinsics CameraAt(const Eigen::Vector3d& eye, double yaw) {
  Extrinsics e;
  e.rotation = Eigen::Quaterniond(Eigen::AngleAxisd(yaw, Eigen::Vector3d::UnitY()));
  e.translation = -(e.rotation * eye);
  return e;
}

Eigen::Vector2d Normalized(const Extrinsics& e, const Eigen::Vector3d& p) {
  const Eigen::Vector3d c = e.ToCamera(p);
  return c.head<2>() / c.z();
}

TEST(Triangulation, RecoversAPointAndRefusesDegenerateViews) {
  const std::vector<Extrinsics> views = {CameraAt({-1000, 0, -3000}, 0.3),
                                         CameraAt({1000, 0, -3000}, -0.3),
                                         CameraAt({0, 800, -3500}, 0)};
  const Eigen::Vector3d point(120, -40, 250);
  std::vector<Eigen::Vector2d> seen;
  for (const Extrinsics& v : views) seen.push_back(Normalized(v, point));
  const auto got = TriangulateNormalized(views, seen);
  ASSERT_TRUE(got.has_value());
  EXPECT_LT((*got - point).norm(), 1e-6);

  // The same camera twice sees along one ray: no depth.
  EXPECT_FALSE(TriangulateNormalized({views[0], views[0]}, {seen[0], seen[0]}).has_value());
  // Behind the cameras.
  const Eigen::Vector3d behind(0, 0, -6000);
  EXPECT_FALSE(TriangulateNormalized({views[0], views[1]},
                                     {Normalized(views[0], behind), Normalized(views[1], behind)})
                   .has_value());
  EXPECT_FALSE(TriangulateNormalized({views[0]}, {seen[0]}).has_value());
}

TEST(Triangulation, WandPoseFromPartOfTheLeds) {
  const std::vector<double> offsets = {-450, -365, -240, 0, 450};
  WandPose truth;
  truth.centre = {10, 1200, -30};
  truth.direction = Eigen::Vector3d(1, 2, -1).normalized();
  std::vector<std::optional<Eigen::Vector3d>> points(offsets.size());
  for (size_t i : {0, 2, 4}) points[i] = WandLedPosition(truth, offsets[i]);
  const auto pose = FitWandPose(offsets, points);
  ASSERT_TRUE(pose.has_value());
  EXPECT_LT((pose->centre - truth.centre).norm(), 1e-9);
  EXPECT_LT((pose->direction - truth.direction).norm(), 1e-12);
  points = {points[0], std::nullopt, std::nullopt, std::nullopt, std::nullopt};
  EXPECT_FALSE(FitWandPose(offsets, points).has_value());
}

TEST(CameraTree, FollowsTheStrongestLinksAndLeavesWeakOnesOut) {
  CameraLinks links{Eigen::MatrixXi::Zero(4, 4), Eigen::MatrixXi::Zero(4, 4)};
  auto link = [&](int a, int b, int frames, int samples) {
    links.shared_frames(a, b) = links.shared_frames(b, a) = frames;
    links.shared_samples(a, b) = links.shared_samples(b, a) = samples;
  };
  link(0, 1, 50, 300);
  link(1, 2, 50, 400);
  link(0, 2, 50, 100);
  link(2, 3, 5, 40);  // too few shared frames to be an edge
  CameraTree tree = BuildCameraTree(links, {true, true, true, true}, 10);
  EXPECT_EQ(tree.root, 1);
  EXPECT_EQ(tree.parent, (std::vector<int>{1, -1, 1, -1}));
  EXPECT_EQ(tree.order.size(), 3u);

  link(2, 3, 12, 40);
  tree = BuildCameraTree(links, {true, true, true, true}, 10);
  EXPECT_EQ(tree.parent[3], 2);
  tree = BuildCameraTree(links, {true, false, true, true}, 10);
  EXPECT_EQ(tree.root, 2);
  EXPECT_EQ(tree.parent, (std::vector<int>{2, -1, -1, 2}));
}

TEST(CalibAccuracy, IgnoresARigidMotionOfTheWholeInstallation) {
  std::vector<Extrinsics> truth = {
      CameraAt({-2000, 2500, -2500}, 0.5), CameraAt({2000, 2400, -2600}, -0.4),
      CameraAt({0, 2600, 2700}, 3.0), CameraAt({2500, 2000, 2500}, 2.3)};
  const Eigen::Isometry3d motion = Eigen::Translation3d(300, -20, 40) *
                                   Eigen::AngleAxisd(0.7, Eigen::Vector3d(1, 2, 3).normalized());
  std::vector<Extrinsics> moved = truth;
  const Eigen::Quaterniond q(motion.linear());
  for (Extrinsics& e : moved) {
    e.rotation = e.rotation * q.conjugate();
    e.translation -= e.rotation * motion.translation();
  }
  PoseErrors errors = CompareCameraPoses(moved, truth, {true, true, true, true});
  EXPECT_LT(errors.position_max_mm, 1e-9);
  EXPECT_LT(errors.rotation_max_deg, 1e-9);

  moved[2].translation.x() += 3;  // camera 3 off by 3 mm
  moved[1].rotation = moved[1].rotation * Eigen::Quaterniond(Eigen::AngleAxisd(
                                              0.01 * M_PI / 180, Eigen::Vector3d::UnitZ()));
  errors = CompareCameraPoses(moved, truth, {true, true, true, true});
  EXPECT_GT(errors.position_max_mm, 1.5);
  EXPECT_NEAR(errors.rotation_max_deg, 0.01, 0.005);
}

// The written-out derivatives against numeric ones, with every lens term
// non-zero so that none of them drops out.
TEST(GroupCost, DerivativesMatchNumericOnes) {
  SampleSet set;
  set.cameras = 1;
  set.frames.resize(1);
  for (int led = 0; led < 3; ++led) set.frames[0].samples.push_back({0, led, {600, 500}});
  const std::vector<double> offsets = {-450, 100, 450};
  Intrinsics lens;
  lens.fx = 1400, lens.fy = 1390, lens.cx = 650, lens.cy = 505;
  lens.k1 = -0.2, lens.k2 = 0.05, lens.p1 = 0.002, lens.p2 = -0.001;
  const double camera[6] = {0.3, -0.5, 0.2, 150, -80, 3200};
  const Eigen::Vector3d direction = Eigen::Vector3d(0.6, 0.2, -0.3).normalized();
  const double wand[6] = {40, 25, -60, direction.x(), direction.y(), direction.z()};
  const double free_lens[8] = {lens.fx, lens.fy / lens.fx, lens.cx, lens.cy,
                               lens.k1, lens.k2,           lens.p1, lens.p2};
  const double* blocks[3] = {camera, wand, free_lens};
  const auto* no_manifolds = static_cast<const std::vector<const ceres::Manifold*>*>(nullptr);
  for (const Intrinsics* fixed : std::vector<const Intrinsics*>{&lens, nullptr}) {
    const GroupCost cost({&set, 0, {0, 1, 2}}, &offsets, fixed);
    ceres::GradientChecker checker(&cost, no_manifolds, ceres::NumericDiffOptions());
    // No ProbeResults: its Eigen members are allocated inside libceres, whose
    // alignment settings need not be ours.
    EXPECT_TRUE(checker.Probe(blocks, 1e-6, nullptr)) << (fixed ? "lens held" : "lens free");
  }
}

}  // namespace
}  // namespace zord
