// Frame timing of the view: a microsecond clock that wraps like a 32-bit
// counter (differences are taken unsigned), the widget's rate strings and the
// scene's own frames-per-second figure.
#pragma once

#include <cstdint>
#include <string>

class MicroClock {
 public:
  MicroClock();
  // Microseconds since construction (or Restart), wrapping after ~71 minutes.
  uint32_t Now() const;
  void Restart();

 private:
  int64_t startNs_;
};

// The three overlay strings of the widget: frame rate, busy fraction and the
// combined "fps: ... @ ..." line, refreshed once a second.
class PaintRates {
 public:
  // One painted frame: t0 before drawing, t1 after the swap.
  void OnPaint(uint32_t t0, uint32_t t1);

  const std::string& frameRate() const { return frameRate_; }
  const std::string& load() const { return load_; }
  const std::string& combined() const { return combined_; }
  double lastFrameRate() const { return lastFrameRate_; }
  double lastDrawRate() const { return lastDrawRate_; }

 private:
  bool started_ = false;
  uint32_t windowBegin_ = 0;
  uint32_t previousT0_ = 0;
  uint64_t busy_ = 0;
  double lastFrameRate_ = 0, lastDrawRate_ = 0;
  std::string frameRate_, load_, combined_;
};

// Frames counted by the scene and turned into a rate once a second.
class FrameRateSampler {
 public:
  // Returns the current figure after considering a new sample at `now`.
  double Sample(uint32_t now, uint32_t frames);
  double fps() const { return fps_; }

 private:
  bool started_ = false;
  uint32_t sampleTime_ = 0, sampleFrames_ = 0;
  double fps_ = 0;
};
