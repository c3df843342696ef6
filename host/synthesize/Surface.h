// What a pulse sees where it stops: class, colour and how much light comes back.
#pragma once

#include "host/synthesize/Scene.h"

namespace tarnhost::synthesize {

/// Classes of the synthetic scans: those of the LAS format, and two of the range that it
/// leaves to users.
enum class PointClass : std::uint8_t {
  kGround = 2,
  kLowVegetation = 3,
  kMediumVegetation = 4,
  kHighVegetation = 5,
  kBuilding = 6,
  kRoad = 11,
  kCar = 64,
  kStreetFurniture = 65,
};

struct Surface {
  PointClass pointClass = PointClass::kGround;
  Color color;
  double reflectance = 0;  ///< of the laser's light, 0 to 1
};

/// The surface that stopped a trace, at `place`.
[[nodiscard]] Surface SurfaceOf(const Scene& scene, const Trace& trace, Vector place,
                                Random& random);
/// The leaves of `foliage` at `place`.
[[nodiscard]] Surface LeavesAt(const Foliage& foliage, Vector place, Random& random);

/// Share of daylight that reaches a place with a normal: sun, less what stands in its way, and sky.
[[nodiscard]] double DaylightAt(const Scene& scene, Vector place, Vector normal);

}  // namespace tarnhost::synthesize
