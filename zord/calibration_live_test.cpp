// A wand calibration end to end through the client library against a real
// zord: a blank session captures the simulated wand, the server calibrates
// beside its stream and reports pass by pass, the cameras then agree with the
// simulation's truth, and the saved result survives a restart. Heavy (SERIAL).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "testing/zord_process.h"
#include "zord/server_test_support.h"
#include "zord/solver/calib_accuracy.h"
#include "zorsock/control.h"

namespace {

using nlohmann::json;
using zortest::WaitFor;

constexpr int kWand = 1;

zord::Extrinsics FromPose7(const float* p) {
  return zord::FromReportedPose(Eigen::Vector3d(p[0], p[1], p[2]),
                                Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized());
}

class CalibrationLive : public ::testing::Test {
 protected:
  void TearDown() override {
    zorDone();
    zortest::TakeErrors();
  }

  // A server on `scene` at 120 Hz, so that a few seconds of wand are a few
  // hundred frames.
  void StartServer(const std::string& scene) {
    zord_ = std::make_unique<zortest::ZordProcess>(
        std::vector<std::string>{"--scene", scene, "--frequency", "120"});
    ASSERT_TRUE(zord_->Start()) << zord_->error();
  }

  json Control(const json& request) {
    std::string error;
    const std::string reply = zorControl(zord_->address(), request.dump(), &error);
    EXPECT_TRUE(error.empty()) << error;
    return json::parse(reply, nullptr, false);
  }

  // Opens a calibration session, blank or keeping the saved calibration.
  void OpenCalibration(int keep_existing) {
    ASSERT_GE(zorInit(zord_->address().c_str(), ZOR_FLAG_CALIBRATE), 0);
    ASSERT_EQ(zorSetInteger(ZOR_CALIB_LOAD_EXISTING, keep_existing), 1);
  }

  // The wand file as the calibration tracker.
  void DefineWand() {
    ASSERT_EQ(zorTrackeri(kWand, ZOR_TRACKER_CREATE, ZOR_CALIB_TRACKER), 1);
    std::ifstream file(zortest::DataPath("wand.rb"));
    int index = 0;
    for (std::string line; std::getline(file, line);) {
      int led;
      float p[3];
      if (std::sscanf(line.c_str(), "%d, %f %f %f", &led, &p[0], &p[1], &p[2]) != 4) continue;
      ASSERT_EQ(zorMarkeriv((kWand << 12) | index, ZOR_MARKER_LED, &led), 1);
      ASSERT_EQ(zorMarkerfv((kWand << 12) | index, ZOR_MARKER_POSITION, p), 1);
      ++index;
    }
    ASSERT_EQ(index, 8);
    ASSERT_EQ(zorTracker(kWand, ZOR_ON), 1);
  }

  // Captures about `frames` frames of the waving wand.
  void CaptureWand(int frames) {
    ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_START), 1);
    ASSERT_TRUE(WaitFor([&] { return Control({{"cmd", "status"}})["captured_frames"] >= frames; },
                        60));
    ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_STOP), 1);
  }

  // Calibration messages until the run ends (pass 4's error line or a failure).
  std::vector<std::string> Calibrate(int quality) {
    std::vector<std::string> messages;
    EXPECT_EQ(zorTrackeri(kWand, ZOR_CALIB_RUN, quality), 1);
    char text[ZOR_STRING_MAX];
    const bool ended = WaitFor(
        [&] {
          while (zorGetString(ZOR_CALIB_MESSAGE, text) > 0) messages.emplace_back(text);
          if (messages.empty()) return false;
          const std::string& last = messages.back();
          return last.find("failed") != std::string::npos ||
                 (messages.size() >= 2 && messages[messages.size() - 2] == "pass 4 success.");
        },
        110);
    EXPECT_TRUE(ended) << messages.size() << " messages";
    return messages;
  }

  // The cameras as the library has them, once every one reports calibrated.
  std::vector<ZORCamera> CalibratedCameras(size_t count) {
    std::vector<ZORCamera> cameras(64);
    const bool all = WaitFor([&] {
      const int n = zorGetCameras(cameras.data(), 64);
      if (n != static_cast<int>(count)) return false;
      for (int i = 0; i < n; ++i)
        if (cameras[i].cond < 0) return false;
      return true;
    }, 10);
    EXPECT_TRUE(all);
    cameras.resize(count);
    return cameras;
  }

  // Camera poses against the truth after the rigid motion a calibration cannot know.
  zord::PoseErrors CompareWithTruth(const std::vector<ZORCamera>& cameras) {
    const json truth = Control({{"cmd", "truth"}});
    std::vector<zord::Extrinsics> solved, real;
    for (size_t i = 0; i < cameras.size(); ++i) {
      solved.push_back(FromPose7(cameras[i].pose));
      std::vector<float> p = truth["cameras"][i]["pose"].get<std::vector<float>>();
      real.push_back(FromPose7(p.data()));
    }
    return zord::CompareCameraPoses(solved, real, std::vector<bool>(cameras.size(), true));
  }

  std::unique_ptr<zortest::ZordProcess> zord_;
};

