// The watch for cameras knocked after calibration, in the engine with the
// scene's pixel noise: a camera moved by 5 mm is reported within 2 s of
// simulated time, and a minute of waving without a bump reports none.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "testing/zord_process.h"
#include "zord/room/sim_engine.h"
#include "zorsock/feedback_wire.h"

namespace zord {
namespace {

constexpr double kRate = 480;

class BumpWatchEngine : public ::testing::Test {
 protected:
  void SetUp() override {
    SimOptions options;
    options.scene_file = zortest::DataPath("scenes/calibrated.json");
    std::string error;
    engine_ = SimEngine::Create(options, &error);
    ASSERT_TRUE(engine_) << error;
    // The waving wand as a point tracker: its LEDs are triangulated each frame.
    const ClientContext who{1, 0};
    ASSERT_EQ(engine_->TrackerOpi(who, 2, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), ZOR_NO_ERROR);
    const auto& leds = engine_->scene().wand.leds;
    for (size_t i = 0; i < leds.size(); ++i)
      ASSERT_EQ(engine_->MarkerInts(who, (2 << 12) | static_cast<int>(i), ZOR_MARKER_LED, {leds[i].id}),
                ZOR_NO_ERROR);
    ASSERT_EQ(engine_->TrackerOp(who, 2, ZOR_ON), ZOR_NO_ERROR);
    out_.want_images = out_.want_detectors = false;
  }

  // Steps `seconds`; returns the first time (s from the start of the call) at
  // which `camera` was reported, or -1; any other camera reported fails.
  double Run(double seconds, int camera = -1) {
    double first = -1;
    const int frames = static_cast<int>(seconds * kRate);
    for (int i = 1; i <= frames; ++i) {
      ++frame_;
      engine_->Step(frame_, 1 / kRate, static_cast<int64_t>(frame_ * 1e6 / kRate), out_);
      if (i % 24) continue;  // asked as a client would, 20 times a second
      std::vector<float> floats;
      std::vector<ZORCameraWatch> watch;
      EXPECT_EQ(engine_->GetFloats({1, 0}, ZOR_CAMERA_WATCH, floats), ZOR_NO_ERROR);
      EXPECT_TRUE(zorsock::wire::DecodeWatch(floats, &watch));
      EXPECT_EQ(watch.size(), 8u);
      for (const ZORCameraWatch& w : watch) {
        if (!w.moved) continue;
        if (w.camera != camera) {
          ADD_FAILURE() << "camera " << w.camera << " reported at " << i / kRate << " s (residual "
                        << w.residual_px << " px, level " << w.level_px << " px)";
          return first;
        }
        if (first < 0) first = i / kRate;
      }
    }
    return first;
  }

  std::unique_ptr<SimEngine> engine_;
  FrameData out_;
  int frame_ = 0;
};

TEST_F(BumpWatchEngine, AKnockedCameraIsReportedAndOnlyIt) {
  EXPECT_LT(Run(60), 0);  // a minute of waving: nothing
  const nlohmann::json bump = {{"cmd", "bump"}, {"camera", 1}, {"position_mm", {5, 0, 0}}};
  ASSERT_EQ(nlohmann::json::parse(engine_->Control(bump.dump()))["ok"], true);
  const double after = Run(2, 1);
  EXPECT_GE(after, 0) << "not reported within 2 s";
  std::printf("5 mm bump of camera 2 reported after %.3f s\n", after);
}

}  // namespace
}  // namespace zord
