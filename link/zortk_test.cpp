// The session against a double of the zor* calls: what it sends, and how it
// assembles and delivers frames.
#include <gtest/gtest.h>

#include "link/zorsock_double.h"
#include "link/zortk.h"

namespace {

using zordouble::Call;
using zordouble::Called;
using zordouble::CountCalls;
using zordouble::Double;
using zordouble::MarkerFrame;
using zordouble::MarkerRigidFrame;
using zordouble::Push;

class ZorTest : public testing::Test {
 protected:
  void SetUp() override { zordouble::Reset(); }

  // A running session (streaming, 480 Hz) with the call log cleared.
  void Connect(uint32_t flags = 0) {
    ConnectionSettings settings;
    settings.server = "box";
    settings.flags = flags;
    ASSERT_GE(zor.Init(settings, true, true), 0);
    Double().calls.clear();
  }

  // Polls once with standard output captured into `printed`.
  int32_t QuietPoll(std::string* printed = nullptr) {
    testing::internal::CaptureStdout();
    const int32_t result = zor.Poll();
    const std::string out = testing::internal::GetCapturedStdout();
    if (printed) *printed = out;
    return result;
  }

  ZOR zor{128, 1.0f};
};

TEST_F(ZorTest, InitPushesSettingsThenTrackersUnscaledThenStreamsAndSetsRate) {
  zor.scale = 0.5f;
  zor.AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, 0, 1));
  ConnectionSettings settings;
  settings.server = "box:9000";
  settings.frequency = 240;
  settings.interpolate = 3;
  Double().initResult = 7;
  EXPECT_EQ(zor.Init(settings, true, true), 7);
  const std::vector<std::string> expected = {
      "zorInit(box:9000,0)",
      Call("zorSetInteger", {ZOR_INTERPOLATE, 3}),
      "zorLoadPose()",
      Call("zorScale", {500}),
      Call("zorScale", {1000}),
      Call("zorTrackeri", {0, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER}),
      Call("zorMarkeriv", {0, ZOR_MARKER_LED, 0}),
      Call("zorTracker", {0, ZOR_ON}),
      Call("zorScale", {500}),
      Call("zorSetInteger", {ZOR_STREAMING, ZOR_ON}),
      Call("zorSetFloat", {ZOR_FREQUENCY, 240}),
  };
  EXPECT_EQ(Double().calls, expected);
  EXPECT_TRUE(zor.connected());
  EXPECT_EQ(zor.frequency, 240.0f);

  // Without streaming, rate or interpolation none of them is sent.
  zor.Done();
  zordouble::Reset();
  EXPECT_EQ(zor.Init(ConnectionSettings{}, false, false), 0);
  EXPECT_EQ(CountCalls("zorSetInteger"), 0);
  EXPECT_EQ(CountCalls("zorSetFloat"), 0);
}

TEST_F(ZorTest, SlaveSendsNoInterpolationTrackersOrRateToARunningServer) {
  zor.AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, 0, 4));
  Double().frequency = 120;
  ConnectionSettings settings;
  settings.flags = ZOR_FLAG_SLAVE;
  settings.interpolate = 5;
  EXPECT_EQ(zor.Init(settings, true, true), 0);
  EXPECT_EQ(CountCalls("zorSetInteger(" + std::to_string(ZOR_INTERPOLATE)), 0);
  EXPECT_EQ(CountCalls("zorTracker") + CountCalls("zorMarker") + CountCalls("zorSetFloat"), 0);
  EXPECT_EQ(zor.frequency, 120.0f);  // read, not set

  // On disconnection a slave leaves the server's trackers alone too.
  zor.Done();
  EXPECT_EQ(CountCalls("zorTracker"), 0);

  // Even a slave sets the rate of a server that has none.
  Connect(ZOR_FLAG_SLAVE);
  Double().frequency = 0;
  EXPECT_EQ(zor.SetFrequency(60), 1);
  EXPECT_TRUE(Called(Call("zorSetFloat", {ZOR_FREQUENCY, 60})));
  EXPECT_EQ(zor.frequency, 60.0f);
}