void ExpectPassMessages(const std::vector<std::string>& messages) {
  ASSERT_EQ(messages.size(), 8u) << (messages.empty() ? "" : messages.back());
  for (int pass = 1; pass <= 4; ++pass) {
    int n = 0;
    ASSERT_EQ(std::sscanf(messages[2 * pass - 2].c_str(), "pass %d success.", &n), 1);
    EXPECT_EQ(n, pass);
    float error = -1;
    ASSERT_EQ(std::sscanf(messages[2 * pass - 1].c_str(), "error %f", &error), 1);
    EXPECT_GT(error, 0.0f);
    if (pass == 4) {
      EXPECT_LT(error, 0.2f);  // pixel noise is 0.1
    }
  }
}

TEST_F(CalibrationLive, CalibratesFromABlankSessionAndKeepsTheSavedResult) {
  ASSERT_NO_FATAL_FAILURE(StartServer(zortest::DataPath("scenes/default.json")));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  ASSERT_NO_FATAL_FAILURE(DefineWand());
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  ASSERT_NO_FATAL_FAILURE(CaptureWand(1800));

  const std::vector<std::string> messages = Calibrate(400);
  ASSERT_NO_FATAL_FAILURE(ExpectPassMessages(messages));

  // The result is in use at once: every camera is calibrated and where the
  // truth has it, up to the world frame the calibration had to choose.
  const std::vector<ZORCamera> cameras = CalibratedCameras(8);
  const zord::PoseErrors errors = CompareWithTruth(cameras);
  EXPECT_LT(errors.position_max_mm, 2.0) << errors.position_rms_mm;
  EXPECT_LT(errors.rotation_max_deg, 0.05) << errors.rotation_rms_deg;
  // ... and the wand is reconstructed with it at its true length.
  zortest::FrameFetcher f;
  ASSERT_TRUE(WaitFor([&] {
    if (f.Fetch() != 1 || f.markers.size() != 8) return false;
    return f.markers[0].cond > 0 && f.markers[7].cond > 0;
  }));
  const Eigen::Vector3f a(f.markers[0].x, f.markers[0].y, f.markers[0].z);
  const Eigen::Vector3f b(f.markers[7].x, f.markers[7].y, f.markers[7].z);
  EXPECT_NEAR((a - b).norm(), 900.0f, 1.0f);

  // Saved, the calibration survives a restart and a "keep existing" session.
  ASSERT_EQ(zorSetInteger(ZOR_CALIB_SAVE, 1), 1);
  zorDone();
  ASSERT_TRUE(zord_->Restart()) << zord_->error();
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(1));
  const std::vector<ZORCamera> kept = CalibratedCameras(8);
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
  ASSERT_NO_FATAL_FAILURE(DefineWand());
  ASSERT_NO_FATAL_FAILURE(CaptureWand(240));

  const std::vector<std::string> messages = Calibrate(400);
  ASSERT_FALSE(messages.empty());
  const std::string& last = messages.back();
  EXPECT_EQ(last.rfind("pass ", 0), 0u) << last;
  EXPECT_NE(last.find(" failed. Camera 5 "), std::string::npos) << last;
  EXPECT_EQ(last.find("success"), std::string::npos) << last;
}

}  // namespace
