// Rays cast through the grid of the synthetic scene against rays tested on every thing in it.
#include <gtest/gtest.h>

#include "host/synthesize/Scene.h"

namespace {

using tarnhost::synthesize::Random;
using tarnhost::synthesize::Ray;
using tarnhost::synthesize::Scene;
using tarnhost::synthesize::SolidEntry;
using tarnhost::synthesize::Trace;
using tarnhost::synthesize::Vector;

constexpr double kFarthest = 200;

Ray AnyRay(Random& random) {
  Ray ray;
  ray.origin = {random.Between(-100, 100), random.Between(-55, 55), random.Between(4, 60)};
  ray.direction = tarnhost::synthesize::Normalised(
      {random.Between(-1, 1), random.Between(-1, 1), random.Between(-1, 0.3)});
  return ray;
}

/// Range of the nearest solid, tested one by one.
double NearestSolid(const Scene& scene, const Ray& ray) {
  double nearest = kFarthest;
  for (const auto& solid : scene.GetSolids()) {
    SolidEntry entry;
    if (solid.Meet(ray, nearest, entry)) nearest = entry.range;
  }
  return nearest;
}

TEST(Scene, MeetsTheSolidsThatTestingEachOneMeets) {
  const Scene scene(120, 3);
  Random random(5);
  int solids = 0;
  int grounds = 0;
  for (int i = 0; i < 20000; ++i) {
    const Ray ray = AnyRay(random);
    Trace trace;
    scene.Cast(ray, kFarthest, trace);
    const double nearest = NearestSolid(scene, ray);
    if (trace.stopped && trace.solid >= 0) {
      ++solids;
      ASSERT_DOUBLE_EQ(trace.range, nearest);
    } else if (trace.stopped) {
      ++grounds;
      ASSERT_LE(trace.range, nearest);
      const Vector at = ray.At(trace.range);
      ASSERT_NEAR(at.z, scene.GetTerrain().HeightAt(at.x, at.y), 0.01);
    } else {
      ASSERT_EQ(nearest, kFarthest);
    }
  }
  EXPECT_GT(solids, 1000);
  EXPECT_GT(grounds, 5000);
}

TEST(Scene, ListsTheFoliageOnTheWay) {
  const Scene scene(120, 3);
  Random random(6);
  std::size_t met = 0;
  for (int i = 0; i < 5000; ++i) {
    const Ray ray = AnyRay(random);
    Trace trace;
    scene.Cast(ray, kFarthest, trace);
    for (std::size_t k = 0; k < trace.leavesCount; ++k) {
      if (k > 0) {
        ASSERT_LE(trace.leaves[k - 1].enter, trace.leaves[k].enter);
      }
    }
    std::size_t expected = 0;
    for (const auto& foliage : scene.GetFoliage()) {
      double enter = 0;
      double leave = 0;
      const bool onTheWay = foliage.Meet(ray, enter, leave) && leave < trace.range &&
                            foliage.centre.z > foliage.groundHeight;
      if (onTheWay && std::abs(foliage.centre.x) < 110) ++expected;
    }
    if (trace.leavesCount < Trace::kMostLeaves) {
      ASSERT_GE(trace.leavesCount, expected);
    }
    met += expected;
  }
  EXPECT_GT(met, 500u);
}

TEST(Scene, LetsRaysIntoTheSkyGo) {
  const Scene scene(120, 3);
  Trace trace;
  scene.Cast({{0, 0, 50}, {0, 0, 1}}, kFarthest, trace);
  EXPECT_FALSE(trace.stopped);
  scene.Cast({{500, 0, 50}, {1, 0, 0}}, kFarthest, trace);
  EXPECT_FALSE(trace.stopped);
}

TEST(Terrain, HasKerbsAlongTheRoad) {
  const tarnhost::synthesize::Terrain terrain(120, 1);
  const double road = terrain.HeightAt(0, -3.8);
  const double pavement = terrain.HeightAt(0, -4.05);
  EXPECT_NEAR(pavement - road, 0.13, 0.03);
  using tarnhost::synthesize::GroundKind;
  EXPECT_EQ(terrain.KindAt(0, -2), GroundKind::kAsphalt);
  EXPECT_EQ(terrain.KindAt(1, 0.01), GroundKind::kMarking);
  EXPECT_EQ(terrain.KindAt(4, 0.01), GroundKind::kAsphalt);
  EXPECT_EQ(terrain.KindAt(0, -4.05), GroundKind::kKerb);
  EXPECT_EQ(terrain.KindAt(0, -5), GroundKind::kPavement);
  EXPECT_EQ(terrain.KindAt(0, -20), GroundKind::kGrass);
  EXPECT_EQ(terrain.KindAt(25, 20), GroundKind::kAsphalt);
}

TEST(Random, IsTheSameEverywhere) {
  // The first numbers of the published generator for seed 1234567.
  Random random(1234567);
  EXPECT_EQ(random.Next(), 6457827717110365317u);
  EXPECT_EQ(random.Next(), 3203168211198807973u);
}

}  // namespace
