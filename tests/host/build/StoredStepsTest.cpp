// Positions of several scales and offsets as integers of one.
#include <gtest/gtest.h>

#include <limits>

#include "host/build/StoredSteps.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

PositionTransform Transform(double scale, double offset) {
  return {{scale, scale, scale}, {offset, offset, offset}};
}

StoredBox Box(std::int32_t least, std::int32_t greatest) {
  StoredBox box;
  box.least.fill(least);
  box.greatest.fill(greatest);
  return box;
}

/// The common transform of all axes alike; a scale of 0 for none.
PositionTransform Common(const std::vector<TransformUse>& uses) {
  PositionTransform common;
  const Outcome outcome = FindCommonTransform(uses, common);
  if (!outcome.Ok()) {
    EXPECT_EQ(outcome.code, result::kScansDiffer);
    EXPECT_FALSE(outcome.what.empty());
    return Transform(0, 0);
  }
  EXPECT_EQ(common.scale[0], common.scale[2]);
  EXPECT_EQ(common.offset[0], common.offset[2]);
  return common;
}

StoredStep StepBetween(double fromScale, double fromOffset, double toScale, double toOffset) {
  StoredSteps steps;
  const Outcome outcome =
      FindSteps(Transform(fromScale, fromOffset), Transform(toScale, toOffset), steps);
  return outcome.Ok() ? steps[1] : StoredStep{0, 0};
}

TEST(StoredSteps, AreNoneBetweenEqualTransforms) {
  StoredSteps steps;
  const PositionTransform odd = Transform(0.012345678901234567, 1.0 / 3);
  ASSERT_TRUE(FindSteps(odd, odd, steps).Ok());
  EXPECT_TRUE(IsIdentity(steps));
}

TEST(StoredSteps, TakeScalesAndOffsetsAsDecimalNumbers) {
  // As doubles, 0.01 is not ten times 0.001, nor 0.3 three times 0.1.
  StoredStep step = StepBetween(0.01, 0, 0.001, 0);
  EXPECT_EQ(step.factor, 10);
  EXPECT_EQ(step.shift, 0);
  step = StepBetween(0.3, 0.7, 0.1, -0.2);
  EXPECT_EQ(step.factor, 3);
  EXPECT_EQ(step.shift, 9);
  step = StepBetween(0.01, 637000, 0.001, 600000.5);
  EXPECT_EQ(step.factor, 10);
  EXPECT_EQ(step.shift, 36999500);
}

TEST(StoredSteps, KeepTheSignOfAScale) {
  EXPECT_EQ(StepBetween(-0.01, 0, 0.01, 0).factor, -1);
  EXPECT_EQ(StepBetween(0.02, 0, -0.01, 0).factor, -2);
  StoredSteps steps;
  ASSERT_TRUE(FindSteps(Transform(-0.01, 0), Transform(0.01, 0), steps).Ok());
  EXPECT_EQ(Convert(steps, Box(-5, 7)), Box(-7, 5));
}

TEST(StoredSteps, AreRefusedBetweenTheSteps) {
  StoredSteps steps;
  EXPECT_EQ(FindSteps(Transform(0.001, 0), Transform(0.01, 0), steps).code, result::kScansDiffer);
  EXPECT_EQ(FindSteps(Transform(0.01, 0.005), Transform(0.01, 0), steps).code,
            result::kScansDiffer);
  EXPECT_EQ(FindSteps(Transform(0.025, 0), Transform(0.01, 0), steps).code, result::kScansDiffer);
}

TEST(StoredSteps, AreRefusedForNumbersTooFarApart) {
  StoredSteps steps;
  EXPECT_FALSE(FindSteps(Transform(1e-300, 0), Transform(1, 0), steps).Ok());
  EXPECT_FALSE(FindSteps(Transform(1, 1e300), Transform(1e-9, 0), steps).Ok());
  EXPECT_FALSE(
      FindSteps(Transform(1, std::numeric_limits<double>::infinity()), Transform(1, 0), steps)
          .Ok());
}

