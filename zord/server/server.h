// zord's network server: accepts client sessions, answers their requests with
// the engine, runs the frame clock and streams each frame to the sessions that
// asked for it. Threads: one for network I/O, one for the frame clock, one
// that runs requests against the engine (so a slow request never holds up the
// streams).
#pragma once

#include <asio.hpp>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "zord/server/discovery.h"
#include "zord/server/engine.h"
#include "zord/server/server_clock.h"
#include "zord/server/server_requests.h"
#include "zord/server/server_session.h"

namespace zord {

struct ServerOptions {
  std::string listen = "127.0.0.1";
  int port = ZOR_DEFAULT_PORT;            // 0: any free port
  int discovery_port = ZOR_DEFAULT_PORT;  // 0: no discovery
  std::string name;                       // display name; empty: the host name
  double frequency = 480;
  double pace = 1;  // frames stepped this many times faster than their rate (tests), 1..64
  SessionLimits limits;
  int max_sessions = 64;  // connections of any kind; more are closed at once
  // Operator control (pause, rewind, moving things) is accepted from this
  // machine; from elsewhere only with this token, and never when it is empty.
  std::string control_token;
  bool verbose = false;
  bool Check(std::string* why) const;
};

struct ServerStats {
  int sessions = 0;
  int64_t frames_dropped = 0;  // frames the clock produced faster than the I/O thread sent
  int64_t session_frames_dropped = 0;  // frames sessions lost because their client lagged
};

class Server : private SessionHost {
 public:
  Server(Engine& engine, ServerOptions options);
  ~Server() override;  // stops
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds the ports and starts the threads; false with the reason on failure.
  bool Start(std::string* error);
  // Tells every session the server is finishing, gives them a moment to read
  // it, closes them and stops the threads.
  void Stop();

  int port() const { return port_; }
  int discovery_port() const { return discovery_ ? discovery_->port() : 0; }
  std::string endpoint() const;  // "ADDR:PORT"
  const std::string& description() const { return handler_.description(); }
  ServerStats stats() const;

 private:
  Admission Admit(Session& session, const zorsock::wire::Hello& hello) override;
  void Admitted(const std::shared_ptr<Session>& session) override;
  void OnRequest(const std::shared_ptr<Session>& session, zorsock::wire::Request r) override;
  void OnClosed(const std::shared_ptr<Session>& session) override;
  void OnRecording(const std::shared_ptr<Session>& session,
                   std::shared_ptr<RawRecording> recording) override;

  void Accept();
  // A copy: sending may close a session, which takes it off the list.
  std::vector<std::shared_ptr<Session>> Sessions() const;
  unsigned WantedKinds() const;                      // clock thread
  void Publish(std::shared_ptr<FrameData> frame);    // clock thread
  void SendFrame(const FrameData& frame);            // I/O thread
  void WatchCameras();                               // clock thread
  // Sends the engine's queued calibration messages to every client session;
  // any thread. Called with each frame, periodically and before each reply,
  // so a client reads them from its own queue without asking.
  void PushCalibMessages();
  void Log(const std::string& line) const;

  Engine& engine_;
  const ServerOptions options_;

  asio::io_context io_;
  asio::io_context worker_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> io_work_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> worker_work_;
  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer accept_retry_;
  std::unique_ptr<DiscoveryResponder> discovery_;
  FrameClock clock_;
  RequestHandler handler_;
  std::thread io_thread_;
  std::thread worker_thread_;
  int port_ = 0;
  int next_session_ = 0;
  bool started_ = false;
  std::atomic<bool> stopping_{false};

  mutable std::mutex sessions_mu_;
  std::vector<std::shared_ptr<Session>> sessions_;

  std::atomic<int> frames_in_flight_{0};
  std::atomic<size_t> bytes_in_flight_{0};
  std::atomic<int64_t> frames_dropped_{0};
  std::atomic<int64_t> closed_sessions_dropped_{0};

  // Cameras: the clock thread watches them; sessions get the latest on connect.
  std::mutex cameras_mu_;
  std::mutex calib_messages_mu_;  // keeps messages in order across threads
  std::shared_ptr<const zorsock::wire::Bytes> cameras_message_;
  std::vector<ZORCamera> last_cameras_;
  std::chrono::steady_clock::time_point last_cameras_sent_;
};

// "zord 0.1  <name>": the description discovery and ZOR_SERVER_NAME give.
std::string ServerDescription(const std::string& name);

}  // namespace zord
