#include "zorsock/connection.h"

#include "zorsock/dial.h"
#include "zorsock/wait.h"

namespace zorsock {

namespace {
// A message's payload is read this much at a time, so a peer that declares a
// large message and sends little of it costs little memory.
constexpr size_t kReadChunk = 64u << 10;
}  // namespace

bool ConnectionOptions::Check(std::string* why) const {
  if (connect_timeout.count() <= 0 || reply_timeout.count() <= 0 || silence_timeout.count() <= 0) {
    if (why) *why = "time-outs must be positive";
    return false;
  }
  if (calib_messages < 1) {
    if (why) *why = "the calibration message queue needs room for one";
    return false;
  }
  if (frame_queue < 2 || frame_queue_bytes < wire::kMaxMessage) {
    if (why) *why = "the frame queue needs room for two frames and one of the largest size";
    return false;
  }
  return true;
}

Connection::Connection(const ConnectionOptions& options, ErrorQueue& errors)
    : options_(options),
      errors_(errors),
      socket_(io_),
      silence_timer_(io_),
      frames_(options.frame_queue, options.frame_queue_bytes) {}

int Connection::Open(const std::string& server, uint32_t flags, const ConnectionOptions& options,
                     ErrorQueue& errors, std::unique_ptr<Connection>* out) {
  if (!options.Check(nullptr)) return ZOR_ERR_HANDSHAKE;
  const auto address = ParseServerAddress(server, ZOR_DEFAULT_PORT);
  if (!address) return ZOR_ERR_RESOLVE;

  std::unique_ptr<Connection> c(new Connection(options, errors));
  const auto deadline = Clock::now() + options.connect_timeout;
  Dialer dialer(c->io_);
  if (const int code = dialer.Connect(*address, deadline); code != 0) return code;
  wire::Hello hello;
  hello.role = wire::Role::kClient;
  hello.flags = flags;
  hello.identity = options.identity;
  wire::Welcome welcome;
  std::string why;
  if (const int code = dialer.Handshake(hello, deadline, &welcome, &why); code != 0) return code;

  c->description_ = welcome.description;
  c->socket_ = std::move(dialer.socket());
  c->Start();
  *out = std::move(c);
  return welcome.session;
}

Connection::~Connection() {
  {
    std::lock_guard lock(mu_);
    open_ = false;  // zorDone: the end of the link is not an error to report
  }
  replied_.notify_all();
  asio::post(io_, [this] {
    std::error_code ignored;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    silence_timer_.cancel();
  });
  if (thread_.joinable()) thread_.join();
}

void Connection::Start() {
  io_.restart();
  last_heard_ = Clock::now();
  ReadHeader();
  WatchSilence();
  thread_ = std::thread([this] { io_.run(); });
}

bool Connection::open() const {
  std::lock_guard lock(mu_);
  return open_;
}

std::vector<ZORCamera> Connection::cameras() const {
  std::lock_guard lock(mu_);
  return cameras_;
}

bool Connection::TakeCalibMessage(std::string* text) {
  std::lock_guard lock(mu_);
  if (calib_messages_.empty()) return false;
  *text = std::move(calib_messages_.front());
  calib_messages_.pop_front();
  return true;
}

void Connection::ReadHeader() {
  asio::async_read(socket_, asio::buffer(header_bytes_), [this](std::error_code ec, size_t) {
    if (ec) return Fail(ZOR_CONNECTION_LOST);
    const auto header = wire::DecodeHeader(header_bytes_, nullptr);
    if (!header) return Fail(ZOR_PROTOCOL_ERROR);
    header_ = *header;
    payload_.clear();
    // A large message's buffer is not kept for the small ones that follow.
    if (payload_.capacity() > 2 * kReadChunk) payload_.shrink_to_fit();
    ReadPayload();
  });
}

void Connection::ReadPayload() {
  const size_t have = payload_.size();
  const size_t want = header_.payload_size();
  receive_capacity_ = payload_.capacity();
  if (have == want) {
    last_heard_ = Clock::now();
    return Dispatch(header_.type);
  }
  payload_.resize(have + std::min(kReadChunk, want - have));
  receive_capacity_ = payload_.capacity();
  asio::async_read(socket_, asio::buffer(payload_.data() + have, payload_.size() - have),
                   [this](std::error_code ec, size_t) {
                     if (ec) return Fail(ZOR_CONNECTION_LOST);
                     ReadPayload();
                   });
}

void Connection::WatchSilence() {
  silence_timer_.expires_at(last_heard_ + options_.silence_timeout);
  silence_timer_.async_wait([this](std::error_code ec) {
    if (ec || !socket_.is_open()) return;
    // A frozen server, or one stuck mid-message: the link is as good as gone.
    if (Clock::now() - last_heard_ >= options_.silence_timeout) return Fail(ZOR_TIMED_OUT);
    WatchSilence();
  });
}

void Connection::Dispatch(wire::Type type) {
  const uint8_t* p = payload_.data();
  const size_t n = payload_.size();
  switch (type) {
    case wire::Type::kFrame: {
      auto frame = wire::DecodeFrame(p, n);
      if (!frame) return Fail(ZOR_PROTOCOL_ERROR);
      frames_.Push(std::move(*frame));
      break;
    }
    case wire::Type::kCameras: {
      auto cameras = wire::DecodeCameras(p, n);
      if (!cameras) return Fail(ZOR_PROTOCOL_ERROR);
      std::lock_guard lock(mu_);
      cameras_ = std::move(*cameras);
      break;
    }
    case wire::Type::kReply: {
      auto reply = wire::DecodeReply(p, n);
      if (!reply) return Fail(ZOR_PROTOCOL_ERROR);
      {
        std::lock_guard lock(mu_);
        auto it = waiting_.find(reply->seq);
        if (it == waiting_.end()) break;  // its caller gave up
        it->second = std::move(*reply);
      }
      replied_.notify_all();
      break;
    }
    case wire::Type::kCalibMessage: {
      auto text = wire::DecodeCalibMessage(p, n);
      if (!text) return Fail(ZOR_PROTOCOL_ERROR);
      std::lock_guard lock(mu_);
      if (calib_messages_.size() >= options_.calib_messages) calib_messages_.pop_front();
      calib_messages_.push_back(std::move(*text));
      break;
    }
    case wire::Type::kFinished:
      return Fail(ZOR_FINISHED);
    default:  // handshake messages have no place in a running session
      return Fail(ZOR_PROTOCOL_ERROR);
  }
  ReadHeader();
}

void Connection::Send(std::shared_ptr<const wire::Bytes> bytes) {
  outgoing_.push_back(std::move(bytes));
  if (outgoing_.size() == 1) WriteNext();
}

void Connection::WriteNext() {
  asio::async_write(socket_, asio::buffer(*outgoing_.front()), [this](std::error_code ec, size_t) {
    if (ec) {
      outgoing_.clear();
      return Fail(ZOR_CONNECTION_LOST);
    }
    outgoing_.pop_front();
    if (!outgoing_.empty()) WriteNext();
  });
}

void Connection::Fail(int code) {
  {
    std::lock_guard lock(mu_);
    if (!open_) return;
    open_ = false;
  }
  if (code != 0) errors_.Push(code);
  std::error_code ignored;
  socket_.close(ignored);
  silence_timer_.cancel();
  replied_.notify_all();
}

std::optional<wire::Reply> Connection::Call(wire::Request request, int* error) {
  std::unique_lock lock(mu_);
  if (!open_) {
    *error = ZOR_NOT_CONNECTED;
    return std::nullopt;
  }
  request.seq = ++next_seq_;
  const uint32_t seq = request.seq;
  auto slot = waiting_.emplace(seq, std::nullopt).first;
  auto bytes = std::make_shared<const wire::Bytes>(wire::EncodeRequest(request));
  asio::post(io_, [this, bytes] { Send(bytes); });

  // The hook may make further calls meanwhile: they take their own slots.
  const bool answered = WaitWithHook(lock, replied_, Clock::now() + options_.reply_timeout,
                                     [&] { return slot->second.has_value() || !open_; });
  std::optional<wire::Reply> reply = std::move(slot->second);
  waiting_.erase(slot);
  if (reply) return reply;
  if (!answered && open_) {
    // No answer in time: the server is stuck or gone. Give up the link.
    open_ = false;
    lock.unlock();
    *error = ZOR_TIMED_OUT;
    asio::post(io_, [this] {
      std::error_code ignored;
      socket_.close(ignored);
    });
    return std::nullopt;
  }
  *error = 0;  // the link ended while waiting; its error is already queued
  return std::nullopt;
}

}  // namespace zorsock
