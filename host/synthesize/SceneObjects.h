// The things that stand in the synthetic scene, and how a ray meets them.
#pragma once

#include <array>
#include <cstdint>

#include "host/synthesize/Vector.h"

namespace tarnhost::synthesize {

/// Red, green and blue, 0 to 1.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
};

/// An axis-aligned box around a thing.
struct Bounds {
  Vector min;
  Vector max;
};

enum class SolidKind : std::uint8_t { kHouse, kChimney, kCar, kPole, kTrunk };

/// Inside where normal · p <= distance.
struct Plane {
  Vector normal;
  double distance = 0;
};

/// Where a ray enters a solid.
struct SolidEntry {
  double range = 0;
  Vector normal;
  int face = 0;  ///< number of the plane
};

/// A convex body: what lies on the inner side of all its planes.
struct Solid {
  SolidKind kind = SolidKind::kHouse;
  int planeCount = 0;
  std::array<Plane, 8> planes{};
  Bounds bounds;
  Color color;        ///< of walls, paint, bark
  Color secondColor;  ///< of roofs and windscreens

  void AddPlane(Vector normal, Vector through);
  /// The first meeting in (0, farthest); false when there is none.
  [[nodiscard]] bool Meet(const Ray& ray, double farthest, SolidEntry& entry) const;
};

/// A cloud of leaves in an ellipsoid, which lets part of a pulse through.
struct Foliage {
  Vector centre;
  Vector radii;
  double density = 0;  ///< leaves met per metre
  double groundHeight = 0;
  Color color;

  [[nodiscard]] Bounds GetBounds() const { return {centre - radii, centre + radii}; }
  /// The ranges between which the ray is inside; false when it is nowhere.
  [[nodiscard]] bool Meet(const Ray& ray, double& enter, double& leave) const;
};

/// A box between two corners.
[[nodiscard]] Solid MakeBox(SolidKind kind, Vector min, Vector max);
/// An upright pole of seven sides.
[[nodiscard]] Solid MakePole(SolidKind kind, Vector foot, double radius, double height);
/// Walls up to `eaves` and a gable roof that rises from there to `ridge`, along x or along y.
[[nodiscard]] Solid MakeHouse(Vector min, Vector max, double eaves, double ridge, bool alongX);

}  // namespace tarnhost::synthesize
