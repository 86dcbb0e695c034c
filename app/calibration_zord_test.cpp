// The calibration as an operator runs it in the window, against a real zord:
// connect with a blank calibration and the shipped wand, capture the waving
// wand, calibrate, read the passes in the status panel, check the cameras
// against the simulation's truth, save, and find the calibration kept after
// the server restarts. With raw recording on, the capture's file replays into
// a fresh server and calibrates to the same cameras. A server killed mid-stream
// or mid-calibration is reported and reconnected. Heavy (SERIAL).
#include <QPixmap>
#include <QStatusBar>
#include <filesystem>
#include <fstream>
#include <set>

#include "app/calibration_zord_support.h"
#include "zorsock/rpd_file.h"

namespace {

using nlohmann::json;
using zortest::CalibrationZordTest;
using zortest::Control;
using zortest::FromPose7;
using zortest::kCameras;
using zortest::RunUntil;

TEST_F(CalibrationZordTest, CalibratesFromABlankStartSavesAndKeepsItAfterARestart) {
  zortest::TempDir dir;
  const std::string truthFile = dir.File("truth.json");
  auto zord = StartZord({"--truth-out", truthFile});
  auto window = OpenWindow(zord->address(), false);
  testing::internal::CaptureStdout();
  window->entry(CalibMainWindow::kConnect)->trigger();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "loading blank calibration\n");
  ASSERT_NO_FATAL_FAILURE(Connect(*window));
  EXPECT_EQ(window->statusPanel()->statusText(), "Connected");

  ASSERT_NO_FATAL_FAILURE(CaptureWand(*window, 15));
  ASSERT_NO_FATAL_FAILURE(Calibrate(*window));

  // The last pass shows its error, small (pixel noise is 0.1).
  const QString text = window->statusPanel()->statusText();
  EXPECT_TRUE(text.contains("Pass 4 OK:") && !text.contains("Failed")) << text.toStdString();
  EXPECT_GT(Calib(*window).passError, 0.0f);
  EXPECT_LT(Calib(*window).passError, 0.2f);

  // Where the truth has the cameras, up to the rigid motion a calibration cannot know.
  const std::vector<ZORCamera> cameras = CalibratedCameras(*window);
  ASSERT_EQ(cameras.size(), size_t(kCameras));
  const json truth = json::parse(std::ifstream(truthFile));
  std::vector<zord::Extrinsics> solved, real;
  const float toMm = 1.0f / window->session().scale;
  for (int i = 0; i < kCameras; ++i) {
    solved.push_back(FromPose7(cameras[i].pose, toMm));
    const std::vector<float> p = truth["cameras"][i]["pose"].get<std::vector<float>>();
    real.push_back(FromPose7(p.data(), 1.0f));
  }
  const zord::PoseErrors poseErrors =
      zord::CompareCameraPoses(solved, real, std::vector<bool>(kCameras, true));
  EXPECT_LT(poseErrors.position_max_mm, 2.0) << poseErrors.position_rms_mm;
  EXPECT_LT(poseErrors.rotation_max_deg, 0.05) << poseErrors.rotation_rms_deg;

  if (const char* shots = std::getenv("ZOR_SCREENSHOT_DIR")) {
    RunUntil([] { return false; }, 300);
    window->grab().save(QString(shots) + "/calibration-done.png");
  }

  testing::internal::CaptureStdout();
  window->entry(CalibMainWindow::kSave)->trigger();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "saved\n");
  EXPECT_TRUE(Calib(*window).calibrationSaved);

  // The server restarts; the window notices, and reconnecting keeping the
  // existing calibration finds the saved cameras.
  ASSERT_TRUE(zord->Restart()) << zord->error();
  ASSERT_TRUE(RunUntil([&] { return !window->session().connected(); }, 15000));
  window->sl_CalibMode(1);
  testing::internal::CaptureStdout();
  window->entry(CalibMainWindow::kConnect)->trigger();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "loading existing calibration\n");
  ASSERT_NO_FATAL_FAILURE(Connect(*window));
  const std::vector<ZORCamera> kept = CalibratedCameras(*window);
  ASSERT_EQ(kept.size(), size_t(kCameras));
  for (int i = 0; i < kCameras; ++i)
    for (int k = 0; k < 7; ++k) EXPECT_NEAR(kept[i].pose[k], cameras[i].pose[k], 1e-5) << i;
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

