// A wand calibration end to end through the client library against a real
// zord: a blank session captures the simulated wand, the server calibrates
// beside its stream and reports pass by pass, the cameras then agree with the
// simulation's truth, and the saved result survives a restart. Heavy (SERIAL).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zord/live_test_support.h"
#include "zord/solver/calib_accuracy.h"

namespace {

using nlohmann::json;

zord::Extrinsics FromPose7(const float* p) {
  return zord::FromReportedPose(Eigen::Vector3d(p[0], p[1], p[2]),
                                Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized());
}

// Servers at 120 Hz, so that a few seconds of wand are a few hundred frames.
class CalibrationLive : public zortest::LiveZordTest {
 protected:
  void StartServer(const std::string& scene) { StartZord({"--scene", scene, "--frequency", "120"}); }
};

TEST_F(CalibrationLive, CalibratesFromABlankSessionAndKeepsTheSavedResult) {
  ASSERT_NO_FATAL_FAILURE(StartServer(zortest::DataPath("scenes/default.json")));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  ASSERT_NO_FATAL_FAILURE(CaptureWand(1800));
  ASSERT_NO_FATAL_FAILURE(zortest::ExpectPassMessages(Calibrate(400), 0.2f));  // pixel noise 0.1

  // The result is in use at once: every camera is calibrated and where the
  // truth has it, up to the world frame the calibration had to choose.
  const std::vector<ZORCamera> cameras = CalibratedCameras();
  const json truth = Control({{"cmd", "truth"}});
  std::vector<zord::Extrinsics> solved, real;
  for (size_t i = 0; i < cameras.size(); ++i) {
    solved.push_back(FromPose7(cameras[i].pose));
    real.push_back(FromPose7(truth["cameras"][i]["pose"].get<std::vector<float>>().data()));
  }
  const zord::PoseErrors errors = zord::CompareCameraPoses(solved, real, std::vector<bool>(8, true));
  EXPECT_LT(errors.position_max_mm, 2.0) << errors.position_rms_mm;
  EXPECT_LT(errors.rotation_max_deg, 0.05) << errors.rotation_rms_deg;
  // ... and the wand is reconstructed with it at its true length.
  zortest::FrameFetcher f;
  ASSERT_TRUE(zortest::WaitFor([&] {
    return f.Fetch() == 1 && f.markers.size() == 8 && f.markers[0].cond > 0 && f.markers[7].cond > 0;
  }));
  const Eigen::Vector3f a(f.markers[0].x, f.markers[0].y, f.markers[0].z);
  const Eigen::Vector3f b(f.markers[7].x, f.markers[7].y, f.markers[7].z);
  EXPECT_NEAR((a - b).norm(), 900.0f, 1.0f);

  // Saved, the calibration survives a restart and a "keep existing" session.
  ASSERT_EQ(zorSetInteger(ZOR_CALIB_SAVE, 1), 1);
  zorDone();
  ASSERT_TRUE(zord_->Restart()) << zord_->error();
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(1));
  const std::vector<ZORCamera> kept = CalibratedCameras();
  for (size_t i = 0; i < kept.size(); ++i) {
    for (int k = 0; k < 7; ++k) EXPECT_NEAR(kept[i].pose[k], cameras[i].pose[k], 1e-3) << i;
  }
}

TEST_F(CalibrationLive, ACameraThatSeesAlmostNothingIsNamed) {
  // Camera 5 of the default scene looks down at the floor by its wall.
  json scene = json::parse(std::ifstream(zortest::DataPath("scenes/default.json")));
  scene["cameras"][4]["aim"] = {-2800, 0, -2000};
  zortest::TempDir dir;
  std::ofstream(dir.File("scene.json")) << scene.dump();
  ASSERT_NO_FATAL_FAILURE(StartServer(dir.File("scene.json")));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_NO_FATAL_FAILURE(CaptureWand(240));

  const std::vector<std::string> messages = Calibrate(400);
  ASSERT_FALSE(messages.empty());
  const std::string& last = messages.back();
  EXPECT_EQ(last.rfind("pass ", 0), 0u) << last;
  EXPECT_NE(last.find(" failed. Camera 5 "), std::string::npos) << last;
  EXPECT_EQ(last.find("success"), std::string::npos) << last;
}

}  // namespace
