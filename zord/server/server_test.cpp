// The server and the client library together, in one process: a real Server
// on loopback with a small scripted engine, driven through the zor* calls.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <gtest/gtest.h>

#include "zord/server/fake_server_test_support.h"
#include "zorsock/control.h"
#include "zorsock/wait.h"

namespace zord {
namespace {

using zortest::FetchInOrder;
using zortest::FrameFetcher;
using zortest::TakeErrors;
using zortest::WaitFor;

class ServerTest : public ServerFixture {
 protected:
  void SetUp() override {
    options_.name = "unit";
    options_.frequency = 240;
    StartServer();
  }
  int Connect(unsigned flags = 0) { return zorInit(Address().c_str(), flags); }
};

TEST_F(ServerTest, ConnectsAndStreamsInOrderOnceAsked) {
  ASSERT_GE(Connect(), 0);
  EXPECT_EQ(zorGetStatus(), 1);
  char text[ZOR_STRING_MAX];
  ASSERT_GT(zorGetString(ZOR_SERVER_NAME, text), 0);
  EXPECT_EQ(std::string(text), "zord 0.1  unit");
  ASSERT_TRUE(WaitFor([] {
    ZORCamera c[4];
    return zorGetCameras(c, 4) == 2;
  }));
  float hz = 0;
  ASSERT_EQ(zorGetFloatv(ZOR_FREQUENCY, &hz), 1);
  EXPECT_FLOAT_EQ(hz, 240);
  EXPECT_TRUE(WaitFor([&] { return engine_.open_sessions == 1; }));

  // Streaming is off until asked for: no frames arrive.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  int frame = -1;
  ASSERT_EQ(zorGetIntegerv(ZOR_FRAME_NUMBER, &frame), 1);
  EXPECT_EQ(frame, 0);

  // Asked for, frames arrive in order with their markers and rigids together.
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  FrameFetcher f;
  int delivered = 0;
  ASSERT_TRUE(FetchInOrder(f, [&] { return delivered >= 100; }, [&] {
    ++delivered;
    ASSERT_EQ(f.markers.size(), 3u);
    ASSERT_EQ(f.rigids.size(), 1u);
    EXPECT_EQ(f.markers[0].frame, f.lastFrame);
    EXPECT_EQ(f.rigids[0].frame, f.lastFrame);
    EXPECT_TRUE(f.images.empty());  // not asked for
  }));
  int dropped = -1;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  EXPECT_EQ(dropped, 0);
  int t[2] = {0, 0};
  EXPECT_EQ(zorGetIntegerv(ZOR_FRAME_TIME, t), 2);
  EXPECT_TRUE(t[0] != 0 || t[1] != 0);
  EXPECT_TRUE(TakeErrors().empty());
  zorDone();
  EXPECT_TRUE(WaitFor([&] { return engine_.open_sessions == 0; }));
}

TEST_F(ServerTest, StreamSwitchesChooseTheKinds) {
  ASSERT_GE(Connect(), 0);
  ASSERT_EQ(zorSetInteger(ZOR_SEND_MARKERS, ZOR_OFF), 1);
  ASSERT_EQ(zorSetInteger(ZOR_SEND_IMAGES, ZOR_ON), 1);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  EXPECT_EQ(zorSetInteger(ZOR_SEND_DETECTORS, 5), 0);  // neither on nor off
  EXPECT_EQ(zorGetError(), ZOR_INVALID_VALUE);
  FrameFetcher f;
  bool saw_images = false;
  ASSERT_TRUE(WaitFor([&] {
    while (f.Fetch() == 1) {
      EXPECT_TRUE(f.markers.empty());
      saw_images = saw_images || !f.images.empty();
    }
    return saw_images && f.lastFrame > 20;
  }));
}

TEST_F(ServerTest, FrequencyIsTheServersAndRequestsReachTheEngineWithTheirErrors) {
  ASSERT_GE(Connect(ZOR_FLAG_CALIBRATE), 0);
  EXPECT_EQ(zorSetFloat(ZOR_FREQUENCY, 10), 0);
  EXPECT_EQ(zorSetFloat(ZOR_FREQUENCY, 961), 0);
  EXPECT_EQ(TakeErrors(), std::vector<int>(2, ZOR_INVALID_VALUE));
  EXPECT_EQ(zorSetFloat(ZOR_FREQUENCY, 960), 1);
  float hz = 0;
  zorGetFloatv(ZOR_FREQUENCY, &hz);
  EXPECT_FLOAT_EQ(hz, 960);
  EXPECT_EQ(engine_.requests, 0);  // none of that reached the engine

  EXPECT_EQ(zorTrackeri(1, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), 1);
  const int led = 5;
  EXPECT_EQ(zorMarkeriv((1 << 12) | 0, ZOR_MARKER_LED, &led), 1);
  EXPECT_EQ(zorSetInteger(ZOR_CALIB_LOAD_EXISTING, 0), 1);
  EXPECT_EQ(zorSetInteger(0x7777, 1), 0);
  EXPECT_EQ(zorGetStatus(), 0);
  EXPECT_EQ(zorGetError(), ZOR_INVALID_ENUM);
  EXPECT_EQ(zorGetError(), ZOR_NO_ERROR);
  float pose[7] = {};
  EXPECT_EQ(zorGetFloatv(ZOR_GLOBAL_TRANSFORM, pose), 7);
  EXPECT_FLOAT_EQ(pose[3], 1);
  char text[ZOR_STRING_MAX];
  EXPECT_EQ(zorGetString(ZOR_CALIB_MESSAGE, text), 15);
  EXPECT_STREQ(text, "pass 1 success.");
}

TEST_F(ServerTest, SlaveMayWatchButNotChangeState) {
  ASSERT_GE(Connect(ZOR_FLAG_SLAVE), 0);
  EXPECT_EQ(zorTrackeri(1, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), 0);
  EXPECT_EQ(zorGetError(), ZOR_INVALID_OPERATION);
  const float p[3] = {1, 2, 3};
  EXPECT_EQ(zorMarkerfv(1 << 12, ZOR_MARKER_POSITION, p), 0);
  EXPECT_EQ(zorSetFloat(ZOR_FREQUENCY, 120), 0);
  EXPECT_EQ(zorSetInteger(ZOR_CALIB_SAVE, 1), 0);
  const float identity[7] = {0, 0, 0, 1, 0, 0, 0};
  EXPECT_EQ(zorSetFloatv(ZOR_GLOBAL_TRANSFORM, identity), 0);
  EXPECT_EQ(TakeErrors(), std::vector<int>(4, ZOR_INVALID_OPERATION));
  EXPECT_EQ(engine_.requests, 0);

  // Its own streams and reading are allowed.
  EXPECT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  EXPECT_EQ(zorSetInteger(ZOR_SEND_RIGIDS, ZOR_OFF), 1);
  float hz = 0;
  EXPECT_EQ(zorGetFloatv(ZOR_FREQUENCY, &hz), 1);
  EXPECT_TRUE(zortest::WaitForFrames());
}

TEST_F(ServerTest, ScaleAndPoseApplyBothWays) {
  ASSERT_GE(Connect(), 0);
  // Quarter turn about +Y, then 100 along X; scale 0.5.
  const float h = std::sqrt(0.5f);
  const float pose[7] = {100, 0, 0, h, 0, h, 0};
  ASSERT_EQ(zorScale(0.5f), 1);
  ASSERT_EQ(zorLoadPose(pose), 1);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  FrameFetcher f;
  ASSERT_TRUE(WaitFor([&] { return f.Fetch() == 1 && f.markers.size() == 3; }));
  // The rigid at (10, 20, 30): scaled (5, 10, 15), turned (15, 10, -5), moved.
  ASSERT_EQ(f.rigids.size(), 1u);
  EXPECT_NEAR(f.rigids[0].pose[0], 115, 1e-3);
  EXPECT_NEAR(f.rigids[0].pose[1], 10, 1e-3);
  EXPECT_NEAR(f.rigids[0].pose[2], -5, 1e-3);
  ASSERT_EQ(f.cameras.size(), 2u);
  EXPECT_NEAR(f.cameras[0].pose[0], 600, 1e-3);  // camera at (0, 0, 1000)

  const float local[3] = {10, 20, 30};
  ASSERT_EQ(zorMarkerfv(1 << 12, ZOR_MARKER_POSITION, local), 1);
  std::lock_guard lock(engine_.mu);
  EXPECT_EQ(engine_.last_marker_floats, (std::vector<float>{20, 40, 60}));

  EXPECT_EQ(zorScale(0), 0);
  EXPECT_EQ(zorGetError(), ZOR_INVALID_VALUE);
  const float zero[7] = {};
  EXPECT_EQ(zorLoadPose(zero), 0);
  EXPECT_EQ(zorGetError(), ZOR_INVALID_VALUE);
}

// While it waits, the call runs the caller's hook: calls from there work, but
// none may replace or end the connection under it.
TEST_F(ServerTest, ASlowReplyRunsTheWaitHookThenTimesOutAndEndsTheLink) {
  zorsock::ConnectionOptions options;
  options.reply_timeout = std::chrono::milliseconds(800);
  zorsock::SetConnectionOptions(options);
  ASSERT_GE(Connect(), 0);
  engine_.request_delay_ms = 1500;
  int hooked = 0;
  zorsock::SetWaitHook([&] {
    EXPECT_TRUE(zorsock::CallWaiting());
    if (hooked++ != 15) return;  // by then the server has pushed its message
    char text[ZOR_STRING_MAX];
    EXPECT_EQ(zorGetString(ZOR_CALIB_MESSAGE, text), 15);
    EXPECT_EQ(zorInit(Address().c_str(), 0), ZOR_ERR_ALREADY_CONNECTED);
    zorDone();
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(zorTracker(1, ZOR_ON), 0);
  zorsock::SetWaitHook(nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1400));
  EXPECT_GT(hooked, 15);
  EXPECT_FALSE(zorsock::CallWaiting());
  EXPECT_EQ(zorGetError(), ZOR_TIMED_OUT);
  EXPECT_EQ(zorTracker(1, ZOR_ON), 0);
  EXPECT_EQ(zorGetError(), ZOR_NOT_CONNECTED);
  engine_.request_delay_ms = 0;
}

TEST_F(ServerTest, LibraryQueueDropsOldestWhenNotPolled) {
  zorsock::ConnectionOptions options;
  options.frame_queue = 8;
  zorsock::SetConnectionOptions(options);
  ASSERT_GE(Connect(), 0);
  ASSERT_EQ(zorSetInteger(ZOR_STREAMING, ZOR_ON), 1);
  int dropped = 0;
  ASSERT_TRUE(WaitFor([&] {
    zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
    return dropped > 5;
  }));
  // What is left is the newest frames, still delivered in order.
  FrameFetcher f;
  int32_t previous = 0;
  for (int i = 0; i < 8 && f.Fetch() == 1; ++i) {
    EXPECT_GT(f.lastFrame, previous);
    previous = f.lastFrame;
  }
}

TEST_F(ServerTest, ControlAndRawDataUseTheirOwnConnections) {
  std::string error;
  const auto reply =
      nlohmann::json::parse(zorControl(Address(), R"({"cmd":"truth"})", &error));
  ASSERT_TRUE(error.empty()) << error;
  EXPECT_EQ(reply["engine"]["cmd"], "truth");
  const auto clock = nlohmann::json::parse(
      zorControl(Address(), R"({"cmd":"clock","action":"silence","on":"yes"})", &error));
  EXPECT_EQ(clock["ok"], false);  // wrong type, clear answer, server fine
  EXPECT_TRUE(zorControl("127.0.0.1:1", "{}", &error).empty());
  EXPECT_FALSE(error.empty());

  EXPECT_EQ(zorRPDOpen(Address().c_str(), "x.rpd", 3), ZOR_RPD_INVALID_MODE);
  EXPECT_EQ(zorRPDOpen("127.0.0.1:1", "x.rpd", 1), ZOR_RPD_CANNOT_CONNECT);
  // This engine has no cameras to record: the server refuses the mode.
  EXPECT_EQ(zorRPDOpen(Address().c_str(), "x.rpd", 1), ZOR_RPD_MODE_FAILED);
  EXPECT_NE(std::string(zorRPDError()).find("no raw data"), std::string::npos) << zorRPDError();
  EXPECT_EQ(zorRPDRecv(), 0);
  EXPECT_EQ(zorRPDClose(), 0);
}

// This machine's first address that is not loopback, or "" without one.
std::string OwnAddress() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return {};
  std::string found;
  for (ifaddrs* i = list; i && found.empty(); i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || (i->ifa_flags & IFF_LOOPBACK)) continue;
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, text, sizeof text);
    found = text;
  }
  freeifaddrs(list);
  return found;
}

