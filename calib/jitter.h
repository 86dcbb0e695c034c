// The stationary jitter test of an alignment body: while it runs, every
// frame's positions of the body's markers are collected; at the end each
// marker gets its error radius, the mean distance of its seen positions from
// their mean.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "zorsock/zorsock.h"

class JitterTest {
 public:
  // Starts collecting for `markerCount` markers (ids tracker << 12 | index).
  void Start(int32_t trackerId, int markerCount);
  // Takes this frame's samples of the body's markers.
  void Collect(const std::vector<ZORMarker>& markers);
  // Stops; per marker its radius, or nothing when it was never seen. Empty
  // when nothing was collected at all. The samples are dropped.
  std::vector<std::optional<double>> Stop();
  bool running() const { return running_; }

 private:
  bool running_ = false;
  int32_t trackerId_ = 0;
  std::vector<std::vector<ZORMarker>> samples_;  // per marker index
};
