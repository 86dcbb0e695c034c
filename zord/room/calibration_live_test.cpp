// A wand calibration end to end through the client library against a real
// zord: a blank session captures the simulated wand, the server calibrates
// beside its stream and reports pass by pass, the cameras then agree with the
// simulation's truth, and the saved result survives a restart. Raw data: the
// capture recorded while calibrating, sent back and replayed as the camera
// input, calibrates to the same cameras; recordings that do not fit the
// installation are refused. Heavy (SERIAL).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zord/server/live_test_support.h"
#include "zord/solver/calib_accuracy.h"
#include "zorsock/rpd_file.h"

namespace {

using nlohmann::json;
using zortest::WaitFor;

zord::Extrinsics FromPose7(const float* p) {
  return zord::FromReportedPose(Eigen::Vector3d(p[0], p[1], p[2]),
                                Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized());
}

// Servers at 120 Hz, so that a few seconds of wand are a few hundred frames.
class CalibrationLive : public zortest::LiveZordTest {
 protected:
  void StartServer(const std::string& scene = zortest::DataPath("scenes/default.json")) {
    StartZord({"--scene", scene, "--frequency", "120"});
  }
  // Runs a calibration at `quality`; its final error line.
  std::string FinalError(int quality) {
    const std::vector<std::string> messages = Calibrate(quality);
    EXPECT_EQ(messages.size(), 8u) << (messages.empty() ? "" : messages.back());
    return messages.size() == 8 ? messages.back() : "";
  }
  zortest::TempDir dir_;
};

TEST_F(CalibrationLive, CalibratesFromABlankSessionAndKeepsTheSavedResult) {
  ASSERT_NO_FATAL_FAILURE(StartServer());
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
  ASSERT_TRUE(WaitFor([&] {
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
  std::ofstream(dir_.File("scene.json")) << scene.dump();
  ASSERT_NO_FATAL_FAILURE(StartServer(dir_.File("scene.json")));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_NO_FATAL_FAILURE(CaptureWand(240));

  const std::vector<std::string> messages = Calibrate(400);
  ASSERT_FALSE(messages.empty());
  const std::string& last = messages.back();
  EXPECT_EQ(last.rfind("pass ", 0), 0u) << last;
  EXPECT_NE(last.find(" failed. Camera 5 "), std::string::npos) << last;
  EXPECT_EQ(last.find("success"), std::string::npos) << last;
}

TEST_F(CalibrationLive, ARecordedCaptureCalibratesAgainToTheSameResult) {
  ASSERT_NO_FATAL_FAILURE(StartServer());
  const std::string file = dir_.File("capture.rpd");
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  // Sending needs the session closed.
  EXPECT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), ZOR_RPD_WRONG_STATE);

  // Record while capturing, draining as the client's frame pump does.
  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 1), 1) << zorRPDError();
  EXPECT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 1), ZOR_RPD_WRONG_STATE);
  int64_t written = 0;
  auto drain = [&] {
    for (int n; (n = zorRPDRecv()) > 0;) written += n;
  };
  ASSERT_NO_FATAL_FAILURE(CaptureWand(400, drain));
  WaitFor([&] { drain(); return false; }, 0.3);
  ASSERT_GE(zorRPDRecv(), 0) << zorRPDError();
  ASSERT_EQ(zorRPDClose(), 0) << zorRPDError();
  const int captured = Control({{"cmd", "status"}})["captured_frames"];

  const std::string first_error = FinalError(400);
  ASSERT_FALSE(first_error.empty());
  const std::vector<ZORCamera> first = CalibratedCameras();

  // The file holds every frame, those of the capture marked.
  std::vector<uint8_t> bytes;
  zorsock::rpd::Recording recording;
  std::string why;
  ASSERT_TRUE(zorsock::rpd::ReadWholeFile(file, &bytes, &why)) << why;
  EXPECT_GT(written, static_cast<int64_t>(bytes.size()) / 2);
  ASSERT_TRUE(zorsock::rpd::ParseRecording(bytes, &recording, &why)) << why;
  ASSERT_EQ(recording.header.cameras.size(), 8u);
  int marked = 0;
  for (const auto& r : recording.frames) {
    const auto frame = zorsock::wire::DecodeRawFrame(bytes.data() + r.offset, r.size, 8);
    ASSERT_TRUE(frame);
    marked += (frame->flags & zorsock::wire::kRawFrameCapturing) != 0;
  }
  EXPECT_GE(marked, captured);

  // Send it back; the server replays it as its camera input.
  zorDone();
  ASSERT_EQ(zorRPDOpen(zord_->address().c_str(), file.c_str(), 2), 1) << zorRPDError();
  ASSERT_EQ(zorRPDSend(), 1);
  ASSERT_EQ(zorRPDClose(), 0) << zorRPDError();
  const json replay = Control({{"cmd", "replay"}})["replay"];
  ASSERT_TRUE(replay.is_object());
  EXPECT_EQ(replay["frames"], recording.frames.size());

  // Capture the replay until every marked frame went by, and calibrate again.
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_START), 1);
  ASSERT_TRUE(WaitFor([&] { return Control({{"cmd", "replay"}})["replay"]["taken"] >= marked; }, 60));
  ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_STOP), 1);
  EXPECT_EQ(Control({{"cmd", "status"}})["captured_frames"], captured);

  const std::string second_error = FinalError(400);
  float e1 = 0, e2 = 0;
  ASSERT_EQ(std::sscanf(first_error.c_str(), "error %f", &e1), 1);
  ASSERT_EQ(std::sscanf(second_error.c_str(), "error %f", &e2), 1);
  EXPECT_NEAR(e2, e1, 1e-4 * e1);
  const std::vector<ZORCamera> second = CalibratedCameras();
  for (size_t i = 0; i < 8; ++i) {
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(second[i].pose[k], first[i].pose[k], 0.01) << i;
    for (int k = 3; k < 7; ++k) EXPECT_NEAR(second[i].pose[k], first[i].pose[k], 1e-5) << i;
  }
}

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

}  // namespace
