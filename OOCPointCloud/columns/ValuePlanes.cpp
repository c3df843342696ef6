// The components of values as 64-bit integers, component after component.
#include "OOCPointCloud/columns/ValuePlanes.h"

#include <algorithm>
#include <bit>
#include <type_traits>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/columns/DecimalNumbers.h"

namespace oocpc {
namespace {

/// The fewest decimals that the first numbers have; kMostDecimals + 1: they are not decimal.
template <typename T>
unsigned GuessDecimals(std::span<const std::uint8_t> values) {
  const std::size_t count = std::min<std::size_t>(values.size() / sizeof(T), 64);
  unsigned decimals = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const T number = LoadComponent<T>(values.data() + i * sizeof(T));
    while (decimals <= kMostDecimals && !ToDecimal(number, decimals)) ++decimals;
  }
  return decimals;
}

template <typename T>
bool FillWithMultiples(ColumnType type, std::span<const std::uint8_t> values, unsigned decimals,
                       ValuePlanes& planes) {
  const std::size_t stride = ValueBytes(type);
  for (std::size_t component = 0; component < type.components; ++component) {
    const std::uint8_t* from = values.data() + component * sizeof(T);
    for (std::uint64_t& number : planes.components[component]) {
      const auto multiple = ToDecimal(LoadComponent<T>(from), decimals);
      if (!multiple) return false;
      number = static_cast<std::uint64_t>(*multiple);
      from += stride;
    }
  }
  planes.decimals = static_cast<std::uint8_t>(decimals);
  return true;
}

template <typename T, typename Planes>
void FillWithIntegers(ColumnType type, std::span<const std::uint8_t> values, Planes& planes) {
  const std::size_t stride = ValueBytes(type);
  for (std::size_t component = 0; component < type.components; ++component) {
    const std::uint8_t* from = values.data() + component * sizeof(T);
    for (auto& number : planes.components[component]) {
      number =
          static_cast<std::remove_reference_t<decltype(number)>>(WidenBits(LoadComponent<T>(from)));
      from += stride;
    }
  }
}

/// Whether the numbers, which were values of type T, differ by less than 2^29.
template <typename T>
bool LieClose(std::span<const std::uint32_t> numbers) {
  constexpr std::int64_t kClose = std::int64_t{1} << 29;
  std::int64_t least = static_cast<T>(numbers[0]);
  std::int64_t greatest = least;
  for (const std::uint32_t number : numbers) {
    least = std::min<std::int64_t>(least, static_cast<T>(number));
    greatest = std::max<std::int64_t>(greatest, static_cast<T>(number));
  }
  return greatest - least < kClose;
}

/// Floating-point numbers by their bits.
void FillWithPatterns(ColumnType type, std::span<const std::uint8_t> values, ValuePlanes& planes) {
  if (type.value == ValueType::kFloat) {
    FillWithIntegers<std::uint32_t>(type, values, planes);
  } else {
    FillWithIntegers<std::uint64_t>(type, values, planes);
  }
}

}  // namespace

ValuePlanes ValuePlanes::Of(ColumnType type, std::span<const std::uint8_t> values) {
  ValuePlanes planes;
  planes.components.assign(type.components,
                           std::vector<std::uint64_t>(values.size() / ValueBytes(type)));
  VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_floating_point_v<T>) {
      // Mostly the first numbers tell; where later ones have more decimals, the next fit.
      for (unsigned decimals = GuessDecimals<T>(values); decimals <= kMostDecimals; ++decimals) {
        if (FillWithMultiples<T>(type, values, decimals, planes)) return;
      }
      FillWithPatterns(type, values, planes);
    } else {
      FillWithIntegers<T>(type, values, planes);
    }
  });
  return planes;
}

std::optional<NarrowPlanes> NarrowPlanes::Of(ColumnType type,
                                             std::span<const std::uint8_t> values) {
  return VisitComponentType(type.value, [&](auto tag) -> std::optional<NarrowPlanes> {
    using T = typename decltype(tag)::Type;
    if constexpr (std::is_integral_v<T> && sizeof(T) <= sizeof(std::uint32_t)) {
      NarrowPlanes planes;
      planes.components.assign(type.components,
                               std::vector<std::uint32_t>(values.size() / ValueBytes(type)));
      FillWithIntegers<T>(type, values, planes);
      if constexpr (sizeof(T) < sizeof(std::uint32_t)) {
        return planes;
      } else {
        const auto close = [](const auto& numbers) { return LieClose<T>(numbers); };
        if (std::ranges::all_of(planes.components, close)) return planes;
      }
    }
    return std::nullopt;
  });
}

bool IsPossibleDecimals(ColumnType type, std::uint8_t decimals) {
  if (decimals == ValuePlanes::kAsTheyAre) return true;
  return IsFloatingPoint(type.value) && decimals <= kMostDecimals;
}

}  // namespace oocpc
