#include "calib/jitter.h"

#include <cmath>

void JitterTest::Start(int32_t trackerId, int markerCount) {
  trackerId_ = trackerId;
  samples_.assign(markerCount > 0 ? markerCount : 0, {});
  running_ = true;
}

void JitterTest::Collect(const std::vector<ZORMarker>& markers) {
  if (!running_) return;
  for (const ZORMarker& m : markers) {
    const int32_t index = m.id & 0xFFF;
    if ((m.id >> 12) == trackerId_ && index < static_cast<int32_t>(samples_.size()))
      samples_[index].push_back(m);
  }
}

std::vector<std::optional<double>> JitterTest::Stop() {
  running_ = false;
  std::vector<std::optional<double>> radii;
  bool any = false;
  for (const auto& marker : samples_) any = any || !marker.empty();
  if (any) {
    for (const auto& marker : samples_) {
      double cx = 0, cy = 0, cz = 0;
      int n = 0;
      for (const ZORMarker& s : marker)
        if (s.cond > 0) cx += s.x, cy += s.y, cz += s.z, ++n;
      if (n == 0) {
        radii.emplace_back();
        continue;
      }
      cx /= n, cy /= n, cz /= n;
      double sum = 0;
      for (const ZORMarker& s : marker)
        if (s.cond > 0) sum += std::sqrt((s.x - cx) * (s.x - cx) + (s.y - cy) * (s.y - cy) +
                                         (s.z - cz) * (s.z - cz));
      radii.emplace_back(sum / n);
    }
  }
  samples_.clear();
  return radii;
}
