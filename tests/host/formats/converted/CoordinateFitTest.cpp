// How integers, a scale and an offset are found for coordinates, and that they give them back.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "host/formats/converted/CoordinateFit.h"
#include "host/formats/converted/DecimalTransform.h"

namespace {

using tarnhost::AxisFit;
using tarnhost::DecimalTransform;

AxisFit FitOf(const std::vector<double>& coordinates, bool narrow = false) {
  AxisFit fit(narrow);
  for (const double coordinate : coordinates) fit.Add(coordinate);
  return fit;
}

DecimalTransform TransformOf(const AxisFit::Choice& choice) {
  return DecimalTransform({{choice.scale, 1, 1}, {choice.offset, 0, 0}});
}

/// Whether every coordinate comes out again, bit for bit in its own type.
void ExpectExact(const std::vector<double>& coordinates, const AxisFit::Choice& choice,
                 bool narrow = false) {
  ASSERT_TRUE(choice.exact);
  const DecimalTransform transform = TransformOf(choice);
  for (const double coordinate : coordinates) {
    const double again = transform.Coordinate(0, transform.Store(0, coordinate));
    if (narrow) {
      ASSERT_EQ(static_cast<float>(again), static_cast<float>(coordinate));
    } else {
      ASSERT_EQ(again, coordinate);
    }
  }
}

TEST(AxisFit, FindsTheStepOfDecimals) {
  const std::vector<double> coordinates{0.1, 0.2, 0.3, 7.25, -1234.567};
  const AxisFit::Choice choice = FitOf(coordinates).Choose(0);
  EXPECT_EQ(choice.scale, 0.001);
  EXPECT_EQ(choice.offset, 0);
  ExpectExact(coordinates, choice);
}

TEST(AxisFit, TakesMoreDecimalsWhereTheyAreWantedAndFit) {
  EXPECT_EQ(FitOf({1.5}).Choose(3).scale, 0.001);
  EXPECT_EQ(FitOf({1.5, 3e6}).Choose(9).scale, 0.1);
}

TEST(AxisFit, FindsARoundOffsetForLargeCoordinates) {
  const std::vector<double> coordinates{4500000.123, 4500999.999, 4501000.001};
  const AxisFit::Choice choice = FitOf(coordinates).Choose(0);
  EXPECT_EQ(choice.scale, 0.001);
  EXPECT_EQ(choice.offset, 4501000);
  ExpectExact(coordinates, choice);
}

TEST(AxisFit, GivesRandomDecimalsBackWhateverTheirStepAndPlace) {
  std::mt19937_64 random(3);
  for (int decimals = 0; decimals <= 9; ++decimals) {
    for (const std::int64_t place : {0, 1000000, -77777777}) {
      std::uniform_int_distribution<std::int64_t> units(-2000000000, 2000000000);
      std::vector<double> coordinates;
      for (int i = 0; i < 500; ++i) {
        const auto shift =
            place * static_cast<std::int64_t>(tarnhost::PowerOfTen(std::min(decimals, 6)));
        coordinates.push_back(static_cast<double>(shift + units(random)) /
                              tarnhost::PowerOfTen(decimals));
      }
      ExpectExact(coordinates, FitOf(coordinates).Choose(0));
    }
  }
}

TEST(AxisFit, GivesRandomFloatsBackWhereTheyHaveAStep) {
  std::mt19937 random(4);
  std::uniform_int_distribution<int> units(-9999999, 9999999);
  for (int decimals = 0; decimals <= 6; ++decimals) {
    std::vector<double> coordinates;
    for (int i = 0; i < 2000; ++i) {
      const double decimal = units(random) / tarnhost::PowerOfTen(decimals);
      coordinates.push_back(static_cast<float>(decimal));
    }
    ExpectExact(coordinates, FitOf(coordinates, true).Choose(0), true);
  }
}

TEST(AxisFit, TakesTheFinestStepWhereNoneIsExact) {
  const std::vector<double> coordinates{3.141592653589793, 200};
  const AxisFit::Choice choice = FitOf(coordinates).Choose(0);
  EXPECT_FALSE(choice.exact);
  const DecimalTransform transform = TransformOf(choice);
  for (const double coordinate : coordinates) {
    EXPECT_NEAR(transform.Coordinate(0, transform.Store(0, coordinate)), coordinate,
                choice.scale / 2);
  }
  EXPECT_LE(choice.scale, 1e-7);
  // The same for coordinates as far apart as they may be.
  const AxisFit::Choice wide = FitOf({-1e15, 0.1, 1e15}).Choose(0);
  EXPECT_FALSE(wide.exact);
  EXPECT_EQ(wide.scale, 1e6);
}

TEST(AxisFit, TakesTheSourcesOwnStepWhereItGivesEverythingBack) {
  AxisFit fit(false, 0.25, 3);
  for (const double coordinate : {3.0, 3.25, -1.5}) fit.Add(coordinate);
  EXPECT_EQ(fit.Choose(0).scale, 0.25);
  EXPECT_EQ(fit.Choose(0).offset, 3);
  fit.Add(3.1);
  EXPECT_NE(fit.Choose(0).scale, 0.25);
}

TEST(AxisFit, IsTheSameWhetherSeenAtOnceOrInParts) {
  const std::vector<double> a{1.5, 2.25};
  const std::vector<double> b{-7.125, 1000000};
  AxisFit joined = FitOf(a);
  joined.Join(FitOf(b));
  const AxisFit whole = FitOf({1.5, 2.25, -7.125, 1000000});
  EXPECT_EQ(joined.Choose(0).scale, whole.Choose(0).scale);
  EXPECT_EQ(joined.Choose(0).offset, whole.Choose(0).offset);
  EXPECT_EQ(joined.GetLeast(), -7.125);
  EXPECT_EQ(joined.GetGreatest(), 1000000);
}

TEST(AxisFit, HasAStepWithoutAnyPoint) {
  const AxisFit::Choice choice = AxisFit().Choose(0);
  EXPECT_TRUE(choice.exact);
  EXPECT_EQ(choice.scale, 1);
}

TEST(DecimalTransform, RoundsDecimalNumbersAsTheyAreWritten) {
  const DecimalTransform transform({{0.1, 0.01, 0.3}, {0, 0.005, 10}});
  EXPECT_EQ(transform.Coordinate(0, 3), 0.3);  // and not 3 * 0.1
  EXPECT_FALSE(transform.IsDecimal(1));        // the offset is no multiple of the scale
  EXPECT_EQ(transform.Coordinate(1, 3), 3 * 0.01 + 0.005);
  EXPECT_EQ(transform.Coordinate(2, 3), 3 * 0.3 + 10);
  EXPECT_EQ(transform.GetDecimals(0), 1);
}

TEST(DecimalTransform, StopsAtTheLastInteger) {
  const DecimalTransform transform({{0.1, 1, 1}, {0, 0, 0}});
  EXPECT_EQ(transform.Store(0, 1e300), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(transform.Store(0, -1e300), std::numeric_limits<std::int32_t>::min());
}

}  // namespace
