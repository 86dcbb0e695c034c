// The server's frame clock: a thread that steps the engine at the current
// frequency on a drift-free schedule and hands each frame on. The operator can
// pause it, rewind its numbering to 1, and silence it (frames keep coming but
// carry no records).
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "zord/server/engine.h"

namespace zord {

constexpr double kMinFrequency = 30;
constexpr double kMaxFrequency = 960;

// Bits of record kinds, as the client library numbers them.
enum KindBits : unsigned {
  kMarkerBit = 1,
  kRigidBit = 2,
  kImageBit = 4,
  kDetectorBit = 8,
};

class FrameClock {
 public:
  struct Hooks {
    // Which kinds any streaming session wants (KindBits); read before each step.
    std::function<unsigned()> wanted;
    // Each produced frame, on the clock thread.
    std::function<void(std::shared_ptr<FrameData>)> publish;
    // Called on the clock thread about every 100 ms, paused or not.
    std::function<void()> housekeeping;
  };

  struct Status {
    int32_t frame = 0;
    double frequency = 0;
    bool paused = false;
    bool silent = false;
  };

  // `pace` > 1 steps the frames that many times faster than their rate (each
  // still one 1/frequency step of the room): simulated minutes in seconds.
  FrameClock(Engine& engine, double frequency, Hooks hooks, double pace = 1);
  ~FrameClock();  // stops
  FrameClock(const FrameClock&) = delete;
  FrameClock& operator=(const FrameClock&) = delete;

  void Start();
  void Stop();

  // False (and nothing changes) outside [kMinFrequency, kMaxFrequency].
  bool SetFrequency(double hz);
  double frequency() const { return frequency_; }
  void Pause(bool paused);
  void Rewind();  // the next frame is number 1
  void Silence(bool silent);
  Status status() const;

 private:
  void Run();

  Engine& engine_;
  const Hooks hooks_;
  const double pace_;
  std::atomic<double> frequency_;
  std::atomic<bool> paused_{false};
  std::atomic<bool> silent_{false};
  std::atomic<bool> rewind_{false};
  std::atomic<int32_t> frame_{0};

  std::mutex mu_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace zord