// Operator control drives the room: from other machines only with the token.
TEST(ServerControlTest, OtherMachinesNeedTheToken) {
  const std::string own = OwnAddress();
  if (own.empty()) GTEST_SKIP() << "no address besides loopback";
  FakeEngine engine;
  ServerOptions options;
  options.listen = "0.0.0.0";
  options.port = 0;
  options.discovery_port = 0;
  options.control_token = "s3cret";
  Server server(engine, options);
  std::string error;
  ASSERT_TRUE(server.Start(&error)) << error;
  const std::string port = ":" + std::to_string(server.port());
  const std::string truth = R"({"cmd":"truth"})";
  EXPECT_FALSE(zorControl("127.0.0.1" + port, truth, &error).empty()) << error;
  EXPECT_TRUE(zorControl(own + port, truth, &error).empty());
  EXPECT_NE(error.find("control token"), std::string::npos) << error;
  EXPECT_TRUE(zorControl(own + port, truth, &error, "guess").empty());
  error.clear();
  EXPECT_FALSE(zorControl(own + port, truth, &error, "s3cret").empty()) << error;
}

TEST(ServerOptionsTest, CheckRejectsBadValues) {
  ServerOptions o;
  std::string why;
  EXPECT_TRUE(o.Check(&why)) << why;
  o.listen = "not an address";
  EXPECT_FALSE(o.Check(&why));
  o = ServerOptions();
  o.frequency = 1000;
  EXPECT_FALSE(o.Check(&why));
  o = ServerOptions();
  o.port = 70000;
  EXPECT_FALSE(o.Check(&why));
}

}  // namespace
}  // namespace zord
