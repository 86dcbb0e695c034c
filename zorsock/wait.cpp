#include "zorsock/wait.h"

namespace zorsock {

namespace {

std::mutex hook_mu;
std::function<void()>& Hook() {
  static std::function<void()> hook;
  return hook;
}
thread_local int waiting_depth = 0;

}  // namespace

void SetWaitHook(std::function<void()> hook) {
  std::lock_guard lock(hook_mu);
  Hook() = std::move(hook);
}

bool CallWaiting() { return waiting_depth > 0; }

bool RunWaitHook() {
  std::function<void()> hook;
  {
    std::lock_guard lock(hook_mu);
    hook = Hook();
  }
  if (!hook) return false;
  struct Depth {
    Depth() { ++waiting_depth; }
    ~Depth() { --waiting_depth; }
  } depth;
  hook();
  return true;
}

}  // namespace zorsock
