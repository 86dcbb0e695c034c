// The application object and the main window against a double of the zor*
// calls: options, menus, tool bars and docks, the frame pump, connecting,
// pausing and every error text the window shows.
#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDockWidget>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QSpinBox>
#include <QStatusBar>
#include <QSurfaceFormat>
#include <QTest>
#include <QToolBar>
#include <QToolButton>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

#include "app/calib_main_window.h"
#include "app/message_box.h"
#include "app/qt_wrapper.h"
#include "calib/status_panel.h"
#include "view/gl_view.h"
#include "view/preference_dialog.h"
#include "link/zorsock_double.h"
#include "testing/gl_drivers.h"
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
// Windows read and write the user's .mcclient: give them a home of their own.
struct PrivateHome : testing::Environment {
  void SetUp() override {
    home = std::make_unique<zortest::TempDir>();
    setenv("HOME", home->path().c_str(), 1);
  }
  void TearDown() override {
    zortest::KeepGlDriversLoaded();
    gQt.reset();
  }
  std::unique_ptr<zortest::TempDir> home;
};
[[maybe_unused]] testing::Environment* const gEnv =
    testing::AddGlobalTestEnvironment(new PrivateHome);

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

struct Box {
  QString caption, text;
};

class WindowTest : public testing::Test {
 protected:
  void SetUp() override {
    EnsureApplication();
    zordouble::Reset();
    previous_ = SetWarningHandler(
        [this](QWidget*, const QString& caption, const QString& text) { boxes.push_back({caption, text}); });
  }
  void TearDown() override { SetWarningHandler(previous_); }
  std::unique_ptr<CalibMainWindow> Make(const CalibOptions& options) {
    std::unique_ptr<CalibMainWindow> window;
    out = Quiet([&] { window = std::make_unique<CalibMainWindow>(nullptr, "w", options); });
    return window;
  }
  std::unique_ptr<CalibMainWindow> MakeConnected() {
    auto w = Make(options);
    EXPECT_TRUE(w->connectServer(true, true));
    w->updateControls();
    return w;
  }
  static QLabel* Field(CalibMainWindow& w, const char* tip) {
    for (QLabel* label : w.statusBar()->findChildren<QLabel*>())
      if (label->toolTip() == QLatin1String(tip)) return label;
    return nullptr;
  }
  static QString Label(CalibMainWindow& w, const char* tip) {
    QLabel* field = Field(w, tip);
    return field ? field->text() : "<none>";
  }
  CalibOptions options{"Corvane System Calibration"};
  std::string out;
  std::vector<Box> boxes;
  WarningHandler previous_;
};

TEST_F(WindowTest, CaptionSizeAndRedrawInterval) {
  auto w = Make(options);
  EXPECT_EQ(w->windowTitle(), "Corvane System Calibration");
  EXPECT_EQ(w->size(), QSize(800, 600));
  EXPECT_EQ(w->redrawInterval(), 16);
  EXPECT_EQ(w->settings().server, "localhost");
  EXPECT_EQ(w->session().trackers.size(), 4u);  // the calibration's fixed trackers
  EXPECT_EQ(w->centralWidget(), w->view());
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
  EXPECT_EQ(w->calibMode(), 1);
  EXPECT_FALSE(w->entry(CalibMainWindow::kAlignRigid)->isChecked());
  EXPECT_TRUE(w->entry(CalibMainWindow::kAlignObject)->isChecked());
  EXPECT_FALSE(w->autoConnectEnabled());
  EXPECT_EQ(w->settings().server, "lab");
  EXPECT_EQ(w->settingsDock()->serverBox()->itemText(1), "localhost");
}

TEST_F(WindowTest, WandFilesMakeTheWandAndMergeFurtherFiles) {
  const std::string first = DataPath("tests/scaled.rb");
  const std::string second = DataPath("tests/no_final_newline.rb");
  options.wandFiles = {first, second};
  options.trackerFiles = {};
  auto w = Make(options);
  EXPECT_EQ(out, "adding wand tracker: " + first + "\n" + second + " added to existing wand tracker\n");
  ASSERT_EQ(w->session().trackers.size(), 4u);
  Tracker* wand = w->session().FindTracker(2);
  ASSERT_NE(wand, nullptr);
  EXPECT_EQ(wand->type, uint32_t(ZOR_RIGID_TRACKER));
  ASSERT_EQ(wand->markers.size(), 6u);
  EXPECT_EQ(wand->markers[3].index, 3);
  EXPECT_EQ(wand->markers[4].index, 4);  // second file numbered after the first
  EXPECT_EQ(wand->markers[5].index, 5);
  // The server calibrates with a copy of the merged wand.
  EXPECT_EQ(w->session().FindTracker(1)->markers.size(), 6u);
}

