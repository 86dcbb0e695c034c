#include "zord/server/server_clock.h"

namespace zord {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr auto kHousekeepingPeriod = std::chrono::milliseconds(100);
// Further behind than this (a stalled machine) the schedule restarts from now
// instead of stepping a burst of frames to catch up.
constexpr auto kMaxLag = std::chrono::milliseconds(100);

int64_t MicrosecondsNow() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             SteadyClock::now().time_since_epoch())
      .count();
}

}  // namespace

FrameClock::FrameClock(Engine& engine, double frequency, Hooks hooks, double pace)
    : engine_(engine), hooks_(std::move(hooks)), pace_(pace), frequency_(frequency) {}

FrameClock::~FrameClock() { Stop(); }

void FrameClock::Start() {
  if (thread_.joinable()) return;
  {
    std::lock_guard lock(mu_);
    stop_ = false;
  }
  thread_ = std::thread([this] { Run(); });
}

void FrameClock::Stop() {
  {
    std::lock_guard lock(mu_);
    stop_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
}

bool FrameClock::SetFrequency(double hz) {
  if (!(hz >= kMinFrequency && hz <= kMaxFrequency)) return false;
  frequency_ = hz;
  return true;
}

void FrameClock::Pause(bool paused) {
  paused_ = paused;
  wake_.notify_all();
}

void FrameClock::Rewind() { rewind_ = true; }

void FrameClock::Silence(bool silent) { silent_ = silent; }

FrameClock::Status FrameClock::status() const {
  return {frame_.load(), frequency_.load(), paused_.load(), silent_.load()};
}

void FrameClock::Run() {
  auto next = SteadyClock::now();
  auto last_housekeeping = next;
  std::unique_lock lock(mu_);
  while (!stop_) {
    const auto now = SteadyClock::now();
    if (hooks_.housekeeping && now - last_housekeeping >= kHousekeepingPeriod) {
      last_housekeeping = now;
      lock.unlock();
      hooks_.housekeeping();
      lock.lock();
      continue;
    }
    if (paused_) {
      wake_.wait_for(lock, kHousekeepingPeriod, [this] { return stop_ || !paused_; });
      next = SteadyClock::now();
      continue;
    }
    if (now < next) {
      wake_.wait_until(lock, std::min(next, last_housekeeping + kHousekeepingPeriod),
                       [this] { return stop_ || paused_.load(); });
      continue;
    }
    lock.unlock();

    if (rewind_.exchange(false)) frame_ = 0;
    const int32_t number = ++frame_;
    const double hz = frequency_;
    auto frame = std::make_shared<FrameData>();
    const unsigned wanted = hooks_.wanted ? hooks_.wanted() : 0;
    frame->want_images = wanted & kImageBit;
    frame->want_detectors = wanted & kDetectorBit;
    const int64_t time_us = MicrosecondsNow();
    engine_.Step(number, 1.0 / hz, time_us, *frame);
    frame->number = number;
    frame->time_us = time_us;
    if (silent_) {
      frame->markers.clear();
      frame->rigids.clear();
      frame->images.clear();
      frame->detectors.clear();
    }
    if (hooks_.publish) hooks_.publish(std::move(frame));

    next += std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(1.0 / (hz * pace_)));
    if (SteadyClock::now() - next > kMaxLag) next = SteadyClock::now();
    lock.lock();
  }
}

}  // namespace zord
