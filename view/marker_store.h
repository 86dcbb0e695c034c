// The view's per-marker data: one low-pass filter per marker index (whose
// output replaces the frame's markers when filtering is on) and the history
// of past positions drawn as trails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "view/marker_filter.h"
#include "zorsock/geometry.h"

enum TrailBrush { kBrushNone = 0, kBrushPoints = 1, kBrushLines = 2 };

// Past positions of one marker index, newest last; a NaN position marks a
// frame in which the marker was not seen (trails break there).
struct MarkerTrail {
  int id = -1;
  std::vector<Vec3> ring;  // circular, `head` is the next write
  size_t head = 0;
  size_t count = 0;
  uint64_t pushed = 0;  // positions pushed since the trail began
  uint64_t serial = 0;  // tells this trail from any earlier one in the slot

  void Push(const Vec3& p, size_t capacity);
  // i = 0 is the newest position.
  const Vec3& Back(size_t i) const { return ring[(head + ring.size() - 1 - i) % ring.size()]; }
};

class MarkerStore {
 public:
  // One delivered frame: pushes every marker into its filter and, when
  // filtering is on (and the window holds 3 or more samples), replaces the
  // markers with the filtered positions; then records the trails.
  void Process(std::vector<ZORMarker>& markers, float systemFreq);
  // New connection or new frequencies: history emptied, filters reset.
  void Reset(float systemFreq);

  void SetFilterFrequency(float hz);
  float filterFrequency() const { return filterFrequency_; }
  void SetFiltering(bool on) { filtering_ = on; }
  bool filtering() const { return filtering_; }
  // Condition cut-off: markers at or below it are drawn as spheres.
  void SetConditionCutoff(float c) { conditionCutoff_ = c; }
  float conditionCutoff() const { return conditionCutoff_; }

  void SetBrush(int brush);
  int brush() const { return brush_; }
  void SetFade(bool on) { fade_ = on; }
  bool fade() const { return fade_; }
  // 0 is kept: with fading on, trails then fade at once (nothing is drawn).
  void SetFadeCount(int frames) { fadeCount_ = frames > 0 ? frames : 0; }
  int fadeCount() const { return fadeCount_; }
  // Frames of history kept per marker: n > 0, at most kMaxHistoryFrames (a
  // settings file may ask for more than memory holds); anything else is ignored.
  static constexpr int kMaxHistoryFrames = 50000;
  void SetMaxHistory(int n);
  int maxHistory() const { return maxHistory_; }
  // Memory held by the trails, for the preferences' read-out.
  size_t HistoryBytes() const;
  // Mean condition of the markers seen in the last frame (0 when none).
  float averageCondition() const { return averageCondition_; }

  const std::vector<MarkerTrail>& trails() const { return trails_; }
  const std::vector<MarkerFilter>& filters() const { return filters_; }
  // The filter window the current frequencies give (0 when filtering cannot run).
  static int Ratio(float systemFreq, float filterFreq);

 private:
  void RecordTrails(const std::vector<ZORMarker>& markers);

  std::vector<MarkerFilter> filters_;
  std::vector<ZORMarker> outputs_;
  std::vector<MarkerTrail> trails_;
  float filterFrequency_ = 16.0f;
  float systemFrequency_ = 0;
  bool filtering_ = false;
  float conditionCutoff_ = 0;
  int brush_ = kBrushNone;
  bool fade_ = false;
  int fadeCount_ = 480;
  int maxHistory_ = 960;
  uint64_t trailSerial_ = 0;
  float averageCondition_ = 0;
};
