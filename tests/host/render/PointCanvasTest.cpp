// Points drawn as discs, the nearest in front.
#include <gtest/gtest.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <limits>
#include <random>

#include "host/render/PointCanvas.h"

namespace tarnhost {
namespace {

constexpr PictureSize kSize{40, 30};
constexpr Rgb kRed = MakeRgb(255, 0, 0);
constexpr Rgb kBlue = MakeRgb(0, 0, 255);

std::size_t At(unsigned x, unsigned y) { return std::size_t{y} * kSize.width + x; }

std::size_t CountDrawn(const PointCanvas& canvas) {
  std::size_t drawn = 0;
  for (std::size_t i = 0; i < kSize.width * kSize.height; ++i) drawn += canvas.IsEmpty(i) ? 0u : 1u;
  return drawn;
}

TEST(PointCanvas, IsEmptyAtFirst) {
  const PointCanvas canvas(kSize);
  EXPECT_EQ(CountDrawn(canvas), 0u);
  EXPECT_EQ(canvas.GetSize().width, 40u);
  EXPECT_EQ(canvas.GetSize().height, 30u);
}

TEST(PointCanvas, ShowsTheNearestWhateverTheOrder) {
  for (const bool nearFirst : {true, false}) {
    PointCanvas canvas(kSize);
    for (const bool drawsNear : {nearFirst, !nearFirst}) {
      canvas.Draw({10.5, 10.5, drawsNear ? 3.0 : 4.0}, 2.5, 0, drawsNear ? kRed : kBlue);
    }
    EXPECT_EQ(canvas.GetColor(At(10, 10)), kRed);
    EXPECT_EQ(canvas.GetDepth(At(10, 10)), 3.0F);
  }
}

TEST(PointCanvas, DecidesBetweenEqualDepthsTheSameWayInEachOrder) {
  PointCanvas one(kSize);
  one.Draw({10.5, 10.5, 3}, 0.5, 0, kRed);
  one.Draw({10.5, 10.5, 3}, 0.5, 0, kBlue);
  PointCanvas other(kSize);
  other.Draw({10.5, 10.5, 3}, 0.5, 0, kBlue);
  other.Draw({10.5, 10.5, 3}, 0.5, 0, kRed);
  EXPECT_EQ(one.GetColor(At(10, 10)), other.GetColor(At(10, 10)));
}

TEST(PointCanvas, ComesOutTheSameFromSeveralThreads) {
  struct Disc {
    Projected centre;
    double radius;
    Rgb color;
  };
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<Disc> discs(5000);
  for (Disc& disc : discs) {
    // Few different depths, so that many are equal.
    disc = {{unit(random) * 44 - 2, unit(random) * 34 - 2, std::floor(unit(random) * 8) + 1},
            unit(random) * 4,
            static_cast<Rgb>(random() & 0xFFFFFF)};
  }
  const auto draw = [](PointCanvas& canvas, const Disc& disc) {
    canvas.Draw(disc.centre, disc.radius, 0.5, disc.color);
  };
  PointCanvas first(kSize);
  for (const Disc& disc : discs) draw(first, disc);
  std::ranges::shuffle(discs, random);
  PointCanvas second(kSize);
  tbb::parallel_for(std::size_t{0}, discs.size(), [&](std::size_t i) { draw(second, discs[i]); });
  for (std::size_t i = 0; i < kSize.width * kSize.height; ++i) {
    ASSERT_EQ(first.IsEmpty(i), second.IsEmpty(i));
    if (first.IsEmpty(i)) continue;
    ASSERT_EQ(first.GetColor(i), second.GetColor(i)) << i;
    ASSERT_EQ(first.GetDepth(i), second.GetDepth(i)) << i;
  }
}

TEST(PointCanvas, DrawsTheNearestPixelHoweverSmallTheDisc) {
  for (const double radius : {0.0, 0.1, 0.75}) {
    PointCanvas canvas(kSize);
    canvas.Draw({10.95, 20.05, 1}, radius, 0, kRed);
    EXPECT_EQ(CountDrawn(canvas), 1u) << radius;
    EXPECT_EQ(canvas.GetColor(At(10, 20)), kRed) << radius;
  }
}

TEST(PointCanvas, DrawsThePixelsWhoseMiddleIsInTheDisc) {
  for (const double radius : {0.9, 1.0, 1.6, 3.2, 7.0}) {
    PointCanvas canvas(kSize);
    const Projected centre{15.3, 12.8, 1};
    canvas.Draw(centre, radius, 0, kRed);
    for (unsigned y = 0; y < kSize.height; ++y) {
      for (unsigned x = 0; x < kSize.width; ++x) {
        const double distance = std::hypot(x + 0.5 - centre.x, y + 0.5 - centre.y);
        const bool own = x == 15 && y == 12;
        EXPECT_EQ(!canvas.IsEmpty(At(x, y)), distance <= radius || own) << x << " " << y;
      }
    }
  }
}

TEST(PointCanvas, BulgesSoThatDiscsMeetHalfway) {
  PointCanvas canvas(kSize);
  canvas.Draw({10.5, 10.5, 5}, 4, 1, kRed);
  canvas.Draw({15.5, 10.5, 5}, 4, 1, kBlue);
  EXPECT_EQ(canvas.GetColor(At(12, 10)), kRed);
  EXPECT_EQ(canvas.GetColor(At(13, 10)), kBlue);
  EXPECT_EQ(canvas.GetDepth(At(10, 10)), 5.0F);
  EXPECT_GT(canvas.GetDepth(At(12, 10)), 5.0F);
}

TEST(PointCanvas, DrawsOnlyThePartOfADiscThatIsOnIt) {
  PointCanvas canvas(kSize);
  canvas.Draw({-1, 10.5, 1}, 3, 0, kRed);
  EXPECT_FALSE(canvas.IsEmpty(At(0, 10)));
  EXPECT_FALSE(canvas.IsEmpty(At(1, 10)));
  EXPECT_TRUE(canvas.IsEmpty(At(2, 10)));
  canvas.Draw({40.4, 30.4, 1}, 2, 0, kRed);
  EXPECT_FALSE(canvas.IsEmpty(At(39, 29)));
}

TEST(PointCanvas, IgnoresWhatLiesBesideIt) {
  PointCanvas canvas(kSize);
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double place : {-20.0, 200.0, -1e300, 1e300, kInfinity, -kInfinity, std::nan("")}) {
    canvas.Draw({place, 10, 1}, 3, 0.1, kRed);
    canvas.Draw({10, place, 1}, 0.5, 0.1, kRed);
  }
  EXPECT_EQ(CountDrawn(canvas), 0u);
}

TEST(PointCanvas, CanBeSetPixelByPixel) {
  PointCanvas canvas(kSize);
  canvas.Set(At(3, 4), 7.5F, kBlue);
  EXPECT_EQ(CountDrawn(canvas), 1u);
  EXPECT_EQ(canvas.GetColor(At(3, 4)), kBlue);
  EXPECT_EQ(canvas.GetDepth(At(3, 4)), 7.5F);
}

}  // namespace
}  // namespace tarnhost
