#include "zord/room/sim_random.h"

#include <cmath>

namespace zord {
namespace {

// Inverse of the standard normal distribution function by bisection; only
// used once to fill the table.
double NormalQuantile(double p) {
  double lo = -10, hi = 10;
  for (int i = 0; i < 100; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (0.5 * std::erfc(-mid / std::sqrt(2.0)) < p) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return 0.5 * (lo + hi);
}

std::array<float, SimRandom::kTableSize> BuildTable() {
  std::array<double, SimRandom::kTableSize> q{};
  double sum_sq = 0;
  for (int i = 0; i < SimRandom::kTableSize; ++i) {
    q[i] = NormalQuantile((i + 0.5) / SimRandom::kTableSize);
    sum_sq += q[i] * q[i];
  }
  // The table cuts the tails; rescale so its variance is exactly one.
  const double scale = 1.0 / std::sqrt(sum_sq / SimRandom::kTableSize);
  std::array<float, SimRandom::kTableSize> table{};
  for (int i = 0; i < SimRandom::kTableSize; ++i) table[i] = static_cast<float>(q[i] * scale);
  return table;
}

}  // namespace

const std::array<float, SimRandom::kTableSize>& SimRandom::NormalTable() {
  static const std::array<float, kTableSize> table = BuildTable();
  return table;
}

}  // namespace zord
