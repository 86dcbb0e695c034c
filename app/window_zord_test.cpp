// The client window connecting to a real zord at start-up (-connect) and
// showing what its session receives.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <algorithm>
#include <QLabel>
#include <QStatusBar>
#include <memory>

#include "app/calib_main_window.h"
#include "app/qt_wrapper.h"
#include "testing/zord_process.h"

namespace {

using zortest::DataPath;

QString Label(CalibMainWindow& w, const char* tip) {
  for (QLabel* label : w.statusBar()->findChildren<QLabel*>())
    if (label->toolTip() == QLatin1String(tip)) return label->text();
  return {};
}

TEST(WindowZordTest, ConnectOptionConnectsAndFramesReachTheStatusBar) {
  zortest::ZordProcess zord({"--scene", DataPath("scenes/calibrated.json")});
  ASSERT_TRUE(zord.Start()) << zord.error();

  int argc = 1;
  char name[] = "window_zord_test";
  char* argv[] = {name, nullptr};
  QTWrapper qt(argc, argv, "windowsxp");
  CalibOptions options("Corvane System Calibration");
  options.connect = 1;
  options.server = zord.address();
  options.wandFiles = {DataPath("wand.rb")};
  options.startMode = 2;
  testing::internal::CaptureStdout();
  CalibMainWindow window(nullptr, "Corvane System Calibration", options);

  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < 10000 &&
         !(window.session().lastFrame > 100 && !window.session().markers.empty()))
    QApplication::processEvents(QEventLoop::AllEvents, 10);
  const std::string out = testing::internal::GetCapturedStdout();

  EXPECT_EQ(out, "adding wand tracker: " + DataPath("wand.rb") + "\n");
  ASSERT_TRUE(window.session().connected());
  EXPECT_GT(window.session().lastFrame, 100);
  EXPECT_EQ(Label(window, "Zor frame number"), QString::number(window.session().lastFrame));
  const auto seen = std::count_if(window.session().markers.begin(), window.session().markers.end(),
                                  [](const ZORMarker& m) { return m.cond > 0; });
  EXPECT_GT(seen, 0);
  EXPECT_LE(seen, 8);  // only the wand is tracked
  EXPECT_EQ(Label(window, "average markers seen"), QString("Markers: %1").arg(seen));
}

}  // namespace