TEST_F(WindowTest, TrackerFilesReplaceTheirTrackers) {
  options.wandFiles = {DataPath("tests/points.pt")};
  options.trackerFiles = {DataPath("tests/scaled.rb"), "ignored.rb"};
  options.rigidFile = DataPath("tests/scaled.rb");
  options.pointFile = DataPath("tests/no_final_newline.rb");
  auto w = Make(options);
  EXPECT_EQ(out.find("warning"), std::string::npos) << out;
  ASSERT_EQ(w->session().trackers.size(), 4u);
  EXPECT_EQ(w->session().FindTracker(2)->markers.size(), 4u);  // the tracker file won
  EXPECT_EQ(w->session().FindTracker(1)->markers.size(), 4u);
  Tracker* rigid = w->session().FindTracker(0);
  EXPECT_EQ(rigid->type, uint32_t(ZOR_POINT_TRACKER));
  EXPECT_EQ(rigid->markers.size(), 4u);
  Tracker* point = w->session().FindTracker(3);
  EXPECT_EQ(point->type, uint32_t(ZOR_RIGID_TRACKER));
  EXPECT_EQ(point->markers.size(), 2u);
}

// --- Menus, tool bars, docks, keys -----------------------------------------------

struct Entry {
  int id;
  const char* text;
  const char* key;
  bool checkable;
};

TEST_F(WindowTest, MenuEntriesWithIdsKeysAndCheckMarks) {
  auto w = Make(options);
  QStringList titles;
  for (QAction* a : w->menuBar()->actions()) titles << a->text();
  EXPECT_EQ(titles, QStringList({"&File", "View", "Drawing", "Zor"}));

  const Entry entries[] = {
      {11, "Exit", "Ctrl+Q", false},           {12, "Reset 3d View", "Shift+R", false},
      {13, "Fullscreen", "F11", true},         {14, "2D View", "V", true},
      {17, "Show Marker IDs", "N", true},      {21, "Follow Selection", "Shift+F", true},
      {3, "slots", "Shift+S", true},           {4, "user defined", "Shift+K", false},
      {5, "cameras", "", true},                {6, "cones", "Shift+N", true},
      {7, "stands", "", true},                 {23, "Connect", "Shift+Return", true},
      {24, "Pause", "Ctrl+P", true},           {25, "Capture", "", true},
      {26, "Reset Capture", "", false},        {27, "Calibrate", "", true},
      {28, "Reset Calibration", "", false},    {30, "Alignment Rigid", "", false},
      {31, "Calibration Wand", "", false},     {8, "Rigid Body", "", true},
      {9, "Alignment Object", "", true},       {10, "Wand", "", true},
      {33, "Save", "", false},                 {0, "None", "", true},
      {1, "Points", "", true},                 {2, "Lines", "", true}};
  for (const Entry& e : entries) {
    QAction* a = w->entry(e.id);
    ASSERT_NE(a, nullptr) << e.id;
    EXPECT_EQ(a->text(), e.text) << e.id;
    EXPECT_EQ(a->shortcut().toString(), e.key) << e.id;
    EXPECT_EQ(a->isCheckable(), e.checkable) << e.id;
    EXPECT_EQ(a->data().toInt(), e.id);
  }

  // Where the entries sit: submenus and separators in their order.
  QMenu* zor = w->menuBar()->actions()[3]->menu();
  QStringList zorItems;
  for (QAction* a : zor->actions()) zorItems << (a->isSeparator() ? "-" : a->text());
  EXPECT_EQ(zorItems, QStringList({"Connect", "Pause", "-", "Change Trackers", "-", "Capture",
                                   "Reset Capture", "Calibrate", "Reset Calibration", "Align Mode",
                                   "-", "Save"}));
  QMenu* drawing = w->menuBar()->actions()[2]->menu();
  QStringList drawingItems;
  for (QAction* a : drawing->actions()) drawingItems << (a->isSeparator() ? "-" : a->text());
  EXPECT_EQ(drawingItems,
            QStringList({"Show Marker IDs", "Follow Selection", "Colors", "-", "Cameras", "-"}));
  EXPECT_EQ(w->brushMenu()->actions().size(), 3);
}

