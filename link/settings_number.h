// Numbers in the settings files, read as they always have been (atoi, atof:
// leading digits count, anything unreadable is 0) but without their undefined
// behaviour: a number beyond int's range is clamped, and a real number that
// is not finite or beyond float's range reads as 0.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

inline int SettingInt(const char* text) {
  const long long v = std::strtoll(text, nullptr, 10);
  return static_cast<int>(std::clamp<long long>(v, INT_MIN, INT_MAX));
}

inline float SettingFloat(const char* text) {
  const double v = std::strtod(text, nullptr);
  return std::isfinite(v) && std::fabs(v) < 1e30 ? static_cast<float>(v) : 0.0f;
}
