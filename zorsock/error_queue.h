// Error codes waiting for zorGetError: pushed by failed calls on the caller's
// thread and by the I/O thread when the link ends; bounded, the oldest codes
// give way.
#pragma once

#include <deque>
#include <mutex>

namespace zorsock {

class ErrorQueue {
 public:
  explicit ErrorQueue(size_t capacity = 64) : capacity_(capacity) {}

  void Push(int code) {
    std::lock_guard lock(mu_);
    if (codes_.size() >= capacity_) codes_.pop_front();
    codes_.push_back(code);
  }
  // The oldest code, 0 when none.
  int Pop() {
    std::lock_guard lock(mu_);
    if (codes_.empty()) return 0;
    const int code = codes_.front();
    codes_.pop_front();
    return code;
  }
  void Clear() {
    std::lock_guard lock(mu_);
    codes_.clear();
  }

 private:
  const size_t capacity_;
  std::mutex mu_;
  std::deque<int> codes_;
};

}  // namespace zorsock
