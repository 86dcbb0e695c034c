// What the window tests against a real zord share: a server started on a
// scene, a window with the shipped wand, and the operator's steps of a
// calibration (connect, capture the waving wand, calibrate) and control
// requests to the simulated room.
#pragma once

#include <QAction>
#include <QComboBox>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "app/calib_main_window.h"
#include "app/window_test_support.h"
#include "calib/calib_session.h"
#include "calib/status_panel.h"
#include "zord/solver/calib_accuracy.h"
#include "zord/solver/camera_model.h"
#include "zorsock/control.h"

namespace zortest {


using nlohmann::json;

constexpr int kCameras = 8;

inline zord::Extrinsics FromPose7(const float* p, float toMm) {
  return zord::FromReportedPose(Eigen::Vector3d(p[0], p[1], p[2]) * toMm,
                                Eigen::Quaterniond(p[3], p[4], p[5], p[6]).normalized());
}

inline json Control(const std::string& address, const json& request) {
  std::string error;
  const std::string reply = zorControl(address, request.dump(), &error);
  EXPECT_TRUE(error.empty()) << error;
  return json::parse(reply, nullptr, false);
}

// The operator rests the wand at `at` (world mm), pointing along +X.
inline void Rest(const std::string& address, const Eigen::Vector3d& at) {
  Control(address, {{"cmd", "wand"}, {"mode", "rest"}, {"position", {at.x(), at.y(), at.z()}},
                    {"direction", {1, 0, 0}}});
}
inline void Wave(const std::string& address) { Control(address, {{"cmd", "wand"}, {"mode", "wave"}}); }

// The LEDs of the alignment frame on the floor: its corner, its X arm, its Z arm.
constexpr int kFrameOrigin = 13, kFrameOnX = 15, kFrameOnZ = 16;

// What the simulation wrote with --truth-out: the LEDs in the world and the
// room frame the alignment frame defines.
struct Truth {
  explicit Truth(const std::string& file) {
    const json truth = json::parse(std::ifstream(file));
    for (const json& l : truth["leds"]) {
      const auto p = l["position"].get<std::vector<double>>();
      led[l["id"].get<int>()] = Eigen::Vector3d(p[0], p[1], p[2]);
    }
    const auto pose = truth["align"]["pose"].get<std::vector<double>>();
    frameRotation = Eigen::Quaterniond(pose[3], pose[4], pose[5], pose[6]);
    for (const json& c : truth["cameras"]) {
      const auto p = c["pose"].get<std::vector<double>>();
      cameras.emplace_back(p[0], p[1], p[2]);
    }
  }
  // World mm to the alignment frame's own coordinates.
  Eigen::Vector3d inFrame(const Eigen::Vector3d& world) const {
    return frameRotation.conjugate() * (world - led.at(kFrameOrigin));
  }
  std::map<int, Eigen::Vector3d> led;
  Eigen::Quaterniond frameRotation;
  std::vector<Eigen::Vector3d> cameras;
};

class CalibrationZordTest : public WindowFixture {
 protected:
  std::unique_ptr<ZordProcess> StartZord(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args{"--scene", DataPath("scenes/default.json")};
    args.insert(args.end(), extra.begin(), extra.end());
    auto zord = std::make_unique<ZordProcess>(args);
    EXPECT_TRUE(zord->Start()) << zord->error();
    return zord;
  }

  // Start mode 2 is -nowiz, -1 opens "Select Mode".
  std::unique_ptr<CalibMainWindow> OpenWindow(const std::string& address, bool capture,
                                              int startMode = 2) {
    CalibOptions options("Corvane System Calibration");
    options.server = address;
    options.wandFiles = {DataPath("wand.rb")};
    options.startMode = startMode;
    options.capture = capture;
    auto window = std::make_unique<CalibMainWindow>(nullptr, "Corvane System Calibration", options);
    window->settingsDock()->setScanPort(FreePort());
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

  // Waits for `count` more frames to reach the window.
  void Frames(CalibMainWindow& window, int count) {
    const int until = window.session().lastFrame + count;
    ASSERT_TRUE(RunUntil([&] { return window.session().lastFrame >= until; }, 20000));
  }
  // Waits until the window shows frames the server made after now (frames
  // already on their way carry the old state).
  void Settle(CalibMainWindow& window, const std::string& address) {
    const int now = Control(address, {{"cmd", "status"}})["frame"].get<int>();
    ASSERT_TRUE(RunUntil([&] { return window.session().lastFrame > now + 20; }, 30000));
  }
  // Camera positions (mm) as the window shows them.
  static std::vector<Eigen::Vector3d> CameraPositions(CalibMainWindow& window) {
    std::vector<Eigen::Vector3d> at;
    for (const ZORCamera& c : window.session().cameras)
      at.push_back(Eigen::Vector3d(c.pose[0], c.pose[1], c.pose[2]) / window.session().scale);
    return at;
  }
  // Every camera above the floor and where the truth has it in the room frame.
  void ExpectCamerasOnTruth(CalibMainWindow& window, const Truth& truth, double mm) {
    // Right after a save the client may still be handed the cameras it had
    // before for a moment: wait for the saved ones, then judge.
    RunUntil([&] {
      const std::vector<Eigen::Vector3d> now = CameraPositions(window);
      for (size_t i = 0; i < now.size() && i < truth.cameras.size(); ++i)
        if ((now[i] - truth.inFrame(truth.cameras[i])).norm() > mm) return false;
      return !now.empty();
    }, 8000);
    const std::vector<Eigen::Vector3d> shown = CameraPositions(window);
    ASSERT_EQ(shown.size(), truth.cameras.size());
    for (size_t i = 0; i < shown.size(); ++i) {
      EXPECT_GT(shown[i].y(), 1000) << i;
      EXPECT_LT((shown[i] - truth.inFrame(truth.cameras[i])).norm(), mm) << i;
    }
  }
  // Saves a picture of `widget` into $ZOR_SCREENSHOT_DIR when that is set.
  static void Shot(QWidget& widget, const char* name) {
    if (const char* dir = std::getenv("ZOR_SCREENSHOT_DIR")) {
      RunUntil([] { return false; }, 300);
      widget.grab().save(QString(dir) + "/" + name);
    }
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

}  // namespace zortest
