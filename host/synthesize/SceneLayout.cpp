// What stands where in the synthetic scene.
#include <algorithm>

#include "host/synthesize/Scene.h"

namespace tarnhost::synthesize {

namespace {

constexpr double kPlotWidth = 19;  ///< metres of street to a house
constexpr double kLampSpacing = 28;
constexpr double kParkingSpacing = 7;

constexpr std::array<Color, 5> kWalls{{{0.93, 0.91, 0.86},
                                       {0.88, 0.79, 0.62},
                                       {0.80, 0.62, 0.50},
                                       {0.95, 0.95, 0.95},
                                       {0.72, 0.74, 0.72}}};
constexpr std::array<Color, 4> kRoofs{
    {{0.62, 0.27, 0.18}, {0.48, 0.22, 0.17}, {0.33, 0.33, 0.36}, {0.55, 0.36, 0.26}}};
constexpr std::array<Color, 6> kPaints{{{0.75, 0.08, 0.08},
                                        {0.10, 0.20, 0.50},
                                        {0.85, 0.85, 0.87},
                                        {0.12, 0.12, 0.13},
                                        {0.55, 0.57, 0.60},
                                        {0.20, 0.42, 0.25}}};

template <std::size_t N>
Color Pick(Random& random, const std::array<Color, N>& colors) {
  return colors[random.Next() % N];
}

}  // namespace

bool Scene::IsFree(double x, double y, double radius) const {
  return std::none_of(solids_.begin(), solids_.end(), [&](const Solid& solid) {
    return x > solid.bounds.min.x - radius && x < solid.bounds.max.x + radius &&
           y > solid.bounds.min.y - radius && y < solid.bounds.max.y + radius;
  });
}

void Scene::PlaceHouses(Random& random) {
  const double end = terrain_.GetHalfLength() - 8;
  for (const double side : {-1.0, 1.0}) {
    for (double x = -end + 6; x < end - 6; x += kPlotWidth) {
      PlaceHouse(random, x + random.Between(-1.5, 1.5), side * random.Between(15, 17), side);
      if (random.Chance(0.7)) {
        PlaceHouse(random, x + random.Between(-2, 2), side * random.Between(43, 47), -side);
      }
    }
  }
}

void Scene::PlaceHouse(Random& random, double x, double y, double side) {
  const double halfWidth = random.Between(4.5, 6.2);
  const double halfDepth = random.Between(4, 5);
  const bool reachesSideStreet =
      y > 0 && std::abs(x - kSideStreetX) < kSideStreetHalfWidth + halfWidth + 2;
  if (reachesSideStreet) return;
  const double ground = terrain_.HeightAt(x, y);
  const double eaves = ground + random.Between(3.2, 6.4);
  const double ridge = eaves + random.Between(2.2, 3.6);
  Solid house = MakeHouse({x - halfWidth, y - halfDepth, ground - 2},
                          {x + halfWidth, y + halfDepth, eaves}, eaves, ridge, random.Chance(0.7));
  house.color = Pick(random, kWalls);
  house.secondColor = Pick(random, kRoofs);
  solids_.push_back(house);
  const double chimneyX = x + random.Between(-0.5, 0.5) * halfWidth;
  const double chimneyY = y + side * random.Between(0.5, 1.5);
  Solid chimney = MakeBox(SolidKind::kChimney, {chimneyX - 0.35, chimneyY - 0.35, eaves},
                          {chimneyX + 0.35, chimneyY + 0.35, ridge + 0.7});
  chimney.color = {0.55, 0.30, 0.24};
  solids_.push_back(chimney);
}

void Scene::PlaceTrees(Random& random) {
  const double end = terrain_.GetHalfLength() - 5;
  for (const double side : {-1.0, 1.0}) {
    for (double x = -end; x < end; x += 13) {
      const double at = x + random.Between(-2, 2);
      const double y = side * (kPavementEnd + 0.9);
      const bool wanted = random.Chance(0.6);
      const double height = random.Between(6.5, 10);
      if (wanted && DistanceToRoad(at, y) > 1.5 && IsFree(at, y, 1.2)) {
        PlaceTree(random, at, y, height);
      }
    }
  }
  const auto gardens = static_cast<int>(terrain_.GetHalfLength() * 0.75);
  for (int i = 0; i < gardens; ++i) {
    const double x = random.Between(-end, end);
    const double y = (random.Chance(0.5) ? 1 : -1) * random.Between(23, kSceneHalfDepth - 4);
    const double height = random.Between(4, 14);
    if (DistanceToRoad(x, y) > 3 && IsFree(x, y, 2)) PlaceTree(random, x, y, height);
  }
}

void Scene::PlaceTree(Random& random, double x, double y, double height) {
  const double ground = terrain_.HeightAt(x, y);
  Solid trunk =
      MakePole(SolidKind::kTrunk, {x, y, ground - 0.3}, 0.1 + 0.012 * height, 0.3 + 0.6 * height);
  trunk.color = {0.36, 0.27, 0.20};
  solids_.push_back(trunk);
  const double spread = height * random.Between(0.22, 0.30);
  const double tint = random.Between(-0.05, 0.05);
  const double middle = ground + 0.64 * height;
  for (int i = 0; i < 5; ++i) {
    const double angle = i * 1.2566 + random.Between(-0.4, 0.4);
    const double out = i == 0 ? 0 : 0.55 * spread;
    Foliage leaves;
    leaves.centre = {
        x + out * std::cos(angle), y + out * std::sin(angle),
        i == 0 ? middle + 0.1 * height : middle + random.Between(-0.08, 0.08) * height};
    const double radius = spread * random.Between(0.6, 0.8);
    leaves.radii = {radius, radius, i == 0 ? 0.26 * height : radius * random.Between(0.7, 1.0)};
    leaves.density = random.Between(0.5, 0.9);
    leaves.groundHeight = ground;
    leaves.color = {0.24 + tint, 0.42 + 0.6 * tint, 0.14};
    foliage_.push_back(leaves);
  }
}

void Scene::PlaceHedges(Random& random) {
  const double end = terrain_.GetHalfLength() - 4;
  for (const double side : {-1.0, 1.0}) {
    for (double x = -end; x < end; x += 1.1) {
      // A gap before every house for its path.
      const bool gap = std::fmod(x + end, kPlotWidth) < 4.5;
      const double y = side * (kPavementEnd + 0.7) + random.Between(-0.1, 0.1);
      const double height = random.Between(0.9, 1.3);
      if (gap || DistanceToRoad(x, y) < 2.2 || !IsFree(x, y, 0.6)) continue;
      Foliage hedge;
      hedge.groundHeight = terrain_.HeightAt(x, y);
      hedge.centre = {x, y, hedge.groundHeight + height / 2};
      hedge.radii = {0.85, 0.45, height / 2 + 0.1};
      hedge.density = 5;
      hedge.color = {0.18, 0.36 + random.Between(-0.04, 0.04), 0.12};
      foliage_.push_back(hedge);
    }
  }
}

void Scene::PlaceCars(Random& random) {
  const double end = terrain_.GetHalfLength() - 10;
  for (const double side : {-1.0, 1.0}) {
    for (double x = -end; x < end; x += kParkingSpacing) {
      const bool parked = random.Chance(0.3);
      const double at = x + random.Between(-0.6, 0.6);
      const bool junction = side > 0 && std::abs(at - kSideStreetX) < kSideStreetHalfWidth + 6;
      if (parked && !junction) PlaceCar(random, at, side * 2.95);
    }
  }
}

void Scene::PlaceCar(Random& random, double x, double y) {
  const double ground = terrain_.HeightAt(x, y);
  const double halfLength = random.Between(2.0, 2.4);
  Solid body = MakeBox(SolidKind::kCar, {x - halfLength, y - 0.9, ground + 0.18},
                       {x + halfLength, y + 0.9, ground + 0.88});
  body.AddPlane({0, 0, -1}, body.bounds.min);
  body.color = body.secondColor = Pick(random, kPaints);
  Solid cabin = body;
  cabin.planeCount = 0;
  cabin.bounds = {{x - 0.62 * halfLength, y - 0.82, ground + 0.85},
                  {x + 0.48 * halfLength, y + 0.82, ground + 1.45}};
  cabin.AddPlane({-0.6, 0, 0.45}, cabin.bounds.min);
  cabin.AddPlane({0.6, 0, 0.55}, {cabin.bounds.max.x, y, cabin.bounds.min.z});
  cabin.AddPlane({0, -1, 0.25}, cabin.bounds.min);
  cabin.AddPlane({0, 1, 0.25}, {x, cabin.bounds.max.y, cabin.bounds.min.z});
  cabin.AddPlane({0, 0, 1}, cabin.bounds.max);
  cabin.AddPlane({0, 0, -1}, cabin.bounds.min);
  cabin.secondColor = {0.10, 0.12, 0.14};  // glass on the sides, paint on top
  solids_.push_back(body);
  solids_.push_back(cabin);
}

void Scene::PlaceLamps() {
  const double end = terrain_.GetHalfLength() - 6;
  double side = 1;
  for (double x = -end; x < end; x += kLampSpacing, side = -side) {
    const double y = side * (kStreetHalfWidth + 0.55);
    if (DistanceToRoad(x, y) < 0.4) continue;
    const double ground = terrain_.HeightAt(x, y);
    Solid pole = MakePole(SolidKind::kPole, {x, y, ground}, 0.09, 7.2);
    const double tip = y - side * 1.9;
    Solid arm = MakeBox(SolidKind::kPole, {x - 0.05, std::min(y, tip), ground + 7.05},
                        {x + 0.05, std::max(y, tip), ground + 7.15});
    Solid lamp = MakeBox(SolidKind::kPole, {x - 0.18, tip - 0.35, ground + 6.93},
                         {x + 0.18, tip + 0.35, ground + 7.08});
    for (Solid* part : {&pole, &arm, &lamp}) {
      part->color = {0.50, 0.53, 0.54};
      part->bounds.min.z -= 0.1;
      if (part != &pole) part->AddPlane({0, 0, -1}, part->bounds.min);
      solids_.push_back(*part);
    }
  }
}

}  // namespace tarnhost::synthesize
