// The tracker bar's arithmetic: free ids, unused and seen LEDs, the saved
// listing, the rigid fit and capture, and the client-side file check.
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <fstream>

#include "link/tracker_check.h"
#include "testing/zord_process.h"
#include "trackers/rigid_capture.h"
#include "trackers/tracker_lists.h"

namespace {

TrackerList Ids(std::initializer_list<int32_t> ids) {
  TrackerList list;
  for (int32_t id : ids) list.push_back(std::make_unique<Tracker>(ZOR_POINT_TRACKER, id, 0));
  return list;
}

TEST(TrackerLists, NextFreeIdFillsTheFirstGapElseCounts) {
  EXPECT_EQ(NextFreeTrackerId(Ids({})), 0);
  EXPECT_EQ(NextFreeTrackerId(Ids({0, 1, 2})), 3);
  EXPECT_EQ(NextFreeTrackerId(Ids({0, 1, 3})), 2);
  EXPECT_EQ(NextFreeTrackerId(Ids({3, 0})), 1);
  EXPECT_EQ(NextFreeTrackerId(Ids({5})), 0);
}

TEST(TrackerLists, UnusedAndSeenLeds) {
  TrackerList list;
  list.push_back(std::make_unique<Tracker>(ZOR_POINT_TRACKER, 0, std::vector<int32_t>{1, 3, 9}));
  list.push_back(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, 4, std::vector<int32_t>{0, 6}));
  EXPECT_EQ(UnusedLeds(list, 8), (std::vector<int32_t>{2, 4, 5, 7}));
  EXPECT_TRUE(UnusedLeds(list, 0).empty());

  // Frame entries of tracker 0 (indices 2 and 0) and of tracker 4; only seen
  // entries of this tracker count.
  const std::vector<int32_t> frame = {(0 << 12) | 2, (4 << 12) | 1, (0 << 12) | 0, (0 << 12) | 1};
  EXPECT_EQ(SeenLeds(*list[0], {1, 1, 1, 0}, frame), (std::vector<int32_t>{9, 1}));
  EXPECT_TRUE(SeenLeds(*list[0], {0, 0, 0, 0}, frame).empty());
  EXPECT_TRUE(SeenLeds(*list[0], {1}, {}).empty());
}

TEST(TrackerLists, SavedListingBreaksAfterEverySixteenthIdAndListsRigidMarkers) {
  std::vector<int32_t> leds(34);
  for (int i = 0; i < 34; ++i) leds[size_t(i)] = 100 + i;
  const std::string text = SavedLedsText(Tracker(ZOR_POINT_TRACKER, 0, leds));
  EXPECT_EQ(text.substr(0, 10), "100, 101, ");
  EXPECT_NE(text.find("116,\n117, "), std::string::npos) << text;
  EXPECT_NE(text.find("132,\n133"), std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);

  Tracker rigid(ZOR_RIGID_TRACKER, 1, std::vector<TrackerMarker>{{0, 7, {10, -2.5f, 30}}}, 1.0f);
  EXPECT_EQ(SavedLedsText(rigid), "    7      10.00      -2.50      30.00\n");
}

TEST(RigidCapture, FollowsAMovingBodyAndReportsWhatIsMissing) {
  const std::vector<Eigen::Vector3d> body = {{0, 0, 0}, {140, 0, 20}, {-30, 0, 110}, {60, 70, -80}};
  RigidCapture capture;
  capture.Start({100, 101, 102, 103});
  for (int f = 0; f < RigidCapture::kFramesWanted; ++f) {
    // Turning and moving; marker 102 unseen in every third frame, and an
    // unselected marker that must be ignored.
    const Eigen::Matrix3d r =
        Eigen::AngleAxisd(0.05 * f, Eigen::Vector3d(0.3, 1, 0.2).normalized()).toRotationMatrix();
    const Eigen::Vector3d t(1000 + 10 * f, 500, -f);
    std::vector<ZORMarker> frame;
    for (size_t i = 0; i < body.size(); ++i) {
      const Eigen::Vector3d p = (r * body[i] + t) * 0.001;  // the session's metres
      frame.push_back({int32_t(100 + i), f, float(p.x()), float(p.y()), float(p.z()),
                       (i == 2 && f % 3 == 1) ? 0.0f : 1.0f, 0});
    }
    frame.push_back({555, f, 0, 0, 0, 1, 0});
    capture.AddFrame(frame, 0.001f);
  }
  ASSERT_TRUE(capture.Enough());
  std::string message;
  const auto local = capture.Finish(&message);
  ASSERT_EQ(local.size(), body.size());
  EXPECT_LT(FitRigid(local, body).worst, 0.05);
  EXPECT_LT(local[0].norm(), 0.05);  // the reference marker is the origin
  EXPECT_EQ(capture.markerSlots()[2].count, RigidCapture::kFramesWanted - 7);

  capture.Start({});
  EXPECT_TRUE(capture.Finish(&message).empty());
  EXPECT_EQ(message, "no points selected");
  capture.Start({1, 2});
  capture.Finish(&message);
  EXPECT_EQ(message, "3 or more markers need to be selected.");
  capture.Start({1, 2, 3});
  for (int f = 0; f < RigidCapture::kFramesWanted; ++f) capture.AddFrame({}, 1.0f);
  capture.Finish(&message);
  EXPECT_EQ(message, "not enough frames...");
}

TEST(RigidCapture, DefinitionFileTakesAZeroOrNanScaleAsOne) {
  zortest::TempDir dir;
  std::string error;
  for (float scale : {0.0f, std::nanf(""), 4.0f}) {
    ASSERT_TRUE(WriteRigidFile(dir.File("a.rb"), scale, {{1, 2, 3}, {4.5, 0, -1}}, &error));
    std::ifstream in(dir.File("a.rb"));
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(text, std::string(scale == 4.0f ? "s, 0.25\n" : "s, 1\n") + "0, 1 2 3\n1, 4.5 0 -1\n");
  }
  EXPECT_FALSE(WriteRigidFile(dir.File("no/such/a.rb"), 1, {}, &error));
}

TEST(TrackerCheck, RefusesNegativeLedsNonFiniteCoordinatesAndTooManyMarkers) {
  zortest::TempDir dir;
  const auto check = [&](const std::string& text) {
    std::ofstream(dir.File("t.rb")) << text;
    return CheckTrackerFile(dir.File("t.rb"));
  };
  EXPECT_EQ(check("# ok\ns, 2\n1, 0 0 0\n2\n"), "");
  EXPECT_EQ(check("1, 0 0 0\n-3, 1 2 3\n"), dir.File("t.rb") + ":2: negative LED id -3");
  EXPECT_EQ(check("#\n1, nan 0 0\n"), dir.File("t.rb") + ":2: coordinates are not finite numbers");
  EXPECT_EQ(check("1, 0 inf 0\n"), dir.File("t.rb") + ":1: coordinates are not finite numbers");
  std::string many;
  for (int i = 0; i <= 4096; ++i) many += std::to_string(i) + "\n";
  EXPECT_EQ(check(many), dir.File("t.rb") + ":4097: more than 4096 markers");
  EXPECT_EQ(CheckTrackerFile(dir.File("missing.pt")), "");
}

}  // namespace
