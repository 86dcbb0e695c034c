// What the client shows of a calibration beside the server's pass messages:
// the live wand coverage of the capture (polled a few times a second while
// capturing), each camera's figures and the grade after a successful run, and
// cameras the server reports as moved since their calibration. One poller
// (CalibrationFeedback) feeds every place that shows them: the tables widget
// (in its own dock and on the wizard's capture and result pages), the status
// panel, the status bar and the view.
#pragma once

#include <QDockWidget>
#include <QString>
#include <QTextEdit>
#include <QTimer>
#include <vector>

#include "zorsock/zorsock_feedback.h"

class CalibSession;

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
// readiness, then the pairs sharing too few frames (and, up to
// kPairMatrixMax cameras, the frames of every pair); a run's grade, wand
// length and per-camera samples, RMS and position uncertainty.
constexpr int kPairMatrixMax = 12;
QString CoverageTable(const CaptureCoverage& coverage);
QString ResultTable(const CalibrationFigures& figures);
const char* GradeName(int grade);
// "Camera K may have moved (residual R px, calibrated L px)" for each moved camera.
QString MovedCamerasText(const std::vector<ZORCameraWatch>& watch);

class CalibrationFeedback : public QObject {
  Q_OBJECT

 public:
  static constexpr int kPollMs = 250;
  static constexpr int kResultWaitMs = 30000;

  CalibrationFeedback(CalibSession* session, QObject* parent);
  const CaptureCoverage& coverage() const { return coverage_; }
  const std::vector<ZORCameraWatch>& watch() const { return watch_; }
  // True from a capture's start until the next run's figures came.
  bool coverageShown() const { return coverageShown_; }
  const QString& coverageText() const { return coverageText_; }
  const QString& resultText() const { return resultText_; }
  const QString& alertText() const { return alertText_; }

 signals:
  void sg_Changed();
  // A camera may have moved (the text names it); repeated while it stays so.
  void sg_CameraAlert(const QString& text);

 public slots:
  void sl_Poll();

 private:
  bool pollCoverage();
  bool pollResult();
  bool pollWatch();

  CalibSession* session_;
  QTimer timer_;
  bool wasCapturing_ = false;
  bool wasCalibrating_ = false;
  bool coverageShown_ = false;
  int runBefore_ = -1;   // the server's run count when the current run began
  int resultPolls_ = 0;  // polls left for the figures of the run that ended
  CaptureCoverage coverage_;
  std::vector<ZORCameraWatch> watch_;
  QString coverageText_, resultText_, alertText_;
};

// The feedback's tables (alert, result, coverage) in the status panel's
// colours; the same widget stands in the dock and on the wizard's pages.
class CalibrationFeedbackView : public QTextEdit {
  Q_OBJECT

 public:
  CalibrationFeedbackView(const CalibrationFeedback* feedback, QWidget* parent);
  // Which tables it shows; both by default.
  void setParts(bool coverage, bool result);
  void redraw();

 private:
  const CalibrationFeedback* feedback_;
  bool coverage_ = true, result_ = true;
};

class CalibrationFeedbackDock : public QDockWidget {
  Q_OBJECT

 public:
  CalibrationFeedbackDock(const CalibrationFeedback* feedback, QWidget* parent);
  CalibrationFeedbackView* view() const { return view_; }

 private:
  CalibrationFeedbackView* view_;
};
