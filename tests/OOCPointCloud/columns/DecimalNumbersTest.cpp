// Floating-point numbers that are whole multiples of a power of ten, and such as are not.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "OOCPointCloud/columns/DecimalNumbers.h"

namespace {

using oocpc::FromDecimal;
using oocpc::kMostDecimals;
using oocpc::ToDecimal;

template <typename T>
class DecimalNumbersOf : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(DecimalNumbersOf, RealTypes);

TYPED_TEST(DecimalNumbersOf, AreMultiples) {
  EXPECT_EQ(ToDecimal(TypeParam(0), 0), 0);
  EXPECT_EQ(ToDecimal(TypeParam(-17), 0), -17);
  EXPECT_EQ(ToDecimal(TypeParam(0.25), 2), 25);
  EXPECT_EQ(ToDecimal(TypeParam(-0.1), 1), -1);
  EXPECT_EQ(ToDecimal(TypeParam(-0.1), 3), -100);
  EXPECT_EQ(ToDecimal(TypeParam(0.25), 1), std::nullopt);
}

TYPED_TEST(DecimalNumbersOf, LeaveOutMinusZero) {
  for (unsigned decimals = 0; decimals <= kMostDecimals; ++decimals) {
    EXPECT_EQ(ToDecimal(TypeParam(-0.0), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(TypeParam(0.0), decimals), 0);
  }
}

TYPED_TEST(DecimalNumbersOf, LeaveOutWhatIsNotFinite) {
  using Limits = std::numeric_limits<TypeParam>;
  for (unsigned decimals = 0; decimals <= kMostDecimals; ++decimals) {
    EXPECT_EQ(ToDecimal(Limits::infinity(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(-Limits::infinity(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(Limits::quiet_NaN(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(Limits::max(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(Limits::lowest(), decimals), std::nullopt);
  }
}

TYPED_TEST(DecimalNumbersOf, LeaveOutDenormals) {
  using Limits = std::numeric_limits<TypeParam>;
  for (unsigned decimals = 0; decimals <= kMostDecimals; ++decimals) {
    EXPECT_EQ(ToDecimal(Limits::denorm_min(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(-Limits::denorm_min(), decimals), std::nullopt);
    EXPECT_EQ(ToDecimal(Limits::min(), decimals), std::nullopt);
  }
}

TYPED_TEST(DecimalNumbersOf, ComeBackBitForBitOrNotAtAll) {
  std::mt19937_64 random(61);
  std::size_t decimal = 0;
  for (int i = 0; i < 20000; ++i) {
    const auto decimals = static_cast<unsigned>(random() % (kMostDecimals + 1));
    const auto multiple = static_cast<std::int64_t>(random() % 2'000'000) - 1'000'000;
    const auto number = FromDecimal<TypeParam>(multiple, decimals);
    const auto back = ToDecimal(number, decimals);
    if (!back) continue;
    ++decimal;
    EXPECT_EQ(FromDecimal<TypeParam>(*back, decimals), number);
  }
  EXPECT_EQ(decimal, 20000u) << "six digits fit in either type";
}

TEST(DecimalNumbers, EndAt2To53) {
  constexpr double kEnd = 9007199254740992.0;
  EXPECT_EQ(ToDecimal(kEnd - 1, 0), 9007199254740991);
  EXPECT_EQ(ToDecimal(1 - kEnd, 0), -9007199254740991);
  EXPECT_EQ(ToDecimal(kEnd, 0), std::nullopt);
  EXPECT_EQ(ToDecimal(-kEnd, 0), std::nullopt);
  EXPECT_EQ(ToDecimal(900719925474099.1, 1), 9007199254740991);
  EXPECT_EQ(ToDecimal(kEnd / 10 + 1, 1), std::nullopt) << "with a decimal more it is beyond";
  EXPECT_EQ(ToDecimal(9007198717870080.0f, 0), 9007198717870080) << "the float below 2^53";
  EXPECT_EQ(ToDecimal(9007199254740992.0f, 0), std::nullopt);
}

TEST(DecimalNumbers, MayNeedNineDecimals) {
  constexpr double kSmall = 0.123456789;
  for (unsigned decimals = 0; decimals < 9; ++decimals) {
    EXPECT_EQ(ToDecimal(kSmall, decimals), std::nullopt) << decimals;
  }
  EXPECT_EQ(ToDecimal(kSmall, 9), 123456789);
  EXPECT_EQ(FromDecimal<double>(123456789, 9), kSmall);
  EXPECT_EQ(ToDecimal(1e-9, 9), 1);
  EXPECT_EQ(ToDecimal(1e-10, 9), std::nullopt);
}

TEST(DecimalNumbers, OfFloatsAreRoundedFromDoubles) {
  EXPECT_EQ(ToDecimal(0.1f, 1), 1);
  EXPECT_EQ(FromDecimal<float>(1, 1), 0.1f);
  EXPECT_EQ(ToDecimal(16777.217f, 3), std::optional<std::int64_t>(16777217))
      << "the multiple is found although floats do not hold it exactly";
}

}  // namespace
