// The watch for knocked cameras against a real zord on a calibrated room,
// its frames paced eight times faster than their rate: a minute of the room
// with the wand waved reports no camera, a 5 mm knock of one camera is
// reported for it alone within 2 s of room time.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "zord/server/live_test_support.h"
#include "zorsock/zorsock_feedback.h"

namespace {

constexpr double kRate = 240;

class CameraWatchLive : public zortest::LiveZordTest {
 protected:
  // The wand's LEDs as a point tracker: they are triangulated every frame.
  void TrackWand() {
    ASSERT_GE(zorInit(zord_->address().c_str(), 0), 0);
    ASSERT_EQ(zorTrackeri(2, ZOR_TRACKER_CREATE, ZOR_POINT_TRACKER), 1);
    std::ifstream file(zortest::DataPath("wand.rb"));
    int index = 0;
    for (std::string line; std::getline(file, line);) {
      int led;
      if (std::sscanf(line.c_str(), "%d,", &led) != 1) continue;
      ASSERT_EQ(zorMarkeriv((2 << 12) | index++, ZOR_MARKER_LED, &led), 1);
    }
    ASSERT_EQ(zorTracker(2, ZOR_ON), 1);
  }

  double RoomSeconds() { return Control({{"cmd", "clock"}})["frame"].get<double>() / kRate; }

  // Polls the watch as the client does until `seconds` of room time passed;
  // returns the room time of the first report of `camera`, or -1. A report of
  // any other camera fails.
  double Watch(double seconds, int camera = -1) {
    const double start = RoomSeconds();
    double first = -1, now = start;
    std::vector<ZORCameraWatch> watch(16);
    while (now - start < seconds) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const int n = zorGetCameraWatch(watch.data(), 16);
      now = RoomSeconds();
      EXPECT_TRUE(n == 0 || n == 8) << n;  // nothing before the first check
      for (int i = 0; i < n; ++i) {
        if (!watch[i].moved) continue;
        if (watch[i].camera != camera) {
          ADD_FAILURE() << "camera " << watch[i].camera << " reported at " << now - start << " s";
          return -1;
        }
        if (first < 0) first = now - start;
      }
      if (first >= 0) break;
    }
    return first;
  }
};

TEST_F(CameraWatchLive, AKnockedCameraIsReportedAndNoOtherEver) {
  ASSERT_NO_FATAL_FAILURE(StartZord({"--scene", zortest::DataPath("scenes/calibrated.json"), "--frequency",
                                     "240", "--pace", "8"}));
  ASSERT_NO_FATAL_FAILURE(TrackWand());
  EXPECT_LT(Watch(60), 0);
  // Every camera watched, its calibrated level learned.
  std::vector<ZORCameraWatch> watch(8);
  ASSERT_EQ(zorGetCameraWatch(watch.data(), 8), 8);
  for (const ZORCameraWatch& w : watch) EXPECT_TRUE(w.level_px > 0 && w.residual_px > 0) << w.camera;
  EXPECT_EQ(Control({{"cmd", "bump"}, {"camera", 2}, {"position_mm", {5, 0, 0}}})["ok"], true);
  const double after = Watch(2, 2);
  EXPECT_GE(after, 0) << "not reported within 2 s";
  std::printf("5 mm knock of camera 3 reported after %.2f s of room time\n", after);
}

}  // namespace
