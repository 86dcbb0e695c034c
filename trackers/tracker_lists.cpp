#include "trackers/tracker_lists.h"

#include <algorithm>
#include <cstdio>

int32_t LedOfMarker(const TrackerList& trackers, int32_t markerId) {
  for (const auto& t : trackers) {
    if (t->id != (markerId >> 12)) continue;
    for (const TrackerMarker& m : t->markers)
      if (m.index == (markerId & 0xfff)) return m.ledId;
    return -1;
  }
  return -1;
}

std::vector<int32_t> MarkerIdsAt(const std::vector<int>& indices,
                                 const std::vector<ZORMarker>& frame) {
  std::vector<int32_t> ids;
  for (int index : indices)
    if (index >= 0 && size_t(index) < frame.size()) ids.push_back(frame[size_t(index)].id);
  return ids;
}

std::string TrackerTypeLabel(uint32_t type) {
  switch (type) {
    case ZOR_POINT_TRACKER: return "PT";
    case ZOR_RIGID_TRACKER: return "RB";
    case ZOR_CALIB_TRACKER: return "CalibRB";
  }
  char text[16];
  std::snprintf(text, sizeof text, "%x", type);
  return text;
}

int32_t NextFreeTrackerId(const TrackerList& trackers) {
  const auto count = static_cast<int32_t>(trackers.size());
  int32_t largest = -1;
  for (const auto& t : trackers) largest = std::max(largest, t->id);
  if (largest == count - 1) return count;  // dense
  std::vector<char> used(size_t(std::max(largest, 0)) + 1, 0);
  for (const auto& t : trackers)
    if (t->id >= 0) used[size_t(t->id)] = 1;
  for (int32_t id = 0; id < largest; ++id)
    if (!used[size_t(id)]) return id;
  return count;
}

std::vector<int32_t> UnusedLeds(const TrackerList& trackers, int maxMarkers) {
  std::vector<char> used(size_t(std::max(maxMarkers, 0)), 0);
  for (const auto& t : trackers)
    for (const TrackerMarker& m : t->markers)
      if (m.ledId >= 0 && m.ledId < maxMarkers) used[size_t(m.ledId)] = 1;
  std::vector<int32_t> unused;
  for (int32_t led = 0; led < maxMarkers; ++led)
    if (!used[size_t(led)]) unused.push_back(led);
  return unused;
}

std::vector<int32_t> SeenLeds(const Tracker& tracker, const std::vector<char>& seen,
                              const std::vector<int32_t>& frameIds) {
  std::vector<int32_t> leds;
  const size_t n = std::min(seen.size(), frameIds.size());
  for (size_t i = 0; i < n; ++i) {
    if (!seen[i] || (frameIds[i] >> 12) != tracker.id) continue;
    const int32_t index = frameIds[i] & 0xfff;
    for (const TrackerMarker& m : tracker.markers) {
      if (m.index == index) {
        leds.push_back(m.ledId);
        break;
      }
    }
  }
  return leds;
}

std::string SavedLedsText(const Tracker& tracker) {
  std::string text;
  char line[64];
  if (tracker.type == ZOR_RIGID_TRACKER) {
    for (const TrackerMarker& m : tracker.markers) {
      const float x = m.position.size() >= 3 ? m.position[0] : 0.0f;
      const float y = m.position.size() >= 3 ? m.position[1] : 0.0f;
      const float z = m.position.size() >= 3 ? m.position[2] : 0.0f;
      std::snprintf(line, sizeof line, "%5d %10.2f %10.2f %10.2f\n", m.ledId, x, y, z);
      text += line;
    }
    return text;
  }
  // The break follows the ids at positions 16, 32, 48... (from 0).
  for (size_t i = 0; i < tracker.markers.size(); ++i) {
    if (i > 0) text += (i - 1 > 0 && (i - 1) % 16 == 0) ? ",\n" : ", ";
    text += std::to_string(tracker.markers[i].ledId);
  }
  return text;
}
