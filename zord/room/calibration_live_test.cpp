// Calibration against a real zord: in a room with reflections, occlusion and
// mislabelled blobs the cameras still land on the truth; a recording that does
// not fit the installation is refused and the server goes on. (A wand calibration runs
// end to end from the client in app/, and inside the engine in
// sim_engine_test.cpp.) Heavy (SERIAL).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zord/room/scene.h"
#include "zord/server/live_test_support.h"
#include "zord/solver/calib_accuracy.h"
#include "zorsock/rpd_file.h"
#include "zorsock/zorsock_feedback.h"

namespace {

using nlohmann::json;

class CalibrationLive : public zortest::LiveZordTest {
 protected:
  void StartServer() { StartZord({"--scene", zortest::DataPath("scenes/default.json"), "--frequency", "120"}); }
  zortest::TempDir dir_;
};

TEST_F(CalibrationLive, ARecordingThatDoesNotFitIsRefused) {
  ASSERT_NO_FATAL_FAILURE(StartServer());
  // Three cameras where the installation has eight.
  std::vector<uint8_t> bytes = zorsock::rpd::EncodeFileHeader({{{1280, 1024}, {1280, 1024}, {1280, 1024}}, "x"});
  const zorsock::wire::Bytes message = zorsock::wire::EncodeRawFrame({1, 0, 0, {{0, 1, 0, 5, 5, 2, 1, 0}}});
  const auto size = static_cast<uint32_t>(message.size() - zorsock::wire::kHeaderSize);
  bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(&size), reinterpret_cast<const uint8_t*>(&size) + 4);
  bytes.insert(bytes.end(), message.begin() + zorsock::wire::kHeaderSize, message.end());
  const std::string file = dir_.File("three.rpd");
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                              static_cast<std::streamsize>(bytes.size()));

  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), 1) << zorRPDError();
  ASSERT_EQ(zorRPDSend(), 1);
  EXPECT_EQ(zorRPDClose(), ZOR_RPD_REFUSED);
  EXPECT_NE(std::string(zorRPDError()).find("3 cameras"), std::string::npos) << zorRPDError();
  EXPECT_TRUE(Control({{"cmd", "replay"}})["replay"].is_null());
  // The server goes on as before.
  EXPECT_EQ(Control({{"cmd", "status"}})["ok"], true);
}

// The room misbehaving as real rooms do, at realistic rates: a blob in a
// hundred with another LED's id, a glass wall reflecting the wand, the
// operator and the camera stands hiding LEDs, and blobs that merge. The
// calibration still succeeds and every camera lands within a millimetre of
// the simulation's truth, each within a few of its own reported sigmas.
TEST_F(CalibrationLive, CalibratesCloseToTheTruthInAMisbehavingRoom) {
  json scene = json::parse(zord::DefaultSceneJson());
  scene["effects"] = {
      {"occlusion", {{"operator", true}, {"stands", true}}},
      {"mirrors", {{{"point", {-2990, 0, 0}}, {"normal", {1, 0, 0}}, {"rate", 0.5}}}},
      {"mislabel_rate", 0.01},
      {"merge_px", 3}};
  const std::string sceneFile = dir_.File("room.json"), truthFile = dir_.File("truth.json");
  std::ofstream(sceneFile) << scene.dump();
  ASSERT_NO_FATAL_FAILURE(StartZord({"--scene", sceneFile, "--frequency", "120", "--truth-out", truthFile}));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_NO_FATAL_FAILURE(CaptureWand(1800));
  const std::vector<std::string> messages = Calibrate(800);
  ASSERT_NO_FATAL_FAILURE(zortest::ExpectPassMessages(messages, 0.2f));

  const std::vector<ZORCamera> cameras = CalibratedCameras();
  const json truth = json::parse(std::ifstream(truthFile));
  std::vector<zord::Extrinsics> solved, real;
  for (size_t i = 0; i < cameras.size(); ++i) {
    const float* p = cameras[i].pose;
    solved.push_back(zord::FromReportedPose({p[0], p[1], p[2]}, Eigen::Quaterniond(p[3], p[4], p[5], p[6])));
    const std::vector<double> t = truth["cameras"][i]["pose"].get<std::vector<double>>();
    real.push_back(zord::FromReportedPose({t[0], t[1], t[2]}, Eigen::Quaterniond(t[3], t[4], t[5], t[6])));
  }
  const zord::PoseErrors errors = zord::CompareCameraPoses(solved, real, std::vector<bool>(cameras.size(), true));
  EXPECT_LT(errors.position_max_mm, 1.0) << errors.position_rms_mm;

  // Each camera's own figures: its 1-sigma position uncertainty against its
  // true error; most cameras lie within 3 sigma.
  ZORCalibSummary summary{};
  std::vector<ZORCameraResult> figures(8);
  ASSERT_EQ(zorGetCalibResult(&summary, figures.data(), 8), 8);
  int within = 0;
  for (size_t i = 0; i < figures.size(); ++i) {
    EXPECT_GT(figures[i].rms_px, 0.0f);
    EXPECT_GT(figures[i].position_mm, 0.0f);
    within += errors.position_mm[i] <= 3 * figures[i].position_mm;
    std::printf("camera %zu: rms %.3f px, true error %.3f mm, sigma %.3f mm (%.2f sigma)\n", i + 1,
                figures[i].rms_px, errors.position_mm[i], figures[i].position_mm,
                errors.position_mm[i] / figures[i].position_mm);
  }
  EXPECT_GE(within, 6);
}

}  // namespace
