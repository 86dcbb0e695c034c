// The calibration engine against a double of the server library: opening,
// capture bookkeeping, the calibration request, the server's messages,
// saving with a pending alignment, the wand trackers and raw recording.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "calib/calib_session.h"
#include "link/zorsock_double.h"
#include "testing/zord_process.h"

namespace {

using zordouble::Called;
using zordouble::Double;

class CalibSessionTest : public testing::Test {
 protected:
  void SetUp() override {
    zordouble::Reset();
    settings.server = "host";
  }
  void Open() {
    testing::internal::CaptureStdout();
    ASSERT_GE(session.open(settings, true, false), 0);
    opened = testing::internal::GetCapturedStdout();
  }
  // A capture from frame `from` to frame `to`.
  void Capture(int from, int to) {
    session.lastFrame = from;
    session.toggleCapture();
    session.lastFrame = to;
    session.toggleCapture();
  }
  void Say(std::initializer_list<const char*> messages) {
    for (const char* m : messages) Double().calibMessages.push_back(m);
  }
  int Read() {
    testing::internal::CaptureStdout();
    const int got = session.readMessage();
    printed = testing::internal::GetCapturedStdout();
    return got;
  }

  ConnectionSettings settings;
  CalibSession session{128, 0.001f};
  std::string opened, printed;
};

TEST_F(CalibSessionTest, OpensBlankOrKeepingTheExistingCalibration) {
  session.pose[0] = 0.5f;
  settings.interpolate = 3;
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(opened, "loading blank calibration\n");
  EXPECT_TRUE(Called("zorInit(host,3072)"));
  EXPECT_TRUE(Called("zorSetInteger(514,3)") && Called("zorSetInteger(3089,0)"));
  EXPECT_TRUE(Called("zorSetInteger(674,258)"));  // the second stream
  EXPECT_TRUE(session.connected());
  EXPECT_EQ(session.pose[0], 0.5f);  // the pending alignment went to the server as it was
  EXPECT_EQ(session.alignIndices, (std::vector<int32_t>{0, 1, 2}));

  session.Done();
  session.loadExisting = 1;
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(opened, "loading existing calibration\n");
  EXPECT_TRUE(Called("zorSetInteger(3089,1)"));
  EXPECT_EQ(session.pose[0], 0.0f);
}

TEST_F(CalibSessionTest, ARefusedSetUpOrInitFailsTheOpen) {
  Double().initResult = -10061;
  EXPECT_EQ(session.open(settings, false, false), -10061);
  EXPECT_FALSE(session.connected());
  Double().initResult = 0;
  Double().failing["zorSetInteger"] = ZOR_INVALID_OPERATION;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.open(settings, false, false), -1);
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(session.connected());
  EXPECT_TRUE(Called("zorDone()"));
}

TEST_F(CalibSessionTest, CapturedFramesAddUpOverCaptures) {
  Capture(0, 10);  // not connected: nothing
  EXPECT_FALSE(session.captured);
  EXPECT_EQ(zordouble::CountCalls("zorTracker(1,"), 0);

  ASSERT_NO_FATAL_FAILURE(Open());
  Capture(1000, 1100);
  Capture(1200, 1250);
  EXPECT_EQ(session.capturedFrames, 150);
  EXPECT_TRUE(session.captured && !session.capturing);
  EXPECT_EQ(zordouble::CountCalls("zorTracker(1,3105)"), 2);
  EXPECT_EQ(zordouble::CountCalls("zorTracker(1,3106)"), 2);

  session.resetCapture();
  EXPECT_TRUE(Called("zorTracker(1,3104)"));
  EXPECT_FALSE(session.captured);
  EXPECT_EQ(session.capturedFrames, 0);
}

TEST_F(CalibSessionTest, CalibratesOnlyAfterACaptureWithTheChosenQuality) {
  ASSERT_NO_FATAL_FAILURE(Open());
  session.calibrate(400);
  EXPECT_FALSE(session.calibrating);
  EXPECT_EQ(zordouble::CountCalls("zorTrackeri(1,3091"), 0);

  Capture(0, 100);
  session.calibrationSaved = session.aligned = true;
  session.calibrate(CalibSession::qualityForRow(4));
  EXPECT_TRUE(Called("zorTrackeri(1,3091,1200)"));
  EXPECT_TRUE(session.calibrating);
  EXPECT_FALSE(session.calibrationSaved || session.aligned);
  EXPECT_EQ(CalibSession::qualityForRow(6), CalibSession::qualityForRow(-1));
}

