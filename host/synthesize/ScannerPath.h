// The paths that carry the scanner: two flights along the street and two drives down it.
#pragma once

#include <cstdint>
#include <vector>

#include "host/synthesize/Terrain.h"

namespace tarnhost::synthesize {

/// One pulse of the scanner.
struct Pulse {
  Ray ray;
  double time = 0;       ///< seconds since the strip began
  double scanAngle = 0;  ///< degrees from straight down
  bool positiveDirection = true;
  bool edge = false;  ///< the last of a sweep
};

/// One straight run with the scanner on.
struct Strip {
  bool airborne = true;
  std::uint16_t sourceId = 0;
  double y = 0;          ///< of the run, metres
  double heading = 1;    ///< 1 runs towards positive x, -1 the other way
  double speed = 0;      ///< metres a second
  double duration = 0;   ///< seconds
  double startTime = 0;  ///< GPS seconds
  double share = 0;      ///< of all points
  double sweeps = 0;     ///< mirror sweeps (or turns) a second

  /// The pulse at `time`; `spacing` is the time to the next one.
  [[nodiscard]] Pulse PulseAt(double time, double spacing, const Terrain& terrain) const;
};

/// The strips of a scan of `pointCount` points, one after the other in time.
[[nodiscard]] std::vector<Strip> PlanStrips(const Terrain& terrain, std::uint64_t pointCount);

}  // namespace tarnhost::synthesize