TEST_F(WindowTest, ToolBarsDocksAndTheirTips) {
  auto w = Make(options);
  QStringList items;
  for (QAction* a : w->calibrationBar()->actions()) {
    if (a->isSeparator()) {
      items << "-";
    } else if (auto* box = qobject_cast<QComboBox*>(w->calibrationBar()->widgetForAction(a))) {
      items << "[" + box->toolTip() + "]";
    } else {
      items << a->text() + "|" + a->toolTip();
    }
  }
  EXPECT_EQ(items, QStringList({"Connect|Connect to zor server",
                                "Capture|Capture calibration data",
                                "Calibrate|Calibrate the system", "Save|Save calibration",
                                "Quit|Quit", "2D View|Toggle 2D view",
                                "[Select the type of object to align with]",
                                "Snapshot|Capture a position (Auto capturing disabled until reconnect)",
                                "Clear|Clear captured positions",
                                "Flip Up|Flip the current orientation upside-down",
                                "Align|Start aligning", "[Select Alignment or Calibration mode]",
                                "[Select calibration quality]", "-"}));
  EXPECT_EQ(w->qualityBox()->currentText(), "Normal");
  EXPECT_EQ(w->qualityBox()->count(), 6);
  EXPECT_EQ(w->calibrationBar()->windowTitle(), "Calibration");
  EXPECT_EQ(w->drawingBar()->windowTitle(), "Drawing");
  auto* cameras = w->drawingBar()->findChild<QToolButton*>("cameras");
  ASSERT_NE(cameras, nullptr);
  EXPECT_EQ(cameras->text(), "cameras");
  EXPECT_EQ(cameras->menu()->actions().size(), 3);

  EXPECT_EQ(w->dockWidgetArea(w->settingsDock()), Qt::RightDockWidgetArea);
  EXPECT_EQ(w->dockWidgetArea(w->statusDock()), Qt::RightDockWidgetArea);
  EXPECT_EQ(w->statusDock()->windowTitle(), "Status");
  std::unique_ptr<QMenu> dockMenu(w->createPopupMenu());
  QStringList offered;
  for (QAction* a : dockMenu->actions())
    if (!a->isSeparator()) offered << a->text();
  EXPECT_EQ(offered, QStringList({"Settings"}));
}

TEST_F(WindowTest, DocksSharingASideStandOneAboveTheOther) {
  auto w = Make(options);
  w->show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
  w->tabifyDockWidget(w->statusDock(), w->settingsDock());  // dropped onto each other
  w->addDockWidget(Qt::LeftDockWidgetArea, w->settingsDock());
  w->addDockWidget(Qt::LeftDockWidgetArea, w->statusDock(), Qt::Horizontal);
  w->sl_LineUp(w->statusDock());
  QApplication::processEvents();
  EXPECT_EQ(w->dockWidgetArea(w->statusDock()), Qt::LeftDockWidgetArea);
  EXPECT_TRUE(w->tabifiedDockWidgets(w->settingsDock()).isEmpty());
  EXPECT_GT(w->statusDock()->y(), w->settingsDock()->y());
  EXPECT_EQ(w->statusDock()->x(), w->settingsDock()->x());
}

TEST_F(WindowTest, StatusBarHasSixFieldsInOrder) {
  auto w = Make(options);
  const std::pair<const char*, int> fields[] = {
      {"total cameras", 65},   {"average markers seen", 65}, {"Zor frame number", 65},
      {"Zor frames/sec.", 45}, {"graphic frames/sec.", 45},  {"graphic Load", 45}};
  int x = -1;
  w->show();
  QApplication::processEvents();
  for (const auto& [tip, width] : fields) {
    QLabel* field = Field(*w, tip);
    ASSERT_NE(field, nullptr) << tip;
    EXPECT_EQ(field->width(), width) << tip;
    EXPECT_GT(field->x(), x) << tip;
    x = field->x();
  }
  EXPECT_EQ(Label(*w, "total cameras"), "Cameras: 0");
  EXPECT_EQ(Label(*w, "Zor frames/sec."), "0Hz");
  EXPECT_EQ(Label(*w, "graphic frames/sec."), "0 fps");
}

TEST_F(WindowTest, WindowKeysReachTheirSlots) {
  auto w = Make(options);
  w->show();
  w->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(w.get()));  // keys go to the active window
  QSignalSpy aiming(w.get(), &CalibMainWindow::sg_AimingState);
  QTest::keyClick(w.get(), Qt::Key_A);
  ASSERT_EQ(aiming.count(), 1);
  EXPECT_TRUE(aiming.first().first().toBool());
  EXPECT_TRUE(w->aiming());
  QTest::keyClick(w.get(), Qt::Key_F11);
  EXPECT_EQ(w->fullScreenState(), 1);
  EXPECT_TRUE(w->menuBar()->isHidden());
  QTest::keyClick(w.get(), Qt::Key_F11);  // the key works with the menu bar hidden
  EXPECT_EQ(w->fullScreenState(), 0);
  EXPECT_FALSE(w->menuBar()->isHidden());
  EXPECT_FALSE(w->entry(CalibMainWindow::kFullScreen)->isChecked());
}