TEST_F(CalibSessionTest, APassIsShownOnlyWhenItsErrorLineFollows) {
  ASSERT_NO_FATAL_FAILURE(Open());
  Capture(0, 100);
  session.calibrate(400);
  EXPECT_EQ(Read(), 0);  // nothing queued

  Say({"pass 2 success.", "error 0.35"});
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(printed, "CalibMessage: pass 2 success.\n");
  EXPECT_EQ(session.pass, 2);
  EXPECT_EQ(session.messageReady, 0);
  EXPECT_EQ(Read(), 1);
  EXPECT_EQ(session.messageReady, 1);
  EXPECT_FLOAT_EQ(session.passError, 0.35f);
  EXPECT_TRUE(session.calibrating);  // only pass 4's error ends the run

  Say({"pass 4 success.", "error 0.2"});
  Read();
  Read();
  EXPECT_FALSE(session.calibrating);
  EXPECT_TRUE(session.calibrated);
  EXPECT_EQ(Read(), 0);
  EXPECT_EQ(session.messageReady, 0);  // cleared by every read
}

TEST_F(CalibSessionTest, AFailedPassEndsTheRunAndKeepsItsReason) {
  ASSERT_NO_FATAL_FAILURE(Open());
  Capture(0, 100);
  session.calibrate(400);
  Say({"pass 3 failed. Camera 5 has too few samples (sees the wand in 2 frames. needs 10)"});
  Read();
  EXPECT_EQ(session.pass, -3);
  EXPECT_EQ(session.messageReady, 1);
  EXPECT_FALSE(session.calibrating || session.calibrated);
  EXPECT_EQ(session.messageDetail, "Camera 5 has too few samples (sees the wand in 2 frames. needs 10)");

  session.applyMessage("pass 1 failed.");  // nothing after the stop
  EXPECT_EQ(session.pass, -1);
  EXPECT_EQ(session.messageDetail, "");
}

TEST_F(CalibSessionTest, SavingComposesThePendingAlignmentWithTheServersTransform) {
  ASSERT_NO_FATAL_FAILURE(Open());
  Double().globalTransform = {10, 20, 30, 1, 0, 0, 0};
  // A quarter turn about Z and 0.1 along X (client units; the server has mm).
  const float h = std::sqrt(0.5f);
  const float pending[7] = {0.1f, 0, 0, h, 0, 0, h};
  std::copy(pending, pending + 7, session.pose.v);
  session.cameras = {{0, {1, 0, 0, 1, 0, 0, 0}, 1.0f, 0}, {1, {1, 0, 0, 1, 0, 0, 0}, -1.0f, 0}};

  session.capturing = true;
  session.save();  // refused while capturing
  EXPECT_FALSE(Called("zorSetInteger(3090,1)"));
  session.capturing = false;
  Double().failing["zorSetFloatv"] = ZOR_INVALID_VALUE;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(session.save());  // says so instead of "saved"; nothing changes
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "error: CalibSession::save(): the server did not save (e=20)\n");
  EXPECT_FALSE(session.calibrationSaved);
  EXPECT_EQ(session.pose[0], 0.1f);
  Double().failing.clear();

  testing::internal::CaptureStdout();
  session.save();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "saved\n");
  EXPECT_TRUE(Called("zorSetInteger(3090,1)"));
  const std::vector<float>& sent = Double().lastFloatv;
  ASSERT_EQ(sent.size(), 7u);
  // (100 mm along X, quarter turn) applied after (10, 20, 30): position = R * G + t.
  EXPECT_NEAR(sent[0], 100 - 20, 1e-3);
  EXPECT_NEAR(sent[1], 10, 1e-3);
  EXPECT_NEAR(sent[2], 30, 1e-3);
  EXPECT_NEAR(sent[3], h, 1e-6);
  EXPECT_NEAR(sent[6], h, 1e-6);
  // Only the valid camera's position turns with the pending alignment.
  EXPECT_NEAR(session.cameras[0].pose[0], 0.0f, 1e-6);
  EXPECT_NEAR(session.cameras[0].pose[1], 1.0f, 1e-6);
  EXPECT_EQ(session.cameras[0].pose[6], 0.0f);
  EXPECT_EQ(session.cameras[1].pose[0], 1.0f);
  EXPECT_TRUE(session.calibrationSaved);
  EXPECT_TRUE(session.anySaved);

  // The second save sends the identity composed with the server's transform.
  testing::internal::CaptureStdout();
  session.save();
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(Double().lastFloatv, (std::vector<float>{10, 20, 30, 1, 0, 0, 0}));
}

TEST_F(CalibSessionTest, PendingAlignmentMovesOnlyValidRecords) {
  session.pose.v[1] = 5.0f;  // up 5
  session.markers = {{0, 1, 1, 2, 3, 1.0f, 0}, {1, 1, 1, 2, 3, 0.0f, 0}};
  session.rigids = {{0, 1, {0, 0, 0, 1, 0, 0, 0}, 1.0f, 0}, {1, 1, {0, 0, 0, 1, 0, 0, 0}, -1.0f, 0}};
  session.applyPendingAlignment();
  EXPECT_EQ(session.markers[0].y, 7.0f);
  EXPECT_EQ(session.markers[1].y, 2.0f);
  EXPECT_EQ(session.rigids[0].pose[1], 5.0f);
  EXPECT_EQ(session.rigids[1].pose[1], 0.0f);
}

