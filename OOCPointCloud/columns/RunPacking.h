// Integers in runs of 128, each as offsets from the run's least value.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

#include <span>
#include <vector>

namespace oocpc {

/// Bytes that so many values take at least, when those of each run are all the same.
[[nodiscard]] std::uint64_t LeastRunBytes(ColumnType type, std::uint64_t valueCount);

/// Bytes that PackRuns would make.
[[nodiscard]] std::uint64_t CountRunBytes(ColumnType type, std::span<const std::uint8_t> values);

/// Component after component, run after run: the bits of an offset, the least value, the offsets.
/// For integers and string indices.
[[nodiscard]] std::vector<std::uint8_t> PackRuns(ColumnType type,
                                                 std::span<const std::uint8_t> values);

/// Undoes PackRuns; `values` has the size that is expected. False when the bytes are not those of
/// so many values.
[[nodiscard]] bool UnpackRuns(ColumnType type, std::span<const std::uint8_t> packed,
                              std::span<std::uint8_t> values);

}  // namespace oocpc
