// The "Status" dock: the calibration progress text above a small table of the
// server connection settings, in a read-only rich-text view. Writers use a
// few short tags (<heading>, <key>, <val>, <dval>, <error>, <normal>); the
// panel turns them into styled spans before showing the text.
#pragma once

#include <QDockWidget>
#include <QString>

#include "link/connection_settings.h"

class QTextEdit;

// The panel's tags rewritten as elements with a class of the tag's name:
// <heading> as a block with margins, the rest as spans.
QString TranslateStatusTags(const QString& html);
// The style sheet that gives each class its colour, weight, size and margins.
QString StatusStyleSheet();
// Gives a read-only view the panel's style sheet and pale green paper.
void StyleAsStatusView(QTextEdit* view);
// The "Server Status" table for a settings record, with the panel's tags.
QString ServerStatusTable(const ConnectionSettings& settings);

class StatusPanel : public QDockWidget {
  Q_OBJECT

 public:
  explicit StatusPanel(QWidget* parent);

  void setStatusText(const QString& text);
  void showServer(const ConnectionSettings& settings);
  // The figures of the last run, shown right under the pass lines.
  void setResultText(const QString& text);

  const QString& statusText() const { return statusText_; }
  // What the view shows, before the tags are translated.
  QString html() const { return statusText_ + resultText_ + serverTable_ + extra_[0] + extra_[1]; }
  QTextEdit* view() const { return view_; }

 private:
  void redraw();

  QTextEdit* view_;
  QString statusText_;
  QString resultText_;
  QString serverTable_;
  QString extra_[2];  // two further texts, empty until used
};
