// What a comparison lets through, as a closed interval of the values of a column.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>

#include "OOCPointCloudTarn/query/ComparisonDescription.h"

namespace tarnhost {

/// Numbers from `low` to `high`, both included; empty when `low` is above `high`. Infinities count
/// as numbers, a NaN is in no interval.
struct RealInterval {
  double low = 0;
  double high = -1;
  bool negated = false;  ///< all other values are meant, NaNs included
  [[nodiscard]] bool IsEmpty() const { return !(low <= high); }
};

/// What a comparison with a number lets through. Every constant that the language knows is a double
/// as well, and the next double stands for "strictly".
[[nodiscard]] RealInterval IntervalOf(MetaDataComparison comparison, double constant);

/// A closed interval of a column's own type. The bounds are widened to 64 bits as those of block
/// entries are: int64 for signed, uint64 for unsigned integers, double for floating point.
struct ValueInterval {
  std::uint64_t lowBits = 0;
  std::uint64_t highBits = 0;
  bool isEmpty = false;
  bool isFull = false;  ///< holds every value of the type; never so for floating point: NaN is none
};

/// The values of a type that lie in the interval, whatever `negated` says. For strings: indices.
[[nodiscard]] ValueInterval ValuesIn(const RealInterval& interval, oocpc::ValueType type);

/// The values that lie in both; they are of one type.
[[nodiscard]] ValueInterval Intersect(const ValueInterval& a, const ValueInterval& b,
                                      oocpc::ValueType type);

[[nodiscard]] bool IsSignedType(oocpc::ValueType type);
[[nodiscard]] bool IsRealType(oocpc::ValueType type);

/// Whether one widened value is less than another of the same type.
[[nodiscard]] bool IsLess(std::uint64_t a, std::uint64_t b, oocpc::ValueType type);

}  // namespace tarnhost
