// The calibration messages waiting for a client to read them. Bounded: a peer
// that keeps asking for calibrations without reading the outcome must not
// grow the server's memory; past the bound the oldest message goes.
#pragma once

#include <deque>
#include <string>

namespace zord {

class MessageQueue {
 public:
  static constexpr size_t kMaxMessages = 1024;  // a whole calibration run says far less

  void push_back(std::string message) {
    if (messages_.size() >= kMaxMessages) messages_.pop_front();
    messages_.push_back(std::move(message));
  }
  bool empty() const { return messages_.empty(); }
  size_t size() const { return messages_.size(); }
  const std::string& front() const { return messages_.front(); }
  void pop_front() { messages_.pop_front(); }
  void clear() { messages_.clear(); }

 private:
  std::deque<std::string> messages_;
};

}  // namespace zord
