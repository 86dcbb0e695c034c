#include "view/marker_store.h"

#include <algorithm>
#include <cmath>
#include <limits>

void MarkerTrail::Push(const Vec3& p, size_t capacity) {
  if (ring.size() != capacity) {
    // Capacity changed: keep the newest positions that still fit.
    std::vector<Vec3> kept;
    const size_t keep = count < capacity ? count : capacity;
    for (size_t i = keep; i-- > 0;) kept.push_back(Back(i));
    kept.resize(capacity);
    ring.swap(kept);
    count = keep;
    head = keep % capacity;
  }
  ring[head] = p;
  head = (head + 1) % ring.size();
  if (count < ring.size()) ++count;
  ++pushed;
}

int MarkerStore::Ratio(float systemFreq, float filterFreq) {
  if (!(systemFreq > 0) || !(filterFreq > 0)) return 0;
  return static_cast<int>(systemFreq / filterFreq);
}

void MarkerStore::Process(std::vector<ZORMarker>& markers, float systemFreq) {
  if (markers.empty()) {
    filters_.clear();
    averageCondition_ = 0;
    return;
  }
  if (systemFreq != systemFrequency_) Reset(systemFreq);

  if (Ratio(systemFreq, filterFrequency_) >= 3) {
    if (filters_.size() < markers.size()) filters_.resize(markers.size());
    if (outputs_.size() < markers.size()) outputs_.resize(markers.size(), MarkerFilter::EmptySample());
    for (size_t i = 0; i < markers.size(); ++i) {
      filters_[i].Configure(systemFreq, filterFrequency_);
      filters_[i].Push(markers[i]);
      if (filtering_) filters_[i].Output(MarkerFilter::kFit, outputs_[i]);
    }
    if (filtering_) {
      for (size_t i = 0; i < markers.size(); ++i) markers[i] = outputs_[i];
    }
  }

  double sum = 0;
  int seen = 0;
  for (const ZORMarker& m : markers) {
    if (m.cond > 0) sum += m.cond, ++seen;
  }
  averageCondition_ = seen ? static_cast<float>(sum / seen) : 0.0f;
  RecordTrails(markers);
}

void MarkerStore::Reset(float systemFreq) {
  systemFrequency_ = systemFreq;
  trails_.clear();
  outputs_.clear();
  if (systemFreq > 0 && filterFrequency_ > 0) {
    for (MarkerFilter& f : filters_) f.Reset(systemFreq, filterFrequency_);
  }
}

void MarkerStore::SetFilterFrequency(float hz) {
  if (!(hz >= 0)) return;
  filterFrequency_ = hz;
  Reset(systemFrequency_);
}

void MarkerStore::SetBrush(int brush) {
  brush_ = brush;
  if (brush_ == kBrushNone) trails_.clear();  // no memory held for nothing drawn
}

void MarkerStore::SetMaxHistory(int n) {
  if (n > 0) maxHistory_ = std::min(n, kMaxHistoryFrames);
}

size_t MarkerStore::HistoryBytes() const {
  size_t bytes = 0;
  for (const MarkerTrail& t : trails_) bytes += t.ring.capacity() * sizeof(Vec3);
  return bytes;
}

void MarkerStore::RecordTrails(const std::vector<ZORMarker>& markers) {
  if (brush_ == kBrushNone) return;
  for (size_t i = trails_.size(); i < markers.size(); ++i) trails_.emplace_back().serial = ++trailSerial_;
  const float gap = std::numeric_limits<float>::quiet_NaN();
  for (size_t i = 0; i < trails_.size(); ++i) {
    MarkerTrail& t = trails_[i];
    const ZORMarker* m = i < markers.size() ? &markers[i] : nullptr;
    // A different marker in this slot starts a new trail.
    if (m && m->id != t.id) {
      t = MarkerTrail{};
      t.id = m->id;
      t.serial = ++trailSerial_;
    }
    const bool seen = m && m->cond > 0;
    t.Push(seen ? Vec3(m->x, m->y, m->z) : Vec3(gap, gap, gap), static_cast<size_t>(maxHistory_));
  }
}
