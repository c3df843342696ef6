// Values of one type as those of a wider one, without loss.
#include "host/build/ValueWidening.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace tarnhost {

using oocpc::ColumnType;
using oocpc::ValueType;

namespace {

/// What a number type holds: bits besides the sign, and whether it has one.
struct NumberKind {
  ValueType type;
  int integerBits;  ///< every integer of so many bits
  bool hasSign;
  bool isFloating;
};

constexpr std::array<NumberKind, 10> kKinds{{
    {ValueType::kUInt8, 8, false, false},
    {ValueType::kInt8, 7, true, false},
    {ValueType::kUInt16, 16, false, false},
    {ValueType::kInt16, 15, true, false},
    {ValueType::kUInt32, 32, false, false},
    {ValueType::kInt32, 31, true, false},
    {ValueType::kUInt64, 64, false, false},
    {ValueType::kInt64, 63, true, false},
    {ValueType::kFloat, 24, true, true},
    {ValueType::kDouble, 53, true, true},
}};

const NumberKind& KindOf(ValueType type) {
  return kKinds[static_cast<std::size_t>(type) - static_cast<std::size_t>(ValueType::kUInt8)];
}

bool Holds(const NumberKind& wide, const NumberKind& narrow) {
  return wide.integerBits >= narrow.integerBits && (wide.hasSign || !narrow.hasSign) &&
         (wide.isFloating || !narrow.isFloating);
}

template <typename From, typename To>
void Widen(const std::uint8_t* values, std::size_t count, std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i, values += sizeof(From), out += sizeof(To)) {
    From value;
    std::memcpy(&value, values, sizeof(From));
    const To wide = static_cast<To>(value);  // NOLINT(bugprone-signed-char-misuse): numbers
    std::memcpy(out, &wide, sizeof(To));
  }
}

template <typename From>
void WidenFrom(ValueType to, const std::uint8_t* values, std::size_t count, std::uint8_t* out) {
  switch (to) {
    case ValueType::kUInt16:
      return Widen<From, std::uint16_t>(values, count, out);
    case ValueType::kInt16:
      return Widen<From, std::int16_t>(values, count, out);
    case ValueType::kUInt32:
      return Widen<From, std::uint32_t>(values, count, out);
    case ValueType::kInt32:
      return Widen<From, std::int32_t>(values, count, out);
    case ValueType::kUInt64:
      return Widen<From, std::uint64_t>(values, count, out);
    case ValueType::kInt64:
      return Widen<From, std::int64_t>(values, count, out);
    case ValueType::kFloat:
      return Widen<From, float>(values, count, out);
    case ValueType::kDouble:
      return Widen<From, double>(values, count, out);
    default:  // nothing is narrower than one byte
      return;
  }
}

}  // namespace

std::optional<ColumnType> FindWiderType(ColumnType a, ColumnType b) {
  if (a == b) return a;
  if (a.components != b.components || a.value == ValueType::kString ||
      b.value == ValueType::kString) {
    return std::nullopt;
  }
  // The kinds stand in ascending order of their bytes, integers first.
  for (const NumberKind& kind : kKinds) {
    if (Holds(kind, KindOf(a.value)) && Holds(kind, KindOf(b.value))) {
      return ColumnType{kind.type, a.components};
    }
  }
  return std::nullopt;
}

void WidenValues(ColumnType from, ColumnType to, const std::uint8_t* values, std::size_t count,
                 std::uint8_t* out) {
  if (from == to) {
    std::copy_n(values, count * oocpc::ValueBytes(from), out);
    return;
  }
  const std::size_t numbers = count * from.components;
  switch (from.value) {
    case ValueType::kUInt8:
      return WidenFrom<std::uint8_t>(to.value, values, numbers, out);
    case ValueType::kInt8:
      return WidenFrom<std::int8_t>(to.value, values, numbers, out);
    case ValueType::kUInt16:
      return WidenFrom<std::uint16_t>(to.value, values, numbers, out);
    case ValueType::kInt16:
      return WidenFrom<std::int16_t>(to.value, values, numbers, out);
    case ValueType::kUInt32:
      return WidenFrom<std::uint32_t>(to.value, values, numbers, out);
    case ValueType::kInt32:
      return WidenFrom<std::int32_t>(to.value, values, numbers, out);
    case ValueType::kFloat:
      return WidenFrom<float>(to.value, values, numbers, out);
    default:  // what holds more is widened to nothing else
      return;
  }
}

}  // namespace tarnhost
