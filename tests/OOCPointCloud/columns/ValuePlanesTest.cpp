// Values taken apart into 64-bit integers, and put together again.
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>

#include "OOCPointCloud/columns/ValuePlanes.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValuePlanes;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::ValuesAsBytes;
using Numbers = std::vector<std::uint64_t>;

constexpr ColumnType kDoubles{ValueType::kDouble, 1};
constexpr ColumnType kFloats{ValueType::kFloat, 1};

Bytes Restore(ColumnType type, const ValuePlanes& planes) {
  const std::size_t count = planes.components[0].size();
  Bytes values(count * oocpc::ValueBytes(type));
  for (std::size_t component = 0; component < type.components; ++component) {
    auto number = planes.components[component].begin();
    oocpc::StoreNumbers(
        type, planes.decimals, component, count, [&] { return *number++; }, values.data());
  }
  return values;
}

ValuePlanes ExpectRoundTrip(ColumnType type, const Bytes& values) {
  ValuePlanes planes = ValuePlanes::Of(type, values);
  EXPECT_EQ(planes.components.size(), type.components);
  EXPECT_TRUE(oocpc::IsPossibleDecimals(type, planes.decimals));
  EXPECT_EQ(Restore(type, planes), values) << oocpc::ValueTypeName(type.value);
  return planes;
}

std::uint64_t Widened(std::int64_t number) { return static_cast<std::uint64_t>(number); }

TEST(ValuePlanes, WidenIntegersWithTheirSign) {
  const ValuePlanes planes =
      ExpectRoundTrip({ValueType::kInt16, 2}, ValuesAsBytes<std::int16_t>({-1, 5, -32768, 32767}));
  EXPECT_EQ(planes.decimals, ValuePlanes::kAsTheyAre);
  EXPECT_EQ(planes.components[0], (Numbers{Widened(-1), Widened(-32768)}));
  EXPECT_EQ(planes.components[1], (Numbers{5, 32767}));
}

TEST(ValuePlanes, HoldForEveryTypeAndNumberOfComponents) {
  std::mt19937_64 random(71);
  for (int value = 1; value <= 11; ++value) {
    for (std::uint8_t components = 1; components <= 3; ++components) {
      const ColumnType type{static_cast<ValueType>(value), components};
      ExpectRoundTrip(type, oocpctest::RandomBytes(random, 100 * oocpc::ValueBytes(type)));
    }
  }
}

TEST(ValuePlanes, HoldTheFewestDecimalsThatAllNumbersHave) {
  const ValuePlanes planes = ExpectRoundTrip(kDoubles, ValuesAsBytes({1.5, -0.25, 3.0}));
  EXPECT_EQ(planes.decimals, 2);
  EXPECT_EQ(planes.components[0], (Numbers{150, Widened(-25), 300}));
  EXPECT_EQ(ExpectRoundTrip(kDoubles, ValuesAsBytes({4.0, -5.0})).decimals, 0);
  EXPECT_EQ(ExpectRoundTrip(kFloats, ValuesAsBytes({0.1f, 20.7f})).decimals, 1);
  EXPECT_EQ(ExpectRoundTrip(kDoubles, ValuesAsBytes({0.123456789, 1.0})).decimals, 9);
}

TEST(ValuePlanes, HoldDecimalsThatOnlyLaterNumbersHave) {
  std::vector<double> values(1000, 2.5);
  values[900] = 2.125;
  const ValuePlanes planes = ExpectRoundTrip(kDoubles, ValuesAsBytes(values));
  EXPECT_EQ(planes.decimals, 3);
  EXPECT_EQ(planes.components[0][0], 2500u);
}

TEST(ValuePlanes, HoldBitPatternsWhereOneNumberIsNotDecimal) {
  for (const double odd : {-0.0, 1.0 / 3, std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN(), 9007199254740992.0,
                           std::numeric_limits<double>::denorm_min()}) {
    std::vector<double> values(500, 0.5);
    values.back() = odd;
    const ValuePlanes planes = ExpectRoundTrip(kDoubles, ValuesAsBytes(values));
    EXPECT_EQ(planes.decimals, ValuePlanes::kAsTheyAre) << odd;
    EXPECT_EQ(planes.components[0].back(), std::bit_cast<std::uint64_t>(odd));
  }
}

TEST(ValuePlanes, KeepEveryPatternOfFloats) {
  const std::vector<std::uint32_t> patterns{0x7FC00001, 0xFFC12345, 0x80000000, 1, 0x7F800000};
  const ValuePlanes planes = ExpectRoundTrip(kFloats, ValuesAsBytes(patterns));
  EXPECT_EQ(planes.components[0], Numbers(patterns.begin(), patterns.end()));
}

TEST(ValuePlanes, HaveDecimalsOnlyOfFloatingPoint) {
  EXPECT_TRUE(oocpc::IsPossibleDecimals(kDoubles, 0));
  EXPECT_TRUE(oocpc::IsPossibleDecimals(kFloats, 9));
  EXPECT_FALSE(oocpc::IsPossibleDecimals(kFloats, 10));
  EXPECT_FALSE(oocpc::IsPossibleDecimals(kDoubles, 0xFE));
  EXPECT_FALSE(oocpc::IsPossibleDecimals({ValueType::kInt64, 1}, 0));
  EXPECT_TRUE(oocpc::IsPossibleDecimals({ValueType::kInt64, 1}, ValuePlanes::kAsTheyAre));
}

}  // namespace
