// The live coverage of a wand capture against a real zord: it grows while the
// wand is waved, a camera that never sees the wand is marked not ready, and
// the solver then refuses that camera on the same count and threshold.

#include <gtest/gtest.h>

#include <bit>

#include "zord/server/live_test_support.h"
#include "zorsock/zorsock_feedback.h"

namespace {

struct Coverage {
  ZORCoverageSummary summary{};
  std::vector<ZORCoverage> cameras = std::vector<ZORCoverage>(8);
  std::vector<int> shared = std::vector<int>(64);
};

Coverage Read() {
  Coverage c;
  EXPECT_EQ(zorGetCoverage(&c.summary, c.cameras.data(), 8, c.shared.data()), 8);
  return c;
}

int Cells(const ZORCoverage& c) { return std::popcount(c.cells[0]) + std::popcount(c.cells[1]); }

class CoverageLive : public zortest::LiveZordTest {};

TEST_F(CoverageLive, GrowsWhileWavingAndMarksTheCameraTheSolverRefuses) {
  ASSERT_NO_FATAL_FAILURE(StartZord({"--scene", zortest::DataPath("scenes/camera_away.json"), "--frequency", "240"}));
  ASSERT_NO_FATAL_FAILURE(OpenCalibration(0));
  const Coverage none = Read();
  EXPECT_EQ(none.summary.frames, 0);
  EXPECT_EQ(none.summary.min_frames, 10);
  EXPECT_EQ(none.cameras[0].ready, 0);

  ASSERT_NO_FATAL_FAILURE(CaptureWand(60));
  const Coverage early = Read();
  ASSERT_NO_FATAL_FAILURE(CaptureWand(early.summary.frames + 400));
  const Coverage late = Read();

  EXPECT_GT(late.summary.frames, early.summary.frames);
  for (int c = 0; c < 8; ++c) {
    SCOPED_TRACE(c);
    const ZORCoverage& a = early.cameras[c];
    const ZORCoverage& b = late.cameras[c];
    EXPECT_EQ(b.camera, c);
    if (c == 3) {  // turned to the wall
      EXPECT_EQ(b.frames, 0);
      EXPECT_EQ(b.ready, 0);
      for (int d = 0; d < 8; ++d) EXPECT_EQ(late.shared[c * 8 + d], 0);
      continue;
    }
    EXPECT_GT(b.frames, a.frames);
    EXPECT_GT(b.samples, a.samples);
    EXPECT_GE(b.samples, 2 * b.frames);  // two LEDs at least in each frame counted
    EXPECT_GE(Cells(b), Cells(a));
    EXPECT_FLOAT_EQ(b.covered, Cells(b) / 64.0f);
    EXPECT_GT(b.spread, late.summary.min_spread);
    EXPECT_EQ(b.ready, 1);
    for (int d = 0; d < 8; ++d) EXPECT_EQ(late.shared[c * 8 + d], late.shared[d * 8 + c]);
    EXPECT_LE(late.shared[c * 8 + (c + 1) % 8], late.summary.frames);
  }

  const std::vector<std::string> messages = Calibrate(0);
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.back(), "pass 1 failed. Camera 4 has too few samples (sees the wand in " +
                                 std::to_string(late.cameras[3].frames) + " frames, needs " +
                                 std::to_string(late.summary.min_frames) + ")");

  // A reset empties the counts.
  ASSERT_EQ(zorTracker(kWand, ZOR_CALIB_CAPTURE_RESET), 1);
  EXPECT_EQ(Read().summary.frames, 0);
}

}  // namespace
