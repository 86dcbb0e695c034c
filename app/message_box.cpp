#include "app/message_box.h"

#include <QMessageBox>
#include <utility>

namespace {
WarningHandler& Handler() {
  static WarningHandler handler;
  return handler;
}
}  // namespace

void ShowWarning(QWidget* parent, const QString& caption, const QString& text) {
  if (Handler()) {
    Handler()(parent, caption, text);
    return;
  }
  QMessageBox::warning(parent, caption, text);
}

void ShowInformation(QWidget* parent, const QString& caption, const QString& text) {
  if (Handler()) {
    Handler()(parent, caption, text);
    return;
  }
  QMessageBox::information(parent, caption, text);
}

WarningHandler SetWarningHandler(WarningHandler handler) {
  return std::exchange(Handler(), std::move(handler));
}
