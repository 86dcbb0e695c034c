#include "zorsock/wait.h"

namespace zorsock {

namespace {

std::mutex hook_mu;
std::function<void()>& Hook() {
  static std::function<void()> hook;
  return hook;
}
thread_local int waiting_depth = 0;
using Clock = std::chrono::steady_clock;
thread_local Clock::time_point last_hook;      // the hook ran, or a chain of waits began
thread_local Clock::time_point last_wait_end;
bool has_hook = false;  // under hook_mu

}  // namespace

void SetWaitHook(std::function<void()> hook) {
  std::lock_guard lock(hook_mu);
  has_hook = static_cast<bool>(hook);
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
  last_hook = Clock::now();
  return true;
}

WaitPacer::WaitPacer() {
  const auto now = Clock::now();
  if (now - last_wait_end > kWaitSlice) last_hook = now;
}

WaitPacer::~WaitPacer() { last_wait_end = Clock::now(); }

Clock::time_point WaitPacer::due() const {
  {
    std::lock_guard lock(hook_mu);
    if (!has_hook) return Clock::time_point::max();
  }
  return last_hook + kWaitSlice;
}

}  // namespace zorsock
