// What the tracker tests compare: a tracker's LED ids and marker numbers, in list order.
#pragma once

#include <vector>

#include "link/tracker.h"

inline std::vector<int> Leds(const Tracker& t) {
  std::vector<int> leds;
  for (const auto& m : t.markers) leds.push_back(m.ledId);
  return leds;
}

inline std::vector<int> Indices(const Tracker& t) {
  std::vector<int> indices;
  for (const auto& m : t.markers) indices.push_back(m.index);
  return indices;
}
