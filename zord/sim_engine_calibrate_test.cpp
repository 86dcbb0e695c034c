// The calibration run inside the engine, without the network: a blank session
// captures the waving wand, the solver runs beside the clock, its messages
// come out pass by pass and the cameras become calibrated; a second request,
// a closing session and a dying engine while it runs.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "testing/zord_process.h"
#include "zord/live_test_support.h"
#include "zord/sim_engine.h"
#include "zord/solver/calib_accuracy.h"

namespace zord {
namespace {

const ClientContext kCalib{2, ZOR_FLAG_CALIBRATE};

class EngineCalibration : public ::testing::Test {
 protected:
  void SetUp() override {
    SimOptions options;
    options.scene_file = zortest::DataPath("scenes/default.json");
    std::string error;
    engine_ = SimEngine::Create(options, &error);
    ASSERT_TRUE(engine_) << error;
    engine_->SessionOpened(kCalib);
    ASSERT_EQ(engine_->SetInteger(kCalib, ZOR_CALIB_LOAD_EXISTING, 0), ZOR_NO_ERROR);
    const Scene& scene = engine_->scene();
    ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_TRACKER_CREATE, ZOR_CALIB_TRACKER), ZOR_NO_ERROR);
    for (size_t i = 0; i < scene.wand.leds.size(); ++i) {
      const int marker = (1 << 12) | static_cast<int>(i);
      const Eigen::Vector3f p = scene.wand.leds[i].local.cast<float>();
      ASSERT_EQ(engine_->MarkerInts(kCalib, marker, ZOR_MARKER_LED, {scene.wand.leds[i].id}), 0);
      ASSERT_EQ(engine_->MarkerFloats(kCalib, marker, ZOR_MARKER_POSITION, {p.x(), p.y(), p.z()}), 0);
    }
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_ON), ZOR_NO_ERROR);
  }

  // Captures `frames` frames of the waving wand at 120 Hz.
  void Capture(int frames) {
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_NO_ERROR);
    Step(frames);
    ASSERT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_STOP), ZOR_NO_ERROR);
  }

  void Step(int frames) {
    FrameData out;
    out.want_images = out.want_detectors = false;
    for (int i = 0; i < frames; ++i, ++frame_) engine_->Step(frame_, 1.0 / 120, frame_ * 8333, out);
  }

  std::vector<std::string> Messages() {
    std::vector<std::string> all;
    for (std::string m; engine_->GetString(kCalib, ZOR_CALIB_MESSAGE, m) == 0 && !m.empty();)
      all.push_back(m);
    return all;
  }

  // Keeps the clock going while the solver works.
  bool StepUntilDone(double seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (engine_->Calibrating()) {
      if (std::chrono::steady_clock::now() > end) return false;
      Step(1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  int CalibratedCameras() {
    int n = 0;
    for (const ZORCamera& c : engine_->Cameras()) n += c.cond > 0;
    return n;
  }

  std::unique_ptr<SimEngine> engine_;
  int frame_ = 1;
};

TEST_F(EngineCalibration, RunsBesideTheClockAndInstallsCamerasThatAgreeWithTheTruth) {
  // 15 s of waving: the wand has been through most of the volume.
  Capture(1800);
  ASSERT_EQ(CalibratedCameras(), 0);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400), ZOR_NO_ERROR);
  // One run at a time; the capture it reads may not change meanwhile.
  EXPECT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 400), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_START), ZOR_INVALID_OPERATION);
  EXPECT_EQ(engine_->TrackerOp(kCalib, 1, ZOR_CALIB_CAPTURE_RESET), ZOR_INVALID_OPERATION);
  ASSERT_TRUE(StepUntilDone(120));
  // With the lens refined, the final error is close to the pixel noise.
  ASSERT_NO_FATAL_FAILURE(zortest::ExpectPassMessages(Messages(), 0.2f));

  std::vector<Extrinsics> solved, truth;
  for (const ZORCamera& c : engine_->Cameras()) {
    ASSERT_GT(c.cond, 0);
    solved.push_back(FromReportedPose(Eigen::Vector3d(c.pose[0], c.pose[1], c.pose[2]),
                                      Eigen::Quaterniond(c.pose[3], c.pose[4], c.pose[5], c.pose[6])));
  }
  for (const SceneCamera& c : engine_->scene().cameras) truth.push_back(c.pose);
  ASSERT_EQ(solved.size(), 8u);
  const PoseErrors e = CompareCameraPoses(solved, truth, std::vector<bool>(truth.size(), true));
  EXPECT_LT(e.position_max_mm, 1.0) << e.position_rms_mm;
  EXPECT_LT(e.rotation_max_deg, 0.02) << e.rotation_rms_deg;

  // Closing the session without saving goes back to the saved (blank) state.
  engine_->SessionClosed(kCalib);
  EXPECT_EQ(CalibratedCameras(), 0);
}

TEST_F(EngineCalibration, ClosingTheSessionCancelsItsRun) {
  Capture(600);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  engine_->SessionClosed(kCalib);
  ASSERT_TRUE(StepUntilDone(60));
  EXPECT_EQ(CalibratedCameras(), 0);
  // A new session finds the engine ready and the old capture gone.
  engine_->SessionOpened(kCalib);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  EXPECT_EQ(Messages(), std::vector<std::string>{"pass 1 failed. no wand data captured"});
}

TEST_F(EngineCalibration, EngineDestroyedMidRun) {
  Capture(600);
  ASSERT_EQ(engine_->TrackerOpi(kCalib, 1, ZOR_CALIB_RUN, 0), ZOR_NO_ERROR);
  Step(10);
  engine_.reset();  // cancels and waits; nothing left running to crash
}

}  // namespace
}  // namespace zord