class WandFiles : public CalibSessionTest {
 protected:
  std::string Write(const std::string& name, int firstLed) {
    std::ofstream file(dir.File(name));
    for (int i = 0; i < 4; ++i) file << firstLed + i << ", " << 100 * i << " 0 0\n";
    return dir.File(name);
  }
  zortest::TempDir dir;
};

TEST_F(WandFiles, ASecondWandFileIsNumberedAfterTheFirst) {
  testing::internal::CaptureStdout();
  session.setWandFiles({Write("a.rb", 0), Write("b.rb", 20)});
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("adding wand tracker: " + dir.File("a.rb")), std::string::npos) << out;
  EXPECT_NE(out.find(dir.File("b.rb") + " added to existing wand tracker"), std::string::npos);
  EXPECT_EQ(session.wandAdded, 1);

  const Tracker* wand = session.FindTracker(CalibSession::kWandTrackerId);
  ASSERT_NE(wand, nullptr);
  ASSERT_EQ(wand->markers.size(), 8u);
  EXPECT_EQ(wand->markers[5].index, 5);
  EXPECT_EQ(wand->markers[5].ledId, 21);
  // The calibration tracker is the merged wand.
  const Tracker* calib = session.FindTracker(CalibSession::kCalibTrackerId);
  ASSERT_NE(calib, nullptr);
  EXPECT_EQ(calib->markers.size(), 8u);
}

TEST_F(WandFiles, TheCalibrationTrackerFollowsANewWandAndNeedsOne) {
  EXPECT_FALSE(session.prepareCalibrationTracker(""));
  EXPECT_FALSE(session.prepareCalibrationTracker(dir.File("missing.rb")));
  EXPECT_TRUE(session.prepareCalibrationTracker(Write("a.rb", 0)));  // the default wand
  ASSERT_NO_FATAL_FAILURE(Open());
  testing::internal::CaptureStdout();
  session.setWandFiles({Write("b.rb", 40)});
  testing::internal::GetCapturedStdout();
  const Tracker* calib = session.FindTracker(CalibSession::kCalibTrackerId);
  ASSERT_NE(calib, nullptr);
  EXPECT_EQ(calib->markers.front().ledId, 40);
  // Connected: the new trackers went to the server.
  EXPECT_TRUE(Called("zorMarkeriv(4096,1024,40)"));
  EXPECT_TRUE(Called("zorMarkeriv(8192,1024,40)"));
}

class RawRecording : public CalibSessionTest {
 protected:
  void SetUp() override {
    CalibSessionTest::SetUp();
    previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
  }
  void TearDown() override { std::filesystem::current_path(previous); }
  int32_t OpenRaw() {
    testing::internal::CaptureStdout();
    const int32_t result = session.openRaw(request);
    printed = testing::internal::GetCapturedStdout();
    return result;
  }
  zortest::TempDir dir;
  std::filesystem::path previous;
  ConnectionSettings request{"host", 480.0f, 0, 0, 0, ""};
};

TEST_F(RawRecording, OpensAFreshCaptureFileOnlyWhenAskedAndNotYetOpen) {
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(OpenRaw(), 0);  // not asked for
  session.recordRaw = 1;
  EXPECT_EQ(OpenRaw(), 1);
  EXPECT_EQ(session.rawOpen, 1);
  EXPECT_EQ(request.rpdMode, 1);
  EXPECT_EQ(request.rpdFile.rfind("capture-", 0), 0u);
  EXPECT_EQ(request.rpdFile.substr(request.rpdFile.size() - 7), "-01.rpd");
  EXPECT_EQ(printed, "writing RPD: " + request.rpdFile + "\n");
  EXPECT_EQ(OpenRaw(), 0);  // already open
}

TEST_F(RawRecording, AFailedStreamOrCalibratingEndsTheRecording) {
  ASSERT_NO_FATAL_FAILURE(Open());
  session.recordRaw = 1;
  ASSERT_EQ(OpenRaw(), 1);
  Double().rpdRecv = {100, 200, 0, 50};
  session.drainRaw();  // stops at the first 0
  EXPECT_EQ(Double().rpdRecv.size(), 1u);
  EXPECT_EQ(session.rawOpen, 1);
  Double().rpdRecv = {100, -7};
  session.drainRaw();
  EXPECT_EQ(session.rawOpen, 0);
  EXPECT_EQ(zordouble::CountCalls("zorRPDClose()"), 1);

  ASSERT_EQ(OpenRaw(), 1);
  Capture(0, 100);
  session.calibrate(400);
  EXPECT_EQ(session.rawOpen, 0);
  EXPECT_EQ(zordouble::CountCalls("zorRPDClose()"), 2);
}

}  // namespace
