// Waiting for the network without stopping the caller. The calls that wait
// (resolve, connect, handshake, a reply) run the caller's hook every few
// milliseconds meanwhile, with no lock of theirs held, so a GUI thread can keep
// its event loop turning while the order of its calls stays as written.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace zorsock {

constexpr std::chrono::milliseconds kWaitSlice{10};

// Installs the hook; an empty one makes waits plain blocking again.
void SetWaitHook(std::function<void()> hook);
// Whether a call on this thread is waiting: true only inside the hook. A
// caller's code that runs from its event loop uses this to stay out of a call
// half done (zorInit and zorDone refuse to run nested).
bool CallWaiting();
// Runs the hook once, if there is one; false when there is none.
bool RunWaitHook();

// Paces the hook over a chain of waits (a connect, then one set-up request
// after another): the hook runs once the thread has spent kWaitSlice in waits,
// and in the code between them, since the chain began or the hook last ran.
// Waits more than kWaitSlice apart start a new chain: the caller's event loop
// ran in between.
class WaitPacer {
 public:
  WaitPacer();   // a wait begins
  ~WaitPacer();  // and ends
  WaitPacer(const WaitPacer&) = delete;
  WaitPacer& operator=(const WaitPacer&) = delete;
  // When the hook is next due; never when there is none.
  std::chrono::steady_clock::time_point due() const;
};

// Waits on `cv` (with `lock` held) until `ready()` or `deadline`, running the
// hook when due with the lock released. Returns ready().
template <typename Ready>
bool WaitWithHook(std::unique_lock<std::mutex>& lock, std::condition_variable& cv,
                  std::chrono::steady_clock::time_point deadline, Ready ready) {
  WaitPacer pacer;
  while (!ready()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    if (now >= pacer.due()) {
      lock.unlock();
      RunWaitHook();
      lock.lock();
      continue;
    }
    cv.wait_until(lock, std::min(deadline, pacer.due()), ready);
  }
  return true;
}

}  // namespace zorsock
