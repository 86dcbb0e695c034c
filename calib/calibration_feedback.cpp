#include "calib/calibration_feedback.h"

#include <algorithm>

#include "calib/calib_session.h"
#include "calib/status_panel.h"

bool CaptureCoverage::Fetch() {
  CaptureCoverage next;
  std::vector<ZORCoverage> cameras(256);
  std::vector<int> shared(cameras.size() * cameras.size());
  const int n = zorGetCoverage(&next.summary, cameras.data(), static_cast<int>(cameras.size()),
                               shared.data());
  if (n < 0 || n > static_cast<int>(cameras.size())) return false;
  cameras.resize(n);
  shared.resize(static_cast<size_t>(n) * n);
  next.cameras = std::move(cameras);
  next.shared = std::move(shared);
  next.valid = true;
  *this = std::move(next);
  return true;
}

int CaptureCoverage::ReadyCount() const {
  return static_cast<int>(std::count_if(cameras.begin(), cameras.end(),
                                        [](const ZORCoverage& c) { return c.ready != 0; }));
}

namespace {

// Frames each pair of cameras saw the wand in together (camera numbers along
// both sides), pairs below the solver's minimum in red: which cameras the
// capture has tied together.
QString PairMatrix(const CaptureCoverage& coverage) {
  const int n = static_cast<int>(coverage.cameras.size());
  // Thousands shortened so that the matrix fits a narrow dock.
  const auto count = [](int n) {
    return n < 1000 ? QString::number(n) : QString::number(qRound(n / 1000.0)) + "k";
  };
  QString html = QStringLiteral("<table cellpadding='2' cellspacing='0' border='0'><tr><td>");
  for (int b = 0; b < n; ++b) html += QStringLiteral("<td align='right'><key>%1</key>").arg(b + 1);
  for (int a = 0; a < n; ++a) {
    html += QStringLiteral("<tr><td><key>%1</key>").arg(a + 1);
    for (int b = 0; b < n; ++b) {
      const int shared = coverage.Shared(a, b);
      const char* tag = shared >= coverage.summary.min_shared_frames ? "val" : "error";
      html += a == b ? QStringLiteral("<td>")
                     : QStringLiteral("<td align='right'><%1>%2</%1>").arg(QLatin1String(tag), count(shared));
    }
  }
  return html + QStringLiteral("</table>");
}

}  // namespace

QString CoverageTable(const CaptureCoverage& coverage) {
  if (!coverage.valid) return {};
  const ZORCoverageSummary& s = coverage.summary;
  QString html = QStringLiteral(
                     "<br><table width=\"100%\" cellpadding='0' cellspacing='0' border='0'>"
                     "<tr><td colspan=\"4\" bgcolor='#ccc'><heading>Wand Coverage</heading></td></tr>"
                     "<tr><td><key>Frames:</key><td colspan=\"3\"><val>%1</val> &nbsp;"
                     "<normal>(%2 of %3 cameras ready)</normal>")
                     .arg(s.frames)
                     .arg(coverage.ReadyCount())
                     .arg(coverage.cameras.size()) +
                 QStringLiteral("<tr><td><key>Camera</key><td><key>Samples</key>"
                                "<td><key>Cover</key><td><key>Ready</key>");
  for (const ZORCoverage& c : coverage.cameras) {
    const QString ready = c.ready ? QStringLiteral("<dval>yes</dval>")
                                  : QStringLiteral("<error>no (%1/%2 frames)</error>")
                                        .arg(c.frames)
                                        .arg(s.min_frames);
    html += QStringLiteral("<tr><td><val>%1</val><td><val>%2</val><td><val>%3%</val><td>%4")
                .arg(c.camera + 1)
                .arg(c.samples)
                .arg(qRound(c.covered * 100))
                .arg(ready);
  }
  // Pairs that saw the wand together, but not often enough to be linked.
  QStringList weak;
  const int n = static_cast<int>(coverage.cameras.size());
  for (int a = 0; a < n; ++a) {
    for (int b = a + 1; b < n; ++b) {
      const int shared = coverage.Shared(a, b);
      if (shared > 0 && shared < s.min_shared_frames)
        weak << QStringLiteral("%1-%2 (%3)").arg(a + 1).arg(b + 1).arg(shared);
    }
  }
  if (!weak.isEmpty()) {
    html += QStringLiteral("<tr><td colspan=\"4\"><error>Pairs below %1 shared frames: %2</error>")
                .arg(s.min_shared_frames)
                .arg(weak.join(QStringLiteral(", ")));
  }
  html += QStringLiteral("</table>");
  if (n <= kPairMatrixMax) html += PairMatrix(coverage);
  return html;
}