TEST_F(WindowTest, StartModes) {
  options.startMode = 2;
  options.full = 1;
  auto advanced = Make(options);
  EXPECT_TRUE(advanced->isFullScreen());
  EXPECT_TRUE(advanced->menuBar()->isHidden());
  EXPECT_TRUE(advanced->entry(CalibMainWindow::kFullScreen)->isChecked());
  EXPECT_FALSE(advanced->calibrationBar()->isHidden());
  advanced.reset();

  for (int mode : {0, 1}) {
    options.startMode = mode;
    options.full = 0;
    auto guided = Make(options);
    EXPECT_TRUE(guided->isVisible());
    EXPECT_TRUE(guided->menuBar()->isHidden()) << mode;
    EXPECT_TRUE(guided->calibrationBar()->isHidden()) << mode;
    EXPECT_TRUE(guided->statusDock()->isHidden()) << mode;
    EXPECT_TRUE(guided->settingsDock()->isHidden()) << mode;
    EXPECT_EQ(guided->calibMode(), mode);
  }
}

// --- Frame pump, connect, pause ---------------------------------------------------

TEST_F(WindowTest, PumpTakesAtMost48FramesATick) {
  auto w = MakeConnected();
  for (int f = 1; f <= 49; ++f) zordouble::Push(zordouble::MarkerFrame(f, 5));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(w->session().lastFrame, 48);
  EXPECT_EQ(Label(*w, "Zor frame number"), "48");
  EXPECT_EQ(Label(*w, "average markers seen"), "Markers: 5");
  w->sl_ZorTimerEvent();
  EXPECT_EQ(Label(*w, "Zor frame number"), "49");
}

TEST_F(WindowTest, TickWhileDisconnectedNeverFetches) {
  auto w = Make(options);
  for (int f = 1; f <= 3; ++f) zordouble::Push(zordouble::MarkerFrame(f, 5));
  zordouble::Double().errors.push_back(ZOR_INVALID_VALUE);
  EXPECT_EQ(Quiet([&] { w->sl_ZorTimerEvent(); }), "");
  EXPECT_EQ(zordouble::Double().queue.size(), 3u);
  EXPECT_EQ(zordouble::Double().errors.size(), 1u);  // not even the error was read
  EXPECT_EQ(w->session().lastFrame, 0);
  EXPECT_EQ(Label(*w, "Zor frame number"), "0");
}

