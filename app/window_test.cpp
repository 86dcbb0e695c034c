// The application object and the main window against a double of the zor*
// calls: options, menus, tool bars and docks, the frame pump, connecting,
// pausing and every error text the window shows.
#include <QAction>
#include <QComboBox>
#include <QDockWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QSurfaceFormat>
#include <QTest>
#include <QToolBar>
#include <QToolButton>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "app/calib_main_window.h"
#include "app/window_test_support.h"
#include "calib/calib_wizard.h"
#include "calib/calibration_feedback.h"
#include "calib/status_panel.h"
#include "link/capture_file.h"
#include "link/zorsock_double.h"
#include "view/gl_view.h"
#include "view/preference_dialog.h"

namespace {

using zortest::DataPath;
using zortest::StatusField;
using zortest::StatusText;

std::string Quiet(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

TEST(QTWrapperTest, MadeOnceWithACompatibilityGLProfile) {
  ASSERT_EQ(QTWrapper::glSettings(), nullptr);
  zortest::EnsureApplication();
  const GLSettings* gl = QTWrapper::glSettings();
  ASSERT_NE(gl, nullptr);
  // The views draw with the fixed-function pipeline.
  EXPECT_EQ(QSurfaceFormat::defaultFormat().profile(), QSurfaceFormat::CompatibilityProfile);

  testing::internal::CaptureStderr();
  {
    QTWrapper second(zortest::gAppArgc, zortest::gAppArgv, "windowsxp");
    EXPECT_EQ(second.application(), zortest::gApp->application());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: QTWrapper already initialized!\n");
  EXPECT_EQ(QTWrapper::glSettings(), gl);
}

class WindowTest : public zortest::WindowFixture {
 protected:
  void SetUp() override {
    WindowFixture::SetUp();
    zordouble::Reset();
  }
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
  CalibOptions options{"Corvane System Calibration"};
  std::string out;
};

TEST_F(WindowTest, BuiltFromTheOptions) {
  options.fps = 24.9f;
  options.autoCapture = 1;
  options.capture = 1;
  options.orientation = 1;
  options.alignKind = 2;
  options.server = "lab";
  auto w = Make(options);
  EXPECT_EQ(w->redrawInterval(), 41);
  EXPECT_TRUE(w->autoCapture());
  EXPECT_EQ(w->captureRequest(), 1);
  EXPECT_TRUE(w->orientationMode());
  EXPECT_EQ(w->calibMode(), 1);
  EXPECT_TRUE(w->entry(CalibMainWindow::kAlignObject)->isChecked());
  EXPECT_EQ(w->settings().server, "lab");
  EXPECT_EQ(w->settingsDock()->serverBox()->itemText(1), "localhost");
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
  EXPECT_EQ(w->session().FindTracker(0)->type, uint32_t(ZOR_POINT_TRACKER));
  EXPECT_EQ(w->session().FindTracker(3)->markers.size(), 2u);
}

// --- Menus, tool bars, docks, keys -----------------------------------------------

// An action list as the user sees it: "-" for separators.
QStringList Items(const QList<QAction*>& actions) {
  QStringList items;
  for (QAction* a : actions) items << (a->isSeparator() ? QString("-") : a->text());
  return items;
}

TEST_F(WindowTest, MenusBarsAndDocksAsTheUserSeesThem) {
  auto w = Make(options);
  EXPECT_EQ(Items(w->menuBar()->actions()), QStringList({"&File", "View", "Drawing", "Zor"}));
  // Every entry carries its id; the keys a user learns.
  const std::pair<int, const char*> keys[] = {{11, "Ctrl+Q"}, {12, "Shift+R"}, {13, "F11"},
                                              {23, "Shift+Return"}, {24, "Ctrl+P"}, {33, ""}};
  for (const auto& [id, key] : keys) {
    ASSERT_NE(w->entry(id), nullptr) << id;
    EXPECT_EQ(w->entry(id)->data().toInt(), id);
    EXPECT_EQ(w->entry(id)->shortcut().toString(), key) << id;
  }
  EXPECT_EQ(Items(w->menuBar()->actions()[3]->menu()->actions()),
            QStringList({"Connect", "Pause", "-", "Change Trackers", "-", "Capture",
                         "Reset Capture", "Calibrate", "Reset Calibration", "Align Mode", "-",
                         "Save"}));
  EXPECT_EQ(w->qualityBox()->currentText(), "Normal");
  auto* cameras = w->drawingBar()->findChild<QToolButton*>("cameras");
  ASSERT_NE(cameras, nullptr);
  EXPECT_EQ(cameras->menu()->actions().size(), 3);
  // Only the settings and tracker docks can be closed and offered back.
  std::unique_ptr<QMenu> dockMenu(w->createPopupMenu());
  QStringList offered = Items(dockMenu->actions());
  offered.removeAll("-");
  EXPECT_EQ(offered, QStringList({"Settings", "Trackers"}));
}

// The right-hand docks open with the settings whole and the status taller
// than the feedback below it, so the run's figures show without scrolling;
// docks dropped onto each other on one side are lined up again.
TEST_F(WindowTest, DocksOpenSharedAndSharingASideStandOneAboveTheOther) {
  auto w = Make(options);
  w->resize(1000, 800);
  w->show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
  QDockWidget* feedback = w->findChild<CalibrationFeedbackDock*>();
  ASSERT_TRUE(feedback);
  EXPECT_GE(w->settingsDock()->height(), w->settingsDock()->sizeHint().height());
  EXPECT_GT(w->statusDock()->height(), 3 * feedback->height() / 2);
  EXPECT_GT(w->statusDock()->height(), 280);
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

TEST_F(WindowTest, StatusFieldsInOrderAndWindowKeysReachTheirSlots) {
  auto w = Make(options);
  w->show();
  w->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(w.get()));  // keys go to the active window
  int x = -1;
  for (const char* tip : {"total cameras", "average markers seen", "Zor frame number",
                          "Zor frames/sec.", "graphic frames/sec.", "graphic Load"}) {
    QLabel* field = StatusField(*w, tip);
    ASSERT_NE(field, nullptr) << tip;
    EXPECT_GT(field->x(), x) << tip;
    x = field->x();
  }

  QSignalSpy aiming(w.get(), &CalibMainWindow::sg_AimingState);
  QTest::keyClick(w.get(), Qt::Key_A);
  ASSERT_EQ(aiming.count(), 1);
  EXPECT_TRUE(aiming.first().first().toBool() && w->aiming() && w->view()->view2d());
  QTest::keyClick(w.get(), Qt::Key_A);
  EXPECT_FALSE(w->aiming() || w->view()->view2d());
  QTest::keyClick(w.get(), Qt::Key_F11);
  EXPECT_TRUE(w->fullScreenState() == 1 && w->menuBar()->isHidden());
  QTest::keyClick(w.get(), Qt::Key_F11);  // the key works with the menu bar hidden
  EXPECT_TRUE(w->fullScreenState() == 0 && !w->menuBar()->isHidden());
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

  options.startMode = 1;
  options.full = 0;
  auto guided = Make(options);
  EXPECT_TRUE(guided->isVisible());
  EXPECT_TRUE(guided->menuBar()->isHidden() && guided->calibrationBar()->isHidden());
  EXPECT_TRUE(guided->statusDock()->isHidden() && guided->settingsDock()->isHidden());
  EXPECT_EQ(guided->calibMode(), 1);
  EXPECT_TRUE(guided->wizardShown() && guided->wizard()->alignOnly());
  EXPECT_EQ(guided->dockWidgetArea(guided->wizardDock()), Qt::TopDockWidgetArea);
  guided->wizard()->advancedButton()->click();  // the window's own controls return
  EXPECT_FALSE(guided->wizardShown());
  EXPECT_FALSE(guided->menuBar()->isHidden() || guided->calibrationBar()->isHidden());
  EXPECT_FALSE(guided->statusDock()->isHidden() || guided->settingsDock()->isHidden());
  const QDockWidget* feedback = guided->findChild<CalibrationFeedbackDock*>();
  const auto shared = [&] {
    return feedback->height() > 50 && guided->statusDock()->height() > feedback->height();
  };
  EXPECT_TRUE(zortest::RunUntil(shared, 5000))
      << guided->statusDock()->height() << " " << feedback->height();
}

// --- Frame pump, connect, pause ---------------------------------------------------

TEST_F(WindowTest, PumpTakesAtMost48FramesATick) {
  auto w = MakeConnected();
  for (int f = 1; f <= 49; ++f) zordouble::Push(zordouble::MarkerFrame(f, 5));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(w->session().lastFrame, 48);
  EXPECT_EQ(StatusText(*w, "Zor frame number"), "48");
  EXPECT_EQ(StatusText(*w, "average markers seen"), "Markers: 5");
  w->sl_ZorTimerEvent();
  EXPECT_EQ(StatusText(*w, "Zor frame number"), "49");
}

TEST_F(WindowTest, LostLinkDisconnectsRefreshesControlsAndStopsFetching) {
  auto w = MakeConnected();
  zordouble::Push(zordouble::MarkerFrame(1, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(StatusText(*w, "average markers seen"), "Markers: 4");
  w->sl_Pause();
  ASSERT_TRUE(w->paused());
  EXPECT_TRUE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_FALSE(w->settingsDock()->connectEnabled());

  zordouble::Double().errors.push_back(ZOR_CONNECTION_LOST);
  EXPECT_EQ(Quiet([&] { w->sl_ZorTimerEvent(); }),
            "error: connection to localhost ended: Connection Lost\n");
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected: Connection Lost");
  EXPECT_FALSE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_FALSE(w->paused() || w->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_FALSE(w->entry(CalibMainWindow::kCapture)->isEnabled());
  EXPECT_TRUE(w->settingsDock()->connectEnabled());
  // Ticks while disconnected read nothing, not even errors.
  for (int f = 2; f <= 4; ++f) zordouble::Push(zordouble::MarkerFrame(f, 5));
  zordouble::Double().errors.push_back(ZOR_INVALID_VALUE);
  EXPECT_EQ(Quiet([&] { w->sl_ZorTimerEvent(); }), "");
  EXPECT_EQ(zordouble::Double().queue.size(), 3u);
  EXPECT_EQ(zordouble::Double().errors.size(), 1u);
  EXPECT_EQ(StatusText(*w, "average markers seen"), "Markers: 0");
}

TEST_F(WindowTest, ConnectAndPauseFromTheMenu) {
  auto w = Make(options);
  EXPECT_FALSE(w->entry(CalibMainWindow::kPause)->isEnabled());
  w->entry(CalibMainWindow::kPause)->setEnabled(true);
  w->entry(CalibMainWindow::kPause)->trigger();  // disconnected: ignored
  EXPECT_FALSE(w->paused());
  EXPECT_FALSE(w->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_EQ(zordouble::CountCalls("zorSetInteger"), 0);

  w->entry(CalibMainWindow::kConnect)->trigger();
  ASSERT_TRUE(w->session().connected());
  EXPECT_TRUE(w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_EQ(w->statusBar()->currentMessage(), "connected");
  EXPECT_EQ(w->statusPanel()->statusText(), "Connected");
  EXPECT_TRUE(boxes.empty());

  zordouble::Double().calls.clear();
  w->entry(CalibMainWindow::kPause)->trigger();
  EXPECT_TRUE(w->paused() && w->entry(CalibMainWindow::kPause)->isChecked());
  EXPECT_TRUE(zordouble::Called(zordouble::Call("zorSetInteger", {ZOR_STREAMING, ZOR_OFF})));
  w->sl_Pause();
  EXPECT_FALSE(w->paused());
  EXPECT_TRUE(zordouble::Called(zordouble::Call("zorSetInteger", {ZOR_STREAMING, ZOR_ON})));

  w->entry(CalibMainWindow::kConnect)->trigger();
  EXPECT_FALSE(w->session().connected() || w->entry(CalibMainWindow::kConnect)->isChecked());
  EXPECT_EQ(w->statusPanel()->statusText(), "Disconnected");
}

// --- Error texts ---------------------------------------------------------------------

TEST_F(WindowTest, HandleErrorLinesAndStatusTexts) {
  auto w = Make(options);
  w->statusBar()->showMessage("before");
  const struct {
    int code;
    const char *line, *status;  // the console line; the status bar message after it
  } cases[] = {{0, "", "before"},
               {1, "", "before"},
               {40, "error: ZorHandlerError:  (0x28)\n", "before"},
               {-5, "error: ZorHandlerError:  (e=-5)\n", "before"},
               {32, "error: ZorHandlerError: Error: Invalid Value sent to Zor (0x20)\n",
                "Error: Invalid Value sent to Zor"},
               {34, "error: ZorHandlerError: Error: an Invalid Operation occurred (0x22)\n",
                "Error: an Invalid Operation occurred"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Quiet([&] { w->handleError(c.code); }), c.line) << c.code;
    EXPECT_EQ(w->statusBar()->currentMessage(), c.status) << c.code;
  }
}

TEST_F(WindowTest, RawDataErrorTexts) {
  options.server = "lab";
  auto w = Make(options);
  const std::pair<int, const char*> cases[] = {{-2, "invalid RPD mode."},
                                               {-3, "unable to connect to lab"},
                                               {-4, "failed to send mode."},
                                               {0, "check server messages"}};
  for (const auto& [code, text] : cases) {
    boxes.clear();
    w->reportRPDError(code);
    EXPECT_EQ(boxes, QStringList({QString("RPD Error: Error Initializing RPD: ") + text}));
    EXPECT_EQ(w->lastRPDError(), code);
  }
}

TEST_F(WindowTest, ConnectFailuresShowTheirBoxAndConsoleText) {
  auto w = Make(options);
  zordouble::Double().initResult = ZOR_ERR_CONNECTION_REFUSED;
  EXPECT_EQ(Quiet([&] { w->sl_Connect(); }),
            "error: Initialization failed connecting to localhost (Connection Refused)\n");
  EXPECT_FALSE(w->session().connected());
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");
  EXPECT_EQ(boxes, QStringList({"Zor Init Error: Initialzation failed connecting to localhost. "
                                "(Connection Refused) \nPlease check that zord is running on "
                                "localhost."}));
  EXPECT_FALSE(w->entry(CalibMainWindow::kConnect)->isChecked());

  boxes.clear();
  zordouble::Double().initResult = -1;  // the server refused the set-up
  Quiet([&] { w->connectServer(true, true); });
  EXPECT_TRUE(boxes.empty());  // error 0: no box
  EXPECT_EQ(w->statusBar()->currentMessage(), "disconnected");

  zordouble::Double().errors = {ZOR_VERSION};  // a code the library has a text for
  Quiet([&] { w->connectServer(true, true); });
  const QString known =
      "Could not Connect.\n\nZor may be busy streaming.  \nPlease check the server log and "
      "restart Zord if necessary.  \nIf the problem persists, call customer support with "
      "this error code: 1280";
  EXPECT_EQ(boxes, QStringList({"Zor Init Error: " + known}));
  EXPECT_EQ(w->statusPanel()->statusText(), known);

  zordouble::Double().errors = {0x77};  // one it does not know
  Quiet([&] { w->connectServer(true, true); });
  ASSERT_EQ(boxes.size(), 2);
  EXPECT_EQ(boxes[1],
            "Zor Init Error: An internal error occurred.\n\nPlease check the server log.\nIf the "
            "problem persists, call customer support with this error code: 119");
}

// --- Calibration controls ---------------------------------------------------------

// "1"/"0" for: Capture enabled, checked; Reset Capture enabled; Calibrate enabled,
// checked; Save enabled.
std::string Controls(CalibMainWindow& w) {
  std::string state;
  using W = CalibMainWindow;
  for (auto [id, checked] : {std::pair{W::kCapture, false}, {W::kCapture, true}, {W::kResetCapture, false},
                             {W::kCalibrate, false}, {W::kCalibrate, true}, {W::kSave, false}})
    state += (checked ? w.entry(id)->isChecked() : w.entry(id)->isEnabled()) ? '1' : '0';
  return state;
}

TEST_F(WindowTest, CalibrationControlsFollowTheCalibrationState) {
  auto w = Make(options);
  EXPECT_EQ(Controls(*w), "000000") << "disconnected";
  w = MakeConnected();
  EXPECT_EQ(Controls(*w), "100000") << "connected";

  zordouble::Push(zordouble::MarkerFrame(10, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  w->entry(CalibMainWindow::kCapture)->trigger();
  EXPECT_EQ(Controls(*w), "111100") << "capturing";
  EXPECT_TRUE(w->progressLabel()->text().startsWith("Capturing  >"));

  zordouble::Push(zordouble::MarkerFrame(110, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  w->entry(CalibMainWindow::kCapture)->trigger();
  EXPECT_EQ(w->calib().capturedFrames, 100);
  EXPECT_EQ(Controls(*w), "101100") << "captured";
  EXPECT_EQ(w->progressLabel()->text(), "");

  w->qualityBox()->setCurrentIndex(5);  // "Exhaustive": no limit
  Quiet([&] { w->entry(CalibMainWindow::kCalibrate)->trigger(); });
  EXPECT_TRUE(zordouble::Called("zorTrackeri(1,3091,0)"));
  EXPECT_EQ(Controls(*w), "000010") << "calibrating";
  EXPECT_TRUE(w->progressLabel()->text().startsWith("Calibrating  >"));

  // The passes reach the status panel and the wizard's signal.
  QSignalSpy states(w.get(), &CalibMainWindow::sg_CalibState);
  for (const char* m : {"pass 1 success.", "error 0.5", "pass 2 success.", "error 0.25",
                        "pass 3 success.", "error 0.125", "pass 4 success.", "error 0.1"})
    zordouble::Double().calibMessages.push_back(m);
  for (int f = 111; f <= 118; ++f) zordouble::Push(zordouble::MarkerFrame(f, 4));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_TRUE(w->statusPanel()->statusText().endsWith("Pass 4 OK:  </normal></strong>(0.1)"));
  ASSERT_EQ(states.size(), 4);
  EXPECT_EQ(states[3][0].toInt(), 4);
  EXPECT_FLOAT_EQ(states[3][1].toFloat(), 0.1f);
  EXPECT_EQ(Controls(*w), "101101") << "calibrated";
  EXPECT_EQ(w->progressLabel()->text(), "");

  EXPECT_EQ(Quiet([&] { w->entry(CalibMainWindow::kSave)->trigger(); }), "saved\n");
  EXPECT_TRUE(zordouble::Called("zorSetInteger(3090,1)"));
  EXPECT_EQ(Controls(*w), "101100") << "saved";
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
  EXPECT_TRUE(w->statusPanel()->statusText().contains("Camera 5 has too few samples"));
  ASSERT_EQ(states.size(), 1);
  EXPECT_EQ(states[0][0].toInt(), -3);
  EXPECT_FLOAT_EQ(states[0][1].toFloat(), -1.0f);
  EXPECT_EQ(Controls(*w), "101100") << "failed: back to captured";
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
  EXPECT_EQ(boxes, QStringList({"RPD Error: Error Initializing RPD: unable to connect to localhost"}));
  EXPECT_TRUE(w->calib().capturing);
  EXPECT_FALSE(w->calib().rawOpen);

  // With every capture file name of the day taken there is nothing to record
  // into: said so, not skipped silently.
  w->entry(CalibMainWindow::kCapture)->trigger();
  std::tm day{};
  const std::time_t now = std::time(nullptr);
  localtime_r(&now, &day);
  auto taken = [&](int n) {
    const char* user = std::getenv("USER");
    return dir.File(CaptureFileName(user ? user : "user", day.tm_year + 1900, day.tm_mon + 1,
                                    day.tm_mday, n));
  };
  for (int n = 1; n <= 999; ++n) std::ofstream(taken(n)).put('x');
  boxes.clear();
  EXPECT_NE(Quiet([&] { w->entry(CalibMainWindow::kCapture)->trigger(); }).find("no free capture file"),
            std::string::npos);
  EXPECT_EQ(boxes, QStringList({"RPD Error: Error Initializing RPD: check server messages"}));
  EXPECT_TRUE(w->calib().capturing);
  for (int n = 1; n <= 999; ++n) std::filesystem::remove(taken(n));

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
  using W = CalibMainWindow;
  auto w = Make(options);
  GLView* view = w->view();
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->session(), &w->session());

  const std::pair<int, std::function<bool()>> switches[] = {
      {CalibMainWindow::kMarkerIds, [&] { return view->draw.markerIds; }},
      {CalibMainWindow::kFollow, [&] { return view->draw.follow; }},
      {CalibMainWindow::kColorSlots, [&] { return view->draw.bySlot; }},
      {CalibMainWindow::kCameras, [&] { return view->draw.cameras; }},
      {CalibMainWindow::kCameraCones, [&] { return view->draw.cones; }},
      {CalibMainWindow::kCameraStands, [&] { return view->draw.stands; }},
      {CalibMainWindow::kView2d, [&] { return view->view2d(); }}};
  for (const auto& [id, on] : switches) {
    QAction* a = w->entry(id);
    const bool before = on();
    a->trigger();
    EXPECT_NE(on(), before) << id;
    EXPECT_EQ(a->isChecked(), on()) << id;
    a->trigger();
    EXPECT_EQ(on(), before) << id;
    EXPECT_EQ(a->isChecked(), before) << id;
  }

  // A switch flipped in the view itself (its keys) moves the mark too.
  view->sl_CamCones();
  EXPECT_TRUE(w->entry(CalibMainWindow::kCameraCones)->isChecked());

  // The brush popup behaves as one choice of three.
  w->entry(CalibMainWindow::kBrushLines)->trigger();
  w->entry(CalibMainWindow::kBrushLines)->trigger();  // unchecking the choice keeps it
  EXPECT_EQ(view->markerStore().brush(), kBrushLines);
  EXPECT_TRUE(w->entry(CalibMainWindow::kBrushLines)->isChecked());
  w->entry(CalibMainWindow::kBrushPoints)->trigger();
  EXPECT_FALSE(w->entry(CalibMainWindow::kBrushLines)->isChecked());

  // Slots without a menu entry reach the view as well.
  for (auto slot : {&W::sl_Fill, &W::sl_Shadows, &W::sl_Fade, &W::sl_Filter, &W::sl_ShowDistance})
    (w.get()->*slot)();
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

  // Shown, the redraw timer paints the session's frame, in a context that
  // started from the program's GL state.
  w->show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
  const uint32_t painted = view->frames();
  EXPECT_TRUE(zortest::RunUntil([&] { return view->frames() > painted; }, 20 * 1000));
  view->makeCurrent();
  EXPECT_TRUE(glIsEnabled(GL_NORMALIZE));
  EXPECT_FALSE(glIsEnabled(GL_DITHER));
  view->doneCurrent();
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

  // The first Escape clears the selection, a second forgets the sets.
  w->sl_ClearSelections();
  w->sl_ClearSelections();
  w->sl_Select_1();
  EXPECT_TRUE(view->selection().Empty());
}

TEST_F(WindowTest, ColoursNeedASelectionAndPreferencesFollowTheFrames) {
  auto w = MakeConnected();
  w->sl_ColorDialog();  // nothing selected: no dialog, a hint
  EXPECT_EQ(w->statusBar()->currentMessage(), "Select the markers to colour first");

  w->sl_BrushEdit();
  PreferenceDialog* prefs = w->preferences();
  ASSERT_NE(prefs, nullptr);
  EXPECT_EQ(prefs->view(), static_cast<SceneView*>(w->view()));
  EXPECT_EQ(prefs->conditionLabel()->text(), "Cond:0.0");
  w->sl_BrPoints();
  for (int f = 1; f <= 2; ++f) zordouble::Push(zordouble::MarkerFrame(f, 200));
  Quiet([&] { w->sl_ZorTimerEvent(); });
  EXPECT_EQ(prefs->conditionLabel()->text(), "Cond:1.0");

  // Closed and opened again: the same dialog, showing the view's settings.
  prefs->sl_Close();
  w->view()->markerStore().SetMaxHistory(1234);
  w->sl_BrushEdit();
  EXPECT_EQ(w->preferences(), prefs);
  EXPECT_EQ(prefs->historyBox()->value(), 1234);
}

}  // namespace
