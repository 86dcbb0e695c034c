#include "zord/server/server.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "zorsock/codes.h"

namespace zord {

namespace wire = zorsock::wire;

namespace {

// Frames handed from the clock to the I/O thread but not yet sent out; beyond
// these the I/O thread is not keeping up and new frames are dropped. Generous:
// on a loaded machine the I/O thread may not run for a few hundred ms.
constexpr int kMaxFramesInFlight = 512;
constexpr size_t kMaxBytesInFlight = 64u << 20;
constexpr auto kCameraRefresh = std::chrono::seconds(1);
// How long Stop() lets sessions read their "finished" message.
constexpr auto kFinishGrace = std::chrono::seconds(2);

std::string HostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

bool SameCameras(const std::vector<ZORCamera>& a, const std::vector<ZORCamera>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(ZORCamera)) == 0);
}

// The part of a frame one session asked for.
wire::Frame Select(const FrameData& frame, unsigned kinds) {
  wire::Frame out;
  out.number = frame.number;
  out.time_us = frame.time_us;
  if (kinds & kMarkerBit) out.markers = frame.markers;
  if (kinds & kRigidBit) out.rigids = frame.rigids;
  if (kinds & kImageBit) out.images = frame.images;
  if (kinds & kDetectorBit) out.detectors = frame.detectors;
  return out;
}

}  // namespace

std::string ServerDescription(const std::string& name) {
  return "zord " + zorsock::ShortVersion() + "  " + (name.empty() ? HostName() : name);
}

bool ServerOptions::Check(std::string* why) const {
  auto fail = [why](const std::string& text) {
    if (why) *why = text;
    return false;
  };
  std::error_code ec;
  asio::ip::make_address(listen, ec);
  if (ec) return fail("--listen: '" + listen + "' is not an IP address");
  if (port < 0 || port > 65535) return fail("--port must be in 0..65535");
  if (discovery_port < 0 || discovery_port > 65535)
    return fail("--discovery-port must be in 0..65535");
  if (!(frequency >= kMinFrequency && frequency <= kMaxFrequency))
    return fail("--frequency must be in 30..960");
  if (!(pace >= 1 && pace <= 64)) return fail("--pace must be in 1..64");
  if (name.size() > 200) return fail("--name is longer than 200 characters");
  if (max_sessions < 1 || max_sessions > 10000) return fail("--max-sessions must be in 1..10000");
  if (control_token.size() > 200 || control_token.find(' ') != std::string::npos)
    return fail("--control-token must be at most 200 characters without spaces");
  return limits.Check(why);
}

Server::Server(Engine& engine, ServerOptions options)
    : engine_(engine),
      options_(std::move(options)),
      acceptor_(io_),
      accept_retry_(io_),
      clock_(engine, options_.frequency,
             FrameClock::Hooks{[this] { return WantedKinds(); },
                               [this](std::shared_ptr<FrameData> f) { Publish(std::move(f)); },
                               [this] {
                                 WatchCameras();
                                 PushCalibMessages();
                               }},
             options_.pace),
      handler_(engine, clock_, ServerDescription(options_.name), [this] {
        const ServerStats s = stats();
        return nlohmann::json{{"sessions", s.sessions},
                              {"frames_dropped", s.frames_dropped},
                              {"session_frames_dropped", s.session_frames_dropped}};
      }) {}

Server::~Server() { Stop(); }

std::string Server::endpoint() const { return options_.listen + ":" + std::to_string(port_); }

ServerStats Server::stats() const {
  std::lock_guard lock(sessions_mu_);
  ServerStats stats;
  stats.sessions = static_cast<int>(sessions_.size());
  stats.frames_dropped = frames_dropped_;
  stats.session_frames_dropped = closed_sessions_dropped_;
  for (const auto& session : sessions_) stats.session_frames_dropped += session->dropped_frames();
  return stats;
}

void Server::Log(const std::string& line) const {
  if (options_.verbose) std::fprintf(stderr, "zord: %s\n", line.c_str());
}

