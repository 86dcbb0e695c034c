// The client library against a real zord process running the calibrated
// scene: reconstruction matches the simulation's truth; a stopped or harassed
// server. (Scale and pose, slaves and a killed server are covered in process:
// server_test.cpp, server_peers_test.cpp; streaming at the top rate is measured
// by bench/stream_bench.)
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

}  // namespace
