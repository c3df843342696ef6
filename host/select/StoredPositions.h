// From stored integers to coordinates, and from bounds of coordinates back to stored integers.
#pragma once

#include <OOCPointCloud/Types.h>

#include <array>
#include <cstdint>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A closed range of stored integers; empty when `least` is above `greatest`.
struct StoredRange {
  std::int64_t least = 0;
  std::int64_t greatest = -1;
};

/// Every integer that can be stored.
inline constexpr StoredRange kAllStored{-0x80000000LL, 0x7FFFFFFFLL};

/// What makes coordinates out of stored integers, with the very operations that the positions
/// container delivers them with. Each rounded operation keeps order, so the integers whose
/// coordinate lies between two bounds are always a range; so bounds can be moved to the integers
/// once, and points be compared without computing their coordinates.
struct StoredPositions {
  PositionTransform transform;
  oocpc::Vector3d frameOffset{};

  [[nodiscard]] double GetSource(std::int32_t stored, std::size_t axis) const {
    const double scaled = static_cast<double>(stored) * transform.scale[axis];
    return scaled + transform.offset[axis];
  }
  [[nodiscard]] double GetLocal(std::int32_t stored, std::size_t axis) const {
    return GetSource(stored, axis) - frameOffset[axis];
  }
  /// The integers whose source coordinate lies in the closed interval; NaN bounds hold none.
  [[nodiscard]] StoredRange FindSource(double low, double high, std::size_t axis) const;
  /// The same of the local frame.
  [[nodiscard]] StoredRange FindLocal(double low, double high, std::size_t axis) const;
};

}  // namespace tarnhost
