#include "app/calib_main_window.h"

#include <QApplication>
#include <QComboBox>
#include <QDockWidget>
#include <QMenuBar>
#include <QStatusBar>
#include <QToolBar>
#include <algorithm>
#include <iterator>
#include <cstdio>

#include "app/message_box.h"
#include "calib/calib_wizard.h"
#include "calib/orientation_bar.h"
#include "calib/pre_calib.h"
#include "calib/status_panel.h"
#include "link/event_loop_wait.h"
#include "link/tracker_check.h"
#include "trackers/tracker_bar.h"
#include "view/aiming_view.h"
#include "view/gl_view.h"
#include "view/preference_dialog.h"
#include "widgets/embedded_images.h"

CalibMainWindow::CalibMainWindow(QWidget* parent, const char* name, const CalibOptions& options)
    : ZorViewWindow(parent, name, std::make_unique<CalibSession>(128, 0.001f), options.fps) {
  createActions();
  createMenus();
  createToolBars();
  createStatusDock();
  createFeedback();
  createTrackerBar();
  createProgressLabel();
  createWizard();
  createAccelerators();
  connectView();
  connectAlignment();
  setWindowTitle(QStringLiteral("Corvane System Calibration"));
  resize(800, 600);
  createPumpTimer();

  applyOptions(options);
  loadViewSettings();
  autoConnect_ = options.connect != 0;
  // Marked before the start mode is applied so that the mode's own showing
  // of the window makes the switch.
  if (options.full) fullScreen_ = -1;
  if (options.startMode == -1)
    preCalib_->show();
  else
    sl_PreCalib(options.startMode);
  if (options.alignKind != 0) {
    sl_CalibMode(1);
    setAlignKind(options.alignKind);
  }
  if (autoConnect_) {
    settingsDock()->requestConnect();
    QTimer::singleShot(0, this, &CalibMainWindow::autoConnect);
  }
  statusPanel_->showServer(settings());
  updateControls();
  updateStatus();
}

// The settings files are written on the way out, as the window closes.
CalibMainWindow::~CalibMainWindow() {
  aiming::Set(*view(), false);  // the view goes with the window; its own choice is saved
  saveViewSettings();
  if (orientationBar_) orientationBar_->saveDefaults(OrientationBar::defaultsFileName());
}

void CalibMainWindow::createPumpTimer() {
  connect(&pumpTimer_, &QTimer::timeout, this, &CalibMainWindow::sl_ZorTimerEvent);
  pumpTimer_.start(kPumpIntervalMs);
}

void CalibMainWindow::applyOptions(const CalibOptions& options) {
  if (options.width > 0 && options.height > 0) resize(options.width, options.height);
  // Files the server would refuse (and end the session over) are left out.
  std::vector<std::string> wandFiles;
  std::copy_if(options.wandFiles.begin(), options.wandFiles.end(), std::back_inserter(wandFiles),
               TrackerFileAccepted);
  calib().setWandFiles(wandFiles);
  if (!options.trackerFiles.empty() && TrackerFileAccepted(options.trackerFiles.front())) {
    calib().replaceTracker(std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kWandTrackerId,
                                                     options.trackerFiles.front()));
    calib().wandChanged();
  }
  // The calibration's tracker 0 follows the rigid file's LEDs as points and
  // tracker 3 holds the alignment object as a rigid body.
  if (!options.rigidFile.empty() && TrackerFileAccepted(options.rigidFile))
    calib().replaceTracker(
        std::make_unique<Tracker>(ZOR_POINT_TRACKER, kRigidTrackerId, options.rigidFile));
  if (!options.pointFile.empty() && TrackerFileAccepted(options.pointFile))
    calib().replaceTracker(
        std::make_unique<Tracker>(ZOR_RIGID_TRACKER, kPointTrackerId, options.pointFile));
  if (options.autoCapture) autoCapture_ = true;
  if (!options.server.empty()) {
    settingsDock()->setFirstServer(QString::fromStdString(options.server));
    settingsDock()->GetSettings();
  }
  if (options.capture) captureRequest_ = calib().recordRaw = 1;
  orientationMode_ = options.orientation != 0;
  if (orientationMode_) createOrientationBar();
}

void CalibMainWindow::sl_Quit() { QApplication::quit(); }

void CalibMainWindow::sl_FullScreen() {
  fullScreen_ = fullScreen_ == 1 ? 0 : 1;
  if (fullScreen_ == 1) {
    menuBarWanted_ = !menuBar()->isHidden();
    showFullScreen();
    menuBar()->hide();
  } else {
    showNormal();
    menuBar()->setVisible(menuBarWanted_);
  }
  setEntryChecked(kFullScreen, fullScreen_ == 1);
}

bool CalibMainWindow::connectServer(bool startStreaming, bool setFrequency) {
  applySettings();
  statusPanel_->showServer(settings());
  return ZorViewWindow::connectServer(startStreaming, setFrequency);
}

