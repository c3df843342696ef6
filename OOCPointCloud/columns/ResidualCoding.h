// Values as entropy-coded differences from what precedes them.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

#include <cstdint>
#include <span>
#include <vector>

namespace oocpc {

/// Encodes values, at least one, or gives nothing when their numbers are too large for it. Picks
/// what makes them smallest: differences of neighbours or offsets; of three components, the first
/// and third relative to the second or not; of 64-bit values, a dictionary or not.
[[nodiscard]] std::vector<std::uint8_t> EncodeResiduals(ColumnType type,
                                                        std::span<const std::uint8_t> values);

/// Undoes EncodeResiduals; `values` has the size that is expected. False when the bytes are not
/// those of so many values.
[[nodiscard]] bool DecodeResiduals(ColumnType type, std::span<const std::uint8_t> coded,
                                   std::span<std::uint8_t> values);

}  // namespace oocpc
