// The root cube of an octree, and where points lie in it as Morton codes.
#pragma once

#include <OOCPointCloud/Types.h>

#include <algorithm>
#include <cstdint>

namespace tarnhost {

/// Bits of a cell number per axis; a code interleaves them as ...zyxzyx, 63 bits in all.
inline constexpr unsigned kMortonBits = 21;

/// Spreads the low 21 bits of `value` so that two zero bits follow each.
[[nodiscard]] constexpr std::uint64_t SpreadBits(std::uint64_t value) {
  value &= 0x1FFFFF;
  value = (value | value << 32) & 0x1F00000000FFFF;
  value = (value | value << 16) & 0x1F0000FF0000FF;
  value = (value | value << 8) & 0x100F00F00F00F00F;
  value = (value | value << 4) & 0x10C30C30C30C30C3;
  value = (value | value << 2) & 0x1249249249249249;
  return value;
}

/// The inverse of SpreadBits; bits in between are ignored.
[[nodiscard]] constexpr std::uint64_t CollectBits(std::uint64_t value) {
  value &= 0x1249249249249249;
  value = (value | value >> 2) & 0x10C30C30C30C30C3;
  value = (value | value >> 4) & 0x100F00F00F00F00F;
  value = (value | value >> 8) & 0x1F0000FF0000FF;
  value = (value | value >> 16) & 0x1F00000000FFFF;
  value = (value | value >> 32) & 0x1FFFFF;
  return value;
}

/// An axis-aligned cube in the local frame.
struct MortonCube {
  oocpc::Vector3d min{};
  double edge = 1;

  /// Code of the finest cell that holds a position; positions outside go to the nearest cell.
  [[nodiscard]] std::uint64_t CodeOf(const oocpc::Vector3d& position) const {
    constexpr double kCells = std::uint64_t{1} << kMortonBits;
    std::uint64_t code = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double cell = (position[axis] - min[axis]) / edge * kCells;
      code |= SpreadBits(static_cast<std::uint64_t>(std::clamp(cell, 0.0, kCells - 1))) << axis;
    }
    return code;
  }
};

}  // namespace tarnhost
