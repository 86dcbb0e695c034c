// The calibration as an operator runs it in the window, against a real zord:
// connect with a blank calibration and the shipped wand, capture the waving
// wand, calibrate, read the passes in the status panel, check the cameras
// against the simulation's truth, save, and find the calibration kept after
// the server restarts. With raw recording on, the capture's file replays into
// a fresh server and calibrates to the same cameras. Heavy (SERIAL).
#include <QAction>
#include <QComboBox>
#include <QPixmap>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "app/calib_main_window.h"
#include "app/window_test_support.h"
#include "calib/calib_session.h"
#include "calib/status_panel.h"
#include "zord/solver/calib_accuracy.h"
#include "zord/solver/camera_model.h"
#include "zorsock/control.h"
#include "zorsock/rpd_file.h"

namespace {

using nlohmann::json;
using zortest::DataPath;
using zortest::RunUntil;

constexpr int kCameras = 8;

zord::Extrinsics FromPose7(const float* p, float toMm) {
  return zord::FromReportedPose(Eigen::Vector3d(p[0], p[1], p[2]) * toMm,
                                Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized());
}

json Control(const std::string& address, const json& request) {
  std::string error;
  const std::string reply = zorControl(address, request.dump(), &error);
  EXPECT_TRUE(error.empty()) << error;
  return json::parse(reply, nullptr, false);
}

class CalibrationZordTest : public zortest::WindowFixture {
 protected:
  std::unique_ptr<zortest::ZordProcess> StartZord(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args{"--scene", DataPath("scenes/default.json")};
    args.insert(args.end(), extra.begin(), extra.end());
    auto zord = std::make_unique<zortest::ZordProcess>(args);
    EXPECT_TRUE(zord->Start()) << zord->error();
    return zord;
  }

  std::unique_ptr<CalibMainWindow> OpenWindow(const std::string& address, bool capture) {
    CalibOptions options("Corvane System Calibration");
    options.server = address;
    options.wandFiles = {DataPath("wand.rb")};
    options.startMode = 2;  // -nowiz
    options.capture = capture;
    auto window = std::make_unique<CalibMainWindow>(nullptr, "Corvane System Calibration", options);
    window->settingsDock()->setScanPort(zortest::FreePort());
    return window;
  }

  static CalibSession& Calib(CalibMainWindow& window) {
    return static_cast<CalibSession&>(window.session());
  }

  // Connects unless the test did already.
  void Connect(CalibMainWindow& window) {
    if (!window.session().connected()) window.entry(CalibMainWindow::kConnect)->trigger();
    ASSERT_TRUE(window.session().connected()) << boxes.join("\n").toStdString();
    ASSERT_TRUE(RunUntil([&] { return window.session().lastFrame > 10; }, 10000));
  }

  // Presses Capture, lets `seconds` of wand waving go by (in frames at the
  // rate the window asked of the server) and presses it again.
  void CaptureWand(CalibMainWindow& window, double seconds) {
    CalibSession& calib = Calib(window);
    ASSERT_GT(calib.frequency, 0.0f);
    const int frames = static_cast<int>(seconds * calib.frequency);
    ASSERT_TRUE(window.entry(CalibMainWindow::kCapture)->isEnabled());
    window.entry(CalibMainWindow::kCapture)->trigger();
    ASSERT_TRUE(calib.capturing);
    ASSERT_TRUE(RunUntil([&] { return calib.lastFrame - calib.captureStart >= frames; }, 60000));
    window.entry(CalibMainWindow::kCapture)->trigger();
    EXPECT_FALSE(calib.capturing);
    EXPECT_TRUE(calib.captured);
    EXPECT_GE(calib.capturedFrames, frames);
  }

  // Chooses "Normal" and presses Calibrate; waits for the last pass.
  void Calibrate(CalibMainWindow& window) {
    CalibSession& calib = Calib(window);
    window.qualityBox()->setCurrentIndex(2);
    window.entry(CalibMainWindow::kCalibrate)->trigger();
    ASSERT_TRUE(calib.calibrating);
    EXPECT_EQ(calib.quality, 400);
    ASSERT_TRUE(RunUntil([&] { return !calib.calibrating; }, 170000));
    ASSERT_TRUE(calib.calibrated) << window.statusPanel()->statusText().toStdString();
  }

  // The cameras once the window shows every one calibrated.
  std::vector<ZORCamera> CalibratedCameras(CalibMainWindow& window) {
    const auto& cameras = window.session().cameras;
    EXPECT_TRUE(RunUntil([&] {
      return cameras.size() == kCameras &&
             std::all_of(cameras.begin(), cameras.end(), [](const ZORCamera& c) { return c.cond >= 0; });
    }, 10000));
    return cameras;
  }
};

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

}  // namespace