bool Server::Start(std::string* error) {
  if (started_) return true;
  if (!options_.Check(error)) return false;
  std::error_code ec;
  const asio::ip::tcp::endpoint where(asio::ip::make_address(options_.listen),
                                      static_cast<uint16_t>(options_.port));
  acceptor_.open(where.protocol(), ec);
  if (!ec) acceptor_.set_option(asio::socket_base::reuse_address(true), ec);
  if (!ec) acceptor_.bind(where, ec);
  if (!ec) acceptor_.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    *error = "cannot listen on " + options_.listen + ":" + std::to_string(options_.port) + ": " +
             ec.message();
    acceptor_.close(ec);
    return false;
  }
  port_ = acceptor_.local_endpoint().port();

  if (options_.discovery_port != 0) {
    wire::DiscoveryAnswer answer;
    const auto address = asio::ip::make_address(options_.listen);
    answer.host = address.is_unspecified() ? "" : options_.listen;
    answer.port = static_cast<uint16_t>(port_);
    answer.description = description();
    discovery_ = std::make_unique<DiscoveryResponder>(io_, answer, options_.verbose);
    if (!discovery_->Open(options_.listen, options_.discovery_port, error)) {
      acceptor_.close(ec);
      return false;
    }
  }

  last_cameras_ = engine_.Cameras();
  last_cameras_sent_ = std::chrono::steady_clock::now();
  cameras_message_ = std::make_shared<const wire::Bytes>(wire::EncodeCameras(last_cameras_));

  Accept();
  io_work_.emplace(io_.get_executor());
  worker_work_.emplace(worker_.get_executor());
  io_thread_ = std::thread([this] { io_.run(); });
  worker_thread_ = std::thread([this] { worker_.run(); });
  clock_.Start();
  started_ = true;
  return true;
}

