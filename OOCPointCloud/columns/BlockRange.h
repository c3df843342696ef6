// Minimum and maximum of a block: finding them, and checking what a block entry claims.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

namespace oocpc {

/// Fills in the entry's minimum, maximum and hasNan from whole values. No values: all zero.
void DescribeRange(ColumnType type, std::span<const std::uint8_t> values, BlockEntry& entry);

/// False when the entry's minimum and maximum can't be those of a block of this type: out of the
/// type's range, in the wrong order, NaN, or set for a component that the type does not have.
[[nodiscard]] bool IsPossibleRange(const BlockEntry& entry);

}  // namespace oocpc
