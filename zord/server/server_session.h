// One client connection of zord, on the server's I/O thread: the handshake,
// reading requests, and a bounded send queue. A client that does not keep up
// loses its oldest queued frames (counted), never its replies, and never makes
// the server hold more than its limits; a peer that sends anything malformed
// is disconnected.
#pragma once

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>

#include "zord/server/engine.h"
#include "zord/server/server_requests.h"
#include "zorsock/wire.h"

namespace zord {

struct SessionLimits {
  size_t max_queued_frames = 1024;         // frames waiting to be written (1 s at 960 Hz)
  size_t max_replay_images = 20'000'000;   // detections a replay upload may hold
  size_t max_queued_bytes = 32u << 20;     // frames give way beyond this
  size_t max_pending_requests = 256;       // requests sent but not yet answered
  std::chrono::milliseconds handshake_timeout{10'000};
  // A message must arrive whole within this once its header has: a peer that
  // stops mid-message would otherwise hold its partial payload for ever.
  std::chrono::milliseconds message_timeout{10'000};
  bool Check(std::string* why) const;
};

class Session;

// What a session needs from the server that owns it. Called on the I/O thread.
class SessionHost {
 public:
  struct Admission {
    bool ok = false;
    zorsock::wire::Welcome welcome;
    zorsock::wire::Refuse refuse;
  };
  virtual ~SessionHost() = default;
  virtual Admission Admit(Session& session, const zorsock::wire::Hello& hello) = 0;
  // The welcome is queued: the host may now send the session its state.
  virtual void Admitted(const std::shared_ptr<Session>& session) = 0;
  virtual void OnRequest(const std::shared_ptr<Session>& session, zorsock::wire::Request r) = 0;
  // A raw data session (mode 2) sent a complete recording; the host answers
  // it with SendFinalReply.
  virtual void OnRecording(const std::shared_ptr<Session>& session,
                           std::shared_ptr<RawRecording> recording) = 0;
  // Once per session, when it closes for any reason.
  virtual void OnClosed(const std::shared_ptr<Session>& session) = 0;
};

class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(asio::ip::tcp::socket socket, int id, SessionHost& host, const SessionLimits& limits);

  void Start();
  // Queue a frame (may be dropped when the client lags) or a message (never dropped).
  void SendFrame(std::shared_ptr<const zorsock::wire::Bytes> bytes);
  void SendMessage(std::shared_ptr<const zorsock::wire::Bytes> bytes);
  // A reply to one of this session's requests.
  void SendReply(const zorsock::wire::Reply& reply);
  // A reply that ends the session: closes once it is written.
  void SendFinalReply(const zorsock::wire::Reply& reply);
  // Tells the client the session ends, closes once that is written.
  void Finish();
  void Close();

  int id() const { return id_; }
  const ClientContext& context() const { return context_; }
  bool control() const { return control_; }
  bool admitted() const { return admitted_; }
  // Raw data connection: wire::kRawRecord or kRawReplay; 0 for other sessions.
  uint32_t raw_mode() const { return raw_mode_; }
  // A session of the engine's: a client, neither control nor raw data.
  bool client() const { return !control_ && raw_mode_ == 0; }
  bool closed() const { return closed_; }
  StreamSwitches& streams() { return streams_; }
  int64_t dropped_frames() const { return dropped_frames_; }
  const std::string& peer() const { return peer_; }
  bool loopback() const { return loopback_; }  // the peer is on this machine

 private:
  struct Outgoing {
    std::shared_ptr<const zorsock::wire::Bytes> bytes;
    bool frame = false;
  };

  void ReadHeader();
  // Reads the payload a chunk at a time: memory grows with the bytes that
  // arrived, never with the length a peer merely declared.
  void ReadPayload();
  void OnMessage();
  void OnHello();
  // A replay upload's messages; false when the session must stop reading.
  bool OnRawMessage();
  void Queue(Outgoing out);
  void TrimFrames();
  void WriteNext();

  asio::ip::tcp::socket socket_;
  asio::steady_timer handshake_timer_;
  asio::steady_timer message_timer_;
  const int id_;
  SessionHost& host_;
  const SessionLimits limits_;
  std::string peer_;
  bool loopback_ = false;

  ClientContext context_;
  bool control_ = false;
  uint32_t raw_mode_ = 0;
  std::shared_ptr<RawRecording> upload_;  // a recording being received (mode 2)
  bool admitted_ = false;
  bool closed_ = false;
  bool finishing_ = false;
  StreamSwitches streams_;

  uint8_t header_bytes_[zorsock::wire::kHeaderSize] = {};
  zorsock::wire::Header header_;
  zorsock::wire::Bytes payload_;
  bool in_message_ = false;  // a header has come, its payload not all yet
  size_t pending_requests_ = 0;

  std::deque<Outgoing> outgoing_;
  bool writing_ = false;  // outgoing_.front() is being written
  size_t queued_frames_ = 0;
  size_t queued_bytes_ = 0;
  std::atomic<int64_t> dropped_frames_{0};
};

}  // namespace zord
