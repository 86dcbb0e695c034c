// The client window against a real zord: connecting at start-up (-connect),
// frames reaching the status bar, a server that dies or freezes under it, a
// server that is not there; exporting the server's calibration.
#include <signal.h>

#include <QAction>
#include <QTimer>
#include <QToolButton>
#include <QWheelEvent>
#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "link/event_loop_wait.h"
#include "view/gl_view.h"
#include "zorsock/library.h"

#include "app/calib_main_window.h"
#include "app/window_test_support.h"
#include "zorsock/control.h"

namespace {

using zortest::DataPath;
using zortest::RunUntil;
using zortest::StatusText;
using WindowZordTest = zortest::WindowFixture;

TEST_F(WindowZordTest, ConnectOptionConnectsAndFramesReachTheStatusBar) {
  zortest::ZordProcess zord({"--scene", DataPath("scenes/calibrated.json")});
  ASSERT_TRUE(zord.Start()) << zord.error();

  CalibOptions options("Corvane System Calibration");
  options.connect = 1;
  options.server = zord.address();
  options.wandFiles = {DataPath("wand.rb")};
  options.startMode = 2;
  testing::internal::CaptureStdout();
  CalibMainWindow window(nullptr, "Corvane System Calibration", options);
  // Auto-connect runs from the event loop; it looks for the server where
  // this test's zord answers discovery.
  window.settingsDock()->setScanPort(zord.discovery_port());
  // The advanced mode opens with a blank calibration; keep the scene's so that
  // markers are reconstructed.
  window.sl_CalibMode(1);

  RunUntil([&] { return window.session().lastFrame > 100 && !window.session().markers.empty(); },
           10000);
  const std::string out = testing::internal::GetCapturedStdout();

  EXPECT_EQ(out, "adding wand tracker: " + DataPath("wand.rb") + "\nloading existing calibration\n");
  ASSERT_TRUE(window.session().connected());
  EXPECT_TRUE(window.entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_EQ(StatusText(window, "Zor frame number"), QString::number(window.session().lastFrame));
  const auto seen = std::count_if(window.session().markers.begin(), window.session().markers.end(),
                                  [](const ZORMarker& m) { return m.cond > 0; });
  EXPECT_GT(seen, 0);
  EXPECT_EQ(StatusText(window, "average markers seen"), QString("Markers: %1").arg(seen));
  EXPECT_EQ(StatusText(window, "total cameras"),
            QString("Cameras: %1").arg(window.session().cameras.size()));
  EXPECT_GT(window.session().cameras.size(), 0u);
  // The server rate settles after its first second.
  EXPECT_TRUE(RunUntil([&] { return StatusText(window, "Zor frames/sec.") != "0Hz"; }, 5000));
  EXPECT_TRUE(boxes.isEmpty()) << boxes.join("\n").toStdString();
}

TEST_F(WindowZordTest, AutoConnectToAServerThatIsNotThereSaysSo) {
  CalibOptions options("Corvane System Calibration");
  options.connect = 1;
  options.server = "127.0.0.1:" + std::to_string(zortest::FreePort());
  options.startMode = 2;
  CalibMainWindow window(nullptr, "w", options);
  window.settingsDock()->setScanPort(zortest::FreePort());
  const QString expected = QString("auto connect failed: %1 not found").arg(options.server.c_str());
  EXPECT_TRUE(RunUntil([&] { return window.statusBar()->currentMessage() == expected; }, 5000))
      << window.statusBar()->currentMessage().toStdString();
  EXPECT_FALSE(window.session().connected());
  EXPECT_TRUE(boxes.isEmpty());
}

TEST_F(WindowZordTest, ServerDeathDisconnectsAndRefusedReconnectIsReported) {
  zortest::ZordProcess zord;
  ASSERT_TRUE(zord.Start()) << zord.error();
  CalibOptions options("Corvane System Calibration");
  options.server = zord.address();
  options.startMode = 2;
  CalibMainWindow window(nullptr, "w", options);
  testing::internal::CaptureStdout();
  window.entry(CalibMainWindow::kConnect)->trigger();
  ASSERT_TRUE(window.session().connected());
  ASSERT_TRUE(RunUntil([&] { return window.session().lastFrame > 10; }, 10000));
  window.entry(CalibMainWindow::kPause)->trigger();
  EXPECT_TRUE(window.paused());

  zord.Kill();
  EXPECT_TRUE(RunUntil([&] { return !window.session().connected(); }, 15000));
  RunUntil([] { return false; }, 100);  // a few more ticks on the dead link
  EXPECT_FALSE(window.entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_FALSE(window.paused() || window.entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_TRUE(window.settingsDock()->connectEnabled());
  // The operator is told why, in the library's words.
  EXPECT_EQ(window.statusBar()->currentMessage(), "disconnected: Connection Lost");

  // Connecting again finds nobody listening (the texts: window_test.cpp).
  window.entry(CalibMainWindow::kConnect)->trigger();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_FALSE(window.session().connected());
  ASSERT_EQ(boxes.size(), 1) << boxes.join("\n").toStdString();
  EXPECT_TRUE(boxes[0].contains("(Connection Refused)"));
  EXPECT_NE(out.find("error: connection to " + zord.address() + " ended: Connection Lost"),
            std::string::npos)
      << out;
}

// A frozen server: while the connect waits the view still zooms, but a second
// connect (menu or button) is refused and closing is put off until the call
// returns; frozen under a running session, the link is reported lost once.
TEST_F(WindowZordTest, FrozenServerRefusesNestedCommandsAndIsReportedOnce) {
  zortest::ZordProcess zord;
  ASSERT_TRUE(zord.Start()) << zord.error();
  zorsock::ConnectionOptions link;
  link.connect_timeout = std::chrono::milliseconds(1500);
  link.silence_timeout = std::chrono::milliseconds(1000);
  zorsock::SetConnectionOptions(link);
  CalibOptions options("Corvane System Calibration");
  options.server = zord.address();
  options.startMode = 2;
  CalibMainWindow window(nullptr, "w", options);
  window.show();
  QAction* connect = window.entry(CalibMainWindow::kConnect);
  QToolButton* button = nullptr;
  for (auto* b : window.findChildren<QToolButton*>())
    if (b->defaultAction() == connect) button = b;
  ASSERT_TRUE(button);
  const float distance = window.view()->camera().distance;

  kill(zord.pid(), SIGSTOP);
  bool inside = false;
  int triggered = 0;
  QObject::connect(connect, &QAction::triggered, [&] { ++triggered; });
  QTimer::singleShot(300, &window, [&] {
    inside = InsideLinkWait();
    connect->trigger();
    const QPointF at(button->width() / 2.0, button->height() / 2.0);
    for (auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease})
      QCoreApplication::postEvent(button, new QMouseEvent(type, at, button->mapToGlobal(at), Qt::LeftButton,
                                                          Qt::LeftButton, Qt::NoModifier));
    const QPointF mid(window.view()->width() / 2.0, window.view()->height() / 2.0);
    QCoreApplication::postEvent(window.view(),
                                new QWheelEvent(mid, window.view()->mapToGlobal(mid), {}, {0, 120},
                                                Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false));
    window.close();
  });
  testing::internal::CaptureStdout();
  connect->trigger();
  EXPECT_TRUE(inside);
  EXPECT_EQ(triggered, 2);  // ours and the nested one, which did nothing; the click was refused
  EXPECT_FALSE(window.session().connected());
  EXPECT_EQ(boxes.size(), 1) << boxes.join("\n").toStdString();
  EXPECT_LT(window.view()->camera().distance, distance);
  EXPECT_TRUE(window.isVisible());
  EXPECT_TRUE(RunUntil([&] { return !window.isVisible(); }, 5000));

  // Frozen under a streaming session.
  window.show();
  kill(zord.pid(), SIGCONT);
  connect->trigger();
  ASSERT_TRUE(window.session().connected());
  ASSERT_TRUE(RunUntil([&] { return window.session().lastFrame > 10; }, 10000));
  kill(zord.pid(), SIGSTOP);
  EXPECT_TRUE(RunUntil([&] { return !window.session().connected(); }, 5000));
  kill(zord.pid(), SIGCONT);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(window.statusBar()->currentMessage(), "disconnected: Timed Out");
  const std::string lost = "error: connection to " + zord.address() + " ended: Timed Out\n";
  EXPECT_NE(out.find(lost), std::string::npos) << out;
  EXPECT_EQ(out.find("ZorHandlerError"), std::string::npos) << out;
  zorsock::SetConnectionOptions({});
}

// File > Export Calibration writes what the server's own export writes: the
// YAML reloads with cv::FileStorage to the same numbers, the JSON is the same
// document; not connected, an unwritable place or no calibrated camera says
// so in a box.
TEST_F(WindowZordTest, ExportWritesTheServersOwnCalibration) {
  zortest::ZordProcess zord({"--scene", DataPath("scenes/calibrated.json")});
  ASSERT_TRUE(zord.Start()) << zord.error();
  CalibOptions options("Corvane System Calibration");
  options.server = zord.address();
  options.startMode = 2;
  CalibMainWindow window(nullptr, "w", options);
  zortest::TempDir dir;
  std::string file = dir.File("rig.yaml");
  window.chooseExportFile = [&] { return QString::fromStdString(file); };
  window.entry(CalibMainWindow::kExportCalibration)->trigger();
  ASSERT_EQ(boxes.size(), 1);
  EXPECT_TRUE(boxes[0].startsWith("Export Calibration: Not connected")) << boxes[0].toStdString();
  window.sl_CalibMode(1);  // keep the scene's calibration
  window.entry(CalibMainWindow::kConnect)->trigger();
  ASSERT_TRUE(window.session().connected());
  window.sl_ExportCalibration();
  file = dir.File("rig.json");
  window.sl_ExportCalibration();
  file = dir.File("no/such/folder/rig.yaml");
  window.sl_ExportCalibration();
  ASSERT_EQ(boxes.size(), 2);
  EXPECT_TRUE(boxes[1].contains("Cannot write")) << boxes[1].toStdString();

  std::string error;
  nlohmann::json own = nlohmann::json::parse(zorControl(zord.address(), R"({"cmd": "calibration"})", &error));
  ASSERT_EQ(own["ok"], true) << error;
  own.erase("ok");
  std::ifstream json(dir.File("rig.json"));
  EXPECT_EQ(nlohmann::json::parse(json), own);
  cv::FileStorage yaml(dir.File("rig.yaml"), cv::FileStorage::READ);
  ASSERT_EQ(static_cast<int>(yaml["camera_count"]), static_cast<int>(own["cameras"].size()));
  for (const nlohmann::json& cam : own["cameras"]) {
    const cv::FileNode node = yaml["camera_" + std::to_string(cam["id"].get<int>())];
    EXPECT_EQ(static_cast<int>(node["calibrated"]), cam["calibrated"] ? 1 : 0);
    EXPECT_EQ(static_cast<int>(node["image_width"]), cam["image_size"][0]);
    for (const auto& [key, field] : {std::pair{"camera_matrix", "camera_matrix"},
                                     {"distortion_coefficients", "distortion"},
                                     {"rotation", "rotation"}, {"translation", "translation"}}) {
      cv::Mat m;
      node[key] >> m;
      ASSERT_EQ(m.total(), cam[field].size()) << key;
      for (size_t i = 0; i < m.total(); ++i)
        EXPECT_DOUBLE_EQ(m.at<double>(static_cast<int>(i)), cam[field][i].get<double>()) << key;
    }
  }

  // With the calibration reset the server has nothing to export: the box
  // says so and the file written before is left as it was.
  testing::internal::CaptureStdout();
  window.entry(CalibMainWindow::kResetCalibration)->trigger();
  testing::internal::GetCapturedStdout();
  file = dir.File("rig.json");
  window.sl_ExportCalibration();
  ASSERT_EQ(boxes.size(), 3);
  EXPECT_TRUE(boxes[2].startsWith("Export Calibration: The server has no calibration to export"))
      << boxes[2].toStdString();
  std::ifstream kept(dir.File("rig.json"));
  EXPECT_EQ(nlohmann::json::parse(kept), own);
}

}  // namespace
