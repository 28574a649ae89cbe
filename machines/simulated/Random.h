// The simulator's random numbers: SplitMix64, so that a seed gives the same numbers in every build. One thread at a
// time; numbers without a unit, shares 0 to 1. Nothing fails.
#pragma once

#include <cstdint>

namespace ixocamglue {

class TSimRandom {
 public:
  explicit TSimRandom(std::uint64_t seed) : FState(seed) {}

  std::uint64_t Next() {
    FState += 0x9E3779B97F4A7C15U;
    std::uint64_t z = FState;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  // 0 to count - 1; 0 for a count of 0. The bias of the remainder does not matter for counts this far below 2^64.
  std::uint64_t Below(std::uint64_t count) { return count == 0 ? 0 : Next() % count; }
  // 0 to below 1.
  double Share() { return static_cast<double>(Next() >> 11U) * 0x1p-53; }
  double Between(double low, double high) { return low + (high - low) * Share(); }
  // Normally distributed, mean 0 and deviation 1, within +-6: a sum of twelve even numbers needs no function whose last
  // digit differs between libraries.
  double Normal() {
    double sum = -6.0;
    for (int i = 0; i < 4; ++i) {
      std::uint64_t bits = Next();
      for (int part = 0; part < 3; ++part, bits >>= 21U) sum += static_cast<double>(bits & 0x1FFFFFU) * 0x1p-21;
    }
    return sum;
  }

 private:
  std::uint64_t FState;
};

}  // namespace ixocamglue
