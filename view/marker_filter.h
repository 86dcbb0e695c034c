// Low-pass filter of one marker over a short window centred in time: the
// value for a frame is formed from the samples before and after it, so the
// filtered output runs half a window behind. Short gaps (frames in which the
// marker was not seen) are closed by linear interpolation.
#pragma once

#include <deque>

#include "zorsock/zorsock.h"

class MarkerFilter {
 public:
  static constexpr uint32_t kInterpolated = 64;  // flag of a gap-filled position
  enum OutputMode { kAverage = 0, kFit = 1 };

  // window = integer part of systemFreq / filterFreq, made odd. Both must be
  // above 0 (a programming error otherwise).
  void Configure(float systemFreq, float filterFreq);
  // Empties the history, configures and forgets the last valid frame.
  void Reset(float systemFreq, float filterFreq);
  // Appends the newest sample (dropping the oldest) and fills a short gap.
  void Push(const ZORMarker& sample);
  // The filtered sample for the frame half a window back; mode kFit fits a
  // straight line, any other mode averages. Returns the number of samples
  // used; below 1 the output's condition is -1 (not drawn).
  int Output(int mode, ZORMarker& out) const;

  int window() const { return window_; }
  int lastValidFrame() const { return lastValidFrame_; }
  const std::deque<ZORMarker>& data() const { return data_; }

  static ZORMarker EmptySample();
  static bool Valid(const ZORMarker& s) { return s.cond > 0 || (s.flag & kInterpolated); }

 private:
  void FillGap();
  int Fit(ZORMarker& out) const;
  int Average(ZORMarker& out) const;

  int window_ = -1;
  int lastValidFrame_ = -1;
  std::deque<ZORMarker> data_;
};