TEST_F(CalibrationZordTest, ARecordedCaptureReplaysIntoAFreshServerToTheSameCameras) {
  zortest::TempDir work;
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(work.path());  // capture files go to the working folder

  std::vector<ZORCamera> first;
  float firstError = 0;
  std::string file;
  {
    auto zord = StartZord();
    auto window = OpenWindow(zord->address(), true);
    ASSERT_NO_FATAL_FAILURE(Connect(*window));
    ASSERT_NO_FATAL_FAILURE(CaptureWand(*window, 4));
    EXPECT_TRUE(Calib(*window).rawOpen);  // open until the capture phase ends
    ASSERT_NO_FATAL_FAILURE(Calibrate(*window));
    EXPECT_FALSE(Calib(*window).rawOpen);
    file = Calib(*window).rawFile;
    ASSERT_FALSE(file.empty());
    first = CalibratedCameras(*window);
    firstError = Calib(*window).passError;
    EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
  }

  // Frames marked as captured in the recording.
  std::vector<uint8_t> bytes;
  zorsock::rpd::Recording recording;
  std::string why;
  ASSERT_TRUE(zorsock::rpd::ReadWholeFile(work.File(file), &bytes, &why)) << why;
  ASSERT_TRUE(zorsock::rpd::ParseRecording(bytes, &recording, &why)) << why;
  int marked = 0;
  for (const auto& r : recording.frames) {
    const auto frame = zorsock::wire::DecodeRawFrame(bytes.data() + r.offset, r.size, kCameras);
    ASSERT_TRUE(frame);
    marked += (frame->flags & zorsock::wire::kRawFrameCapturing) != 0;
  }
  ASSERT_GT(marked, 400);  // seconds of frames

  // A fresh server replays the file as its camera input.
  auto zord = StartZord();
  auto window = OpenWindow(zord->address(), false);
  ConnectionSettings request;
  request.server = zord->address();
  request.rpdMode = 2;
  request.rpdFile = file;
  ASSERT_EQ(window->session().rpdOpen(request), 1) << zorRPDError();
  ASSERT_EQ(window->session().rpdClose(), 0) << zorRPDError();

  ASSERT_NO_FATAL_FAILURE(Connect(*window));
  CalibSession& calib = Calib(*window);
  window->entry(CalibMainWindow::kCapture)->trigger();
  ASSERT_TRUE(calib.capturing);
  ASSERT_TRUE(RunUntil([&] {
    return Control(zord->address(), {{"cmd", "replay"}})["replay"]["taken"] >= marked;
  }, 60000));
  window->entry(CalibMainWindow::kCapture)->trigger();
  ASSERT_NO_FATAL_FAILURE(Calibrate(*window));
  EXPECT_NEAR(calib.passError, firstError, 1e-4 * firstError);
  const std::vector<ZORCamera> second = CalibratedCameras(*window);
  ASSERT_EQ(second.size(), first.size());
  for (size_t i = 0; i < first.size(); ++i)
    for (int k = 0; k < 7; ++k) EXPECT_NEAR(second[i].pose[k], first[i].pose[k], 1e-5) << i;
  window.reset();
  std::filesystem::current_path(previous);
}

// zord killed while it streams, then again while it calibrates: each time the
// window says why, and connecting to the restarted server defines the same
// trackers there again and frames flow.
TEST_F(CalibrationZordTest, KilledServerIsReportedAndReconnectedWithTheTrackers) {
  auto zord = StartZord();
  auto window = OpenWindow(zord->address(), false);
  auto serverTrackers = [&] {
    std::set<int> ids;
    const json status = Control(zord->address(), {{"cmd", "status"}});
    for (const json& t : status["trackers"]) ids.insert(t["id"].get<int>());
    return ids;
  };
  ASSERT_NO_FATAL_FAILURE(Connect(*window));
  const std::set<int> trackers = serverTrackers();
  ASSERT_TRUE(trackers.count(1) && trackers.count(2));
  for (const bool calibrating : {false, true}) {
    if (calibrating) {
      ASSERT_NO_FATAL_FAILURE(CaptureWand(*window, 2));
      window->qualityBox()->setCurrentIndex(5);  // "Exhaustive": still busy when killed
      window->entry(CalibMainWindow::kCalibrate)->trigger();
      ASSERT_TRUE(Calib(*window).calibrating);
    }
    zord->Kill();
    ASSERT_TRUE(RunUntil([&] { return !window->session().connected(); }, 15000)) << calibrating;
    EXPECT_EQ(window->statusBar()->currentMessage(), "disconnected: Connection Lost");
    ASSERT_TRUE(zord->Restart()) << zord->error();
    ASSERT_NO_FATAL_FAILURE(Connect(*window));
    EXPECT_EQ(serverTrackers(), trackers) << calibrating;
  }
  EXPECT_FALSE(Calib(*window).calibrating);
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

}  // namespace