TEST_F(WindowTest, LostLinkDisconnectsAndRefreshesControls) {
  auto w = MakeConnected();
  zordouble::Push(zordouble::MarkerFrame(1, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(Label(*w, "average markers seen"), "Markers: 4");
  w->sl_Pause();
  ASSERT_TRUE(w->paused());
  EXPECT_TRUE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_FALSE(w->settingsDock()->connectEnabled());

  zordouble::Double().errors.push_back(ZOR_CONNECTION_LOST);
  EXPECT_EQ(Quiet([&] { w->sl_ZorTimerEvent(); }), "error: ZorHandlerError:  (0x30)\n");
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");
  EXPECT_FALSE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_FALSE(w->paused());
  EXPECT_FALSE(w->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_FALSE(w->entry(CalibMainWindow::kCapture)->isEnabled());
  EXPECT_TRUE(w->settingsDock()->connectEnabled());
  EXPECT_EQ(Quiet([&] { w->sl_ZorTimerEvent(); }), "");  // the next tick idles
  EXPECT_EQ(Label(*w, "average markers seen"), "Markers: 0");
}

TEST_F(WindowTest, PauseIsIgnoredWhileDisconnected) {
  auto w = Make(options);
  EXPECT_FALSE(w->entry(CalibMainWindow::kPause)->isEnabled());
  w->entry(CalibMainWindow::kPause)->setEnabled(true);
  w->entry(CalibMainWindow::kPause)->trigger();  // as from the menu
  EXPECT_FALSE(w->paused());
  EXPECT_FALSE(w->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_EQ(zordouble::CountCalls("zorSetInteger"), 0);

  auto c = MakeConnected();
  zordouble::Double().calls.clear();
  c->entry(CalibMainWindow::kPause)->trigger();
  EXPECT_TRUE(c->paused());
  EXPECT_TRUE(c->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_TRUE(zordouble::Called(zordouble::Call("zorSetInteger", {ZOR_STREAMING, ZOR_OFF})));
  c->sl_Pause();
  EXPECT_FALSE(c->paused());
  EXPECT_TRUE(zordouble::Called(zordouble::Call("zorSetInteger", {ZOR_STREAMING, ZOR_ON})));
}

TEST_F(WindowTest, ConnectAndDisconnectFromTheMenu) {
  auto w = Make(options);
  w->entry(CalibMainWindow::kConnect)->trigger();
  ASSERT_TRUE(w->session().connected());
  EXPECT_TRUE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_EQ(w->statusBar()->currentMessage(), "connected");
  EXPECT_TRUE(w->statusPanel()->statusText() == "Connected");
  EXPECT_TRUE(w->statusPanel()->html().contains("<val>localhost</val>"));
  EXPECT_TRUE(boxes.empty());
  w->entry(CalibMainWindow::kConnect)->trigger();
  EXPECT_FALSE(w->session().connected());
  EXPECT_FALSE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_EQ(w->statusPanel()->statusText(), "Disconnected");
}

// --- Error texts ---------------------------------------------------------------------

TEST_F(WindowTest, HandleErrorLinesAndStatusTexts) {
  auto w = Make(options);
  w->statusBar()->showMessage("before");
  EXPECT_EQ(Quiet([&] { w->handleError(0); }), "");
  EXPECT_EQ(Quiet([&] { w->handleError(1); }), "");
  EXPECT_EQ(Quiet([&] { w->handleError(40); }), "error: ZorHandlerError:  (0x28)\n");
  EXPECT_EQ(Quiet([&] { w->handleError(-5); }), "error: ZorHandlerError:  (e=-5)\n");
  EXPECT_EQ(w->statusBar()->currentMessage(), "before");
  EXPECT_EQ(Quiet([&] { w->handleError(32); }),
            "error: ZorHandlerError: Error: Invalid Value sent to Zor (0x20)\n");
  EXPECT_EQ(w->statusBar()->currentMessage(), "Error: Invalid Value sent to Zor");
  Quiet([&] { w->handleError(33); });
  EXPECT_EQ(w->statusBar()->currentMessage(), "Error: Invalid Enum sent to Zor");
  Quiet([&] { w->handleError(34); });
  EXPECT_EQ(w->statusBar()->currentMessage(), "Error: an Invalid Operation occurred");
}

TEST_F(WindowTest, RawDataErrorTexts) {
  options.server = "lab";
  auto w = Make(options);
  const std::pair<int, const char*> cases[] = {
      {-1, "Error Initializing RPD: invalid RPD mode."},
      {-2, "Error Initializing RPD: invalid RPD mode."},
      {-3, "Error Initializing RPD: unable to connect to lab"},
      {-4, "Error Initializing RPD: failed to send mode."},
      {-5, "Error Initializing RPD: check server messages"},
      {7, "Error Initializing RPD: check server messages"}};
  for (const auto& [code, text] : cases) {
    boxes.clear();
    w->reportRPDError(code);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].caption, "RPD Error");
    EXPECT_EQ(boxes[0].text, text);
    EXPECT_EQ(w->lastRPDError(), code);
  }
}

TEST_F(WindowTest, RefusedConnectionShowsTheBoxAndTheConsoleText) {
  auto w = Make(options);
  zordouble::Double().initResult = ZOR_ERR_CONNECTION_REFUSED;
  EXPECT_EQ(Quiet([&] { w->sl_Connect(); }),
            "error: Initialization failed connecting to localhost (Connection Refused)\n");
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].caption, "Zor Init Error");
  EXPECT_EQ(boxes[0].text,
            "Initialzation failed connecting to localhost. (Connection Refused) \nPlease check "
            "that zord is running on localhost.");
  EXPECT_EQ(w->statusPanel()->statusText(), "Disconnected");
  EXPECT_FALSE(w->entry(CalibMainWindow::kConnect)->isChecked());
}

TEST_F(WindowTest, ConnectFailureBoxesByErrorCode) {
  auto w = Make(options);
  zordouble::Double().initResult = -1;  // the server refused the set-up
  Quiet([&] { w->connectServer(true, true); });
  EXPECT_TRUE(boxes.empty());  // error 0: no box
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");

  zordouble::Double().errors = {ZOR_VERSION};  // a code the library has a text for
  Quiet([&] { w->connectServer(true, true); });
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].caption, "Zor Init Error");
  EXPECT_EQ(boxes[0].text,
            "Could not Connect.\n\nZor may be busy streaming.  \nPlease check the server log and "
            "restart Zord if necessary.  \nIf the problem persists, call customer support with "
            "this error code: 1280");
  EXPECT_EQ(w->statusPanel()->statusText(), boxes[0].text);

  zordouble::Double().errors = {0x77};  // one it does not know
  Quiet([&] { w->connectServer(true, true); });
  ASSERT_EQ(boxes.size(), 2u);
  EXPECT_EQ(boxes[1].text,
            "An internal error occurred.\n\nPlease check the server log.\nIf the problem "
            "persists, call customer support with this error code: 119");
}

}  // namespace

