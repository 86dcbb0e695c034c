// The application object and the main window as far as they exist: options
// applied to the session and its trackers, the frame pump and the status bar.
#include <gtest/gtest.h>

#include <QLabel>
#include <QStatusBar>
#include <QSurfaceFormat>
#include <functional>
#include <memory>

#include "app/calib_main_window.h"
#include "app/qt_wrapper.h"
#include "link/zorsock_double.h"
#include "testing/zord_process.h"

namespace {

using zortest::DataPath;

int gArgc = 1;
char gName[] = "window_test";
char* gArgv[] = {gName, nullptr};
std::unique_ptr<QTWrapper> gQt;

// One application for the whole test program, made by the first test and
// gone before the process exits (Qt cannot be torn down from exit handlers).
void EnsureApplication() {
  if (!gQt) gQt = std::make_unique<QTWrapper>(gArgc, gArgv, "windowsxp");
}
struct ApplicationEnd : testing::Environment {
  void TearDown() override { gQt.reset(); }
};
[[maybe_unused]] testing::Environment* const gEnd =
    testing::AddGlobalTestEnvironment(new ApplicationEnd);

std::string Quiet(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

TEST(QTWrapperTest, MadeOnceWithFontAndGLSettings) {
  ASSERT_EQ(QTWrapper::glSettings(), nullptr);
  testing::internal::CaptureStderr();
  EnsureApplication();
  // (Qt may say things of its own about the environment.)
  EXPECT_EQ(testing::internal::GetCapturedStderr().find("QTWrapper"), std::string::npos);
  const GLSettings* gl = QTWrapper::glSettings();
  ASSERT_NE(gl, nullptr);
  EXPECT_EQ(gl->formatOptions, 7);
  EXPECT_EQ(gl->clearMask, 0x4100u);
  EXPECT_EQ(gl->disable[0], GLenum(GL_ALPHA_TEST));
  EXPECT_EQ(gl->disable[8], 0u);
  EXPECT_EQ(gl->enable[2], GLenum(GL_LIGHTING));
  EXPECT_EQ(gl->enable[3], 0u);
  EXPECT_EQ(QApplication::font().family(), "Helvetica");
  EXPECT_EQ(QApplication::font().pointSize(), 8);
  EXPECT_EQ(QSurfaceFormat::defaultFormat().profile(), QSurfaceFormat::CompatibilityProfile);

  testing::internal::CaptureStderr();
  {
    QTWrapper second(gArgc, gArgv, "windowsxp");
    EXPECT_EQ(second.application(), gQt->application());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: QTWrapper already initialized!\n");
  EXPECT_EQ(QTWrapper::glSettings(), gl);
}

class WindowTest : public testing::Test {
 protected:
  void SetUp() override {
    EnsureApplication();
    zordouble::Reset();
  }
  std::unique_ptr<CalibMainWindow> Make(const CalibOptions& options) {
    std::unique_ptr<CalibMainWindow> window;
    out = Quiet([&] { window = std::make_unique<CalibMainWindow>(nullptr, "w", options); });
    return window;
  }
  static QString Label(CalibMainWindow& w, const char* tip) {
    for (QLabel* label : w.statusBar()->findChildren<QLabel*>())
      if (label->toolTip() == QLatin1String(tip)) return label->text();
    return "<none>";
  }
  CalibOptions options{"Corvane System Calibration"};
  std::string out;
};

TEST_F(WindowTest, CaptionSizeAndRedrawInterval) {
  auto w = Make(options);
  EXPECT_EQ(w->windowTitle(), "Corvane System Calibration");
  EXPECT_EQ(w->size(), QSize(800, 600));
  EXPECT_EQ(w->redrawInterval(), 16);
  EXPECT_EQ(w->settings().server, "localhost");
  EXPECT_TRUE(w->session().trackers.empty());
  options.fps = 24.9f;
  EXPECT_EQ(Make(options)->redrawInterval(), 41);
}

TEST_F(WindowTest, FlagsFromTheOptions) {
  options.autoCapture = 1;
  options.capture = 1;
  options.orientation = 1;
  options.alignKind = 2;
  options.server = "lab";
  auto w = Make(options);
  EXPECT_TRUE(w->autoCapture());
  EXPECT_EQ(w->captureRequest(), 1);
  EXPECT_TRUE(w->orientationMode());
  EXPECT_EQ(w->alignKind(), 2);
  EXPECT_FALSE(w->autoConnect());
  EXPECT_EQ(w->settings().server, "lab");
}

TEST_F(WindowTest, WandFilesMakeTheWandAndMergeFurtherFiles) {
  const std::string first = DataPath("tests/scaled.rb");
  const std::string second = DataPath("tests/no_final_newline.rb");
  options.wandFiles = {first, second};
  options.trackerFiles = {};
  auto w = Make(options);
  EXPECT_EQ(out, "adding wand tracker: " + first + "\n" + second + " added to existing wand tracker\n");
  ASSERT_EQ(w->session().trackers.size(), 1u);
  Tracker* wand = w->session().FindTracker(2);
  ASSERT_NE(wand, nullptr);
  EXPECT_EQ(wand->type, uint32_t(ZOR_RIGID_TRACKER));
  ASSERT_EQ(wand->markers.size(), 6u);
  EXPECT_EQ(wand->markers[3].index, 3);
  EXPECT_EQ(wand->markers[4].index, 4);  // second file numbered after the first
  EXPECT_EQ(wand->markers[5].index, 5);
}

TEST_F(WindowTest, TrackerFilesReplaceTheirTrackers) {
  options.wandFiles = {DataPath("tests/points.pt")};
  options.trackerFiles = {DataPath("tests/scaled.rb"), "ignored.rb"};
  options.rigidFile = DataPath("tests/scaled.rb");
  options.pointFile = DataPath("tests/no_final_newline.rb");
  auto w = Make(options);
  EXPECT_EQ(out.find("warning"), std::string::npos) << out;
  ASSERT_EQ(w->session().trackers.size(), 3u);
  EXPECT_EQ(w->session().FindTracker(2)->markers.size(), 4u);  // the tracker file won
  Tracker* rigid = w->session().FindTracker(0);
  EXPECT_EQ(rigid->type, uint32_t(ZOR_POINT_TRACKER));
  EXPECT_EQ(rigid->markers.size(), 4u);
  Tracker* point = w->session().FindTracker(3);
  EXPECT_EQ(point->type, uint32_t(ZOR_RIGID_TRACKER));
  EXPECT_EQ(point->markers.size(), 2u);
}

TEST_F(WindowTest, PumpFillsTheStatusBarAndALostLinkDisconnects) {
  auto w = Make(options);
  ASSERT_TRUE(w->connectServer(true, true));
  for (int f = 1; f <= 50; ++f) zordouble::Push(zordouble::MarkerFrame(f, 5));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(w->session().lastFrame, 48);
  EXPECT_EQ(Label(*w, "Zor frame number"), "48");
  EXPECT_EQ(Label(*w, "average markers seen"), "Markers: 5");
  w->sl_ZorTimerEvent();
  EXPECT_EQ(Label(*w, "Zor frame number"), "50");

  zordouble::Double().errors.push_back(ZOR_CONNECTION_LOST);
  w->sl_ZorTimerEvent();
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");
}

TEST_F(WindowTest, RefusedConnectionPrintsTheConsoleText) {
  auto w = Make(options);
  zordouble::Double().initResult = ZOR_ERR_CONNECTION_REFUSED;
  EXPECT_EQ(Quiet([&] { w->sl_Connect(); }),
            "error: Initialization failed connecting to localhost (Connection Refused)\n");
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");
}

}  // namespace
