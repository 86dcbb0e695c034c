// The library's one session with zord: an I/O thread receives pushed frames
// and cameras and the replies to requests; the caller's thread sends requests
// and waits for their replies (never longer than the reply time-out).
#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "zorsock/error_queue.h"
#include "zorsock/frame_queue.h"
#include "zorsock/wire.h"

namespace zorsock {

struct ConnectionOptions {
  std::chrono::milliseconds connect_timeout{ZOR_CONNECT_TIMEOUT_MS};
  std::chrono::milliseconds reply_timeout{ZOR_REPLY_TIMEOUT_MS};
  // The server sends its cameras at least every second, streaming or not:
  // this long without a whole message and the link counts as lost. Twice the
  // reply time-out, so a server starved for a while on a busy machine is not.
  std::chrono::milliseconds silence_timeout{2 * ZOR_REPLY_TIMEOUT_MS};
  size_t frame_queue = 2048;  // frames kept for the caller before the oldest go
  size_t frame_queue_bytes = FrameQueue::kDefaultMaxBytes;  // and their records' bytes
  size_t calib_messages = 1024;  // pushed calibration messages kept until read
  std::string identity = "zorsock";
  bool Check(std::string* why) const;
};

class Connection {
 public:
  // Connects and shakes hands. Returns the session number (>= 0) with the
  // connection in *out, or a negative ZOR_ERR_* code. Link errors raised
  // later are pushed into `errors`, which must outlive the connection.
  static int Open(const std::string& server, uint32_t flags, const ConnectionOptions& options,
                  ErrorQueue& errors, std::unique_ptr<Connection>* out);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Sends a request and waits for its reply. nullopt when there is none; then
  // *error is the code the caller should queue (0 when the link's own error
  // has already been queued).
  std::optional<wire::Reply> Call(wire::Request request, int* error);

  FrameQueue& frames() { return frames_; }
  std::vector<ZORCamera> cameras() const;
  // The oldest calibration message the server pushed and the caller has not
  // taken; false when there is none.
  bool TakeCalibMessage(std::string* text);
  const std::string& description() const { return description_; }
  bool open() const;
  // Bytes the receive buffer holds room for now: it grows as a message's
  // bytes arrive, not to the length the message declares.
  size_t receive_capacity() const { return receive_capacity_; }

 private:
  Connection(const ConnectionOptions& options, ErrorQueue& errors);
  void Start();
  void ReadHeader();
  void ReadPayload();
  void WatchSilence();
  void Dispatch(wire::Type type);
  void Send(std::shared_ptr<const wire::Bytes> bytes);  // I/O thread
  void WriteNext();
  // Ends the link once; `code` is queued for zorGetError unless 0.
  void Fail(int code);

  const ConnectionOptions options_;
  ErrorQueue& errors_;
  asio::io_context io_;
  asio::ip::tcp::socket socket_;
  std::thread thread_;
  std::string description_;

  // I/O thread only.
  uint8_t header_bytes_[wire::kHeaderSize] = {};
  wire::Header header_;
  wire::Bytes payload_;
  asio::steady_timer silence_timer_;
  std::chrono::steady_clock::time_point last_heard_;
  std::deque<std::shared_ptr<const wire::Bytes>> outgoing_;

  FrameQueue frames_;
  std::atomic<size_t> receive_capacity_{0};

  mutable std::mutex mu_;  // guards what follows
  std::condition_variable replied_;
  bool open_ = true;
  uint32_t next_seq_ = 0;
  std::map<uint32_t, std::optional<wire::Reply>> waiting_;  // by sequence number
  std::vector<ZORCamera> cameras_;
  std::deque<std::string> calib_messages_;  // bounded: the oldest give way
};

}  // namespace zorsock
