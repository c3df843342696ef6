// Reversible rearrangements that make values easier to compress.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <span>

namespace oocpc {

/// Puts bytes of equal significance together: byte j of value i goes to j * count + i.
/// `from` and `to` have the same size, a multiple of `valueBytes`, and do not overlap.
void ShuffleBytes(std::span<const std::uint8_t> from, std::size_t valueBytes,
                  std::span<std::uint8_t> to);
/// Undoes ShuffleBytes.
void UnshuffleBytes(std::span<const std::uint8_t> from, std::size_t valueBytes,
                    std::span<std::uint8_t> to);

/// Replaces every value, component by component, by its difference from the value before (the first
/// one's from zero). Components count as unsigned integers modulo their width, floating-point ones
/// by their bit patterns; the difference is zigzag-coded, so that small steps either way have
/// leading zeros.
void EncodeDeltas(ColumnType type, std::span<std::uint8_t> values);
/// Undoes EncodeDeltas.
void DecodeDeltas(ColumnType type, std::span<std::uint8_t> values);

}  // namespace oocpc
