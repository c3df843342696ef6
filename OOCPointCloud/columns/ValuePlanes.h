// The components of values as 64-bit integers, component after component.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>
#include <span>
#include <vector>

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

/// Whether values of this type can have been taken apart so.
[[nodiscard]] bool IsPossibleDecimals(ColumnType type, std::uint8_t decimals);

/// Puts one component back: into values of `type`, whose first begins at `values`.
void StorePlane(ColumnType type, std::span<const std::uint64_t> plane, std::uint8_t decimals,
                std::size_t component, std::uint8_t* values);

}  // namespace oocpc
