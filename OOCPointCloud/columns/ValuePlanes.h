// The components of values as 64-bit integers, component after component.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/columns/DecimalNumbers.h"

namespace oocpc {

/// Integers are widened; floating-point numbers become whole multiples of a power of ten where that
/// gives back the same bits, and their bit patterns where not.
struct ValuePlanes {
  /// In place of a number of decimals: integers, or bit patterns.
  static constexpr std::uint8_t kAsTheyAre = 0xFF;

  std::vector<std::vector<std::uint64_t>> components;
  std::uint8_t decimals = kAsTheyAre;

  [[nodiscard]] static ValuePlanes Of(ColumnType type, std::span<const std::uint8_t> values);
};

/// Integers that lie close enough together for 32 bits: modulo 2^32, differences of neighbours in
/// two components, and differences of these, are what they are modulo 2^64.
struct NarrowPlanes {
  static constexpr std::uint8_t decimals = ValuePlanes::kAsTheyAre;

  std::vector<std::vector<std::uint32_t>> components;

  /// Nothing when the values are no such integers.
  [[nodiscard]] static std::optional<NarrowPlanes> Of(ColumnType type,
                                                      std::span<const std::uint8_t> values);
};

/// Whether values of this type can have been taken apart so.
[[nodiscard]] bool IsPossibleDecimals(ColumnType type, std::uint8_t decimals);

/// Puts one component of `count` values back, whose numbers `next` gives one after the other: into
/// values of `type`, the first of which begins at `values`.
template <typename Next>
void StoreNumbers(ColumnType type, std::uint8_t decimals, std::size_t component, std::size_t count,
                  Next next, std::uint8_t* values) {
  const std::size_t stride = ValueBytes(type);
  const auto store = [&](auto convert) {
    std::uint8_t* to = values + component * sizeof(convert(0));
    for (std::size_t i = 0; i < count; ++i, to += stride) StoreComponent(to, convert(next()));
  };
  const auto multiple = [&](auto tag) {
    using T = typename decltype(tag)::Type;
    store([&](std::uint64_t number) {
      return FromDecimal<T>(static_cast<std::int64_t>(number), decimals);
    });
  };
  const auto pattern = [&](auto tag) {
    using T = typename decltype(tag)::Type;
    store([](std::uint64_t number) { return static_cast<T>(number); });
  };
  const std::uint32_t width = ComponentBytes(type.value);
  if (decimals != ValuePlanes::kAsTheyAre) {
    width == sizeof(float) ? multiple(ComponentTag<float>{}) : multiple(ComponentTag<double>{});
  } else if (width <= sizeof(std::uint16_t)) {
    width == 1 ? pattern(ComponentTag<std::uint8_t>{}) : pattern(ComponentTag<std::uint16_t>{});
  } else {
    width == sizeof(std::uint32_t) ? pattern(ComponentTag<std::uint32_t>{})
                                   : pattern(ComponentTag<std::uint64_t>{});
  }
}

}  // namespace oocpc
