// Fast, seeded random numbers for the simulation's per-detection noise: a
// xoshiro256+ generator and a table-driven standard normal. Deterministic for a
// given seed, no allocation, a few nanoseconds per draw.
#pragma once

#include <array>
#include <cstdint>

namespace zord {

class SimRandom {
 public:
  explicit SimRandom(uint64_t seed = 1) { Seed(seed); }

  void Seed(uint64_t seed) {
    for (auto& word : state_) word = SplitMix(seed);
  }

  uint64_t Next() {
    const uint64_t result = state_[0] + state_[3];
    const uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = (state_[3] << 45) | (state_[3] >> 19);
    return result;
  }

  // Uniform in [0, 1).
  double Uniform() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

  // Two independent standard normal samples from one draw.
  void Normal2(float* a, float* b) {
    const uint64_t bits = Next();
    *a = table_[bits >> (64 - kTableBits)];
    *b = table_[(bits >> 20) & (kTableSize - 1)];
  }

  static constexpr int kTableBits = 12;
  static constexpr int kTableSize = 1 << kTableBits;
  // Equiprobable quantiles of the standard normal, scaled to unit variance.
  static const std::array<float, kTableSize>& NormalTable();

 private:
  static uint64_t SplitMix(uint64_t& x) {
    uint64_t z = (x += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  std::array<uint64_t, 4> state_{};
  const float* table_ = NormalTable().data();
};

}  // namespace zord
