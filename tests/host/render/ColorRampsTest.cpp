// Colours for numbers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <set>

#include "host/render/ColorRamps.h"

namespace tarnhost {
namespace {

int Red(Rgb color) { return static_cast<int>(color >> 16 & 0xFF); }
int Green(Rgb color) { return static_cast<int>(color >> 8 & 0xFF); }
int Blue(Rgb color) { return static_cast<int>(color & 0xFF); }
int Spread(Rgb color) {
  return std::max({Red(color), Green(color), Blue(color)}) -
         std::min({Red(color), Green(color), Blue(color)});
}

TEST(ElevationColor, GoesFromBlueThroughGreenAndYellowToRed) {
  EXPECT_GT(Blue(ElevationColor(0)), Red(ElevationColor(0)));
  const Rgb low = ElevationColor(0.3);
  EXPECT_GT(Green(low), Red(low));
  EXPECT_GT(Green(low), Blue(low));
  const Rgb middle = ElevationColor(0.57);
  EXPECT_GT(std::min(Red(middle), Green(middle)), Blue(middle) + 50);
  const Rgb high = ElevationColor(0.85);
  EXPECT_GT(Red(high), Green(high) + 50);
}

TEST(ElevationColor, ChangesWithoutJumps) {
  for (int i = 0; i < 1000; ++i) {
    const Rgb one = ElevationColor(i / 1000.0);
    const Rgb next = ElevationColor((i + 1) / 1000.0);
    EXPECT_LE(std::abs(Red(one) - Red(next)), 2) << i;
    EXPECT_LE(std::abs(Green(one) - Green(next)), 2) << i;
    EXPECT_LE(std::abs(Blue(one) - Blue(next)), 2) << i;
  }
}

TEST(ElevationColor, TakesTheEndsOutsideItsRange) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double below : {-0.1, -1e300, -kInfinity, std::nan("")}) {
    EXPECT_EQ(ElevationColor(below), ElevationColor(0));
  }
  for (const double above : {1.1, 1e300, kInfinity}) {
    EXPECT_EQ(ElevationColor(above), ElevationColor(1));
  }
}

TEST(GreyColor, GoesFromBlackToWhite) {
  EXPECT_EQ(GreyColor(0), 0x000000u);
  EXPECT_EQ(GreyColor(1), 0xFFFFFFu);
  EXPECT_EQ(GreyColor(0.5), 0x808080u);
  EXPECT_EQ(GreyColor(7), 0xFFFFFFu);
  EXPECT_EQ(GreyColor(-7), 0x000000u);
  EXPECT_EQ(GreyColor(std::nan("")), 0x000000u);
}

TEST(ClassificationColor, TellsTheClassesOfTheStandardApart) {
  std::set<Rgb> colors;
  for (std::uint64_t number = 0; number <= 19; ++number) colors.insert(ClassificationColor(number));
  EXPECT_EQ(colors.size(), 20u);
  EXPECT_EQ(ClassificationColor(19), ClassificationColor(64));
  EXPECT_EQ(ClassificationColor(19), ClassificationColor(~std::uint64_t{0}));
}

TEST(ReturnColor, TellsOnlyFirstIntermediateAndLastApart) {
  const Rgb only = ReturnColor(1, 1);
  const Rgb first = ReturnColor(1, 3);
  const Rgb between = ReturnColor(2, 3);
  const Rgb last = ReturnColor(3, 3);
  EXPECT_EQ((std::set<Rgb>{only, first, between, last}).size(), 4u);
  EXPECT_EQ(ReturnColor(0, 0), only);
  EXPECT_EQ(ReturnColor(2, 5), ReturnColor(4, 5));
  EXPECT_EQ(ReturnColor(7, 5), last);
}

TEST(Highlight, StandsOutFromWhatIsSubdued) {
  for (const Rgb color : {0x000000u, 0xFFFFFFu, 0xFF0000u, 0x00FF00u, 0x0000FFu, 0x8A6B3Cu}) {
    EXPECT_LE(Spread(Subdued(color)), 31) << std::hex << color;
    EXPECT_GE(Spread(Highlighted(color)), 180) << std::hex << color;
    EXPECT_GT(Red(Highlighted(color)), Blue(Highlighted(color)));
  }
}

TEST(Highlight, KeepsLightAndDark) {
  EXPECT_GT(Green(Highlighted(0xFFFFFF)), Green(Highlighted(0x202020)));
  EXPECT_GT(Green(Subdued(0xFFFFFF)), Green(Subdued(0x202020)));
}

}  // namespace
}  // namespace tarnhost
