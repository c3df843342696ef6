// What a pulse sees where it stops.
#include "host/synthesize/Surface.h"

#include <algorithm>

namespace tarnhost::synthesize {

namespace {

constexpr double kSkyShare = 0.45;
constexpr double kShadowReach = 40;  ///< metres; nothing here throws a longer shadow
/// Leaves overlap and turn away from the sun, which therefore gets further than a pulse.
constexpr double kSunThroughLeaves = 0.6;

Color Scaled(Color color, double factor) {
  return {color.red * factor, color.green * factor, color.blue * factor};
}

Surface GroundAt(const Scene& scene, Vector at) {
  const double fine = PlaceNoise(at.x, at.y, 0.15);
  const double coarse = PlaceNoise(at.x, at.y, 1.7);
  switch (scene.GetTerrain().KindAt(at.x, at.y)) {
    case GroundKind::kAsphalt:
      return {PointClass::kRoad, Scaled({0.30, 0.30, 0.32}, 0.85 + 0.2 * fine + 0.1 * coarse),
              0.16};
    case GroundKind::kMarking:
      return {PointClass::kRoad, {0.90, 0.90, 0.88}, 0.72};
    case GroundKind::kKerb:
      return {PointClass::kGround, Scaled({0.66, 0.65, 0.62}, 0.9 + 0.1 * fine), 0.38};
    case GroundKind::kPavement:
      return {PointClass::kGround,
              Scaled({0.58, 0.56, 0.53}, 0.85 + 0.25 * PlaceNoise(at.x, at.y, 0.5)), 0.32};
    case GroundKind::kGrass:
      break;
  }
  return {PointClass::kGround,
          {0.30 + 0.10 * coarse, 0.46 + 0.08 * fine + 0.04 * coarse, 0.18 + 0.04 * fine},
          0.45 + 0.1 * fine};
}

Surface HouseAt(const Solid& house, Vector normal, int face, Vector at) {
  constexpr int kWallFaces = 4;
  if (face >= kWallFaces) {
    const double row = PlaceNoise(at.z, 0, 0.18);
    return {PointClass::kBuilding, Scaled(house.secondColor, 0.85 + 0.25 * row), 0.35};
  }
  // Windows every 2.4 metres and on every storey of 2.8.
  const double along = normal.x != 0 ? at.y - house.bounds.min.y : at.x - house.bounds.min.x;
  const double up = at.z - house.bounds.min.z - 2;
  const double column = std::fmod(along + 0.4, 2.4);
  const double storey = std::fmod(up + 28, 2.8);
  const bool window = column > 0.9 && column < 2.0 && storey > 0.9 && storey < 2.2 && up > 0;
  if (window) return {PointClass::kBuilding, {0.16, 0.20, 0.26}, 0.06};
  return {PointClass::kBuilding, Scaled(house.color, 0.95 + 0.05 * PlaceNoise(along, up, 0.6)),
          0.55};
}

Surface SolidAt(const Solid& solid, const Trace& trace, Vector at) {
  switch (solid.kind) {
    case SolidKind::kHouse:
      return HouseAt(solid, trace.normal, trace.face, at);
    case SolidKind::kChimney:
      return {PointClass::kBuilding, solid.color, 0.3};
    case SolidKind::kCar:
      return trace.face < 4 ? Surface{PointClass::kCar, solid.secondColor, 0.25}
                            : Surface{PointClass::kCar, solid.color, 0.5};
    case SolidKind::kPole:
      return {PointClass::kStreetFurniture, solid.color, 0.6};
    case SolidKind::kTrunk:
      break;
  }
  return {PointClass::kHighVegetation, solid.color, 0.3};
}

}  // namespace

Surface SurfaceOf(const Scene& scene, const Trace& trace, Vector place, Random& random) {
  if (trace.solid >= 0) {
    return SolidAt(scene.GetSolids()[static_cast<std::size_t>(trace.solid)], trace, place);
  }
  Surface surface = GroundAt(scene, place);
  surface.reflectance *= 0.95 + 0.1 * random.Unit();
  return surface;
}

Surface LeavesAt(const Foliage& foliage, Vector place, Random& random) {
  const double height = place.z - foliage.groundHeight;
  const double shade = 0.8 + 0.4 * random.Unit();
  Surface surface{PointClass::kHighVegetation, Scaled(foliage.color, shade), 0.5};
  if (height < 0.5) {
    surface.pointClass = PointClass::kLowVegetation;
  } else if (height < 2) {
    surface.pointClass = PointClass::kMediumVegetation;
  }
  return surface;
}

double DaylightAt(const Scene& scene, Vector place, Vector normal) {
  static const Vector kSun = Normalised({0.45, -0.55, 0.75});
  const double facing = Dot(normal, kSun);
  if (facing <= 0) return kSkyShare;
  Trace trace;
  scene.Cast({place + normal * 0.05, kSun}, kShadowReach, trace);
  if (trace.stopped) return kSkyShare;
  double depth = 0;
  for (std::size_t i = 0; i < trace.leavesCount; ++i) {
    const Trace::Leaves& leaves = trace.leaves[i];
    depth += (leaves.leave - leaves.enter) * scene.GetFoliage()[leaves.foliage].density;
  }
  return kSkyShare + (1 - kSkyShare) * facing * std::exp(-kSunThroughLeaves * depth);
}

}  // namespace tarnhost::synthesize
