#include "calib/status_panel.h"

#include <QRegularExpression>
#include <QTextDocument>
#include <QTextEdit>

namespace {

const char* const kTags[] = {"heading", "key", "val", "dval", "error", "normal"};

}  // namespace

QString StatusStyleSheet() {
  return QStringLiteral(
      ".heading { color: black; font-weight: bold; font-size: 12pt;"
      " margin-top: 10px; margin-left: 5px; margin-bottom: 5px; margin-right: 5px; }\n"
      ".key { color: black; font-weight: bold; font-size: 9pt; }\n"
      ".val { color: blue; font-weight: normal; font-size: 9pt; }\n"
      ".dval { color: #0c0; font-weight: bold; font-size: 9pt; }\n"
      ".error { color: #c22; font-weight: normal; font-size: 9pt; }\n"
      ".normal { color: #333; font-weight: normal; font-size: 9pt; }\n");
}

QString TranslateStatusTags(const QString& html) {
  QString out = html;
  for (const char* tag : kTags) {
    // Margins only apply to blocks, so the heading becomes one.
    const QString element = QLatin1String(tag) == QLatin1String("heading") ? "div" : "span";
    out.replace(QRegularExpression(QStringLiteral("<%1>").arg(tag),
                                   QRegularExpression::CaseInsensitiveOption),
                QStringLiteral("<%1 class=\"%2\">").arg(element, tag));
    out.replace(QRegularExpression(QStringLiteral("</%1>").arg(tag),
                                   QRegularExpression::CaseInsensitiveOption),
                QStringLiteral("</%1>").arg(element));
  }
  return out;
}

void StyleAsStatusView(QTextEdit* view) {
  view->setReadOnly(true);
  view->document()->setDefaultStyleSheet(StatusStyleSheet());
  QPalette paper = view->palette();
  paper.setColor(QPalette::Base, QColor(225, 255, 208));
  view->setPalette(paper);
}

QString ServerStatusTable(const ConnectionSettings& settings) {
  int mode = 0;
  if (settings.flags & 0x100) mode = 1;
  if (settings.flags & 0x200) mode = 2;
  if ((settings.flags & 0x300) == 0x300) mode = 3;
  if (settings.flags & 0x400) mode = 4;
  const QString postprocess = (settings.flags & kPostProcessFlag) ? "on" : "off";
  return QStringLiteral(
             "<br><table width=\"100%\" cellpadding='0' cellspacing='0' border='0'><tr><td "
             "colspan=\"2\" bgcolor='#ccc'><heading>Server Status</heading></td></tr>") +
         QStringLiteral("<tr><td><key>Server:</key><td><val>%1</val>")
             .arg(QString::fromStdString(settings.server).toHtmlEscaped()) +
         QStringLiteral("<tr><td><key>Frequency:</key><td><val>%2</val>")
             .arg(QString::number(settings.frequency, 'g')) +
         QStringLiteral("<tr><td><key>Mode:</key><td><val>%3</val>").arg(mode) +
         QStringLiteral("<tr><td><key>Postprocess:</key><td><val>%4</val>").arg(postprocess) +
         QStringLiteral("<tr><td><key>Interpolate:</key><td><val>%5</val>").arg(settings.interpolate) +
         QStringLiteral("</table>");
}

StatusPanel::StatusPanel(QWidget* parent) : QDockWidget(QStringLiteral("Status"), parent) {
  setObjectName(QStringLiteral("Status"));
  view_ = new QTextEdit(this);
  StyleAsStatusView(view_);
  view_->document()->setMetaInformation(QTextDocument::DocumentTitle,
                                        QStringLiteral("Calibration Status"));
  setWidget(view_);
  redraw();
}

void StatusPanel::setStatusText(const QString& text) {
  statusText_ = text;
  redraw();
}

void StatusPanel::setResultText(const QString& text) {
  if (text == resultText_) return;
  resultText_ = text;
  redraw();
}

void StatusPanel::showServer(const ConnectionSettings& settings) {
  serverTable_ = ServerStatusTable(settings);
  redraw();
}

void StatusPanel::redraw() {
  view_->setHtml(TranslateStatusTags(html()));
  // setHtml resets the document's meta information; the title stays ours.
  view_->document()->setMetaInformation(QTextDocument::DocumentTitle,
                                        QStringLiteral("Calibration Status"));
}
