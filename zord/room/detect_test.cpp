#include "zord/room/detect.h"

#include <gtest/gtest.h>

#include <cmath>

#include "zord/room/sim_testing.h"

namespace zord {
namespace {

Scene OneCameraScene(double dropout) {
  Scene scene;
  std::string error;
  EXPECT_TRUE(ParseScene(R"({
      "lens_error": {"focal_px": 0, "centre_px": 0, "k1": 0},
      "mount_error": {"position_mm": 0, "angle_deg": 0},
      "cameras": [{"position": [0, 1000, 3000], "aim": [0, 1000, 0]}],
      "loose": [[5, 0, 1000, 0], [6, 0, 1000, 4000], [7, 20000, 1000, 0], [8, 300, 1200, -500]],
      "dropout": )" + std::to_string(dropout) + "}",
                         "s", &scene, &error))
      << error;
  return scene;
}

std::vector<Eigen::Vector3d> LooseWorld(const Scene& scene) {
  std::vector<Eigen::Vector3d> world;
  for (const SceneLed& led : scene.loose) world.push_back(led.local);
  return world;
}

TEST(Detector, SeesOnlyLitLedsInFrontAndInsideTheImage) {
  const Scene scene = OneCameraScene(0);
  Detector detector(scene, 1, 0.0, 0.0);
  std::vector<uint8_t> lit(scene.LedCount(), 1);
  detector.Run(LooseWorld(scene), lit);
  // LED 6 is behind the camera and LED 7 far outside its view.
  ASSERT_EQ(detector.detections().size(), 2u);
  EXPECT_EQ(detector.Count(scene.SlotOf(5)), 1);
  EXPECT_EQ(detector.Count(scene.SlotOf(6)), 0);
  EXPECT_EQ(detector.Count(scene.SlotOf(7)), 0);
  EXPECT_EQ(detector.per_camera()[0], 2);
  const Detection& d = detector.detections()[detector.First(scene.SlotOf(5))];
  EXPECT_NEAR(d.u, scene.cameras[0].truth.cx, 1e-3);
  EXPECT_NEAR(d.v, scene.cameras[0].truth.cy, 1e-3);
  EXPECT_NEAR(d.depth, 3000, 1e-3);

  lit[scene.SlotOf(5)] = 0;
  detector.Run(LooseWorld(scene), lit);
  EXPECT_EQ(detector.Count(scene.SlotOf(5)), 0);
  EXPECT_EQ(detector.detections().size(), 1u);
}

TEST(Detector, NoiseHasTheRequestedSigmaAndDropoutsTheirRate) {
  const Scene scene = OneCameraScene(0.25);
  Detector exact(scene, 1, 0.0, 0.0);
  Detector noisy(scene, 42, 0.5, 0.25);
  const std::vector<uint8_t> lit(scene.LedCount(), 1);
  const auto world = LooseWorld(scene);
  exact.Run(world, lit);
  const Detection truth = exact.detections()[0];
  double sum = 0, sum_sq = 0;
  int n = 0;
  const int runs = 20000;
  for (int i = 0; i < runs; ++i) {
    noisy.Run(world, lit);
    for (const Detection& d : noisy.detections()) {
      if (d.slot != truth.slot) continue;
      const double e = d.u - truth.u;
      sum += e;
      sum_sq += e * e;
      ++n;
    }
  }
  EXPECT_NEAR(static_cast<double>(n) / runs, 0.75, 0.02);
  EXPECT_NEAR(sum / n, 0, 0.02);
  EXPECT_NEAR(std::sqrt(sum_sq / n), 0.5, 0.02);

  // The same seed gives the same detections.
  Detector a(scene, 7, 0.5, 0.25), b(scene, 7, 0.5, 0.25);
  a.Run(world, lit);
  b.Run(world, lit);
  ASSERT_EQ(a.detections().size(), b.detections().size());
  for (size_t i = 0; i < a.detections().size(); ++i) EXPECT_EQ(a.detections()[i].u, b.detections()[i].u);
}

// A lens with k1 = -0.04 folds a point 79 degrees off its axis onto the image
// centre; a real lens never images it. A floor mirror doubles what the camera
// sees, and a certain mislabel moves every blob to another LED's id.
TEST(Detector, ImagesOnlyItsFieldAndAddsTheSceneEffects) {
  Scene scene;
  std::string error;
  ASSERT_TRUE(ParseScene(R"({
      "lens": {"k1": -0.04},
      "lens_error": {"focal_px": 0, "centre_px": 0, "k1": 0},
      "mount_error": {"position_mm": 0, "angle_deg": 0},
      "cameras": [{"position": [0, 1000, 3000], "aim": [0, 1000, 0]}],
      "loose": [[5, 0, 1000, 0], [6, 15000, 1000, 0]],
      "effects": {"mirrors": [{"point": [0, 600, 0], "normal": [0, 1, 0]}]}})",
                         "s", &scene, &error))
      << error;
  const std::vector<uint8_t> lit(scene.LedCount(), 1);
  Detector detector(scene, 1, 0.0, 0.0);
  detector.Run(LooseWorld(scene), lit);
  EXPECT_EQ(detector.Count(scene.SlotOf(6)), 0);
  ASSERT_EQ(detector.Count(scene.SlotOf(5)), 2);  // the LED and its reflection below it
  const Detection* d = &detector.detections()[detector.First(scene.SlotOf(5))];
  EXPECT_GT(d[1].v, d[0].v + 50);

  scene.effects = SceneEffects();
  scene.effects.mislabel_rate = 1;
  Detector mislabelling(scene, 1, 0.0, 0.0);
  mislabelling.Run(LooseWorld(scene), lit);
  EXPECT_EQ(mislabelling.Count(scene.SlotOf(5)), 0);
  EXPECT_EQ(mislabelling.Count(scene.SlotOf(6)), 1);
}

}  // namespace
}  // namespace zord
