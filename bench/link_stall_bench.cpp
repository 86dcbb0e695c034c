// How long the client's event loop stands still while its server link waits:
// connecting to a host that never answers, to a frozen (SIGSTOP) zord, a
// calibration session through a proxy that adds round-trip delay, and a zord
// that freezes under a streaming session. The client's own session code runs
// on a Qt event loop beside a 1 ms timer; the longest gap between two of its
// ticks is the stall. Not part of CI:
//   ZOR_BIN_DIR=build/bin ZOR_DATA_DIR=data link_stall_bench [--no-hook] [--delay-us 1000]
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <arpa/inet.h>
#include <asio.hpp>
#include <csignal>
#include <cstdlib>
#include <cstdio>
#include <deque>
#include <fstream>
#include <string>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "bench/server_drops.h"
#include "calib/calib_session.h"
#include "link/event_loop_wait.h"
#include "testing/zord_process.h"
#include "zorsock/zorsock.h"

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

// A loopback TCP proxy that holds every chunk for `one_way` in each direction.
class DelayProxy {
 public:
  DelayProxy(int target_port, std::chrono::microseconds one_way)
      : acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
        target_(asio::ip::address_v4::loopback(), static_cast<uint16_t>(target_port)),
        one_way_(one_way) {
    Accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~DelayProxy() {
    io_.stop();
    thread_.join();
  }
  int port() const { return acceptor_.local_endpoint().port(); }

 private:
  struct Link {
    explicit Link(asio::io_context& io) : client(io), server(io) {}
    tcp::socket client, server;
    void Close() {
      std::error_code ignored;
      client.close(ignored);
      server.close(ignored);
    }
  };
  // One direction: reads as bytes come, writes each chunk once it is due.
  struct Pipe : std::enable_shared_from_this<Pipe> {
    Pipe(std::shared_ptr<Link> link, tcp::socket& from, tcp::socket& to,
         std::chrono::microseconds delay)
        : link(std::move(link)), from(from), to(to), timer(from.get_executor()), delay(delay) {}
    std::shared_ptr<Link> link;
    tcp::socket& from;
    tcp::socket& to;
    asio::steady_timer timer;
    std::chrono::microseconds delay;
    uint8_t buffer[65536];
    std::deque<std::pair<Clock::time_point, std::vector<uint8_t>>> queue;

    void Read() {
      from.async_read_some(asio::buffer(buffer), [self = shared_from_this()](std::error_code ec, size_t n) {
        if (ec) return self->link->Close();
        self->queue.emplace_back(Clock::now() + self->delay,
                                 std::vector<uint8_t>(self->buffer, self->buffer + n));
        if (self->queue.size() == 1) self->WriteNext();
        self->Read();
      });
    }
    void WriteNext() {
      timer.expires_at(queue.front().first);
      timer.async_wait([self = shared_from_this()](std::error_code) {
        asio::async_write(self->to, asio::buffer(self->queue.front().second),
                          [self](std::error_code ec, size_t) {
                            if (ec) return self->link->Close();
                            self->queue.pop_front();
                            if (!self->queue.empty()) self->WriteNext();
                          });
      });
    }
  };

  void Accept() {
    auto link = std::make_shared<Link>(io_);
    acceptor_.async_accept(link->client, [this, link](std::error_code ec) {
      if (ec) return;
      std::error_code connected;
      link->server.connect(target_, connected);
      if (!connected) {
        link->client.set_option(tcp::no_delay(true));
        link->server.set_option(tcp::no_delay(true));
        std::make_shared<Pipe>(link, link->client, link->server, one_way_)->Read();
        std::make_shared<Pipe>(link, link->server, link->client, one_way_)->Read();
      }
      Accept();
    });
  }

  asio::io_context io_;
  tcp::acceptor acceptor_;
  tcp::endpoint target_;
  std::chrono::microseconds one_way_;
  std::thread thread_;
};

// A port whose listen queue is full: the kernel drops further connection
// requests, so a client sees a host that never answers.
class SilentHost {
 public:
  SilentHost() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    listen(listener_, 0);
    socklen_t n = sizeof a;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &n);
    port_ = ntohs(a.sin_port);
    for (int i = 0; i < 4; ++i) {  // fill the queue; these are never accepted
      const int s = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
      fillers_.push_back(s);
    }
  }
  ~SilentHost() {
    for (int s : fillers_) close(s);
    close(listener_);
  }
  int port() const { return port_; }

 private:
  int listener_ = -1;
  int port_ = 0;
  std::vector<int> fillers_;
};

