// The exported calibration: the cameras are where the engine reports them,
// the JSON is the documented reply, and what is no calibration writes nothing.
#include "zord/room/calibration_export.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "testing/zord_process.h"
#include "zord/room/sim_engine.h"

namespace zord {
namespace {

using nlohmann::json;

TEST(CalibrationExport, CamerasAreWhereTheEngineReportsThemAndJsonIsTheReply) {
  SimOptions options;
  options.scene_file = zortest::DataPath("scenes/calibrated.json");
  std::string error;
  auto engine = SimEngine::Create(options, &error);
  ASSERT_TRUE(engine) << error;
  // A global transform moves the exported world like everything reported.
  const ClientContext calib{1, ZOR_FLAG_CALIBRATE};
  engine->SessionOpened(calib);
  ASSERT_EQ(engine->SetInteger(calib, ZOR_CALIB_LOAD_EXISTING, 1), ZOR_NO_ERROR);
  ASSERT_EQ(engine->SetFloats(calib, ZOR_GLOBAL_TRANSFORM, {100, -20, 5, 0.9238795f, 0, 0.3826834f, 0}),
            ZOR_NO_ERROR);
  const json cal = json::parse(engine->Control(R"({"cmd": "calibration"})"));
  ASSERT_EQ(cal["ok"], true);
  ASSERT_EQ(cal["cameras"].size(), 8u);

  // Each camera centre, from the exported R and t, is where the engine reports it.
  const std::vector<ZORCamera> reported = engine->Cameras();
  for (size_t c = 0; c < 8; ++c) {
    const json& cam = cal["cameras"][c];
    Eigen::Matrix3d r;
    for (int i = 0; i < 9; ++i) r(i / 3, i % 3) = cam["rotation"][i];
    const Eigen::Vector3d t(cam["translation"][0], cam["translation"][1], cam["translation"][2]);
    const Eigen::Vector3d centre = -r.transpose() * t;
    EXPECT_NEAR((centre - Eigen::Vector3d(reported[c].pose[0], reported[c].pose[1], reported[c].pose[2])).norm(), 0, 0.05);
  }

  // The YAML is checked against this reply where the client exports it.
  zortest::TempDir dir;
  ASSERT_TRUE(ExportCalibration(cal, dir.File("rig.json"), &error)) << error;
  std::ifstream in(dir.File("rig.json"));
  EXPECT_EQ(json::parse(in), cal);

  EXPECT_FALSE(ExportCalibration(json{{"cameras", 3}}, dir.File("bad.yaml"), &error));
  EXPECT_FALSE(std::filesystem::exists(dir.File("bad.yaml")));
}

}  // namespace
}  // namespace zord
