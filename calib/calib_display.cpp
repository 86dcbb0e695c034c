#include "calib/calib_display.h"

#include "calib/calib_session.h"

QString CalibResultHtml(const QString& current, int32_t pass, float passError,
                        const std::string& detail) {
  QString text = StartsNewRun(pass) ? QString() : current;
  if (pass < 0) {
    text += QStringLiteral("<div>Pass %1 Failed: ").arg(-pass);
  } else {
    text += QStringLiteral("<div><strong><normal>Pass %1 OK:  </normal></strong>").arg(pass);
    text += QStringLiteral("(%1)").arg(QString::number(passError, 'g'));
  }
  if (detail.size() > 1) {
    text += QStringLiteral("</div><div>&nbsp;-&nbsp;Please capture more data");
    const size_t camera = detail.find("Camera ");
    if (camera != std::string::npos)
      text += QStringLiteral("</div><div>&nbsp;-&nbsp;%1")
                  .arg(QString::fromStdString(detail.substr(camera)).toHtmlEscaped());
  }
  return text;
}

QString ProgressText(bool capturing, bool calibrating, bool aligning, int64_t micros) {
  QString label;
  if (capturing) label = QStringLiteral("Capturing ");
  if (calibrating) label = QStringLiteral("Calibrating ");
  if (aligning) label = QStringLiteral("Aligning ");
  if (label.isEmpty()) return label;
  const int64_t arrows = (micros / 300000) % 3 + 1;
  for (int64_t i = 0; i < arrows; ++i) label += QStringLiteral(" >");
  return label;
}

QString ProgressText(const CalibSession& session, int64_t micros) {
  return ProgressText(session.capturing, session.calibrating, session.aligning, micros);
}