// --- Calibration controls ---------------------------------------------------------

namespace {

struct ControlState {
  bool capture, captureChecked, resetCapture, calibrate, calibrateChecked, save;
};

ControlState Controls(CalibMainWindow& w) {
  auto on = [&](int id) { return w.entry(id)->isEnabled(); };
  auto checked = [&](int id) { return w.entry(id)->isChecked(); };
  return {on(CalibMainWindow::kCapture),   checked(CalibMainWindow::kCapture),
          on(CalibMainWindow::kResetCapture), on(CalibMainWindow::kCalibrate),
          checked(CalibMainWindow::kCalibrate), on(CalibMainWindow::kSave)};
}

void ExpectControls(CalibMainWindow& w, ControlState want, const char* state) {
  const ControlState got = Controls(w);
  EXPECT_EQ(got.capture, want.capture) << state;
  EXPECT_EQ(got.captureChecked, want.captureChecked) << state;
  EXPECT_EQ(got.resetCapture, want.resetCapture) << state;
  EXPECT_EQ(got.calibrate, want.calibrate) << state;
  EXPECT_EQ(got.calibrateChecked, want.calibrateChecked) << state;
  EXPECT_EQ(got.save, want.save) << state;
}

}  // namespace

TEST_F(WindowTest, CalibrationControlsFollowTheCalibrationState) {
  auto w = Make(options);
  ExpectControls(*w, {false, false, false, false, false, false}, "disconnected");
  w = MakeConnected();
  ExpectControls(*w, {true, false, false, false, false, false}, "connected");

  zordouble::Push(zordouble::MarkerFrame(10, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  w->entry(CalibMainWindow::kCapture)->trigger();
  ExpectControls(*w, {true, true, true, true, false, false}, "capturing");
  EXPECT_TRUE(w->progressLabel()->text().startsWith("Capturing  >"));

  zordouble::Push(zordouble::MarkerFrame(110, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  w->entry(CalibMainWindow::kCapture)->trigger();
  EXPECT_EQ(w->calib().capturedFrames, 100);
  ExpectControls(*w, {true, false, true, true, false, false}, "captured");
  EXPECT_EQ(w->progressLabel()->text(), "");

  w->qualityBox()->setCurrentIndex(5);  // "Exhaustive"
  Quiet([&] { w->entry(CalibMainWindow::kCalibrate)->trigger(); });
  EXPECT_TRUE(zordouble::Called("zorTrackeri(1,3091,0)"));
  ExpectControls(*w, {false, false, false, false, true, false}, "calibrating");
  EXPECT_TRUE(w->progressLabel()->text().startsWith("Calibrating  >"));

  // The passes reach the status panel and the wizard's signal.
  QSignalSpy states(w.get(), &CalibMainWindow::sg_CalibState);
  for (const char* m : {"pass 1 success.", "error 0.5", "pass 2 success.", "error 0.25",
                        "pass 3 success.", "error 0.125", "pass 4 success.", "error 0.1"})
    zordouble::Double().calibMessages.push_back(m);
  for (int f = 111; f <= 118; ++f) zordouble::Push(zordouble::MarkerFrame(f, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(w->statusPanel()->statusText(),
            "<div><strong><normal>Pass 1 OK:  </normal></strong>(0.5)"
            "<div><strong><normal>Pass 2 OK:  </normal></strong>(0.25)"
            "<div><strong><normal>Pass 3 OK:  </normal></strong>(0.125)"
            "<div><strong><normal>Pass 4 OK:  </normal></strong>(0.1)");
  ASSERT_EQ(states.size(), 4);
  EXPECT_EQ(states[3][0].toInt(), 4);
  EXPECT_FLOAT_EQ(states[3][1].toFloat(), 0.1f);
  ExpectControls(*w, {true, false, true, true, false, true}, "calibrated");
  EXPECT_EQ(w->progressLabel()->text(), "");

  EXPECT_EQ(Quiet([&] { w->entry(CalibMainWindow::kSave)->trigger(); }), "saved\n");
  EXPECT_TRUE(zordouble::Called("zorSetInteger(3090,1)"));
  ExpectControls(*w, {true, false, true, true, false, false}, "saved");
}

TEST_F(WindowTest, AFailedPassShowsItsCameraAndTheWizardGetsMinusOne) {
  auto w = MakeConnected();
  w->entry(CalibMainWindow::kCapture)->trigger();
  Quiet([&] { w->entry(CalibMainWindow::kCalibrate)->trigger(); });  // stops the capture first
  EXPECT_TRUE(zordouble::Called("zorTracker(1,3106)"));
  EXPECT_TRUE(zordouble::Called("zorTrackeri(1,3091,400)"));  // "Normal"
  QSignalSpy states(w.get(), &CalibMainWindow::sg_CalibState);
  zordouble::Double().calibMessages.push_back("pass 3 failed. Camera 5 has too few samples");
  zordouble::Push(zordouble::MarkerFrame(1, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(w->statusPanel()->statusText(),
            "<div>Pass 3 Failed: </div><div>&nbsp;-&nbsp;Please capture more data"
            "</div><div>&nbsp;-&nbsp;Camera 5 has too few samples");
  ASSERT_EQ(states.size(), 1);
  EXPECT_EQ(states[0][0].toInt(), -3);
  EXPECT_FLOAT_EQ(states[0][1].toFloat(), -1.0f);
  ExpectControls(*w, {true, false, true, true, false, false}, "failed: back to captured");
}

TEST_F(WindowTest, ARawRecordingThatFailsIsReportedAndTheCaptureGoesOn) {
  zortest::TempDir dir;
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  options.capture = 1;
  auto w = MakeConnected();
  zordouble::Double().rpdOpenResult = -3;
  const std::string out = Quiet([&] { w->entry(CalibMainWindow::kCapture)->trigger(); });
  EXPECT_NE(out.find("writing RPD: capture-"), std::string::npos) << out;
  EXPECT_NE(out.find("RPD ERROR...-3"), std::string::npos) << out;
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].caption, "RPD Error");
  EXPECT_EQ(boxes[0].text, "Error Initializing RPD: unable to connect to localhost");
  EXPECT_TRUE(w->calib().capturing);
  EXPECT_FALSE(w->calib().rawOpen);

  // The next capture tries again, and a stream that fails closes the recording.
  w->entry(CalibMainWindow::kCapture)->trigger();
  zordouble::Double().rpdOpenResult = 1;
  Quiet([&] { w->entry(CalibMainWindow::kCapture)->trigger(); });
  EXPECT_TRUE(w->calib().rawOpen);
  zordouble::Double().rpdRecv = {10, -7};
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_FALSE(w->calib().rawOpen);
  EXPECT_TRUE(w->calib().capturing);
  std::filesystem::current_path(previous);
}

// ---------------------------------------------------------------- the 3D view

TEST_F(WindowTest, DrawingEntriesSwitchTheViewAndTheirMarksFollowIt) {
  auto w = Make(options);
  GLView* view = w->view();
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(w->centralWidget(), view);
  EXPECT_EQ(w->glView(), view);
  EXPECT_EQ(view->session(), &w->session());
  // The marks start from the view's switches (cameras drawn, no cones).
  EXPECT_TRUE(w->entry(CalibMainWindow::kCameras)->isChecked());
  EXPECT_FALSE(w->entry(CalibMainWindow::kCameraCones)->isChecked());
  EXPECT_TRUE(w->entry(CalibMainWindow::kBrushNone)->isChecked());

  struct Switch {
    int id;
    std::function<bool()> on;
  };
  const Switch switches[] = {
      {CalibMainWindow::kMarkerIds, [&] { return view->draw.markerIds; }},
      {CalibMainWindow::kFollow, [&] { return view->draw.follow; }},
      {CalibMainWindow::kColorSlots, [&] { return view->draw.bySlot; }},
      {CalibMainWindow::kCameras, [&] { return view->draw.cameras; }},
      {CalibMainWindow::kCameraCones, [&] { return view->draw.cones; }},
      {CalibMainWindow::kCameraStands, [&] { return view->draw.stands; }},
      {CalibMainWindow::kView2d, [&] { return view->view2d(); }}};
  for (const Switch& s : switches) {
    QAction* a = w->entry(s.id);
    const bool before = s.on();
    a->trigger();
    EXPECT_NE(s.on(), before) << s.id;
    EXPECT_EQ(a->isChecked(), s.on()) << s.id;
    a->trigger();
    EXPECT_EQ(s.on(), before) << s.id;
    EXPECT_EQ(a->isChecked(), before) << s.id;
  }

  // A switch flipped in the view itself (its keys) moves the mark too.
  view->sl_CamCones();
  EXPECT_TRUE(w->entry(CalibMainWindow::kCameraCones)->isChecked());

  // The brush popup behaves as one choice of three.
  w->entry(CalibMainWindow::kBrushLines)->trigger();
  EXPECT_EQ(view->markerStore().brush(), kBrushLines);
  EXPECT_TRUE(w->entry(CalibMainWindow::kBrushLines)->isChecked());
  EXPECT_FALSE(w->entry(CalibMainWindow::kBrushNone)->isChecked());
  w->entry(CalibMainWindow::kBrushLines)->trigger();  // unchecking the choice keeps it
  EXPECT_EQ(view->markerStore().brush(), kBrushLines);
  EXPECT_TRUE(w->entry(CalibMainWindow::kBrushLines)->isChecked());
  w->entry(CalibMainWindow::kBrushPoints)->trigger();
  EXPECT_EQ(view->markerStore().brush(), kBrushPoints);
  EXPECT_FALSE(w->entry(CalibMainWindow::kBrushLines)->isChecked());

  // Slots without a menu entry reach the view as well.
  w->sl_Fill();
  w->sl_Shadows();
  w->sl_Fade();
  w->sl_Filter();
  w->sl_ShowDistance();
  EXPECT_TRUE(view->draw.fill && view->draw.shadows && view->draw.showDistance);
  EXPECT_TRUE(view->markerStore().fade() && view->markerStore().filtering());
  const float scale = view->viewScale();
  w->sl_Scale();
  EXPECT_NE(view->viewScale(), scale);
}

TEST_F(WindowTest, DeliveredFramesReachTheViewAfterTheCalibration) {
  auto w = MakeConnected();
  GLView* view = w->view();
  w->sl_BrPoints();
  for (int f = 1; f <= 3; ++f) zordouble::Push(zordouble::MarkerFrame(f, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  ASSERT_EQ(view->markerStore().trails().size(), 4u);
  EXPECT_EQ(view->markerStore().trails()[2].count, 3u);  // one position per frame
  EXPECT_GT(view->markerStore().averageCondition(), 0.0f);

  // A new connection starts the trails afresh.
  Quiet([&] { w->sl_Connect(); });
  Quiet([&] { w->sl_Connect(); });
  ASSERT_TRUE(w->session().connected());
  EXPECT_TRUE(view->markerStore().trails().empty());

  // Shown, the redraw timer paints the session's frame.
  w->show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
  const uint32_t painted = view->frames();
  QTest::qWait(5 * w->redrawInterval());
  EXPECT_GT(view->frames(), painted);
}

TEST_F(WindowTest, SelectionSetsStoreAndRecallThroughTheView) {
  auto w = MakeConnected();
  GLView* view = w->view();
  zordouble::Push(zordouble::MarkerFrame(1, 5));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  QSignalSpy changed(view, &GLView::sg_SelectionChanged);

  view->selection().ToggleMarker(3);
  w->sl_Select_1();
  EXPECT_EQ(w->statusBar()->currentMessage(), "Selection 1 stored");
  w->sl_ClearSelections();
  EXPECT_TRUE(view->selection().Empty());
  w->sl_Select_1();
  EXPECT_EQ(w->statusBar()->currentMessage(), "Selection 1 recalled");
  EXPECT_EQ(view->selection().markers, std::vector<int>({3}));
  EXPECT_EQ(changed.count(), 2);  // the clear and the recall

  // An empty set with nothing selected does nothing; a second Escape forgets the sets.
  w->statusBar()->clearMessage();
  w->sl_ClearSelections();
  w->sl_Select_2();
  EXPECT_EQ(w->statusBar()->currentMessage(), "");
  w->sl_ClearSelections();
  w->sl_Select_1();
  EXPECT_TRUE(view->selection().Empty());
}

TEST_F(WindowTest, ColoursNeedASelectionAndPreferencesFollowTheFrames) {
  auto w = MakeConnected();
  w->sl_ColorDialog();  // nothing selected: no dialog, a hint
  EXPECT_EQ(w->statusBar()->currentMessage(), "Select the markers to colour first");

  EXPECT_EQ(w->preferences(), nullptr);
  w->sl_BrushEdit();
  PreferenceDialog* prefs = w->preferences();
  ASSERT_NE(prefs, nullptr);
  EXPECT_TRUE(prefs->isVisible());
  EXPECT_EQ(prefs->view(), static_cast<SceneView*>(w->view()));
  EXPECT_EQ(prefs->conditionLabel()->text(), "Cond:0.0");
  EXPECT_EQ(prefs->historyLabel()->text(), "Max History (Approx: 0KB):");
  w->sl_BrPoints();
  for (int f = 1; f <= 2; ++f) zordouble::Push(zordouble::MarkerFrame(f, 200));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(prefs->conditionLabel()->text(), "Cond:1.0");
  EXPECT_NE(prefs->historyLabel()->text(), "Max History (Approx: 0KB):");

  // Closed and opened again: the same dialog, showing the view's settings.
  prefs->sl_Close();
  w->view()->markerStore().SetMaxHistory(1234);
  w->sl_BrushEdit();
  EXPECT_EQ(w->preferences(), prefs);
  EXPECT_EQ(prefs->historyBox()->value(), 1234);
}
