// A street with houses, trees, cars and lamps, laid out from a seed, and rays cast into it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "host/synthesize/Random.h"
#include "host/synthesize/SceneObjects.h"
#include "host/synthesize/Terrain.h"

namespace tarnhost::synthesize {

/// What a ray meets on its way to the first thing that stops it.
struct Trace {
  struct Leaves {
    std::uint32_t foliage = 0;
    double enter = 0;
    double leave = 0;
  };
  static constexpr std::size_t kMostLeaves = 24;

  bool stopped = false;  ///< false: the ray leaves the scene
  double range = 0;
  Vector normal;
  std::int32_t solid = -1;  ///< -1: the ground
  int face = 0;
  std::array<Leaves, kMostLeaves> leaves{};  ///< in order of `enter`
  std::size_t leavesCount = 0;
};

/// The scene in a grid of square cells. Immutable after construction, so safe from several threads.
class Scene {
 public:
  /// `halfLength`: the street reaches from minus this to this along x, metres.
  Scene(double halfLength, std::uint64_t seed);

  [[nodiscard]] const Terrain& GetTerrain() const { return terrain_; }
  [[nodiscard]] const std::vector<Solid>& GetSolids() const { return solids_; }
  [[nodiscard]] const std::vector<Foliage>& GetFoliage() const { return foliage_; }

  /// What the ray meets within `farthest` metres.
  void Cast(const Ray& ray, double farthest, Trace& trace) const;

 private:
  struct Cell {
    float top = -1000;     ///< height of the highest thing in the cell
    float ground = -1000;  ///< height of the highest ground
    std::uint32_t firstThing = 0;
    std::uint32_t thingCount = 0;
  };

  // Layout (SceneLayout.cpp).
  void PlaceHouses(Random& random);
  void PlaceHouse(Random& random, double x, double y, double towardsStreet);
  void PlaceTrees(Random& random);
  void PlaceTree(Random& random, double x, double y, double height);
  void PlaceHedges(Random& random);
  void PlaceCars(Random& random);
  void PlaceCar(Random& random, double x, double y);
  void PlaceLamps();
  [[nodiscard]] bool IsFree(double x, double y, double radius) const;

  // Grid (Scene.cpp).
  void BuildGrid();
  void ListThings();
  bool Enter(const Ray& ray, double farthest, double& from, double& to) const;
  void VisitCell(const Cell& cell, const Ray& ray, double from, double to, Trace& trace) const;
  void MeetGround(const Ray& ray, double from, double to, Trace& trace) const;
  void MeetFoliage(std::uint32_t index, const Ray& ray, Trace& trace) const;
  void SortLeaves(Trace& trace) const;

  Terrain terrain_;
  std::vector<Solid> solids_;
  std::vector<Foliage> foliage_;
  std::int64_t columns_ = 0;
  std::int64_t rows_ = 0;
  double top_ = 0;     ///< height above which there is nothing
  double bottom_ = 0;  ///< height below which there is nothing
  std::vector<Cell> cells_;
  std::vector<std::uint32_t> things_;  ///< solids, then foliage counted on from there
};

}  // namespace tarnhost::synthesize
