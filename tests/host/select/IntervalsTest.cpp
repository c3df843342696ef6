// Comparisons as intervals of stored values, and bounds of coordinates as stored integers.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "host/select/StoredPositions.h"
#include "host/select/ValueInterval.h"

namespace {

using oocpc::ValueType;
using tarnhost::IntervalOf;
using tarnhost::StoredPositions;
using tarnhost::StoredRange;
using tarnhost::ValueInterval;
using tarnhost::ValuesIn;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename T>
bool Holds(MetaDataComparison comparison, T value, double constant) {
  const auto left = static_cast<double>(value);
  switch (comparison) {
    case MetaDataComparison::kEqual:
      return left == constant;
    case MetaDataComparison::kGreater:
      return left > constant;
    case MetaDataComparison::kGreaterOrEqual:
      return left >= constant;
    case MetaDataComparison::kLess:
      return left < constant;
    case MetaDataComparison::kLessOrEqual:
      return left <= constant;
    case MetaDataComparison::kNotEqual:
      return left != constant;
  }
  return false;
}

template <typename T>
bool IsIn(const ValueInterval& interval, T value, ValueType type) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(value)) return false;
  }
  const std::uint64_t bits = oocpc::WidenBits(value);
  return !interval.isEmpty && !tarnhost::IsLess(bits, interval.lowBits, type) &&
         !tarnhost::IsLess(interval.highBits, bits, type);
}

/// Values that a double holds, so that comparing doubles says what is right.
template <typename T>
void ExpectExact(ValueType type, const std::vector<T>& values) {
  std::vector<double> constants{0,    -0.0,  0.5,    -0.5,   kInfinity,  -kInfinity,
                                kNaN, 1e300, -1e300, 5e-324, 16777216.5, 9007199254740992.0};
  for (const T value : values) {
    const auto number = static_cast<double>(value);
    constants.insert(constants.end(), {number, std::nextafter(number, kInfinity),
                                       std::nextafter(number, -kInfinity), number + 0.5});
  }
  for (std::uint32_t code = 0; code < 6; ++code) {
    const auto comparison = static_cast<MetaDataComparison>(code);
    for (const double constant : constants) {
      const tarnhost::RealInterval real = IntervalOf(comparison, constant);
      const ValueInterval interval = ValuesIn(real, type);
      for (const T value : values) {
        EXPECT_EQ(IsIn(interval, value, type) != real.negated, Holds(comparison, value, constant))
            << +value << " code " << code << " " << constant;
      }
    }
  }
}

TEST(ComparisonAsInterval, IsExactForBytes) {
  ExpectExact<std::uint8_t>(ValueType::kUInt8, {0, 1, 2, 127, 128, 254, 255});
  ExpectExact<std::int8_t>(ValueType::kInt8, {-128, -127, -1, 0, 1, 126, 127});
}

TEST(ComparisonAsInterval, IsExactForWiderIntegers) {
  ExpectExact<std::uint16_t>(ValueType::kUInt16, {0, 1, 65534, 65535});
  ExpectExact<std::int16_t>(ValueType::kInt16, {-32768, -1, 0, 32767});
  ExpectExact<std::uint32_t>(ValueType::kUInt32, {0, 1, 0x80000000u, 0xFFFFFFFFu});
  ExpectExact<std::int32_t>(ValueType::kInt32, {std::numeric_limits<std::int32_t>::min(), -1, 0,
                                                std::numeric_limits<std::int32_t>::max()});
  ExpectExact<std::uint64_t>(ValueType::kUInt64,
                             {0, 1, std::uint64_t{1} << 53, std::uint64_t{1} << 63});
  ExpectExact<std::int64_t>(
      ValueType::kInt64, {std::numeric_limits<std::int64_t>::min(), -1, 0, std::int64_t{1} << 53});
}

TEST(ComparisonAsInterval, IsExactForFloatingPointWithNaNsInfinitiesAndTheNegativeZero) {
  using F = std::numeric_limits<float>;
  ExpectExact<float>(ValueType::kFloat, {0, -0.0F, 1, -1, F::max(), F::lowest(), F::denorm_min(),
                                         F::infinity(), -F::infinity(), F::quiet_NaN(), 16777216});
  using D = std::numeric_limits<double>;
  ExpectExact<double>(ValueType::kDouble, {0, -0.0, 0.1, D::max(), D::lowest(), D::denorm_min(),
                                           D::infinity(), -D::infinity(), D::quiet_NaN()});
}

