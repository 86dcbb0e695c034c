#include "zord/room/scene.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "testing/zord_process.h"
#include "zord/room/sim_testing.h"

namespace zord {
namespace {

using testing::DefaultScene;
using testing::ReadFile;

TEST(Scene, DefaultSceneHasTheDocumentedObjects) {
  const Scene scene = DefaultScene();
  EXPECT_EQ(scene.cameras.size(), 8u);
  ASSERT_EQ(scene.LedCount(), 21);
  for (int id = 0; id <= 20; ++id) EXPECT_GE(scene.SlotOf(id), 0) << id;
  EXPECT_EQ(scene.SlotOf(21), -1);
  ASSERT_EQ(scene.bodies.size(), 1u);
  EXPECT_FALSE(scene.start_calibrated);

  for (const SceneCamera& cam : scene.cameras) {
    // The real lens and mounting are close to, but not exactly, the nominal ones.
    EXPECT_NE(cam.truth.fx, cam.nominal.fx);
    EXPECT_NEAR(cam.truth.fx, cam.nominal.fx, 20);
    EXPECT_NEAR(cam.truth.cx, cam.nominal.cx, 10);
    EXPECT_LT((cam.pose.Centre() - cam.mounting.Centre()).norm(), 30);
    EXPECT_GT((cam.pose.Centre() - cam.mounting.Centre()).norm(), 0);
    // Aimed into the volume: its centre projects inside the image.
    Eigen::Vector2d uv;
    ASSERT_TRUE(Project(cam.truth, cam.pose, scene.volume_centre, &uv));
    EXPECT_TRUE(cam.truth.Inside(uv));
  }
}

// LED id -> local position from a tracker file of "LED, x y z" lines.
std::map<int, Eigen::Vector3d> ReadRb(const std::string& path) {
  std::istringstream in(ReadFile(path));
  std::map<int, Eigen::Vector3d> leds;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    int id;
    double x, y, z;
    EXPECT_EQ(std::sscanf(line.c_str(), "%d, %lf %lf %lf", &id, &x, &y, &z), 4) << line;
    leds[id] = {x, y, z};
  }
  return leds;
}

void ExpectSameGeometry(const std::vector<SceneLed>& scene_leds, const std::string& file) {
  const auto leds = ReadRb(zortest::DataPath(file));
  ASSERT_EQ(leds.size(), scene_leds.size()) << file;
  for (const SceneLed& led : scene_leds) {
    ASSERT_TRUE(leds.count(led.id)) << file << " lacks LED " << led.id;
    EXPECT_EQ(leds.at(led.id), led.local) << file << " LED " << led.id;
  }
}

TEST(Scene, ShippedFilesMatchTheBuiltInScene) {
  EXPECT_EQ(ReadFile(zortest::DataPath("scenes/default.json")), DefaultSceneJson());
  const Scene builtin = DefaultScene();
  ExpectSameGeometry(builtin.wand.leds, "wand.rb");
  ExpectSameGeometry(builtin.bodies[0].leds, "body.rb");
  ExpectSameGeometry(builtin.align, "align.rb");

  Scene scene;
  std::string error;
  ASSERT_TRUE(LoadScene(zortest::DataPath("scenes/calibrated.json"), &scene, &error)) << error;
  EXPECT_TRUE(scene.start_calibrated);

  ASSERT_TRUE(LoadScene(zortest::DataPath("scenes/bench.json"), &scene, &error)) << error;
  EXPECT_EQ(scene.cameras.size(), 32u);
  EXPECT_EQ(scene.bodies.size(), 16u);
  EXPECT_EQ(scene.LedCount(), 512);
  EXPECT_TRUE(scene.start_calibrated);

  ASSERT_TRUE(LoadScene(zortest::DataPath("scenes/cameras64.json"), &scene, &error)) << error;
  EXPECT_EQ(scene.cameras.size(), 64u);
}

std::string ParseError(const std::string& text) {
  Scene scene;
  std::string error;
  EXPECT_FALSE(ParseScene(text, "room.json", &scene, &error));
  return error;
}

TEST(Scene, BadFilesNameTheFileAndTheKey) {
  using ::testing::HasSubstr;
  EXPECT_THAT(ParseError("{\"cameras\": [}"), HasSubstr("room.json: not valid JSON"));
  EXPECT_THAT(ParseError("[1, 2]"), HasSubstr("room.json: top level: expected an object"));
  EXPECT_THAT(ParseError(R"({"cameras": [{"position": [0, 1, 2]}, {"aim": [1, "x", 3]}]})"),
              HasSubstr("room.json: cameras[1].aim[1]: expected a number"));
  EXPECT_THAT(ParseError(R"({"cameras": [{"aim": [1, 2]}]})"),
              HasSubstr("cameras[0].aim: expected an array of 3 numbers"));
  EXPECT_THAT(ParseError(R"({"cameras": [{"lens": {"fx": -5}}]})"),
              HasSubstr("cameras[0].lens.fx: must be above 0"));
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "colour": 3})"), HasSubstr("colour: unknown key"));
  EXPECT_THAT(ParseError(R"({"cameras": []})"), HasSubstr("the scene has no camera"));
  EXPECT_THAT(ParseError(R"({"cameras": [{"position": [0, 1000, 0], "aim": [0, 1000, 0]}]})"),
              HasSubstr("cameras[0]: aim equals position"));
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "dropout": 2})"), HasSubstr("dropout"));
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "wand": {"leds": [[0, 1, 2, 3], [0, 4, 5, 6]]}})"),
              HasSubstr("LED id 0 is used twice"));
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "loose": [[1.5, 1, 2, 3]]})"),
              HasSubstr("loose[0]: expected [id, x, y, z]"));
  EXPECT_THAT(ParseError(R"({"camera_rings": [{"count": 0}]})"),
              HasSubstr("camera_rings[0].count: expected an integer from 1"));
  // Beyond the double range the parser throws out_of_range; zord used to terminate.
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "noise_px": 1e400})"), HasSubstr("not valid JSON"));
  // Huge numbers overflow norms (a zero wand direction, a zero rotation).
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "wand": {"leds": [], "direction": [1e200, 0, 0]}})"),
              HasSubstr("wand.direction[0]: expected a number from -1e9 to 1e9"));
  EXPECT_THAT(ParseError(R"({"cameras": [{}], "loose": [[4294967296, 1, 2, 3]]})"),
              HasSubstr("loose[0]: expected [id, x, y, z]"));

  Scene scene;
  std::string error;
  EXPECT_FALSE(LoadScene("/nonexistent/scene.json", &scene, &error));
  EXPECT_THAT(error, HasSubstr("/nonexistent/scene.json"));
}

