// Cells along the Morton curve.
#include <gtest/gtest.h>

#include <random>

#include "host/build/MortonCube.h"

namespace tarnhost {
namespace {

TEST(MortonCube, CollectsTheBitsThatItSpread) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t value = random() & 0x1FFFFF;
    const std::uint64_t noise = random() << 1 & ~SpreadBits(0x1FFFFF);
    EXPECT_EQ(CollectBits(SpreadBits(value) | noise), value);
  }
  EXPECT_EQ(SpreadBits(0x1FFFFF), 0x1249249249249249u);
}

TEST(MortonCube, InterleavesXLowestThenYThenZ) {
  const MortonCube cube{{10, 20, 30}, 8};
  EXPECT_EQ(cube.CodeOf({14, 20, 30}), std::uint64_t{1} << 60);
  EXPECT_EQ(cube.CodeOf({10, 24, 30}), std::uint64_t{2} << 60);
  EXPECT_EQ(cube.CodeOf({10, 20, 34}), std::uint64_t{4} << 60);
  EXPECT_EQ(cube.CodeOf({10, 20, 30}), 0u);
}

TEST(MortonCube, PutsTheFarFacesIntoTheLastCells) {
  const MortonCube cube{{-1, -1, -1}, 2};
  EXPECT_EQ(cube.CodeOf({1, 1, 1}), (std::uint64_t{1} << 63) - 1);
}

TEST(MortonCube, PutsPositionsOutsideIntoTheNearestCell) {
  const MortonCube cube{{0, 0, 0}, 1};
  EXPECT_EQ(cube.CodeOf({-5, -5, -5}), 0u);
  EXPECT_EQ(cube.CodeOf({5, 5, 5}), (std::uint64_t{1} << 63) - 1);
}

}  // namespace
}  // namespace tarnhost
