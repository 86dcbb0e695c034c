// Trackers against a double of the zor* calls: building them and what they send.
#include <gtest/gtest.h>

#include "link/tracker.h"
#include "link/tracker_test_util.h"
#include "link/zorsock_double.h"

namespace {

using zordouble::Call;
using zordouble::Double;

class TrackerTest : public testing::Test {
 protected:
  void SetUp() override { zordouble::Reset(); }
};

// Geometry given to a tracker is scaled on the way in; a rigid body needs markers.
TEST_F(TrackerTest, PositionsAreScaledAndAnEmptyRigidIsRefused) {
  const float c[] = {1, 2, 3, 4, 5, 6};
  Tracker placed(ZOR_RIGID_TRACKER, 2, c, 2, 10.0f);
  EXPECT_EQ(placed.markers[1].position, (std::vector<float>{40, 50, 60}));
  Tracker copied(ZOR_RIGID_TRACKER, 3, placed.markers, 0.5f);
  EXPECT_EQ(copied.markers[0].position, (std::vector<float>{5, 10, 15}));
  const std::vector<TrackerMarker> none;
  EXPECT_EQ(Stderr([&] { EXPECT_TRUE(Tracker(ZOR_RIGID_TRACKER, 3, none, 1.0f).markers.empty()); }),
            "error: Tracker(): empty rigid\n");
}

TEST_F(TrackerTest, AddMarkerKeepsLedOrderAndRemoveLeavesOtherIndices) {
  Tracker t(ZOR_POINT_TRACKER, 0, std::vector<int32_t>{2, 6});
  t.AddMarker(4);
  t.AddMarker(10);
  EXPECT_EQ(Leds(t), (std::vector<int>{2, 4, 6, 10}));
  EXPECT_EQ(Indices(t), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(t.RemoveMarker(1), 4);
  EXPECT_EQ(Indices(t), (std::vector<int>{0, 2, 3}));
  EXPECT_EQ(t.RemoveMarker(1), -1);
  EXPECT_EQ(t.RemoveMarker(-1), -1);
  EXPECT_EQ(t.markers.size(), 3u);
}

TEST_F(TrackerTest, SetOptionReplacesFirstMatchOrAppends) {
  Tracker t(ZOR_RIGID_TRACKER, 0, 0);
  t.SetOption(7, 1.0f, true);
  t.SetOption(7, 2.0f, false);
  t.SetOption(7, 3.0f, true);
  ASSERT_EQ(t.options.size(), 2u);
  EXPECT_EQ(t.options[0].value, 3.0f);
  EXPECT_EQ(t.options[1].value, 2.0f);
}

TEST_F(TrackerTest, CreateSendsTrackerMarkersOptionsThenEnables) {
  const float c[] = {1, 2, 3};
  Tracker t(ZOR_RIGID_TRACKER, 2, c, 1, 1.0f);
  t.AddMarker(5);  // no position
  t.SetOption(9, 4.0f, false);
  EXPECT_EQ(t.Create(), 1);
  const std::vector<std::string> expected = {
      Call("zorTrackeri", {2, ZOR_TRACKER_CREATE, ZOR_RIGID_TRACKER}),
      Call("zorMarkeriv", {(2 << 12) | 0, ZOR_MARKER_LED, 0}),
      Call("zorMarkerfv", {(2 << 12) | 0, ZOR_MARKER_POSITION, 1, 2, 3}),
      Call("zorMarkeriv", {(2 << 12) | 1, ZOR_MARKER_LED, 5}),
      Call("zorTrackerf", {2, 9, 4}),
      Call("zorTracker", {2, ZOR_ON}),
  };
  EXPECT_EQ(Double().calls, expected);
}

TEST_F(TrackerTest, UpdateSendsTheSwitchOnlyWhenEnabledAndDestroyOnlyOnTheServer) {
  Tracker t(ZOR_POINT_TRACKER, 4, 1);
  t.enabled = false;
  t.Update(true);
  t.enabled = true;
  t.Update(false);
  t.Update(true);
  t.Destroy();
  Tracker off(ZOR_POINT_TRACKER, -1, 1);
  off.Destroy();  // not on the server: nothing sent
  const std::vector<std::string> expected = {
      Call("zorTracker", {4, ZOR_OFF}), Call("zorTracker", {4, ZOR_OFF}),
      Call("zorTracker", {4, ZOR_ON}), Call("zorTracker", {4, ZOR_OFF}),
      Call("zorTracker", {4, ZOR_TRACKER_DESTROY})};
  EXPECT_EQ(Double().calls, expected);
}

TEST_F(TrackerTest, CheckErrorsReportsTrackerFailureAndStops) {
  Double().failing["zorTrackeri"] = ZOR_INVALID_VALUE;
  Tracker t(ZOR_RIGID_TRACKER, 2, 1);
  EXPECT_EQ(Stderr([&] { EXPECT_EQ(t.Create(), 1); }), "");  // silent without checkErrors

  zordouble::Reset();
  Double().failing["zorTrackeri"] = ZOR_INVALID_VALUE;
  Double().status = 0;  // an error left from before
  Double().errors.push_back(ZOR_INVALID_ENUM);
  t.checkErrors = 1;
  std::string errors;
  EXPECT_EQ(Stdout([&] { errors = Stderr([&] { EXPECT_EQ(t.Create(), -1); }); }),
            "warning: Tracker::Create(): e=21)\n");
  EXPECT_EQ(errors, "error: Tracker::Create(): failed to create tracker: (tracker id=2) e=20\n");
  EXPECT_EQ(zordouble::CountCalls("zorMarkeriv"), 0);
}

TEST_F(TrackerTest, CheckErrorsReportsEachMarkerThenDrainsAndGoesOn) {
  Double().failing["zorMarkeriv"] = ZOR_INVALID_OPERATION;
  Double().failing["zorTracker"] = ZOR_INVALID_ENUM;
  Tracker t(ZOR_POINT_TRACKER, 1, std::vector<int32_t>{3, 8});
  t.checkErrors = 1;
  EXPECT_EQ(Stderr([&] { EXPECT_EQ(t.Create(), 1); }),
            "error: Tracker::Create(): failed to create marker: (marker id=3) e=22\n"
            "error: Tracker::Create(): failed to create marker: (marker id=8) e=22\n"
            "error: Tracker::Create(): failed to create markers: (markers=2)\n"
            "error: Tracker::Update(): failed to update tracker: (tracker id=1) e=21\n");
  EXPECT_TRUE(zordouble::Called(Call("zorTracker", {1, ZOR_ON})));
}

}  // namespace
