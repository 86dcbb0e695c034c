// The client library against a real zord process running the calibrated
// scene: reconstruction matches the simulation's truth, through scale and
// pose; every frame arrives at 960 Hz; slaves, discovery, a stopped, killed or
// harassed server.
#include <gtest/gtest.h>

#include <asio.hpp>
#include <cmath>
#include <nlohmann/json.hpp>

#include "zord/server/live_test_support.h"
#include "zorsock/wire.h"

namespace {

using nlohmann::json;
using zortest::FrameFetcher;
using zortest::TakeErrors;
using zortest::WaitFor;

class LiveTest : public zortest::LiveZordTest {
 protected:
  void SetUp() override {
    StartZord({"--scene", zortest::DataPath("scenes/calibrated.json"), "--name", "live box"});
  }
  void TearDown() override {
    LiveZordTest::TearDown();
    const float identity[7] = {0, 0, 0, 1, 0, 0, 0};
    zorScale(1.0f);
    zorLoadPose(identity);
  }

  // Puts the body at rest and returns the truth once the server has seen it there.
  json RestBodyAndTakeTruth() {
    EXPECT_EQ(Control({{"cmd", "body"}, {"mode", "rest"}, {"position", {150, 1100, -200}},
                       {"rotation", {0.9238795, 0, 0.3826834, 0}}})["ok"],
              true);
    return Control({{"cmd", "truth"}});
  }

  // Fetches frames until one has a tracked rigid and seen markers (after `skip` frames).
  bool FetchTracked(FrameFetcher& f, int skip = 20) {
    int fetched = 0;
    return WaitFor([&] {
      if (f.Fetch() != 1) return false;
      if (++fetched < skip) return false;
      return f.rigids.size() == 1 && f.rigids[0].cond > 0 && f.markers.size() == 9 &&
             f.markers[5].cond > 0;
    });
  }
};

TEST_F(LiveTest, RigidAndMarkersMatchTheTruth) {
  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  ASSERT_NO_FATAL_FAILURE(zortest::CreateSceneTrackers(1.0f));
  const json truth = RestBodyAndTakeTruth();
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  FrameFetcher f;
  ASSERT_TRUE(FetchTracked(f));

  const ZORRigid& rigid = f.rigids[0];
  EXPECT_EQ(rigid.id, 3);
  EXPECT_EQ(rigid.flag, 5u);
  const auto pose = truth["bodies"][0]["pose"];
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(rigid.pose[i], pose[i].get<double>(), 2.0) << i;
  // Same rotation: |q1 . q2| close to 1 (within about a degree).
  double dot = 0;
  for (int i = 0; i < 4; ++i) dot += rigid.pose[3 + i] * pose[3 + i].get<double>();
  EXPECT_GT(std::abs(dot), std::cos(0.5 * M_PI / 180));

  // Point tracker 4: LEDs 13-16, ids (4 << 12) | index.
  for (int i = 0; i < 4; ++i) {
    const ZORMarker& m = f.markers[5 + i];
    EXPECT_EQ(m.id, (4 << 12) | i);
    for (const auto& led : truth["leds"]) {
      if (led["id"] != 13 + i) continue;
      EXPECT_NEAR(m.x, led["position"][0].get<double>(), 2.0);
      EXPECT_NEAR(m.y, led["position"][1].get<double>(), 2.0);
      EXPECT_NEAR(m.z, led["position"][2].get<double>(), 2.0);
    }
  }
  ZORCamera cameras[16];
  EXPECT_EQ(zorGetCameras(cameras, 16), 8);
  EXPECT_GT(cameras[0].cond, 0);  // the scene starts calibrated
  EXPECT_TRUE(TakeErrors().empty());
}

TEST_F(LiveTest, ScaleAndPoseApplyToWhatIsSentAndReceived) {
  // Metres on the client: geometry sent in metres must reach the server in
  // millimetres, and positions come back in metres, moved by the pose.
  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  ASSERT_NO_FATAL_FAILURE(zortest::CreateSceneTrackers(0.001f));
  const float lift[7] = {0, 0, 5, 1, 0, 0, 0};  // then 5 m along z
  ASSERT_EQ(zorLoadPose(lift), 1);
  const json truth = RestBodyAndTakeTruth();
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  FrameFetcher f;
  ASSERT_TRUE(FetchTracked(f));
  const auto pose = truth["bodies"][0]["pose"];
  EXPECT_NEAR(f.rigids[0].pose[0], pose[0].get<double>() / 1000, 0.002);
  EXPECT_NEAR(f.rigids[0].pose[1], pose[1].get<double>() / 1000, 0.002);
  EXPECT_NEAR(f.rigids[0].pose[2], pose[2].get<double>() / 1000 + 5, 0.002);
  EXPECT_GT(f.rigids[0].cond, 0.5);  // fitted well: the geometry arrived in mm
  const ZORMarker& m = f.markers[0];  // LED 8, the body's origin
  EXPECT_NEAR(m.x, pose[0].get<double>() / 1000, 0.002);
  EXPECT_NEAR(m.z, pose[2].get<double>() / 1000 + 5, 0.002);
}

// Streaming at the top rate: every frame reaches the client's frame assembly,
// in order and complete, for several seconds.
TEST_F(LiveTest, EveryFrameInOrderAndCompleteAt960Hz) {
  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  ASSERT_NO_FATAL_FAILURE(zortest::CreateSceneTrackers(1.0f));
  ASSERT_EQ(zorSetFloat(ZOR_FREQUENCY, 960), 1);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);

