// The calibration side of the main window: capture, calibrate and save
// slots, the per-frame work of the calibration engine, the pass lines in the
// status panel, the progress label and which calibration controls are
// available in which state.
#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QStatusBar>

#include "app/calib_main_window.h"
#include "calib/calib_display.h"
#include "calib/status_panel.h"
#include "view/gl_view.h"

void CalibMainWindow::createProgressLabel() {
  progressLabel_ = new QLabel(this);
  progressLabel_->setMinimumWidth(110);
  progressLabel_->setToolTip(QStringLiteral("calibration progress"));
  statusBar()->insertPermanentWidget(0, progressLabel_);
  clock_.start();
}

void CalibMainWindow::processFrame() {
  CalibSession& engine = calib();
  if (engine.readMessage() == 1 && engine.messageReady) showCalibResult();
  processAlignment();
  // -auto: the capture starts by itself once frames flow.
  if (autoCapture_) {
    autoCapture_ = false;
    startOrStopCapture();
    updateControls();
  }
}

void CalibMainWindow::showCalibResult() {
  const CalibSession& engine = calib();
  view()->update();
  // A new run: the cameras are shown in the 3D view again.
  if (StartsNewRun(engine.pass) && view()->view2d()) view()->sl_View2d();
  const QString text = CalibResultHtml(statusPanel_->statusText(), engine.pass, engine.passError,
                                       engine.messageDetail);
  // The wizard follows the passes; a failed pass reaches it with -1.
  emit sg_CalibState(engine.pass, engine.pass < 0 ? -1.0f : engine.passError);
  showCalibStatus(text);
  updateProgress();
  updateControls();
}

void CalibMainWindow::updateProgress() {
  CalibSession& engine = calib();
  if (engine.capturing) engine.lastCaptureFrame = engine.lastFrame;
  progressLabel_->setText(ProgressText(engine, clock_.nsecsElapsed() / 1000));
}

// Starting a capture opens the raw recording first when one was asked for;
// a recording that fails is reported and the capture goes on without it.
void CalibMainWindow::startOrStopCapture() {
  CalibSession& engine = calib();
  if (!engine.capturing && captureRequest_ && !engine.rawOpen) {
    ConnectionSettings request = settings();
    const int32_t result = engine.openRaw(request);
    // 0 here means no file could be named: reported like a failed open.
    if (result != 1) reportRPDError(result);
  }
  engine.toggleCapture();
  updateProgress();
}

void CalibMainWindow::sl_Capture() {
  const CalibSession& engine = calib();
  if (engine.connected() && !engine.calibrating && !engine.aligning) startOrStopCapture();
  updateControls();
}

void CalibMainWindow::sl_ResetCapture() {
  calib().resetCapture();
  updateProgress();
  updateControls();
}

void CalibMainWindow::sl_Calibrate() {
  CalibSession& engine = calib();
  const bool ready =
      engine.connected() && !engine.calibrating && (engine.captured || engine.capturing);
  if (ready) {
    showCalibStatus(QString());
    if (engine.capturing) engine.toggleCapture();
    engine.calibrate(CalibSession::qualityForRow(qualityBox_->currentIndex()));
    updateProgress();
  }
  updateControls();
}

void CalibMainWindow::sl_ResetCalibrate() {
  CalibSession& engine = calib();
  if (engine.resetCalibration()) showCalibStatus(QStringLiteral("Calibration reset"));
  updateControls();
}

void CalibMainWindow::sl_SaveCalibration() {
  CalibSession& engine = calib();
  const bool wasAligning = engine.aligning;
  if (engine.save()) {
    statusBar()->showMessage(QStringLiteral("calibration saved"), kStatusMessageMs);
    if (wasAligning) alignmentSaved();
  } else if (engine.connected() && !engine.calibrating && !engine.capturing) {
    statusBar()->showMessage(QStringLiteral("calibration NOT saved: the server refused it"),
                             kStatusMessageMs);
  }
  updateControls();
}

void CalibMainWindow::sl_NewCalib() {
  const QString file = QFileDialog::getOpenFileName(this, QStringLiteral("Calibration Wand"),
                                                    QString(), QStringLiteral("Rigid bodies (*.rb)"));
  if (file.isEmpty()) return;
  calib().setWandFiles({file.toStdString()});
  updateControls();
}

// What each calibration control offers in each state: Connected, Capturing,
// Captured, Calibrating, Calibrated, Saved.
void CalibMainWindow::updateCalibControls(bool connected) {
  const CalibSession& engine = calib();
  const bool busy = engine.calibrating || engine.aligning;
  const bool haveCapture = engine.captured || engine.capturing;
  setEntryEnabled(kCapture, connected && !busy);
  setEntryChecked(kCapture, connected && engine.capturing);
  setEntryEnabled(kResetCapture, connected && haveCapture && !engine.calibrating);
  setEntryEnabled(kCalibrate, connected && haveCapture && !engine.calibrating);
  setEntryChecked(kCalibrate, connected && engine.calibrating);
  setEntryEnabled(kResetCalibration, connected && !engine.calibrating && !engine.capturing);
  const bool somethingToSave =
      (engine.calibrated && !engine.calibrationSaved) || engine.aligning;
  setEntryEnabled(kSave, connected && !engine.calibrating && !engine.capturing && somethingToSave);
}