TEST(ComparisonAsInterval, IsEmptyOrFullWhereItDecidesEveryValueOfTheType) {
  const auto full = ValuesIn(IntervalOf(MetaDataComparison::kLess, 1000), ValueType::kUInt8);
  EXPECT_TRUE(full.isFull);
  const auto none = ValuesIn(IntervalOf(MetaDataComparison::kGreater, 255), ValueType::kUInt8);
  EXPECT_TRUE(none.isEmpty);
  const auto reals =
      ValuesIn(IntervalOf(MetaDataComparison::kLessOrEqual, kInfinity), ValueType::kDouble);
  EXPECT_FALSE(reals.isFull) << "a NaN is not within";
}

TEST(IntersectedIntervals, HoldWhatBothHold) {
  const auto a = ValuesIn({-10, 20, false}, ValueType::kInt16);
  const auto b = ValuesIn({5, 100, false}, ValueType::kInt16);
  const auto both = tarnhost::Intersect(a, b, ValueType::kInt16);
  EXPECT_EQ(static_cast<std::int64_t>(both.lowBits), 5);
  EXPECT_EQ(static_cast<std::int64_t>(both.highBits), 20);
  const auto c = ValuesIn({21, 22, false}, ValueType::kInt16);
  EXPECT_TRUE(tarnhost::Intersect(a, c, ValueType::kInt16).isEmpty);
}

/// The range, told by asking every integer around its ends.
void ExpectExactRange(const StoredPositions& positions, double low, double high) {
  const StoredRange range = positions.FindLocal(low, high, 0);
  const StoredRange source = positions.FindSource(low, high, 0);
  const auto isIn = [&](double coordinate) { return low <= coordinate && coordinate <= high; };
  std::vector<std::int64_t> asked{tarnhost::kAllStored.least, tarnhost::kAllStored.greatest, 0};
  for (const std::int64_t end : {range.least, range.greatest, source.least, source.greatest}) {
    for (std::int64_t near = end - 3; near <= end + 3; ++near) asked.push_back(near);
  }
  for (const std::int64_t at : asked) {
    if (at < tarnhost::kAllStored.least || at > tarnhost::kAllStored.greatest) continue;
    const auto stored = static_cast<std::int32_t>(at);
    EXPECT_EQ(range.least <= at && at <= range.greatest, isIn(positions.GetLocal(stored, 0)))
        << at << " local in " << low << " " << high;
    EXPECT_EQ(source.least <= at && at <= source.greatest, isIn(positions.GetSource(stored, 0)))
        << at << " source in " << low << " " << high;
  }
}

TEST(StoredRange, HoldsExactlyTheIntegersWhoseCoordinateIsBetweenTheBounds) {
  std::mt19937_64 random(1);
  const double scales[] = {0.01, 1e-7, 3, -0.25, -1e-3, 1e300, 5e-324};
  for (const double scale : scales) {
    for (const double offset : {0.0, 637290.77, -1e9}) {
      const StoredPositions positions{{{scale, 1, 1}, {offset, 0, 0}},
                                      {offset == 0 ? 0 : 637000.0, 0, 0}};
      for (int round = 0; round < 50; ++round) {
        const double low = positions.GetLocal(static_cast<std::int32_t>(random()), 0);
        const double high = positions.GetSource(static_cast<std::int32_t>(random()), 0);
        ExpectExactRange(positions, std::min(low, high), std::max(low, high));
        ExpectExactRange(positions, low, low);
        ExpectExactRange(positions, std::nextafter(low, kInfinity), kInfinity);
      }
      ExpectExactRange(positions, -kInfinity, kInfinity);
      ExpectExactRange(positions, kInfinity, kInfinity);
    }
  }
}

TEST(StoredRange, IsEmptyForNaNBoundsAndForBoundsInTheWrongOrder) {
  const StoredPositions positions{{{0.01, 1, 1}, {}}, {}};
  for (const auto& [low, high] : {std::pair{kNaN, 1.0}, {1.0, kNaN}, {2.0, 1.0}}) {
    const StoredRange range = positions.FindLocal(low, high, 0);
    EXPECT_GT(range.least, range.greatest);
  }
}

}  // namespace