bool CalibrationFigures::Fetch() {
  CalibrationFigures next;
  next.cameras.resize(256);
  const int n = zorGetCalibResult(&next.summary, next.cameras.data(), 256);
  if (n < 0 || n > 256) return false;
  next.cameras.resize(n);
  *this = std::move(next);
  return true;
}

const char* GradeName(int grade) {
  switch (grade) {
    case ZOR_GRADE_EXCELLENT: return "excellent";
    case ZOR_GRADE_GOOD: return "good";
    case ZOR_GRADE_FAIR: return "fair";
    case ZOR_GRADE_POOR: return "poor";
    default: return "none";
  }
}

QString ResultTable(const CalibrationFigures& figures) {
  const ZORCalibSummary& s = figures.summary;
  const QString grade = QString::fromLatin1(GradeName(s.grade));
  const QString wand = s.wand_length_std_mm < 0
                           ? QStringLiteral("-")
                           : QStringLiteral("%1 mm &plusmn; %2 mm")
                                 .arg(s.wand_length_mm, 0, 'f', 1)
                                 .arg(s.wand_length_std_mm, 0, 'f', 2);
  QString html = QStringLiteral(
                     "<br><table width=\"100%\" cellpadding='0' cellspacing='0' border='0'>"
                     "<tr><td colspan=\"4\" bgcolor='#ccc'><heading>Calibration Result</heading></td></tr>"
                     "<tr><td><key>Grade:</key><td colspan=\"3\">%1"
                     "<tr><td><key>Wand:</key><td colspan=\"3\"><val>%2</val>")
                     .arg(s.grade <= ZOR_GRADE_GOOD ? "<dval>" + grade + "</dval>"
                                                    : "<error>" + grade + "</error>")
                     .arg(wand) +
                 QStringLiteral("<tr><td><key>Camera</key><td><key>Samples</key>"
                                "<td><key>RMS px</key><td><key>&sigma; mm</key>");
  for (const ZORCameraResult& c : figures.cameras) {
    if (!c.calibrated) {
      html += QStringLiteral("<tr><td><val>%1</val><td colspan=\"3\"><error>not calibrated</error>")
                  .arg(c.camera + 1);
      continue;
    }
    html += QStringLiteral("<tr><td><val>%1</val><td><val>%2</val><td><val>%3</val><td><val>%4</val>")
                .arg(c.camera + 1)
                .arg(c.samples)
                .arg(c.rms_px, 0, 'f', 3)
                .arg(c.position_mm, 0, 'f', 2);
  }
  return html + QStringLiteral("</table>");
}

QString MovedCamerasText(const std::vector<ZORCameraWatch>& watch) {
  QStringList lines;
  for (const ZORCameraWatch& w : watch) {
    if (!w.moved) continue;
    lines << QStringLiteral("Camera %1 may have moved (residual %2 px, calibrated %3 px)")
                 .arg(w.camera + 1)
                 .arg(w.residual_px, 0, 'f', 2)
                 .arg(w.level_px, 0, 'f', 2);
  }
  return lines.join(QStringLiteral("; "));
}

CalibrationFeedback::CalibrationFeedback(CalibSession* session, QObject* parent)
    : QObject(parent), session_(session) {
  connect(&timer_, &QTimer::timeout, this, &CalibrationFeedback::sl_Poll);
  timer_.start(kPollMs);
}