TEST_F(ZorTest, FailedInitOrRateLeavesTheSessionAsItWas) {
  Connect();
  Double().failing["zorSetFloat"] = ZOR_INVALID_OPERATION;  // refused: not an error
  EXPECT_EQ(zor.SetFrequency(60), 0);
  Double().failing["zorSetFloat"] = ZOR_INVALID_VALUE;
  EXPECT_EQ(zor.SetFrequency(-1), ZOR_INVALID_VALUE);
  EXPECT_EQ(zor.frequency, 0.0f);
  zor.Done();
  zordouble::Reset();

  ConnectionSettings settings;
  Double().initResult = ZOR_ERR_CONNECTION_REFUSED;
  EXPECT_EQ(zor.Init(settings, true, true), ZOR_ERR_CONNECTION_REFUSED);
  EXPECT_FALSE(zor.connected());
  EXPECT_EQ(CountCalls("zorScale"), 0);

  // The server refuses the set-up: -1, and the link is closed again.
  zordouble::Reset();
  Double().failing["zorScale"] = ZOR_INVALID_VALUE;
  EXPECT_EQ(zor.Init(settings, true, true), -1);
  EXPECT_FALSE(zor.connected());
  EXPECT_TRUE(Called("zorDone()"));
  EXPECT_EQ(CountCalls("zorSetInteger"), 0);
}

TEST_F(ZorTest, EachDeliveryReplacesMarkersRigidsAndCameras) {
  Connect();
  Double().cameras = {ZORCamera{0, {0, 0, 0, 1, 0, 0, 0}, 1.0f, 0}};
  Push(MarkerRigidFrame(1, 3, 2));
  EXPECT_EQ(QuietPoll(), 1);
  EXPECT_EQ(zor.lastFrame, 1);
  ASSERT_EQ(zor.markers.size(), 3u);
  EXPECT_EQ(zor.markers[2].x, 2.0f);
  EXPECT_EQ(zor.rigids.size() + zor.cameras.size(), 3u);
  EXPECT_EQ(zor.Poll(), 0);  // nothing new; the delivered frame stays
  EXPECT_EQ(zor.markers.size(), 3u);

  Double().failGet = 16;  // a failed camera fetch empties the cameras
  Push(MarkerFrame(2, 4));
  EXPECT_EQ(zor.Poll(), 1);
  EXPECT_EQ(zor.markers.size(), 4u);
  EXPECT_TRUE(zor.rigids.empty());  // frame 2 has none
  EXPECT_TRUE(zor.cameras.empty());

  // A new session starts from no frame.
  zor.Done();
  Connect();
  EXPECT_EQ(zor.lastFrame, 0);
  EXPECT_TRUE(zor.markers.empty());
}

// Models a library that says which kinds the server sends and hands each
// kind out as it arrives.
TEST_F(ZorTest, WaitsForEveryKindUntilTheServerMovesPastTheFrame) {
  Connect();
  Double().sendOverride = kMarkers | kRigids;
  Double().holdGet = kRigids;  // the rigids have not come yet
  Push(MarkerRigidFrame(5, 3, 1));
  EXPECT_EQ(QuietPoll(), 0);
  EXPECT_EQ(zor.Poll(), 0);
  Double().holdGet = 0;
  EXPECT_EQ(zor.Poll(), 1);
  EXPECT_EQ(zor.lastFrame, 5);
  EXPECT_EQ(zor.markers.size(), 3u);
  EXPECT_EQ(zor.rigids.size(), 1u);

  // Once the server has moved past a frame it is delivered as it is.
  Double().holdGet = kRigids;
  Push(MarkerRigidFrame(6, 2, 1));
  EXPECT_EQ(zor.Poll(), 0);
  Push(MarkerRigidFrame(7, 2, 1));
  EXPECT_EQ(zor.Poll(), 1);
  EXPECT_EQ(zor.lastFrame, 6);
  EXPECT_EQ(zor.markers.size(), 2u);
  EXPECT_TRUE(zor.rigids.empty());
}

// A rewound server clock, a server sending empty frames and at most 48 frames
// a tick are covered against a real zord (zortk_zord_test.cpp).

