// What the tracker tests compare: a tracker's LED ids and marker numbers, in
// list order, and what a call prints.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
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

inline std::string Stderr(const std::function<void()>& run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

inline std::string Stdout(const std::function<void()>& run) {
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}
