// The session against a real zord on loopback: complete frames, the server's
// clock rewound, silent or paused, the server ending or dying, slave connections.
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
  void TearDown() override {
    if (zor.connected()) zor.Done();
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
  size_t ServerTrackers() { return Control(R"({"cmd":"status"})")["trackers"].size(); }

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

  // Ends the server with `end` while frames flow; returns what the session
  // printed until it stopped.
  std::string EndServer(const std::function<void()>& end) {
    Connect();
    EXPECT_TRUE(PumpUntil([&] { return zor.lastFrame > 10; }));
    end();
    testing::internal::CaptureStdout();
    EXPECT_TRUE(PumpUntil([&] { return !zor.connected(); }));
    return testing::internal::GetCapturedStdout();
  }

  int ServerFrame() {
    int now = -1;
    zorGetIntegerv(ZOR_FRAME_NUMBER, &now);
    return now;
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

TEST_F(ZordSessionTest, QueuedFramesAreTakenAtMost48ATick) {
  Connect();
  // The server's numbering began before the session: count from its frames.
  ASSERT_TRUE(PumpUntil([&] { return zor.lastFrame > 0; }));
  Control(R"({"cmd":"clock","action":"pause"})");
  std::this_thread::sleep_for(100ms);
  ASSERT_TRUE(PumpUntil([&] { return zor.Pump(ZOR::kPollsPerTick).frames == 0; }));

  Control(R"({"cmd":"clock","action":"resume"})");
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (ServerFrame() - zor.lastFrame < 49 && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(1ms);
  Control(R"({"cmd":"clock","action":"pause"})");
  std::this_thread::sleep_for(100ms);  // let frames on the way arrive
  const int queued = ServerFrame() - zor.lastFrame;
  ASSERT_GE(queued, 49);

  int taken = 0;
  for (int tick = 0; taken < queued; ++tick) {
    std::string numbers;
    const int frames =
        zor.Pump(ZOR::kPollsPerTick, [&] { numbers += std::to_string(zor.lastFrame) + " "; }).frames;
    ASSERT_EQ(frames, std::min(48, queued - taken)) << "tick " << tick << ": " << numbers;
    taken += frames;
  }
  EXPECT_EQ(zor.Pump(ZOR::kPollsPerTick).frames, 0);
}

TEST_F(ZordSessionTest, StoppedServerEndsTheSessionAndAKilledOneBreaksTheLink) {
  EXPECT_EQ(EndServer([&] { zord->Stop(); }), "zor stopped\n");
  EXPECT_EQ(zor.lastError, ZOR_FINISHED);
  EXPECT_EQ(zor.Poll(), 0);

  // A restarted server takes the session again from its new numbering.
  ASSERT_TRUE(zord->Start()) << zord->error();
  zor.Done();
  Connect();
  EXPECT_EQ(zor.lastFrame, 0);
  EXPECT_TRUE(PumpUntil([&] { return !zor.markers.empty(); }));
  zor.Done();

  EXPECT_EQ(EndServer([&] { zord->Kill(); }), "");
  EXPECT_NE(zor.lastError, ZOR_NO_ERROR);
  EXPECT_NE(zor.lastError, ZOR_FINISHED);
}

TEST_F(ZordSessionTest, SlaveSendsNoTrackersAndNoRateToARunningServer) {
  settings.frequency = 240;
  Connect();
  ASSERT_EQ(zor.frequency, 240.0f);
  ASSERT_EQ(ServerTrackers(), 2u);
  zor.Done();  // the trackers leave the server with the session
  ASSERT_EQ(ServerTrackers(), 0u);

  settings.flags = ZOR_FLAG_SLAVE;
  settings.frequency = 60;
  settings.interpolate = 2;
  Connect();
  EXPECT_EQ(zor.frequency, 240.0f);  // read back, not changed
  EXPECT_EQ(zor.SetFrequency(60), 0);
  EXPECT_EQ(ServerTrackers(), 0u);
  EXPECT_TRUE(PumpUntil([&] { return zor.lastFrame > 10; }));
}

}  // namespace
