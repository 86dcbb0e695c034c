// The session against a real zord on loopback: complete frames in order, the
// server's clock silent or rewound. (The 48-frame limit of a tick, a server
// that ends or dies and slave sessions are covered against the library double
// and in app/window_zord_test.cpp.)
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "link/zortk.h"
#include "testing/zord_process.h"
#include "zorsock/control.h"

namespace {

using namespace std::chrono_literals;
using zortest::DataPath;

class ZordSessionTest : public testing::Test {
 public:
  void SetUp() override {
    zord = std::make_unique<zortest::ZordProcess>(
        std::vector<std::string>{"--scene", DataPath("scenes/calibrated.json")});
    ASSERT_TRUE(zord->Start()) << zord->error();
    settings.server = zord->address();
    // Every LED as a point, and the moving body as a rigid.
    zor.AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, 0, 128));
    zor.AddTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, 3, DataPath("body.rb")));
  }

  void Connect() {
    const int32_t result = zor.Init(settings, true, true);
    ASSERT_GE(result, 0) << ZOR::ErrorText(result, kErrorInitConsole, settings.server);
    ASSERT_TRUE(zor.connected());
  }

  nlohmann::json Control(const std::string& request) {
    std::string error;
    const std::string reply = zorControl(zord->address(), request, &error);
    EXPECT_FALSE(reply.empty()) << request << ": " << error;
    return reply.empty() ? nlohmann::json{} : nlohmann::json::parse(reply);
  }

  // Pumps as the main window does (up to 48 frames a 2 ms tick), calling
  // onFrame after each frame, until done() or the time runs out.
  bool PumpUntil(const std::function<bool()>& done, const std::function<void()>& onFrame = [] {}) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < end) {
      zor.Pump(ZOR::kPollsPerTick, onFrame);
      if (done()) return true;
      std::this_thread::sleep_for(2ms);
    }
    return false;
  }

  std::unique_ptr<zortest::ZordProcess> zord;
  ConnectionSettings settings;
  ZOR zor{128, 1.0f};
};

TEST_F(ZordSessionTest, FramesArriveCompleteAndInOrderEmptyWhenSilentAndRewindPrintsOnce) {
  Connect();
  int frames = 0, withBoth = 0, previous = -1;
  bool ordered = true, consistent = true;
  EXPECT_TRUE(PumpUntil([&] { return frames >= 300 && withBoth > 0; }, [&] {
    ++frames;
    if (previous >= 0 && zor.lastFrame != previous + 1) ordered = false;
    previous = zor.lastFrame;
    for (const auto& m : zor.markers) consistent &= m.frame == zor.lastFrame;
    for (const auto& r : zor.rigids) consistent &= r.frame == zor.lastFrame;
    if (!zor.markers.empty() && !zor.rigids.empty()) ++withBoth;
  }));
  EXPECT_TRUE(ordered) << "a frame was skipped";
  EXPECT_TRUE(consistent) << "records of different frames were delivered together";
  EXPECT_GT(withBoth, frames / 2);
  EXPECT_FALSE(zor.cameras.empty());
  EXPECT_GT(zor.frequency, 0.0f);

  // A silent server gives empty frames, still in sequence.
  Control(R"({"cmd":"clock","action":"silence","on":true})");
  int empty = 0;
  bool sequential = true;
  previous = zor.lastFrame;
  EXPECT_TRUE(PumpUntil([&] { return empty >= 50; }, [&] {
    if (zor.lastFrame != previous + 1) sequential = false;
    previous = zor.lastFrame;
    if (zor.markers.empty() && zor.rigids.empty()) ++empty;
  }));
  EXPECT_TRUE(sequential);
  Control(R"({"cmd":"clock","action":"silence","on":false})");
  ASSERT_TRUE(PumpUntil([&] { return !zor.markers.empty() && zor.lastFrame > 100; }));

  testing::internal::CaptureStdout();
  Control(R"({"cmd":"clock","action":"rewind"})");
  int after = 0;
  const bool resumed = PumpUntil([&] { return after >= 50; }, [&] {
    if (zor.lastFrame < 100) ++after;
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "resetting frame...\n");
  EXPECT_TRUE(resumed);
}

}  // namespace