TEST(StoredSteps, ConvertPositions) {
  StoredSteps steps;
  ASSERT_TRUE(FindSteps({{0.1, 1, 0.01}, {0, -5, 2}}, {{0.01, 1, 0.01}, {0, 0, 0}}, steps).Ok());
  std::vector<std::int32_t> xyz{1, 2, 3, -4, -5, -6};
  Convert(steps, 2, xyz.data());
  EXPECT_EQ(xyz, (std::vector<std::int32_t>{10, -3, 203, -40, -10, 194}));
}

TEST(StoredSteps, SayWhatDoesNotFit) {
  const StoredSteps steps{{{10, 0}, {1, 0}, {1, kMost}}};
  EXPECT_TRUE(Convert(steps, Box(0, 0)).has_value());
  EXPECT_TRUE(Convert(steps, Box(-214748364, 0)).has_value());
  EXPECT_FALSE(Convert(steps, Box(-214748365, 0)).has_value());
  EXPECT_FALSE(Convert(steps, Box(0, 1)).has_value()) << "the shift of z";
  EXPECT_EQ(Convert(steps, StoredBox()), StoredBox()) << "no points";
}

TEST(CommonTransform, IsThatOfAllWhereTheyAreAlike) {
  const PositionTransform odd = Transform(0.012345678901234567, 1.0 / 3);
  EXPECT_EQ(Common({{odd, Box(0, kMost)}, {odd, {}}}).scale, odd.scale);
  EXPECT_EQ(Common({{odd, Box(0, kMost)}, {odd, {}}}).offset, odd.offset);
}

TEST(CommonTransform, HasTheGreatestCommonStep) {
  const StoredBox box = Box(-1000, 1000);
  EXPECT_EQ(Common({{Transform(0.01, 0), box}, {Transform(0.001, 0), box}}).scale[0], 0.001);
  EXPECT_EQ(Common({{Transform(0.002, 0), box}, {Transform(0.003, 0), box}}).scale[0], 0.001);
  EXPECT_EQ(Common({{Transform(0.01, 0), box}, {Transform(0.01, 0.005), box}}).scale[0], 0.005);
  EXPECT_EQ(Common({{Transform(-0.01, 0), box}, {Transform(0.01, 0), box}}).scale[0], 0.01);
}

TEST(CommonTransform, KeepsAnOffsetWithWhichEverythingFits) {
  EXPECT_EQ(Common({{Transform(1, 5), Box(0, 9)}, {Transform(1, 8), Box(0, 9)}}).offset[0], 5);
  // Counted from the first offset, the second scan would be too far away.
  const PositionTransform second =
      Common({{Transform(1, 0), Box(0, 9)}, {Transform(1, 100), Box(kMost - 9, kMost)}});
  EXPECT_EQ(second.offset[0], 100);
}

TEST(CommonTransform, FindsAnOffsetInTheMiddle) {
  const std::vector<TransformUse> uses{
      {Transform(1, 0), Box(-kMost, -kMost)},
      {Transform(1, 2000000000), Box(-5, 0)},
  };
  const PositionTransform common = Common(uses);
  ASSERT_EQ(common.scale[0], 1);
  for (const TransformUse& use : uses) {
    StoredSteps steps;
    ASSERT_TRUE(FindSteps(use.transform, common, steps).Ok());
    EXPECT_TRUE(Convert(steps, *use.box).has_value());
  }
}

TEST(CommonTransform, IsRefusedWhereTheIntegersDoNotFit) {
  const StoredBox wide = Box(-kMost, kMost);
  EXPECT_EQ(Common({{Transform(0.01, 0), wide}, {Transform(0.001, 0), wide}}).scale[0], 0);
  EXPECT_EQ(Common({{Transform(0.01, 0), Box(0, 100000000)},
                    {Transform(0.01, 0.00001), Box(0, 100000000)}})
                .scale[0],
            0);
}

TEST(CommonTransform, IsRefusedWithoutACommonStep) {
  EXPECT_EQ(Common({{Transform(1e-12, 0), {}}, {Transform(0.01, 123456789.5), {}}}).scale[0], 0);
}

}  // namespace
}  // namespace tarnhost
