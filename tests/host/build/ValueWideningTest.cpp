// Which type holds the values of two, and that they arrive there.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "host/build/ValueWidening.h"

namespace tarnhost {
namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using enum oocpc::ValueType;

std::optional<ValueType> Wider(ValueType a, ValueType b) {
  const auto ab = FindWiderType({a, 1}, {b, 1});
  EXPECT_EQ(ab, FindWiderType({b, 1}, {a, 1})) << "whichever comes first";
  return ab ? std::optional(ab->value) : std::nullopt;
}

TEST(WiderType, IsTheNarrowestThatHoldsBoth) {
  EXPECT_EQ(Wider(kUInt8, kUInt8), kUInt8);
  EXPECT_EQ(Wider(kUInt8, kUInt16), kUInt16);
  EXPECT_EQ(Wider(kUInt8, kInt8), kInt16);
  EXPECT_EQ(Wider(kUInt16, kInt8), kInt32);
  EXPECT_EQ(Wider(kUInt32, kInt32), kInt64);
  EXPECT_EQ(Wider(kInt16, kFloat), kFloat);
  EXPECT_EQ(Wider(kInt32, kFloat), kDouble);
  EXPECT_EQ(Wider(kUInt32, kDouble), kDouble);
  EXPECT_EQ(Wider(kFloat, kDouble), kDouble);
}

TEST(WiderType, IsNoneWhereSomethingWouldBeLost) {
  EXPECT_EQ(Wider(kUInt64, kInt8), std::nullopt);
  EXPECT_EQ(Wider(kUInt64, kDouble), std::nullopt);
  EXPECT_EQ(Wider(kInt64, kFloat), std::nullopt);
  EXPECT_EQ(Wider(kString, kUInt32), std::nullopt);
  EXPECT_EQ(FindWiderType({kUInt8, 1}, {kUInt8, 3}), std::nullopt);
}

TEST(WiderType, KeepsTheComponents) {
  EXPECT_EQ(FindWiderType({kUInt8, 3}, {kUInt16, 3}), (ColumnType{kUInt16, 3}));
}

template <typename From, typename To>
void ExpectWidened(ValueType from, ValueType to) {
  const std::vector<From> values{std::numeric_limits<From>::lowest(), From{0}, From{1},
                                 std::numeric_limits<From>::max()};
  std::vector<To> wide(values.size());
  WidenValues({from, 2}, {to, 2}, reinterpret_cast<const std::uint8_t*>(values.data()),
              values.size() / 2, reinterpret_cast<std::uint8_t*>(wide.data()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(wide[i], static_cast<To>(values[i])) << oocpc::ValueTypeName(to);
    EXPECT_EQ(static_cast<From>(wide[i]), values[i]);
  }
}

TEST(WidenedValues, AreTheSameNumbers) {
  ExpectWidened<std::uint8_t, std::uint8_t>(kUInt8, kUInt8);
  ExpectWidened<std::uint8_t, std::uint16_t>(kUInt8, kUInt16);
  ExpectWidened<std::uint8_t, std::int16_t>(kUInt8, kInt16);
  ExpectWidened<std::int8_t, std::int64_t>(kInt8, kInt64);
  ExpectWidened<std::uint16_t, std::uint32_t>(kUInt16, kUInt32);
  ExpectWidened<std::uint16_t, std::uint64_t>(kUInt16, kUInt64);
  ExpectWidened<std::int16_t, std::int32_t>(kInt16, kInt32);
  ExpectWidened<std::int16_t, float>(kInt16, kFloat);
  ExpectWidened<std::uint32_t, double>(kUInt32, kDouble);
  ExpectWidened<std::int32_t, std::int64_t>(kInt32, kInt64);
  ExpectWidened<float, double>(kFloat, kDouble);
  ExpectWidened<std::uint64_t, std::uint64_t>(kUInt64, kUInt64);
}

}  // namespace
}  // namespace tarnhost
