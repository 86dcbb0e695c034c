#include "link/event_loop_wait.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QMainWindow>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <utility>

#include "zorsock/wait.h"

namespace {

constexpr char kAllowedProperty[] = "zorInputWhileWaiting";
constexpr int kRecheckMs = 20;

bool Allowed(QObject* target) {
  for (auto* w = qobject_cast<QWidget*>(target); w; w = w->parentWidget())
    if (w->property(kAllowedProperty).toBool()) return true;
  return false;
}

// Sits on the application while the hook is installed; idle outside waits.
// The busy cursor also marks the span of one chain of waits: it ends when the
// event loop runs again outside any wait.
class WaitInputGate : public QObject {
 public:
  // Called from the hook: a busy cursor until the call has returned.
  void ShowBusy() {
    if (busy_) return;
    busy_ = true;
    if (gui_) {
      modal_at_start_ = QApplication::activeModalWidget();
      QApplication::setOverrideCursor(Qt::BusyCursor);
    }
    QTimer::singleShot(0, this, &WaitInputGate::EndWhenDone);
  }
  ~WaitInputGate() override {
    if (busy_ && gui_) QApplication::restoreOverrideCursor();
  }

 protected:
  bool eventFilter(QObject* target, QEvent* event) override {
    if (!zorsock::CallWaiting() || OpenedDuringWait(target)) return false;
    switch (event->type()) {
      case QEvent::Close:
        // The window's session is in the middle of a call: close it after.
        if (auto* window = qobject_cast<QMainWindow*>(target)) {
          event->ignore();
          to_close_.append(window);
          return true;
        }
        return false;
      case QEvent::MouseButtonPress:
      case QEvent::MouseButtonDblClick:
      case QEvent::Wheel:
        // Events reach the native window first, then the widget under the
        // pointer: judged at the widget.
        return target->isWidgetType() && !Allowed(target);
      case QEvent::KeyPress:
      case QEvent::Shortcut:
      case QEvent::ContextMenu:
      case QEvent::TouchBegin:
      case QEvent::TabletPress:
        return true;
      default:
        return false;
    }
  }

 private:
  void EndWhenDone() {
    if (zorsock::CallWaiting()) {
      QTimer::singleShot(kRecheckMs, this, &WaitInputGate::EndWhenDone);
      return;
    }
    busy_ = false;
    if (gui_) QApplication::restoreOverrideCursor();
    const auto windows = std::exchange(to_close_, {});
    for (const QPointer<QMainWindow>& window : windows)
      if (window) window->close();
  }

  // A box that something run from the wait put up must still be answerable;
  // a dialog that was up before (whose button may have started the call) not.
  bool OpenedDuringWait(QObject* target) const {
    if (!gui_ || !target->isWidgetType()) return false;
    QWidget* modal = QApplication::activeModalWidget();
    auto* widget = static_cast<QWidget*>(target);
    return modal && modal != modal_at_start_ && (modal == widget || modal->isAncestorOf(widget));
  }

  bool busy_ = false;
  const bool gui_ = qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
  QPointer<QWidget> modal_at_start_;
  QList<QPointer<QMainWindow>> to_close_;
};

QPointer<WaitInputGate>& Gate() {
  static QPointer<WaitInputGate> gate;
  return gate;
}

}  // namespace

void KeepEventLoopWhileWaiting(bool on) {
  delete Gate().data();
  if (!on) return zorsock::SetWaitHook(nullptr);
  Gate() = new WaitInputGate;
  qApp->installEventFilter(Gate());
  zorsock::SetWaitHook([] {
    if (Gate()) Gate()->ShowBusy();
    QCoreApplication::processEvents(QEventLoop::AllEvents);
  });
}

bool InsideLinkWait() { return zorsock::CallWaiting(); }

void AllowInputWhileWaiting(QWidget* widget) { widget->setProperty(kAllowedProperty, true); }