void CalibrationFeedback::sl_Poll() {
  if (!session_->connected()) {
    // Nothing shown of a server that is gone: its counts and alerts are void.
    if (coverage_.valid || !resultText_.isEmpty() || !watch_.empty()) {
      coverage_ = {};
      watch_.clear();
      coverageText_.clear(), resultText_.clear(), alertText_.clear();
      coverageShown_ = wasCapturing_ = wasCalibrating_ = false;
      resultPolls_ = 0;
      emit sg_Changed();
    }
    return;
  }
  // Each part reports whether it changed; one signal for all of them.
  const bool coverage = pollCoverage();
  const bool result = pollResult();
  const bool watch = pollWatch();
  if (coverage || result || watch) emit sg_Changed();
}

bool CalibrationFeedback::pollCoverage() {
  const bool capturing = session_->capturing;
  // While capturing, and once more after it stopped for the final counts.
  if (!capturing && !wasCapturing_) return false;
  if (capturing) coverageShown_ = true;
  wasCapturing_ = capturing;
  if (!coverage_.Fetch()) return false;
  coverageText_ = CoverageTable(coverage_);
  return true;
}

bool CalibrationFeedback::pollResult() {
  const bool calibrating = session_->calibrating;
  bool changed = false;
  if (calibrating && !wasCalibrating_) {
    changed = !resultText_.isEmpty();
    resultText_.clear();
    CalibrationFigures before;
    runBefore_ = before.Fetch() ? before.summary.run : -1;
  }
  // The figures follow the last message once the server has measured the
  // result (seconds on a loaded machine); asked for up to kResultWaitMs.
  if (!calibrating && wasCalibrating_) resultPolls_ = kResultWaitMs / kPollMs;
  wasCalibrating_ = calibrating;
  if (resultPolls_ == 0) return changed;
  --resultPolls_;
  CalibrationFigures figures;
  if (!figures.Fetch() || figures.summary.run == runBefore_ || figures.cameras.empty()) return changed;
  resultPolls_ = 0;
  resultText_ = ResultTable(figures);
  // The capture is spent: the run's figures speak for it.
  coverageShown_ = false;
  coverageText_.clear();
  return true;
}

bool CalibrationFeedback::pollWatch() {
  std::vector<ZORCameraWatch> watch(256);
  const int n = zorGetCameraWatch(watch.data(), static_cast<int>(watch.size()));
  if (n < 0) return false;
  watch.resize(std::min<size_t>(n, watch.size()));
  const QString alert = MovedCamerasText(watch);
  if (!alert.isEmpty()) emit sg_CameraAlert(alert);
  watch_ = std::move(watch);
  if (alert == alertText_) return false;
  alertText_ = alert;
  return true;
}

CalibrationFeedbackView::CalibrationFeedbackView(const CalibrationFeedback* feedback, QWidget* parent)
    : QTextEdit(parent), feedback_(feedback) {
  StyleAsStatusView(this);
  connect(feedback, &CalibrationFeedback::sg_Changed, this, &CalibrationFeedbackView::redraw);
  redraw();
}

void CalibrationFeedbackView::setParts(bool coverage, bool result) {
  coverage_ = coverage;
  result_ = result;
  redraw();
}

void CalibrationFeedbackView::redraw() {
  const QString& alert = feedback_->alertText();
  QString html = alert.isEmpty() ? QString()
                                 : QStringLiteral("<div><error>%1</error></div>").arg(alert.toHtmlEscaped());
  if (result_) html += feedback_->resultText();
  if (coverage_) html += feedback_->coverageText();
  setHtml(TranslateStatusTags(html));
}

CalibrationFeedbackDock::CalibrationFeedbackDock(const CalibrationFeedback* feedback, QWidget* parent)
    : QDockWidget(QStringLiteral("Calibration Feedback"), parent),
      view_(new CalibrationFeedbackView(feedback, this)) {
  setObjectName(QStringLiteral("CalibrationFeedback"));
  setWidget(view_);
}
