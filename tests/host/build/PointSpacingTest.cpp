// Which points are too close to one that was taken: compared with looking at all of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "host/build/MortonCube.h"
#include "host/build/PointSpacing.h"

namespace tarnhost {
namespace {

using Place = std::array<std::int64_t, 3>;

constexpr std::int64_t kLast = (std::int64_t{1} << kMortonBits) - 1;

std::uint64_t CodeOf(const Place& place) {
  std::uint64_t code = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    code |= SpreadBits(static_cast<std::uint64_t>(place[axis])) << axis;
  }
  return code;
}

bool IsNear(const Place& a, const Place& b, std::int64_t reach) {
  std::int64_t sum = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) sum += (a[axis] - b[axis]) * (a[axis] - b[axis]);
  return sum < reach * reach;
}

/// Places within `spread` of the corner or the far corner of the cube, or of its middle.
class RandomPlaces {
 public:
  explicit RandomPlaces(std::int64_t spread) : spread_(std::min(spread, kLast)) {}
  Place Next() {
    const auto around = static_cast<std::int64_t>(random_() % 3) * (kLast / 2);
    Place place;
    for (std::int64_t& coordinate : place) {
      const auto way = static_cast<std::int64_t>(random_() % (2 * spread_ + 1)) - spread_;
      coordinate = std::clamp<std::int64_t>(around + way, 0, kLast);
    }
    return place;
  }

 private:
  std::int64_t spread_;
  std::mt19937_64 random_{5};
};

class SpacingAtLevel : public ::testing::TestWithParam<unsigned> {};

TEST_P(SpacingAtLevel, FindsWhatIsCloserThanTwoFifthsOfACell) {
  const unsigned level = GetParam();
  const std::int64_t edge = std::int64_t{1} << (kMortonBits - level);
  RandomPlaces random(5 * edge);
  PointSpacing spacing;
  spacing.Start(level, 10);  // fewer than there are going to be
  std::vector<Place> taken;
  std::size_t near = 0;
  for (int i = 0; i < 6000; ++i) {
    const Place place = random.Next();
    const bool isNear = std::ranges::any_of(
        taken, [&](const Place& other) { return IsNear(place, other, edge * 2 / 5); });
    ASSERT_EQ(spacing.IsTooClose(CodeOf(place)), isNear)
        << place[0] << " " << place[1] << " " << place[2];
    near += isNear ? 1 : 0;
    // Also some that are close to others, as those of coarser levels may be.
    if (!isNear || i % 10 == 0) {
      spacing.Add(CodeOf(place));
      taken.push_back(place);
    }
  }
  if (level < 19) {
    EXPECT_GT(near, 100u);
  }
  EXPECT_GT(taken.size(), 50u);
}

INSTANTIATE_TEST_SUITE_P(PointSpacing, SpacingAtLevel,
                         ::testing::Values(1u, 2u, 7u, 15u, 19u, 20u));

TEST(PointSpacing, ForgetsEverythingWhenItStartsAnew) {
  PointSpacing spacing;
  spacing.Start(10, 1);
  const std::uint64_t code = CodeOf({5000, 5000, 5000});
  spacing.Add(code);
  EXPECT_TRUE(spacing.IsTooClose(code));
  spacing.Start(10, 1);
  EXPECT_FALSE(spacing.IsTooClose(code));
}

}  // namespace
}  // namespace tarnhost