void Server::Stop() {
  if (!started_ || stopping_.exchange(true)) return;
  clock_.Stop();
  asio::post(io_, [this] {
    std::error_code ignored;
    acceptor_.close(ignored);
    accept_retry_.cancel();
    if (discovery_) discovery_->Close();
    for (const auto& session : Sessions()) {
      if (session->admitted()) {
        session->Finish();
      } else {
        session->Close();
      }
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + kFinishGrace;
  while (std::chrono::steady_clock::now() < deadline && stats().sessions > 0)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  asio::post(io_, [this] {
    for (const auto& session : Sessions()) session->Close();
  });
  io_work_.reset();
  io_thread_.join();  // runs out of work once every session is closed
  worker_work_.reset();
  worker_thread_.join();  // the engine hears of every session's end
  started_ = false;
}

void Server::Accept() {
  acceptor_.async_accept([this](std::error_code ec, asio::ip::tcp::socket socket) {
    if (ec == asio::error::operation_aborted || !acceptor_.is_open()) return;
    if (ec) {
      // Out of descriptors or similar: try again shortly rather than spin.
      Log("accept failed: " + ec.message());
      accept_retry_.expires_after(std::chrono::milliseconds(100));
      accept_retry_.async_wait([this](std::error_code e) {
        if (!e) Accept();
      });
      return;
    }
    {
      std::lock_guard lock(sessions_mu_);
      if (sessions_.size() >= static_cast<size_t>(options_.max_sessions)) {
        std::error_code ignored;
        socket.close(ignored);  // each peer costs memory: their number is bounded
        Log("connection refused: " + std::to_string(options_.max_sessions) + " sessions open");
        Accept();
        return;
      }
    }
    auto session = std::make_shared<Session>(std::move(socket), ++next_session_,
                                             static_cast<SessionHost&>(*this), options_.limits);
    {
      std::lock_guard lock(sessions_mu_);
      sessions_.push_back(session);
    }
    session->Start();
    Accept();
  });
}

SessionHost::Admission Server::Admit(Session& session, const wire::Hello& hello) {
  Admission a;
  if (hello.version != wire::kVersion) {
    a.refuse.reason = ZOR_ERR_HANDSHAKE;
    a.refuse.message = "protocol version " + std::to_string(hello.version) +
                       " is not supported; this server speaks version " +
                       std::to_string(wire::kVersion);
    Log("refused " + session.peer() + ": " + a.refuse.message);
    return a;
  }
  if (stopping_) {
    a.refuse.message = "the server is shutting down";
    return a;
  }
  if (hello.role == wire::Role::kControl && !session.loopback()) {
    const std::string token = wire::ControlToken(hello.identity);
    if (options_.control_token.empty() || token != options_.control_token) {
      a.refuse.message = "operator control from another machine needs the server's control token";
      Log("refused control from " + session.peer());
      return a;
    }
  }
  if (hello.role == wire::Role::kRaw) {
    if (hello.flags != wire::kRawRecord && hello.flags != wire::kRawReplay) {
      a.refuse.message = "raw data mode " + std::to_string(hello.flags) + " is unknown";
      return a;
    }
    if (hello.flags == wire::kRawRecord && engine_.RawDataHeader().cameras.empty()) {
      a.refuse.message = "this server has no raw data";
      return a;
    }
  }
  a.ok = true;
  a.welcome.session = session.id();
  a.welcome.description = description();
  return a;
}

void Server::Admitted(const std::shared_ptr<Session>& session) {
  if (session->control()) return;
  if (session->raw_mode() != 0) {
    Log("raw data session " + std::to_string(session->id()) + " from " + session->peer() +
        (session->raw_mode() == wire::kRawRecord ? " (recording)" : " (sending a recording)"));
    if (session->raw_mode() == wire::kRawRecord) {
      session->SendMessage(
          std::make_shared<const wire::Bytes>(wire::EncodeRawHeader(engine_.RawDataHeader())));
    }
    return;
  }
  char flags[16];
  std::snprintf(flags, sizeof flags, "0x%x", session->context().flags);
  Log("session " + std::to_string(session->id()) + " from " + session->peer() + " flags " + flags);
  std::shared_ptr<const wire::Bytes> cameras;
  {
    std::lock_guard lock(cameras_mu_);
    cameras = cameras_message_;
  }
  session->SendMessage(cameras);
  const ClientContext who = session->context();
  asio::post(worker_, [this, who] { engine_.SessionOpened(who); });
}

void Server::OnRequest(const std::shared_ptr<Session>& session, wire::Request request) {
  asio::post(worker_, [this, session, request = std::move(request)] {
    wire::Reply reply;
    reply.seq = request.seq;
    try {
      reply = handler_.Handle(session->context(), session->control(), session->streams(), request);
    } catch (const std::exception& e) {
      Log(std::string("request failed: ") + e.what());
      reply.status = ZOR_INVALID_OPERATION;
    }
    PushCalibMessages();  // what the request caused arrives before its reply
    asio::post(io_, [session, reply = std::move(reply)] { session->SendReply(reply); });
  });
}

void Server::OnClosed(const std::shared_ptr<Session>& session) {
  {
    std::lock_guard lock(sessions_mu_);
    std::erase(sessions_, session);
    closed_sessions_dropped_ += session->dropped_frames();
  }
  if (!session->admitted() || !session->client()) return;
  Log("session " + std::to_string(session->id()) + " closed (" +
      std::to_string(session->dropped_frames()) + " frames dropped)");
  const ClientContext who = session->context();
  asio::post(worker_, [this, who] { engine_.SessionClosed(who); });
}

void Server::OnRecording(const std::shared_ptr<Session>& session,
                         std::shared_ptr<RawRecording> recording) {
  asio::post(worker_, [this, session, recording = std::move(recording)]() mutable {
    wire::Reply reply;
    const size_t frames = recording->frames.size();
    reply.status = engine_.StartReplay(std::move(recording), &reply.text);
    if (reply.status != ZOR_NO_ERROR) {
      std::fprintf(stderr, "zord: recording from %s refused: %s\n", session->peer().c_str(),
                   reply.text.c_str());
    } else {
      reply.text = "replaying " + std::to_string(frames) + " frames";
    }
    asio::post(io_, [session, reply = std::move(reply)] { session->SendFinalReply(reply); });
  });
}

std::vector<std::shared_ptr<Session>> Server::Sessions() const {
  std::lock_guard lock(sessions_mu_);
  return sessions_;
}

unsigned Server::WantedKinds() const {
  std::lock_guard lock(sessions_mu_);
  unsigned wanted = 0;
  for (const auto& session : sessions_) {
    wanted |= session->streams().sent();
    if (session->admitted() && session->raw_mode() == wire::kRawRecord) wanted |= kImageBit;
  }
  return wanted;
}

void Server::Publish(std::shared_ptr<FrameData> frame) {
  const size_t bytes = frame->markers.size() * sizeof(ZORMarker) +
                       frame->rigids.size() * sizeof(ZORRigid) +
                       frame->images.size() * sizeof(ZORImage) +
                       frame->detectors.size() * sizeof(ZORDetector);
  if (frames_in_flight_ >= kMaxFramesInFlight || bytes_in_flight_ + bytes > kMaxBytesInFlight) {
    ++frames_dropped_;
    return;
  }
  PushCalibMessages();
  ++frames_in_flight_;
  bytes_in_flight_ += bytes;
  asio::post(io_, [this, frame = std::move(frame), bytes] {
    SendFrame(*frame);
    --frames_in_flight_;
    bytes_in_flight_ -= bytes;
  });
}

void Server::SendFrame(const FrameData& frame) {
  // One encoding per combination of kinds, shared by the sessions that want it.
  std::shared_ptr<const wire::Bytes> encoded[16];
  std::shared_ptr<const wire::Bytes> raw;
  for (const auto& session : Sessions()) {
    if (session->admitted() && session->raw_mode() == wire::kRawRecord) {
      if (!raw) {
        wire::RawFrame r{frame.number, frame.time_us,
                         frame.wand_capture ? wire::kRawFrameCapturing : 0u, frame.images};
        raw = std::make_shared<const wire::Bytes>(wire::EncodeRawFrame(r));
      }
      session->SendFrame(raw);
      continue;
    }
    if (!session->admitted() || !session->client() || !session->streams().streaming) continue;
    const unsigned kinds = session->streams().kinds & 0xF;
    if (!encoded[kinds])
      encoded[kinds] = std::make_shared<const wire::Bytes>(wire::EncodeFrame(Select(frame, kinds)));
    session->SendFrame(encoded[kinds]);
  }
}

void Server::WatchCameras() {
  std::vector<ZORCamera> cameras = engine_.Cameras();
  const auto now = std::chrono::steady_clock::now();
  if (SameCameras(cameras, last_cameras_) && now - last_cameras_sent_ < kCameraRefresh) return;
  last_cameras_sent_ = now;
  auto message = std::make_shared<const wire::Bytes>(wire::EncodeCameras(cameras));
  last_cameras_ = std::move(cameras);
  {
    std::lock_guard lock(cameras_mu_);
    cameras_message_ = message;
  }
  asio::post(io_, [this, message] {
    for (const auto& session : Sessions()) {
      if (session->admitted() && session->client()) session->SendMessage(message);
    }
  });
}

void Server::PushCalibMessages() {
  // Bounded per call: an engine that always has a message cannot hold us here.
  constexpr int kMaxPerCall = 64;
  // Without a client the messages wait in the engine for the next one.
  const auto sessions = Sessions();
  if (std::none_of(sessions.begin(), sessions.end(),
                   [](const auto& s) { return s->admitted() && s->client(); }))
    return;
  std::lock_guard lock(calib_messages_mu_);
  for (int i = 0; i < kMaxPerCall; ++i) {
    std::string text;
    if (engine_.GetString(ClientContext{}, ZOR_CALIB_MESSAGE, text) != ZOR_NO_ERROR || text.empty())
      return;
    auto message = std::make_shared<const wire::Bytes>(wire::EncodeCalibMessage(text));
    asio::post(io_, [this, message] {
      for (const auto& session : Sessions()) {
        if (session->admitted() && session->client()) session->SendMessage(message);
      }
    });
  }
}

}  // namespace zord
