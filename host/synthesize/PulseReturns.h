// What comes back of one pulse: a solid thing gives one return, foliage on the way gives more.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "host/synthesize/ScannerPath.h"
#include "host/synthesize/Surface.h"

namespace tarnhost::synthesize {

/// One return, still in the scene's coordinates.
struct ScanPoint {
  Vector place;
  double gpsTime = 0;
  std::uint16_t intensity = 0;
  std::array<std::uint16_t, 3> color{};
  std::int16_t scanAngle = 0;  ///< units of 0.006 degrees
  std::uint16_t sourceId = 0;
  std::uint8_t returnNumber = 1;
  std::uint8_t returnCount = 1;
  PointClass pointClass = PointClass::kGround;
  bool positiveDirection = true;
  bool edge = false;
};

inline constexpr std::size_t kMostReturns = 7;

/// Appends the returns of a pulse in the order of their ranges; none when it leaves the scene.
void AppendReturns(const Scene& scene, const Strip& strip, const Pulse& pulse, Random& random,
                   std::vector<ScanPoint>& points);
/// How many returns AppendReturns would append, without the cost of colours.
[[nodiscard]] std::size_t CountReturns(const Scene& scene, const Strip& strip, const Pulse& pulse,
                                       Random& random);

}  // namespace tarnhost::synthesize
