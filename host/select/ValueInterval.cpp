// What a comparison lets through, as a closed interval of the values of a column.
#include "host/select/ValueInterval.h"

#include <bit>
#include <cmath>
#include <limits>

#include "OOCPointCloud/columns/ComponentTypes.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Bounds of an integer type as doubles: the least is exact, and so is one behind the greatest.
template <typename T>
ValueInterval IntegersIn(const RealInterval& interval) {
  using Limits = std::numeric_limits<T>;
  const double least = static_cast<double>(Limits::min());
  const double end = std::ldexp(1.0, Limits::digits);
  const double low = std::ceil(interval.low);
  const double high = std::floor(interval.high);
  if (interval.IsEmpty() || !(low <= high) || !(low < end) || !(high >= least)) {
    return {.isEmpty = true};
  }
  const T first = low <= least ? Limits::min() : static_cast<T>(low);
  const T last = high >= end ? Limits::max() : static_cast<T>(high);
  return {oocpc::WidenBits(first), oocpc::WidenBits(last), false,
          first == Limits::min() && last == Limits::max()};
}

ValueInterval DoublesIn(const RealInterval& interval) {
  if (interval.IsEmpty()) return {.isEmpty = true};
  return {oocpc::WidenBits(interval.low), oocpc::WidenBits(interval.high)};
}

/// The least float that is not below a number, or (with the signs turned round) the greatest that
/// is not above it.
float FloatFrom(double number) {
  constexpr double kGreatest = std::numeric_limits<float>::max();
  if (number > kGreatest) return std::numeric_limits<float>::infinity();
  if (number < -kGreatest) {
    return number == -kInfinity ? -std::numeric_limits<float>::infinity()
                                : -std::numeric_limits<float>::max();
  }
  const auto nearest = static_cast<float>(number);
  if (static_cast<double>(nearest) >= number) return nearest;
  return std::nextafter(nearest, std::numeric_limits<float>::infinity());
}

ValueInterval FloatsIn(const RealInterval& interval) {
  if (interval.IsEmpty()) return {.isEmpty = true};
  const float low = FloatFrom(interval.low);
  const float high = -FloatFrom(-interval.high);
  if (!(low <= high)) return {.isEmpty = true};
  return {oocpc::WidenBits(low), oocpc::WidenBits(high)};
}

}  // namespace

RealInterval IntervalOf(MetaDataComparison comparison, double constant) {
  const bool negated = comparison == MetaDataComparison::kNotEqual;
  if (std::isnan(constant)) return {.negated = negated};
  switch (comparison) {
    case MetaDataComparison::kEqual:
    case MetaDataComparison::kNotEqual:
      return {constant, constant, negated};
    case MetaDataComparison::kGreater:
      if (constant == kInfinity) return {};
      return {std::nextafter(constant, kInfinity), kInfinity};
    case MetaDataComparison::kGreaterOrEqual:
      return {constant, kInfinity};
    case MetaDataComparison::kLess:
      if (constant == -kInfinity) return {};
      return {-kInfinity, std::nextafter(constant, -kInfinity)};
    case MetaDataComparison::kLessOrEqual:
      return {-kInfinity, constant};
  }
  return {};
}

ValueInterval ValuesIn(const RealInterval& interval, ValueType type) {
  return oocpc::VisitComponentType(type, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_same_v<T, float>) return FloatsIn(interval);
    if constexpr (std::is_same_v<T, double>) return DoublesIn(interval);
    if constexpr (std::is_integral_v<T>) return IntegersIn<T>(interval);
  });
}

ValueInterval Intersect(const ValueInterval& a, const ValueInterval& b, ValueType type) {
  if (a.isEmpty || b.isEmpty) return {.isEmpty = true};
  ValueInterval both;
  both.lowBits = IsLess(a.lowBits, b.lowBits, type) ? b.lowBits : a.lowBits;
  both.highBits = IsLess(b.highBits, a.highBits, type) ? b.highBits : a.highBits;
  both.isEmpty = IsLess(both.highBits, both.lowBits, type);
  both.isFull = a.isFull && b.isFull;
  return both;
}

bool IsSignedType(ValueType type) {
  return type == ValueType::kInt8 || type == ValueType::kInt16 || type == ValueType::kInt32 ||
         type == ValueType::kInt64;
}

bool IsRealType(ValueType type) { return type == ValueType::kFloat || type == ValueType::kDouble; }

bool IsLess(std::uint64_t a, std::uint64_t b, ValueType type) {
  if (IsRealType(type)) return std::bit_cast<double>(a) < std::bit_cast<double>(b);
  if (IsSignedType(type)) return static_cast<std::int64_t>(a) < static_cast<std::int64_t>(b);
  return a < b;
}

}  // namespace tarnhost
