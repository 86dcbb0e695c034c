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
}

TEST(CaptureFileName, SequenceNumbersGrowToThreeDigitsAndEndAt999) {
  EXPECT_EQ(CaptureFileName("ann", 2024, 12, 31, 100), "capture-ann-20241231-100.rpd");
  zortest::TempDir dir;
  for (int n = 1; n <= 999; ++n)
    std::ofstream(dir.File(CaptureFileName("ann", 2024, 3, 4, n))) << "";
  EXPECT_FALSE(FreeCaptureFileName(dir.path(), "ann", 2024, 3, 4).has_value());
}

TEST(CaptureFileName, ANameThatCannotBeCheckedIsNeverFree) {
  // Under a plain file every open fails with "not a directory", not "no such file".
  zortest::TempDir dir;
  std::ofstream(dir.File("plain")) << "x";
  EXPECT_FALSE(FreeCaptureFileName(dir.File("plain"), "ann", 2024, 1, 1).has_value());
}

class RawOpen : public testing::Test {
 protected:
  void SetUp() override { zordouble::Reset(); }
  void Connect() {
    ConnectionSettings settings;
    settings.server = "host";
    ASSERT_GE(session.Init(settings, false, false), 0);
  }
  ZOR session{128, 0.001f};
  ConnectionSettings request{"host", 480.0f, 0, 0, 1, "file.rpd"};
};

TEST_F(RawOpen, RecordingNeedsAnOpenSessionAndSendingAClosedOne) {
  EXPECT_EQ(session.rpdOpen(request), 0);  // mode 1, not connected
  request.rpdMode = 2;
  EXPECT_EQ(session.rpdOpen(request), 1);
  EXPECT_TRUE(zordouble::Called("zorRPDSend()"));
  ASSERT_NO_FATAL_FAILURE(Connect());
  EXPECT_EQ(session.rpdOpen(request), 0);  // mode 2, connected
  request.rpdMode = 1;
  EXPECT_EQ(session.rpdOpen(request), 1);
  EXPECT_EQ(zordouble::Double().rpdFile, "file.rpd");
  request.rpdMode = 0;
  EXPECT_EQ(session.rpdOpen(request), 0);
}

TEST_F(RawOpen, AFailureResetsTheModeAndSaysSo) {
  ASSERT_NO_FATAL_FAILURE(Connect());
  zordouble::Double().rpdOpenResult = -3;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.rpdOpen(request), -3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "RPD ERROR...-3\n");
  EXPECT_EQ(request.rpdMode, 0);
}

}  // namespace
