// The ground of the synthetic scene: gentle hills, a street with kerbs, and a side street.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/synthesize/Vector.h"

namespace tarnhost::synthesize {

// The street runs along the x axis.
inline constexpr double kStreetHalfWidth = 4.0;
inline constexpr double kPavementEnd = 6.4;  ///< distance of the pavement's outer edge
inline constexpr double kSideStreetX = 25.0;
inline constexpr double kSideStreetHalfWidth = 3.0;
inline constexpr double kSceneHalfDepth = 66.0;  ///< y reaches from minus this to this

enum class GroundKind : std::uint8_t { kAsphalt, kMarking, kKerb, kPavement, kGrass };

/// Heights of the ground. Immutable, so safe from several threads at once.
class Terrain {
 public:
  /// x reaches from -halfLength to halfLength, metres.
  Terrain(double halfLength, std::uint64_t seed);

  [[nodiscard]] double GetHalfLength() const { return halfLength_; }
  [[nodiscard]] double HeightAt(double x, double y) const;
  [[nodiscard]] Vector NormalAt(double x, double y) const;
  [[nodiscard]] GroundKind KindAt(double x, double y) const;

 private:
  [[nodiscard]] double HillAt(double x, double y) const;

  double halfLength_;
  std::size_t columns_;
  std::size_t rows_;
  std::vector<float> hills_;  ///< heights at the corners of squares of one metre
};

/// How far a place lies from the nearest road's edge; negative on the road.
[[nodiscard]] double DistanceToRoad(double x, double y);

}  // namespace tarnhost::synthesize
