// A scan in pieces of time that can be made independently of each other.
#pragma once

#include <cstdint>
#include <vector>

#include "host/synthesize/PulseReturns.h"

namespace tarnhost::synthesize {

/// Some seconds of a strip, and how many points they are to give.
struct ScanPiece {
  std::size_t strip = 0;
  double begin = 0;  ///< seconds since the strip began
  double end = 0;
  std::uint64_t pointCount = 0;
  double pointsPerPulse = 1;
  std::uint64_t number = 0;  ///< seeds the piece's random numbers
};

/// Divides `pointCount` points among pieces in the order of time, after trying a few pulses in each
/// to see how many points they give.
[[nodiscard]] std::vector<ScanPiece> PlanPieces(const Scene& scene,
                                                const std::vector<Strip>& strips,
                                                std::uint64_t pointCount, std::uint64_t seed);

/// Makes exactly the points of a piece, in the order of time.
void ScanThePiece(const Scene& scene, const Strip& strip, const ScanPiece& piece,
                  std::uint64_t seed, std::vector<ScanPoint>& points);

}  // namespace tarnhost::synthesize