  // The client's frame pump: up to 48 frames a tick, a tick every 2 ms.
  FrameFetcher f;
  int32_t first = 0;
  int delivered = 0;
  std::vector<std::string> anomalies;  // the first few, to say what went wrong
  auto report = [&anomalies](const std::string& what) {
    if (anomalies.size() < 10) anomalies.push_back(what);
  };
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(5500)) {
    ASSERT_EQ(zorGetError(), ZOR_NO_ERROR);
    for (int i = 0; i < 48; ++i) {
      const int32_t previous = f.last_frame;
      if (f.Fetch() != 1) break;
      // Frames before the trackers existed have fewer markers; count from the first full one.
      if (first == 0) {
        if (f.markers.size() != 9) continue;
        first = f.last_frame;
      } else if (f.last_frame != previous + 1) {
        report("frame " + std::to_string(f.last_frame) + " after " + std::to_string(previous));
      }
      ++delivered;
      const bool complete = f.markers.size() == 9 && f.rigids.size() == 1 &&
                            f.markers.front().frame == f.last_frame &&
                            f.markers.back().frame == f.last_frame &&
                            f.rigids.front().frame == f.last_frame;
      if (!complete) {
        report("frame " + std::to_string(f.last_frame) + ": " + std::to_string(f.markers.size()) +
               " markers, " + std::to_string(f.rigids.size()) + " rigids");
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  for (const auto& a : anomalies) ADD_FAILURE() << a;
  if (!anomalies.empty()) {
    ADD_FAILURE() << "server: " << Control({{"cmd", "clock"}}).dump();
  }
  int dropped = -1;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  EXPECT_EQ(dropped, 0);
  EXPECT_GE(delivered, 5 * 960) << "first " << first << " last " << f.last_frame;
  EXPECT_EQ(f.last_frame, first + delivered - 1);
  EXPECT_TRUE(TakeErrors().empty());
}

TEST_F(LiveTest, DiscoveryFindsTheServerAndASlaveIsRefusedStateChanges) {
  char results[8 * ZOR_SCAN_RESULT_SIZE];
  ASSERT_EQ(zor_scan("127.0.0.1", zord_->discovery_port(), "configtoolbar", 2'000'000, results, 8), 1);
  EXPECT_EQ(std::string(results), zord_->address());
  const std::string description(results + 256);
  const size_t blanks = description.find("  ");
  ASSERT_NE(blanks, std::string::npos);
  EXPECT_GT(blanks, 0u);
  EXPECT_EQ(description.substr(blanks + 2), "live box");
  // Broadcast scans also ask loopback; bad arguments are refused.
  EXPECT_GE(zor_scan(nullptr, zord_->discovery_port(), "test", 500'000, results, 8), 1);
  EXPECT_LT(zor_scan("127.0.0.1", 0, "test", 1000, results, 8), 0);
  EXPECT_LT(zor_scan("127.0.0.1", zord_->discovery_port(), "test", 1000, nullptr, 8), 0);

  ASSERT_GE(zorInit(zord_->address().c_str(), ZOR_FLAG_SLAVE), 0);
  EXPECT_EQ(zorTrackeri(3, ZOR_TRACKER_CREATE, ZOR_RIGID_TRACKER), 0);
  EXPECT_EQ(zorSetFloat(ZOR_FREQUENCY, 120), 0);
  EXPECT_EQ(zorSetInteger(ZOR_CALIB_SAVE, 1), 0);
  EXPECT_EQ(TakeErrors(), std::vector<int>(3, ZOR_INVALID_OPERATION));
  float hz = 0;
  EXPECT_EQ(zorGetFloatv(ZOR_FREQUENCY, &hz), 1);
  EXPECT_FLOAT_EQ(hz, 480);
  EXPECT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
}

TEST_F(LiveTest, StoppedServerFinishesAndRestartedServesThroughHostilePeers) {
  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  EXPECT_EQ(zorInit(zord_->address().c_str(), 0), ZOR_ERR_ALREADY_CONNECTED);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  zord_->Stop();
  int error = 0;
  ASSERT_TRUE(WaitFor([&] { return (error = zorGetError()) != 0; }));
  EXPECT_EQ(error, ZOR_FINISHED);
  EXPECT_EQ(zorTracker(1, ZOR_ON), 0);
  EXPECT_EQ(zorGetError(), ZOR_NOT_CONNECTED);
  zorDone();
  ASSERT_TRUE(zord_->Start()) << zord_->error();

  namespace wire = zorsock::wire;
  asio::io_context io;
  const asio::ip::tcp::endpoint server(asio::ip::make_address("127.0.0.1"),
                                       static_cast<uint16_t>(zord_->port()));
  auto send = [&](const std::vector<uint8_t>& bytes) {
    asio::ip::tcp::socket s(io);
    s.connect(server);
    asio::write(s, asio::buffer(bytes));
  };
  send(std::vector<uint8_t>(4096, 0xAB));                             // garbage
  send({0xFF, 0xFF, 0xFF, 0x7F, 0x01, 0x00});                         // 2 GB "hello"
  const wire::Bytes hello = wire::EncodeHello({});
  send(wire::Bytes(hello.begin(), hello.begin() + hello.size() / 2));  // half, then gone

  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  EXPECT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  EXPECT_TRUE(zortest::WaitForFrames());
  EXPECT_TRUE(zord_->running());
}

TEST_F(LiveTest, KilledServerIsConnectionLost) {
  ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
  ASSERT_NO_FATAL_FAILURE(zortest::CreateSceneTrackers(1.0f));
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  FrameFetcher f;
  ASSERT_TRUE(WaitFor([&] { return f.Fetch() == 1 && f.last_frame > 10; }));
  zord_->Kill();
  int error = 0;
  ASSERT_TRUE(WaitFor([&] { return (error = zorGetError()) != 0; }));
  EXPECT_EQ(error, ZOR_CONNECTION_LOST);
  zorDone();
  EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);
  EXPECT_EQ(zorInit(zord_->address().c_str(), 0), ZOR_ERR_CONNECTION_REFUSED);
}

}  // namespace
