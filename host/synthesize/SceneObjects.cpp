// The things that stand in the synthetic scene, and how a ray meets them.
#include "host/synthesize/SceneObjects.h"

#include <algorithm>
#include <limits>

namespace tarnhost::synthesize {

void Solid::AddPlane(Vector normal, Vector through) {
  const Vector unit = Normalised(normal);
  planes[static_cast<std::size_t>(planeCount++)] = {unit, Dot(unit, through)};
}

bool Solid::Meet(const Ray& ray, double farthest, SolidEntry& entry) const {
  double enter = 0;
  double leave = farthest;
  int face = -1;
  for (int i = 0; i < planeCount; ++i) {
    const Plane& plane = planes[static_cast<std::size_t>(i)];
    const double approach = Dot(plane.normal, ray.direction);
    const double distance = plane.distance - Dot(plane.normal, ray.origin);
    if (approach == 0) {
      if (distance < 0) return false;
      continue;
    }
    const double range = distance / approach;
    if (approach > 0) {
      leave = std::min(leave, range);
    } else if (range > enter) {
      enter = range;
      face = i;
    }
    if (enter >= leave) return false;
  }
  if (face < 0) return false;
  entry = {enter, planes[static_cast<std::size_t>(face)].normal, face};
  return true;
}

bool Foliage::Meet(const Ray& ray, double& enter, double& leave) const {
  const Vector o = ray.origin - centre;
  const Vector from{o.x / radii.x, o.y / radii.y, o.z / radii.z};
  const Vector along{ray.direction.x / radii.x, ray.direction.y / radii.y,
                     ray.direction.z / radii.z};
  const double a = Dot(along, along);
  const double b = Dot(from, along);
  const double discriminant = b * b - a * (Dot(from, from) - 1);
  if (discriminant <= 0) return false;
  const double root = std::sqrt(discriminant);
  enter = std::max(0.0, (-b - root) / a);
  leave = (-b + root) / a;
  return leave > enter;
}

Solid MakeBox(SolidKind kind, Vector min, Vector max) {
  Solid solid;
  solid.kind = kind;
  solid.bounds = {min, max};
  solid.AddPlane({-1, 0, 0}, min);
  solid.AddPlane({1, 0, 0}, max);
  solid.AddPlane({0, -1, 0}, min);
  solid.AddPlane({0, 1, 0}, max);
  solid.AddPlane({0, 0, 1}, max);
  return solid;
}

Solid MakePole(SolidKind kind, Vector foot, double radius, double height) {
  Solid solid;
  solid.kind = kind;
  solid.bounds = {{foot.x - radius, foot.y - radius, foot.z},
                  {foot.x + radius, foot.y + radius, foot.z + height}};
  for (int side = 0; side < 7; ++side) {
    const double angle = side * (2 * 3.14159265358979323846 / 7);
    const Vector normal{std::cos(angle), std::sin(angle), 0};
    solid.AddPlane(normal, foot + normal * (radius * 0.93));
  }
  solid.AddPlane({0, 0, 1}, solid.bounds.max);
  return solid;
}

Solid MakeHouse(Vector min, Vector max, double eaves, double ridge, bool alongX) {
  Solid solid;
  solid.kind = SolidKind::kHouse;
  solid.bounds = {min, {max.x, max.y, ridge}};
  solid.AddPlane({-1, 0, 0}, min);
  solid.AddPlane({1, 0, 0}, max);
  solid.AddPlane({0, -1, 0}, min);
  solid.AddPlane({0, 1, 0}, max);
  const double half = (alongX ? max.y - min.y : max.x - min.x) / 2;
  const double rise = ridge - eaves;
  const Vector low{min.x, min.y, eaves};
  const Vector high{max.x, max.y, eaves};
  solid.AddPlane(alongX ? Vector{0, -rise, half} : Vector{-rise, 0, half}, low);
  solid.AddPlane(alongX ? Vector{0, rise, half} : Vector{rise, 0, half}, high);
  return solid;
}

}  // namespace tarnhost::synthesize
