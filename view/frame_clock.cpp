#include "view/frame_clock.h"

#include <chrono>
#include <cstdio>

namespace {
int64_t SteadyNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string Format(const char* format, double a, double b = 0) {
  char text[64];
  std::snprintf(text, sizeof text, format, a, b);
  return text;
}
}  // namespace

MicroClock::MicroClock() : startNs_(SteadyNs()) {}

uint32_t MicroClock::Now() const { return static_cast<uint32_t>((SteadyNs() - startNs_) / 1000); }

void MicroClock::Restart() { startNs_ = SteadyNs(); }

void PaintRates::OnPaint(uint32_t t0, uint32_t t1) {
  if (!started_) {
    started_ = true;
    windowBegin_ = t0;
    previousT0_ = t0;
  }
  // Unsigned differences survive the clock's wrap; t1 before t0 counts as 0.
  const uint32_t drawn = t1 - t0;
  busy_ += drawn < 0x80000000u ? drawn : 0;
  const uint32_t window = t1 - windowBegin_;
  if (window > 1000000u && window < 0x80000000u) {
    const uint32_t frameGap = t0 - previousT0_;
    lastFrameRate_ = 1e6 / (frameGap == 0 ? 1 : frameGap);
    lastDrawRate_ = 1e6 / (drawn == 0 || drawn >= 0x80000000u ? 1 : drawn);
    frameRate_ = Format("%4.1f", lastFrameRate_);
    load_ = Format("%4.1f", static_cast<double>(busy_) / window);
    windowBegin_ = t1;
    busy_ = 0;
    combined_ = Format("fps: % 5.1f @ % 4.1f", lastDrawRate_, lastFrameRate_);
  }
  previousT0_ = t0;
}

double FrameRateSampler::Sample(uint32_t now, uint32_t frames) {
  if (!started_) {
    started_ = true;
    sampleTime_ = now;
    sampleFrames_ = frames;
    return fps_;
  }
  const uint32_t elapsed = now - sampleTime_;
  if (elapsed > 1000000u) {
    fps_ = (frames == 0 || frames < sampleFrames_)
               ? 0.0
               : static_cast<double>(frames - sampleFrames_) / elapsed * 1e6;
    sampleTime_ = now;
    sampleFrames_ = frames;
  }
  return fps_;
}
