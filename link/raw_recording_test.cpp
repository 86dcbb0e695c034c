// Capture file names and opening a raw recording through the session.
#include <gtest/gtest.h>

#include <fstream>

#include "link/capture_file.h"
#include "link/zorsock_double.h"
#include "link/zortk.h"
#include "testing/zord_process.h"

namespace {

TEST(CaptureFileName, TakesTheFirstFreeSequenceNumberOfThatDay) {
  zortest::TempDir dir;
  std::ofstream(dir.File("capture-ann-20240101-01.rpd")) << "x";
  std::ofstream(dir.File("capture-ann-20240101-02.rpd")) << "x";
  std::ofstream(dir.File("capture-ann-20240102-03.rpd")) << "x";  // another day
  EXPECT_EQ(FreeCaptureFileName(dir.path(), "ann", 2024, 1, 1),
            dir.File("capture-ann-20240101-03.rpd"));
  EXPECT_EQ(FreeCaptureFileName(dir.path(), "bob", 2024, 1, 1),
            dir.File("capture-bob-20240101-01.rpd"));
  // Under a plain file every open fails with "not a directory", not "no such
  // file": a name that cannot be checked is never free.
  EXPECT_FALSE(FreeCaptureFileName(dir.File("capture-ann-20240101-01.rpd"), "ann", 2024, 1, 1));
}

TEST(CaptureFileName, SequenceNumbersGrowToThreeDigitsAndEndAt999) {
  EXPECT_EQ(CaptureFileName("ann", 2024, 12, 31, 100), "capture-ann-20241231-100.rpd");
  zortest::TempDir dir;
  for (int n = 1; n <= 999; ++n)
    std::ofstream(dir.File(CaptureFileName("ann", 2024, 3, 4, n))) << "";
  EXPECT_FALSE(FreeCaptureFileName(dir.path(), "ann", 2024, 3, 4).has_value());
}

TEST(RawOpen, RecordingNeedsAnOpenSessionAndSendingAClosedOne) {
  zordouble::Reset();
  ZOR session{128, 0.001f};
  ConnectionSettings request{"host", 480.0f, 0, 0, 1, "file.rpd"};
  EXPECT_EQ(session.rpdOpen(request), 0);  // mode 1, not connected
  request.rpdMode = 2;
  EXPECT_EQ(session.rpdOpen(request), 1);
  EXPECT_TRUE(zordouble::Called("zorRPDSend()"));
  ASSERT_GE(session.Init(ConnectionSettings{"host", 480.0f, 0, 0, 0, ""}, false, false), 0);
  EXPECT_EQ(session.rpdOpen(request), 0);  // mode 2, connected
  request.rpdMode = 1;
  EXPECT_EQ(session.rpdOpen(request), 1);
  EXPECT_EQ(zordouble::Double().rpdFile, "file.rpd");
  request.rpdMode = 0;
  EXPECT_EQ(session.rpdOpen(request), 0);

  // A failure resets the mode and says so.
  request.rpdMode = 1;
  zordouble::Double().rpdOpenResult = -3;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.rpdOpen(request), -3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "RPD ERROR...-3\n");
  EXPECT_EQ(request.rpdMode, 0);
}

}  // namespace
