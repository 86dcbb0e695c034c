#include "zord/room/recon.h"

#include <gtest/gtest.h>

#include <array>

#include "zord/room/sim_testing.h"

namespace zord {
namespace {

// The default scene's cameras, calibrated from the truth.
std::vector<CalibratedCamera> TrueRig(const Scene& scene) {
  std::vector<CalibratedCamera> rig;
  for (const SceneCamera& cam : scene.cameras) rig.push_back(MakeCalibratedCamera(true, cam.truth, cam.pose));
  return rig;
}

Detection Detect(const Scene& scene, int camera, const Eigen::Vector3d& x, double du = 0) {
  Eigen::Vector2d uv = Eigen::Vector2d::Zero();
  EXPECT_TRUE(Project(scene.cameras[camera].truth, scene.cameras[camera].pose, x, &uv));
  return {camera, 0, static_cast<float>(uv.x() + du), static_cast<float>(uv.y()), 0};
}

TEST(Triangulate, ExactDetectionsGiveTheExactPoint) {
  const Scene scene = testing::DefaultScene();
  const auto rig = TrueRig(scene);
  const Eigen::Vector3d x(310, 1270, -480);
  std::vector<Detection> dets;
  for (int c = 0; c < 8; ++c) dets.push_back(Detect(scene, c, x));
  Triangulated t;
  ASSERT_TRUE(Triangulate(rig, dets.data(), static_cast<int>(dets.size()), nullptr, &t));
  EXPECT_LT((t.position - x).norm(), 0.01);  // float pixels limit the precision
  EXPECT_EQ(t.cameras, 8u);
  EXPECT_GT(t.cond, 0.99);

  // Weighting by the distance from a prior position changes nothing for exact data.
  const Eigen::Vector3d prior(0, 1000, 0);
  ASSERT_TRUE(Triangulate(rig, dets.data(), 8, &prior, &t));
  EXPECT_LT((t.position - x).norm(), 0.01);

  // Two cameras suffice; one does not.
  ASSERT_TRUE(Triangulate(rig, dets.data(), 2, nullptr, &t));
  EXPECT_LT((t.position - x).norm(), 0.01);
  EXPECT_FALSE(Triangulate(rig, dets.data(), 1, nullptr, &t));
  EXPECT_EQ(t.cond, 0);
}

TEST(Triangulate, UsesOnlyCalibratedCamerasAndRatesTheResidual) {
  const Scene scene = testing::DefaultScene();
  auto rig = TrueRig(scene);
  const Eigen::Vector3d x(-200, 900, 150);
  std::vector<Detection> dets;
  for (int c = 0; c < 8; ++c) dets.push_back(Detect(scene, c, x, c == 3 ? 4.0 : 0.0));
  Triangulated noisy;
  ASSERT_TRUE(Triangulate(rig, dets.data(), 8, nullptr, &noisy));
  EXPECT_LT((noisy.position - x).norm(), 5);
  EXPECT_LT(noisy.cond, 0.8);  // a 4-pixel outlier lowers the quality

  for (int c = 1; c < 8; ++c) rig[c].calibrated = false;
  Triangulated t;
  EXPECT_FALSE(Triangulate(rig, dets.data(), 8, nullptr, &t));
  rig[3].calibrated = rig[5].calibrated = true;
  rig[0].calibrated = false;
  ASSERT_TRUE(Triangulate(rig, dets.data(), 8, nullptr, &t));
  EXPECT_EQ(t.cameras, 2u);
}

TEST(Undistort, InvertsTheLensModel) {
  // One radial term (the fast path), then all four terms (the general inverse).
  for (const auto& [k1, k2, p1, p2] : std::vector<std::array<double, 4>>{
           {-0.2, 0, 0, 0}, {-0.04, 0, 0, 0}, {0, 0, 0, 0}, {0.05, 0, 0, 0}, {0.2, 0, 0, 0},
           {-0.05, 0.01, 0.001, -0.0015}, {0.03, -0.02, -0.002, 0.001}}) {
    Intrinsics lens;
    lens.k1 = k1;
    lens.k2 = k2;
    lens.p1 = p1;
    lens.p2 = p2;
    lens.fx = 1150;
    lens.fy = 1160;
    const CalibratedCamera cam = MakeCalibratedCamera(true, lens, Extrinsics());
    for (const Eigen::Vector2d& xn : {Eigen::Vector2d(0, 0), Eigen::Vector2d(0.5, -0.4),
                                     Eigen::Vector2d(-0.3, 0.1), Eigen::Vector2d(0.55, 0.45)}) {
      const Eigen::Vector2d uv = DistortToPixel(lens, xn.x(), xn.y());
      EXPECT_LT((Undistort(cam, uv.x(), uv.y()) - xn).norm(), 1e-9) << k1 << " " << xn.transpose();
    }
  }
}

TEST(FitRigid, RecoversAPoseAndNeedsThreePoints) {
  const std::vector<Eigen::Vector3d> local = {
      {0, 0, 0}, {140, 0, 20}, {-30, 0, 110}, {60, 70, -80}, {-90, 40, -40}};
  const Eigen::Quaterniond q = Eigen::Quaterniond(0.3, -0.5, 0.7, 0.2).normalized();
  const Eigen::Vector3d t(120, 1300, -400);
  std::vector<Eigen::Vector3d> world;
  for (const auto& p : local) world.push_back(q * p + t);
  RigidFit fit;
  ASSERT_TRUE(FitRigid(local.data(), world.data(), 5, &fit));
  EXPECT_LT((fit.position - t).norm(), 1e-9);
  EXPECT_LT(fit.rotation.angularDistance(q), 1e-9);
  EXPECT_LT(fit.rms_mm, 1e-9);

  world[2].x() += 5;  // one marker off: still close, RMS shows it
  ASSERT_TRUE(FitRigid(local.data(), world.data(), 5, &fit));
  EXPECT_LT((fit.position - t).norm(), 3);
  EXPECT_GT(fit.rms_mm, 1);
  EXPECT_LT(RigidCond(fit.rms_mm), RigidCond(0));
  EXPECT_FALSE(FitRigid(local.data(), world.data(), 2, &fit));

  // A mirrored solution is never returned, even for flat point sets.
  const std::vector<Eigen::Vector3d> flat = {{0, 0, 0}, {100, 0, 0}, {0, 0, 50}};
  std::vector<Eigen::Vector3d> flat_world;
  for (const auto& p : flat) flat_world.push_back(q * p + t);
  ASSERT_TRUE(FitRigid(flat.data(), flat_world.data(), 3, &fit));
  EXPECT_LT(fit.rotation.angularDistance(q), 1e-9);

  // Markers on a line: the axis and position are right, and the turn about the
  // axis is the smallest one, whatever the noise across the line.
  const std::vector<Eigen::Vector3d> line = {{-450, 0, 0}, {-180, 0, 0}, {75, 0, 0}, {450, 0, 0}};
  const Eigen::Vector3d axis = Eigen::Vector3d(1, 2, -1).normalized();
  const Eigen::Quaterniond expected = Eigen::Quaterniond::FromTwoVectors(Eigen::Vector3d::UnitX(), axis);
  std::vector<Eigen::Vector3d> line_world;
  for (size_t i = 0; i < line.size(); ++i) {
    line_world.push_back(t + line[i].x() * axis + Eigen::Vector3d(0, 0.01 * (i % 2), 0));
  }
  ASSERT_TRUE(FitRigid(line.data(), line_world.data(), 4, &fit));
  EXPECT_LT((fit.rotation * Eigen::Vector3d::UnitX() - axis).norm(), 1e-4);
  EXPECT_LT(fit.rotation.angularDistance(expected), 1e-4);
  EXPECT_LT((fit.position - t).norm(), 0.01);
}

}  // namespace
}  // namespace zord