void CalibMainWindow::disconnectServer() {
  ZorViewWindow::disconnectServer();  // ends a capture and a raw recording too
  updateProgress();
}

void CalibMainWindow::sl_Connect() {
  if (InsideLinkWait()) {  // a connect or request is under way: not a second one beneath it
    setEntryChecked(kConnect, session().connected());
    return;
  }
  bool connected = false;
  if (!session().connected())
    connected = connectServer(true, true);
  else
    disconnectServer();
  showCalibStatus(connected ? QStringLiteral("Connected") : QStringLiteral("Disconnected"));
  updateControls();
}

void CalibMainWindow::sl_Pause() {
  if (!session().connected() && !paused_) {
    setEntryChecked(kPause, false);  // the entry may have toggled itself
    return;
  }
  paused_ = !paused_;
  setEntryChecked(kPause, paused_);
  if (session().connected()) session().SetStreaming(!paused_);
}

void CalibMainWindow::reportConnectError(int code) {
  QString message;
  char known[ZOR_STRING_MAX];
  if (code > 0 && zorGetString(code, known) > 0) {
    message = QStringLiteral("Could not Connect.\n\n") +
              QStringLiteral(
                  "Zor may be busy streaming.  \nPlease check the server log and restart Zord if "
                  "necessary.  ") +
              QStringLiteral(
                  "\nIf the problem persists, call customer support with this error code: ") +
              QString::number(code);
    ShowWarning(this, QStringLiteral("Zor Init Error"), message);
  } else {
    message = initErrorText(code);
    reportInitError(code);
  }
  showCalibStatus(message);
}

void CalibMainWindow::showCalibStatus(const QString& text) { statusPanel_->setStatusText(text); }

void CalibMainWindow::updateControls() {
  const bool connected = session().connected();
  connectAction_->setIcon(LoadPixmap(connected ? "liveOn.png" : "liveOff.png"));
  setEntryChecked(kConnect, connected);
  if (!connected && paused_) {
    paused_ = false;
    setEntryChecked(kPause, false);
  }
  setEntryEnabled(kPause, connected);
  updateCalibControls(connected);
  for (QAction* button : {snapshotButton_, clearButton_, flipButton_, alignButton_})
    button->setEnabled(connected);
  alignButton_->setCheckable(true);
  alignButton_->setChecked(calib().aligning);
  // The connection's settings cannot change under a running session.
  settingsDock()->setConnectEnabled(!connected);
}

void CalibMainWindow::sl_ZorTimerEvent() {
  if (InsideLinkWait()) return;  // a connect or request is under way beneath us
  if (session().connected()) {
    // The calibration takes the frame as it came; only then does the view
    // filter it for showing and add it to the trails.
    const ZOR::PumpResult pumped = session().Pump(ZOR::kPollsPerTick, [this] {
      processFrame();
      trackerBar_->noteFrame();
      view()->ProcessFrame();
    });
    calib().drainRaw();
    if (pumped.frames > 0 && preferences_ && preferences_->isVisible())
      preferences_->updateReadouts();
    if (pumped.last == -1) {  // the link failed
      disconnectServer();
      reportLostLink(session().lastError);
      // Told once, with its reason: the error line below would repeat it without one.
      session().lastError = ZOR_NO_ERROR;
      updateControls();
      wizard_->refresh();
    }
    handleError(session().lastError);
    updateProgress();
  } else {
    // Nothing seen without a server: no stale markers stay on show.
    session().markers.clear();
  }
  updateStatus();
}

void CalibMainWindow::sl_ToggleAiming() {
  sl_EnableAiming(!aiming_);
  emit sg_AimingState(aiming_);
}

void CalibMainWindow::sl_EnableAiming(bool on) {
  aiming_ = on;
  aiming::Set(*view(), on);
  emit view()->sg_SwitchesChanged();  // the "2D View" check mark
  view()->update();
}

// Alignment works on the calibration the server has; a calibration starts
// from a blank one. Either takes effect when the session next opens.
void CalibMainWindow::sl_CalibMode(int mode) {
  calibMode_ = mode == 1 ? 1 : 0;
  calib().loadExisting = calibMode_;
  calibModeBox_->setCurrentIndex(calibMode_);
}

// After a dock moved: when "Settings" and "Status" share a side of the window
// they stand one above the other (Settings first) rather than as tabs.
void CalibMainWindow::sl_LineUp(QDockWidget* dock) {
  QDockWidget* settings = settingsDock();
  QDockWidget* status = statusDock();
  if (liningUp_ || dock->isFloating() || settings->isFloating() || status->isFloating()) return;
  const Qt::DockWidgetArea area = dockWidgetArea(settings);
  if (area != dockWidgetArea(status)) return;
  liningUp_ = true;  // splitting moves docks, which calls back here
  const bool side = area == Qt::LeftDockWidgetArea || area == Qt::RightDockWidgetArea;
  splitDockWidget(settings, status, side ? Qt::Vertical : Qt::Horizontal);
  liningUp_ = false;
}
