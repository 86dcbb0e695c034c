#include "link/event_loop_wait.h"

#include <QCoreApplication>
#include <QEventLoop>

#include "zorsock/wait.h"

void KeepEventLoopWhileWaiting(bool on) {
  if (!on) return zorsock::SetWaitHook(nullptr);
  zorsock::SetWaitHook([] { QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents); });
}

bool InsideLinkWait() { return zorsock::CallWaiting(); }
