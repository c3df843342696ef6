// Minimum and maximum of a block: finding them, and checking what a block entry claims.
#include "OOCPointCloud/columns/BlockRange.h"

#include <cmath>
#include <limits>

#include "OOCPointCloud/columns/ComponentTypes.h"

namespace oocpc {
namespace {

struct Range {
  std::uint64_t minimumBits = 0;
  std::uint64_t maximumBits = 0;
  bool hasNan = false;
};

// Limits that every value of the type replaces.
template <typename T>
constexpr T kAboveAll = std::is_floating_point_v<T> ? std::numeric_limits<T>::infinity()
                                                    : std::numeric_limits<T>::max();
template <typename T>
constexpr T kBelowAll = std::is_floating_point_v<T> ? -std::numeric_limits<T>::infinity()
                                                    : std::numeric_limits<T>::lowest();

template <typename T>
[[gnu::always_inline]] inline Range FindRange(const std::uint8_t* at, std::size_t count,
                                              std::size_t stride) {
  T minimum = kAboveAll<T>;
  T maximum = kBelowAll<T>;
  bool hasNan = false;
  for (std::size_t i = 0; i < count; ++i, at += stride) {
    const T value = LoadComponent<T>(at);
    if constexpr (std::is_floating_point_v<T>) hasNan |= std::isnan(value);
    // NaNs compare false and so change nothing.
    minimum = value < minimum ? value : minimum;
    maximum = value > maximum ? value : maximum;
  }
  return {WidenBits(minimum), WidenBits(maximum), hasNan};
}

/// Values side by side can be compared several at once.
template <typename T>
Range FindRangeOfColumn(const std::uint8_t* at, std::size_t count, std::size_t stride) {
  return stride == sizeof(T) ? FindRange<T>(at, count, sizeof(T)) : FindRange<T>(at, count, stride);
}

template <typename T>
bool IsPossible(std::uint64_t minimumBits, std::uint64_t maximumBits, bool hasNan) {
  if constexpr (std::is_floating_point_v<T>) {
    const auto minimum = std::bit_cast<double>(minimumBits);
    const auto maximum = std::bit_cast<double>(maximumBits);
    const double infinity = std::numeric_limits<double>::infinity();
    const bool onlyNans = minimum == infinity && maximum == -infinity;
    return minimum <= maximum || (hasNan && onlyNans);
  } else if constexpr (std::is_signed_v<T>) {
    const auto minimum = static_cast<std::int64_t>(minimumBits);
    const auto maximum = static_cast<std::int64_t>(maximumBits);
    return minimum <= maximum && minimum >= std::numeric_limits<T>::min() &&
           maximum <= std::numeric_limits<T>::max();
  } else {
    return minimumBits <= maximumBits && maximumBits <= std::numeric_limits<T>::max();
  }
}

}  // namespace

void DescribeRange(ColumnType type, std::span<const std::uint8_t> values, BlockEntry& entry) {
  entry.minimumBits = {};
  entry.maximumBits = {};
  entry.hasNan = false;
  const std::size_t stride = ValueBytes(type);
  const std::size_t count = values.size() / stride;
  if (count == 0) return;
  for (std::size_t component = 0; component < type.components; ++component) {
    const Range range = VisitComponentType(type.value, [&](auto tag) {
      using T = typename decltype(tag)::Type;
      return FindRangeOfColumn<T>(values.data() + component * sizeof(T), count, stride);
    });
    entry.minimumBits[component] = range.minimumBits;
    entry.maximumBits[component] = range.maximumBits;
    entry.hasNan |= range.hasNan;
  }
}

bool IsPossibleRange(const BlockEntry& entry) {
  const ColumnType type = entry.type;
  if (entry.hasNan && !IsFloatingPoint(type.value)) return false;
  for (std::size_t component = 0; component < entry.minimumBits.size(); ++component) {
    const std::uint64_t minimumBits = entry.minimumBits[component];
    const std::uint64_t maximumBits = entry.maximumBits[component];
    if (component >= type.components || entry.valueCount == 0) {
      if (minimumBits != 0 || maximumBits != 0) return false;
      continue;
    }
    const bool possible = VisitComponentType(type.value, [&](auto tag) {
      return IsPossible<typename decltype(tag)::Type>(minimumBits, maximumBits, entry.hasNan);
    });
    if (!possible) return false;
  }
  return true;
}

}  // namespace oocpc