// The longest time between two ticks of a 1 ms timer on this thread.
class StallMeter {
 public:
  StallMeter() {
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] {
      const qint64 gap = clock_.restart();
      if (gap > max_ms_) {
        max_ms_ = gap;
        max_at_ms_ = since_.elapsed();
      }
    });
    clock_.start();
    since_.start();
    timer_.start(1);
  }
  void Reset() {
    QCoreApplication::processEvents();
    clock_.restart();
    since_.restart();
    max_ms_ = 0;
  }
  qint64 max_ms() const { return max_ms_; }
  qint64 max_at_ms() const { return max_at_ms_; }  // when it ended, since Reset

 private:
  QTimer timer_;
  QElapsedTimer clock_, since_;
  qint64 max_ms_ = 0, max_at_ms_ = 0;
};

// Returns once the process is stopped: a signal takes a moment to land, and a
// server that still answers the handshake is not the case measured.
void WaitStopped(pid_t pid) {
  const std::string stat = "/proc/" + std::to_string(pid) + "/stat";
  for (int i = 0; i < 1000; ++i) {
    std::ifstream in(stat);
    std::string line;
    std::getline(in, line);
    const auto end = line.rfind(')');
    if (end != std::string::npos && end + 2 < line.size() && line[end + 2] == 'T') return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Runs `work` from the event loop (as a slot would) and returns its result.
template <typename Work>
auto FromEventLoop(Work work) {
  decltype(work()) result{};
  QTimer::singleShot(0, [&] {
    result = work();
    // Let the meter tick once more: a call that blocked shows as its gap.
    QTimer::singleShot(5, [] { QCoreApplication::quit(); });
  });
  QCoreApplication::exec();
  return result;
}

ConnectionSettings Settings(int port) {
  ConnectionSettings s;
  s.server = "127.0.0.1:" + std::to_string(port);
  s.frequency = 480;
  return s;
}

void Connecting(StallMeter& meter, const char* what, int port) {
  CalibSession session(128, 0.001f);
  meter.Reset();
  QElapsedTimer wall;
  wall.start();
  const int result = FromEventLoop([&] { return session.open(Settings(port), true, true); });
  std::printf("%-34s result %6d after %5lld ms, longest stall %5lld ms\n", what, result,
              static_cast<long long>(wall.elapsed()), static_cast<long long>(meter.max_ms()));
  if (session.connected()) session.Done();
}

// Opens a calibration session through the proxy and pumps it as the window
// does (48 frames a 2 ms tick, a calibration message read per frame): 10 s of
// capture, then a calibration until its last pass.
void Calibrating(StallMeter& meter, int port, bool round_trip_per_frame, const std::string& zord) {
  CalibSession session(128, 0.001f);
  session.setWandFiles({zortest::DataPath("wand.rb")});
  meter.Reset();
  if (FromEventLoop([&] { return session.open(Settings(port), true, true); }) < 0) {
    std::printf("calibration: cannot connect\n");
    return;
  }
  int64_t frames = 0, lost = 0, messages = 0, flushed = 0;
  int32_t previous = -1;
  qint64 stall_open = meter.max_ms();
  meter.Reset();
  QElapsedTimer wall;
  wall.start();
  enum { kWarmUp, kCapture, kCalibrate, kDone } stage = kWarmUp;
  QTimer pump;
  QObject::connect(&pump, &QTimer::timeout, [&] {
    if (InsideLinkWait()) return;
    const auto pumped = session.Pump(48, [&] {
      ++frames;
      if (previous >= 0 && session.lastFrame > previous + 1) lost += session.lastFrame - previous - 1;
      previous = session.lastFrame;
      messages += session.readMessage();
      if (round_trip_per_frame) {
        float pose[7];
        zorGetFloatv(CalibSession::kGlobalTransform, pose);
      }
    });
    if (pumped.last < 0) stage = kDone;
    const qint64 t = wall.elapsed();
    // Starting and stopping the capture or a calibration changes the server's
    // state: the session drains the frames queued around it (its Flush), as in
    // the window. Those are counted apart, not as lost.
    const int32_t before = session.lastFrame;
    if (stage == kWarmUp && t > 1000) {
      session.toggleCapture();
      stage = kCapture;
    } else if (stage == kCapture && t > 11000) {
      session.toggleCapture();
      session.calibrate(100);
      stage = kCalibrate;
    } else if ((stage == kCalibrate && !session.calibrating) || t > 120000) {
      stage = kDone;
    }
    if (session.lastFrame != before) {
      flushed += session.lastFrame - before;
      previous = session.lastFrame;
    }
    if (stage == kDone) QCoreApplication::quit();
  });
  pump.start(2);
  QCoreApplication::exec();
  int dropped = 0;
  zorGetIntegerv(ZOR_FRAMES_DROPPED, &dropped);
  const double seconds = wall.elapsed() / 1000.0;
  std::printf("calibration session                %6.1f s: %lld frames (%.0f Hz), %lld lost, "
              "%lld drained by the session's flushes, %d dropped by the library, %lld by the server, "
              "%lld messages, calibrated %d; "
              "longest stall %lld ms (ending %.1f s in; opening %lld ms)\n",
              seconds, static_cast<long long>(frames), frames / seconds,
              static_cast<long long>(lost), static_cast<long long>(flushed), dropped, ServerDrops(zord),
              static_cast<long long>(messages),
              session.calibrated ? 1 : 0, static_cast<long long>(meter.max_ms()),
              meter.max_at_ms() / 1000.0, static_cast<long long>(stall_open));
  session.Done();
}

// A session streaming straight from zord, which then freezes (SIGSTOP): the
// pump finds no frames and must not wait for them; the library gives the link
// up once the server has been silent for its time-out.
void FreezingMidStream(StallMeter& meter, zortest::ZordProcess& zord) {
  CalibSession session(128, 0.001f);
  if (FromEventLoop([&] { return session.open(Settings(zord.port()), true, true); }) < 0) {
    std::printf("mid-stream freeze: cannot connect\n");
    return;
  }
  meter.Reset();
  QElapsedTimer wall, frozen;
  wall.start();
  int64_t frames = 0;
  int error = 0;
  QTimer pump;
  QObject::connect(&pump, &QTimer::timeout, [&] {
    const auto pumped = session.Pump(48, [&] { ++frames; });
    if (!frozen.isValid() && wall.elapsed() > 1000) {
      kill(zord.pid(), SIGSTOP);
      frozen.start();
    }
    if (pumped.last < 0 || wall.elapsed() > 30000) {
      error = session.lastError;
      QCoreApplication::quit();
    }
  });
  pump.start(2);
  QCoreApplication::exec();
  kill(zord.pid(), SIGCONT);
  std::printf("zord frozen mid-stream             %lld frames before; link lost (error 0x%x) %lld ms "
              "after the freeze, longest stall %lld ms\n",
              static_cast<long long>(frames), error, static_cast<long long>(frozen.elapsed()),
              static_cast<long long>(meter.max_ms()));
  if (session.connected()) session.Done();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App cli("Longest event-loop stall of the client while its server link waits");
  bool no_hook = false, round_trip = false;
  int delay_us = 1000;
  cli.add_flag("--no-hook", no_hook, "wait as a plain blocking call (the event loop stops)");
  cli.add_flag("--round-trip-per-frame", round_trip,
               "also ask the server something once per frame (a per-frame query)");
  cli.add_option("--delay-us", delay_us, "delay the proxy adds in each direction")->capture_default_str();
  CLI11_PARSE(cli, argc, argv);

  int qt_argc = 1;
  QCoreApplication app(qt_argc, argv);
  KeepEventLoopWhileWaiting(!no_hook);
  StallMeter meter;

  {
    SilentHost silent;
    Connecting(meter, "host that never answers", silent.port());
  }
  zortest::ZordProcess zord({"--scene", zortest::DataPath("scenes/default.json")});
  if (!zord.Start()) {
    std::fprintf(stderr, "zord: %s\n", zord.error().c_str());
    return 1;
  }
  kill(zord.pid(), SIGSTOP);
  WaitStopped(zord.pid());
  Connecting(meter, "frozen zord (SIGSTOP)", zord.port());
  kill(zord.pid(), SIGCONT);

  DelayProxy proxy(zord.port(), std::chrono::microseconds(delay_us));
  Calibrating(meter, proxy.port(), round_trip, zord.address());
  FreezingMidStream(meter, zord);
  return 0;
}
