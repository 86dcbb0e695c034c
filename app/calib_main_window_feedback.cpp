// The calibration feedback's places in the window: its own dock beside the
// status, the run's figures under the pass lines in the status panel, moved
// cameras in the status bar, and coverage, pair links and moved cameras
// drawn in the view.
#include <QStatusBar>

#include "app/calib_main_window.h"
#include "calib/calibration_feedback.h"
#include "calib/status_panel.h"
#include "view/gl_view.h"

void CalibMainWindow::createFeedback() {
  feedback_ = new CalibrationFeedback(&calib(), this);
  addDockWidget(Qt::RightDockWidgetArea, new CalibrationFeedbackDock(feedback_, this));
  connect(feedback_, &CalibrationFeedback::sg_CameraAlert, this,
          [this](const QString& text) { statusBar()->showMessage(text, 2 * CalibrationFeedback::kPollMs); });
  connect(feedback_, &CalibrationFeedback::sg_Changed, this, [this] {
    statusPanel_->setResultText(feedback_->resultText());
    CalibrationOverlay& overlay = view()->calibration;
    const CaptureCoverage& coverage = feedback_->coverage();
    overlay.showCoverage = feedback_->coverageShown() && coverage.valid;
    overlay.summary = coverage.summary;
    overlay.coverage = coverage.cameras;
    overlay.shared = coverage.shared;
    overlay.moved.clear();
    for (const ZORCameraWatch& w : feedback_->watch())
      if (w.moved) overlay.moved.push_back(w);
    view()->update();
  });
}