TEST_F(ZorTest, PollStopsOnFinishedWithoutClosingAndClosesOnOtherErrors) {
  Connect();
  Double().errors.push_back(ZOR_FINISHED);
  std::string printed;
  EXPECT_EQ(QuietPoll(&printed), -1);
  EXPECT_EQ(printed, "zor stopped\n");
  EXPECT_EQ(zor.lastError, ZOR_FINISHED);
  EXPECT_FALSE(zor.connected() || Called("zorDone()"));
  EXPECT_EQ(zor.Poll(), 0);  // stopped: nothing asked any more

  Connect();
  Double().errors.push_back(ZOR_CONNECTION_LOST);
  EXPECT_EQ(QuietPoll(&printed), -1);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(zor.lastError, ZOR_CONNECTION_LOST);
  EXPECT_TRUE(!zor.connected() && Called("zorDone()"));
  EXPECT_EQ(zor.Pump(48).frames, 0);
}

TEST_F(ZorTest, FlushWarnsOnABadStatusAndDrainsAtMost480Frames) {
  Connect();
  for (int f = 1; f <= 500; ++f) Push(MarkerFrame(f, 1));
  Double().status = 0;
  Double().errors.push_back(ZOR_INVALID_OPERATION);
  testing::internal::CaptureStdout();
  zor.Flush();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("warning: ZOR::Flush: error during flushing (e=22)\n", 0), 0u) << out;
  EXPECT_EQ(zor.lastFrame, 480);
  zor.Flush();
  EXPECT_EQ(zor.lastFrame, 500);
}

TEST_F(ZorTest, TrackerListOperations) {
  zor.AddTracker(std::make_unique<Tracker>(ZOR_POINT_TRACKER, 0, 1));
  zor.AddTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, 2, 1));
  Tracker* second = zor.AddTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, 2, 3));
  EXPECT_EQ(zor.FindTracker(2)->markers.size(), 1u);  // the first with that id
  EXPECT_EQ(zor.FindTracker(7), nullptr);

  testing::internal::CaptureStdout();
  EXPECT_FALSE(zor.RemoveTracker(7));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "warning: ZOR::RemoveTracker: tracker id not found\n");
  EXPECT_TRUE(zor.RemoveTracker(2));  // not connected: nothing sent
  EXPECT_TRUE(Double().calls.empty());
  EXPECT_EQ(zor.FindTracker(2), second);

  Connect();
  zor.RemoveAllTrackers(0);
  EXPECT_EQ(Double().calls, (std::vector<std::string>{Call("zorTracker", {2, ZOR_OFF}),
                                                      Call("zorTracker", {2, ZOR_TRACKER_DESTROY})}));
  EXPECT_EQ(zor.trackers.size(), 2u);  // the list is kept
  Double().calls.clear();
  EXPECT_TRUE(zor.RemoveTracker(0));
  EXPECT_TRUE(Called(Call("zorTracker", {0, ZOR_TRACKER_DESTROY})));
  EXPECT_EQ(zor.trackers.size(), 1u);

  // Done closes a recording, takes the trackers off the server, keeps the list.
  Double().calls.clear();
  zor.Done();
  EXPECT_EQ(Double().calls,
            (std::vector<std::string>{"zorRPDClose()", Call("zorTracker", {2, ZOR_OFF}),
                                      Call("zorTracker", {2, ZOR_TRACKER_DESTROY}), "zorDone()"}));
  EXPECT_FALSE(zor.connected());
  EXPECT_EQ(zor.trackers.size(), 1u);
}

// The typos and missing blanks are the program's wording.
TEST(ZorErrorText, GeneralAndFailedInitForms) {
  EXPECT_EQ(ZOR::ErrorText(1, 1, "h"), "Finished");
  EXPECT_EQ(ZOR::ErrorText(0x3a, 0, "h"), "3a");
  EXPECT_EQ(ZOR::ErrorText(0x21, 257, "h"), "error: zorInit: Invalid Enum");
  EXPECT_EQ(ZOR::ErrorText(-10051, 256, "lab"),
            "error: Initialzation failed connecting to lab(Network Unreachable)");
  EXPECT_EQ(ZOR::ErrorText(-3, 256, "lab"), "error: zorInit: -3: check server messages.");
  EXPECT_EQ(ZOR::ErrorText(-10065, 257, "lab"),
            "Initialzation failed connecting to lab. (Host Unreachable) \n"
            "Please check than there is a computer running zord on lab.");
  EXPECT_EQ(ZOR::ErrorText(-4, 257, "lab"),
            "Initialization Failed (-4).  Check that zord is still running on lab and see server "
            "messages.");
}

}  // namespace
