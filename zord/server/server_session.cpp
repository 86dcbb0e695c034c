#include "zord/server/server_session.h"

namespace zord {

namespace wire = zorsock::wire;

namespace {
constexpr size_t kReadChunk = 64u << 10;
}  // namespace

bool SessionLimits::Check(std::string* why) const {
  if (max_queued_frames == 0 || max_queued_bytes < wire::kMaxMessage) {
    if (why) *why = "a session must be able to queue at least one frame of the largest size";
    return false;
  }
  if (max_pending_requests == 0 || handshake_timeout.count() <= 0 ||
      message_timeout.count() <= 0) {
    if (why) *why = "request and handshake limits must be positive";
    return false;
  }
  return true;
}

Session::Session(asio::ip::tcp::socket socket, int id, SessionHost& host,
                 const SessionLimits& limits)
    : socket_(std::move(socket)),
      handshake_timer_(socket_.get_executor()),
      message_timer_(socket_.get_executor()),
      id_(id),
      host_(host),
      limits_(limits) {
  context_.session = id;
  std::error_code ec;
  const auto remote = socket_.remote_endpoint(ec);
  peer_ = ec ? "?" : remote.address().to_string() + ":" + std::to_string(remote.port());
  if (!ec) {
    const asio::ip::address a = remote.address();
    loopback_ = a.is_loopback() || (a.is_v6() && a.to_v6().is_v4_mapped() &&
                                    asio::ip::make_address_v4(asio::ip::v4_mapped, a.to_v6()).is_loopback());
  }
}

void Session::Start() {
  std::error_code ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  handshake_timer_.expires_after(limits_.handshake_timeout);
  handshake_timer_.async_wait([self = shared_from_this()](std::error_code ec) {
    if (!ec && !self->admitted_) self->Close();  // said nothing useful in time
  });
  ReadHeader();
}

void Session::ReadHeader() {
  asio::async_read(socket_, asio::buffer(header_bytes_),
                   [self = shared_from_this()](std::error_code ec, size_t) {
                     if (ec || self->closed_) return self->Close();
                     const auto header = wire::DecodeHeader(self->header_bytes_, nullptr);
                     if (!header) return self->Close();
                     self->header_ = *header;
                     self->payload_.clear();
                     // A large message's buffer is not kept for the small ones that follow.
                     if (self->payload_.capacity() > 2 * kReadChunk) self->payload_.shrink_to_fit();
                     self->in_message_ = true;
                     self->message_timer_.expires_after(self->limits_.message_timeout);
                     self->message_timer_.async_wait([weak = std::weak_ptr(self)](std::error_code e) {
                       // Stalled mid-message. The expiry check skips a wait that
                       // fired just as the message completed and the next began.
                       auto s = weak.lock();
                       if (!e && s && s->in_message_ &&
                           s->message_timer_.expiry() <= std::chrono::steady_clock::now())
                         s->Close();
                     });
                     self->ReadPayload();
                   });
}

void Session::ReadPayload() {
  const size_t have = payload_.size();
  const size_t want = header_.payload_size();
  if (have == want) {
    in_message_ = false;
    message_timer_.cancel();
    return OnMessage();
  }
  payload_.resize(have + std::min(kReadChunk, want - have));
  asio::async_read(socket_, asio::buffer(payload_.data() + have, payload_.size() - have),
                   [self = shared_from_this()](std::error_code ec, size_t) {
                     if (ec || self->closed_) return self->Close();
                     self->ReadPayload();
                   });
}

void Session::OnMessage() {
  if (!admitted_) {
    if (header_.type != wire::Type::kHello) return Close();
    OnHello();
  } else if (raw_mode_ != 0) {
    if (!OnRawMessage()) return;
  } else {
    if (header_.type != wire::Type::kRequest) return Close();
    auto request = wire::DecodeRequest(payload_.data(), payload_.size());
    if (!request || ++pending_requests_ > limits_.max_pending_requests) return Close();
    host_.OnRequest(shared_from_this(), std::move(*request));
  }
  if (!closed_ && !finishing_) ReadHeader();
}

void Session::OnHello() {
  const auto hello = wire::DecodeHello(payload_.data(), payload_.size());
  if (!hello) return Close();  // not a zorsock client
  SessionHost::Admission admission = host_.Admit(*this, *hello);
  if (!admission.ok) {
    SendMessage(std::make_shared<const wire::Bytes>(wire::EncodeRefuse(admission.refuse)));
    finishing_ = true;  // close once the refusal is written
    return;
  }
  handshake_timer_.cancel();
  context_.flags = hello->flags;
  control_ = hello->role == wire::Role::kControl;
  if (hello->role == wire::Role::kRaw) raw_mode_ = hello->flags;  // checked by Admit
  admitted_ = true;
  SendMessage(std::make_shared<const wire::Bytes>(wire::EncodeWelcome(admission.welcome)));
  host_.Admitted(shared_from_this());
}

bool Session::OnRawMessage() {
  const uint8_t* p = payload_.data();
  const size_t n = payload_.size();
  if (raw_mode_ != wire::kRawReplay) {
    Close();  // a recording client only listens
    return false;
  }
  switch (header_.type) {
    case wire::Type::kRawHeader: {
      const auto header = wire::DecodeRawHeader(p, n);
      if (upload_ || !header) break;
      upload_ = std::make_shared<RawRecording>();
      upload_->header = *header;
      return true;
    }
    case wire::Type::kRawFrame: {
      if (!upload_) break;
      auto frame = wire::DecodeRawFrame(p, n, upload_->header.cameras.size());
      if (!frame) break;
      upload_->images += frame->images.size();
      if (upload_->images > limits_.max_replay_images) {
        wire::Reply refuse;
        refuse.status = ZOR_INVALID_VALUE;
        refuse.text = "the recording holds more than " + std::to_string(limits_.max_replay_images) +
                      " detections";
        upload_.reset();
        SendFinalReply(refuse);
        return false;
      }
      upload_->frames.push_back(std::move(*frame));
      return true;
    }
    case wire::Type::kRawEnd:
      if (!upload_ || n != 0) break;
      host_.OnRecording(shared_from_this(), std::move(upload_));
      return false;  // nothing more to read; the verdict ends the session
    default:
      break;
  }
  Close();
  return false;
}

void Session::SendFinalReply(const wire::Reply& reply) {
  if (closed_ || finishing_) return;
  SendMessage(std::make_shared<const wire::Bytes>(wire::EncodeReply(reply)));
  finishing_ = true;
  if (!writing_) WriteNext();
}

void Session::SendFrame(std::shared_ptr<const wire::Bytes> bytes) {
  if (closed_ || finishing_) return;
  Queue({std::move(bytes), true});
  TrimFrames();
}

void Session::SendMessage(std::shared_ptr<const wire::Bytes> bytes) {
  if (closed_ || finishing_) return;
  Queue({std::move(bytes), false});
  TrimFrames();
  // Frames are gone; a peer that still lets replies pile up is not reading.
  if (queued_bytes_ > 2 * limits_.max_queued_bytes) Close();
}

void Session::SendReply(const wire::Reply& reply) {
  if (pending_requests_ > 0) --pending_requests_;
  SendMessage(std::make_shared<const wire::Bytes>(wire::EncodeReply(reply)));
}

void Session::Finish() {
  if (closed_ || finishing_) return;
  SendMessage(std::make_shared<const wire::Bytes>(wire::EncodeFinished()));
  finishing_ = true;
}

void Session::Queue(Outgoing out) {
  queued_bytes_ += out.bytes->size();
  if (out.frame) ++queued_frames_;
  outgoing_.push_back(std::move(out));
  if (!writing_) WriteNext();
}

void Session::TrimFrames() {
  auto it = outgoing_.begin() + (writing_ ? 1 : 0);  // the one being written stays
  while ((queued_frames_ > limits_.max_queued_frames || queued_bytes_ > limits_.max_queued_bytes) &&
         it != outgoing_.end()) {
    if (!it->frame) {
      ++it;
      continue;
    }
    queued_bytes_ -= it->bytes->size();
    --queued_frames_;
    ++dropped_frames_;
    it = outgoing_.erase(it);
  }
}

void Session::WriteNext() {
  if (outgoing_.empty()) {
    writing_ = false;
    if (finishing_) {
      std::error_code ignored;
      socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
      Close();
    }
    return;
  }
  writing_ = true;
  // The handler holds the buffer: Close() may empty the queue mid-write.
  auto bytes = outgoing_.front().bytes;
  asio::async_write(socket_, asio::buffer(*bytes),
                    [self = shared_from_this(), bytes](std::error_code ec, size_t) {
                      if (ec || self->closed_) return self->Close();
                      const Outgoing& done = self->outgoing_.front();
                      self->queued_bytes_ -= done.bytes->size();
                      if (done.frame) --self->queued_frames_;
                      self->outgoing_.pop_front();
                      self->WriteNext();
                    });
}

void Session::Close() {
  if (closed_) return;
  closed_ = true;
  handshake_timer_.cancel();
  message_timer_.cancel();
  outgoing_.clear();
  queued_frames_ = queued_bytes_ = 0;
  std::error_code ignored;
  socket_.close(ignored);
  host_.OnClosed(shared_from_this());
}

}  // namespace zord
