// What the client shows of a calibration beside the server's pass messages,
// in a dock of its own ("Calibration Feedback", next to "Status"): the live
// wand coverage of the capture (polled a few times a second while capturing),
// each camera's figures and the grade after a successful run, and cameras the
// server reports as moved since their calibration (also sent to the status bar).
// (The calibration wizard's capture and result pages are to show the same;
// left for later.)
#pragma once

#include <QDockWidget>
#include <QString>
#include <QTimer>
#include <vector>

#include "zorsock/zorsock_feedback.h"

class CalibSession;
class QTextEdit;

struct CaptureCoverage {
  bool valid = false;
  ZORCoverageSummary summary{};
  std::vector<ZORCoverage> cameras;
  std::vector<int> shared;  // cameras x cameras: frames both saw the wand

  // Asks the server (zorGetCoverage); false, leaving this as it was, on failure.
  bool Fetch();
  int Shared(int a, int b) const { return shared[a * cameras.size() + b]; }
  int ReadyCount() const;
};

struct CalibrationFigures {
  ZORCalibSummary summary{};
  std::vector<ZORCameraResult> cameras;

  bool Fetch();  // zorGetCalibResult; false on failure
};

// Tables with the status panel's tags: per camera samples, coverage and
// readiness, then the pairs sharing too few frames; a run's grade, wand
// length and per-camera samples, RMS and position uncertainty.
QString CoverageTable(const CaptureCoverage& coverage);
QString ResultTable(const CalibrationFigures& figures);
const char* GradeName(int grade);
// "Camera K may have moved (residual R px, calibrated L px)" for each moved camera.
QString MovedCamerasText(const std::vector<ZORCameraWatch>& watch);

class CalibrationFeedbackDock : public QDockWidget {
  Q_OBJECT

 public:
  static constexpr int kPollMs = 250;

  CalibrationFeedbackDock(CalibSession* session, QWidget* parent);
  const CaptureCoverage& coverage() const { return coverage_; }
  QTextEdit* view() const { return view_; }

 signals:
  // A camera may have moved (the text names it); repeated while it stays so.
  void sg_CameraAlert(const QString& text);

 public slots:
  void sl_Poll();

 private:
  void pollCoverage();
  void pollResult();
  void pollWatch();
  void redraw();

  CalibSession* session_;
  QTextEdit* view_;
  QTimer timer_;
  bool wasCapturing_ = false;
  bool wasCalibrating_ = false;
  int runBefore_ = -1;   // the server's run count when the current run began
  int resultPolls_ = 0;  // polls left for the figures of the run that ended
  CaptureCoverage coverage_;
  QString coverageText_, resultText_, alertText_;
};
