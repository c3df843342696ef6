// Reproducible random numbers: the same on every machine and for every number of threads.
#pragma once

#include <cmath>
#include <cstdint>

namespace tarnhost::synthesize {

/// SplitMix64 (Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  /// The generator of one of many independent pieces of work.
  Random(std::uint64_t seed, std::uint64_t piece) : state_(seed) {
    state_ = Next() ^ (piece * 0xD1B54A32D192ED03u);
    state_ = Next();
  }

  std::uint64_t Next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  /// In [0, 1).
  double Unit() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
  double Between(double low, double high) { return low + (high - low) * Unit(); }
  bool Chance(double probability) { return Unit() < probability; }
  /// Mean 0, deviation 1, within ±6: the sum of twelve uniform numbers is near enough to normal.
  double Normal() {
    double sum = -6;
    for (int i = 0; i < 12; i += 3) {
      const std::uint64_t bits = Next();
      for (int part = 0; part < 3; ++part) {
        sum += static_cast<double>((bits >> (21 * part)) & 0x1FFFFFu) * 0x1p-21;
      }
    }
    return sum;
  }

 private:
  std::uint64_t state_;
};

/// A number in [0, 1) that belongs to a place: same place, same number.
inline double PlaceNoise(double x, double y, double cell) {
  const auto i = static_cast<std::int64_t>(std::floor(x / cell));
  const auto j = static_cast<std::int64_t>(std::floor(y / cell));
  Random random(static_cast<std::uint64_t>(i) * 0x9E3779B97F4A7C15u ^
                static_cast<std::uint64_t>(j) * 0xC2B2AE3D27D4EB4Fu);
  return random.Unit();
}

}  // namespace tarnhost::synthesize