TEST(Scene, CameraRingsAndExplicitLensesAreHonoured) {
  Scene scene;
  std::string error;
  ASSERT_TRUE(ParseScene(R"({
      "lens_error": {"focal_px": 0, "centre_px": 0, "k1": 0},
      "mount_error": {"position_mm": 0, "angle_deg": 0},
      "cameras": [{"position": [0, 2000, 3000], "true_lens": {"fx": 1000}}],
      "camera_rings": [{"count": 4, "radius": 2000, "height": 2500}]})",
                         "s", &scene, &error))
      << error;
  ASSERT_EQ(scene.cameras.size(), 5u);
  EXPECT_EQ(scene.cameras[0].truth.fx, 1000);
  EXPECT_EQ(scene.cameras[0].truth.fy, scene.cameras[0].nominal.fy);
  EXPECT_TRUE(scene.cameras[0].pose.Centre().isApprox(Eigen::Vector3d(0, 2000, 3000)));
  EXPECT_TRUE(scene.cameras[1].pose.Centre().isApprox(Eigen::Vector3d(2000, 2500, 0)));
  // A camera looking at the default aim point sees it at the image centre, upright.
  const SceneCamera& cam = scene.cameras[0];
  Eigen::Vector2d centre, above;
  ASSERT_TRUE(Project(cam.truth, cam.pose, {0, 1000, 0}, &centre));
  ASSERT_TRUE(Project(cam.truth, cam.pose, {0, 1100, 0}, &above));
  EXPECT_NEAR(centre.x(), cam.truth.cx, 1e-6);
  EXPECT_NEAR(centre.y(), cam.truth.cy, 1e-6);
  EXPECT_LT(above.y(), centre.y());  // up in the world is up in the image
}

}  // namespace
}  // namespace zord
