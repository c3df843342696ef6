// Integers as offsets from a base, in a fixed number of bits each, least significant bit first.
#pragma once

#include <algorithm>
#include <bit>
#include <span>
#include <vector>

#include "OOCPointCloud/columns/ComponentTypes.h"

namespace oocpc {

/// Bits that every offset of values between two bounds fits in: 0 to 64. The bounds are widened as
/// block entries hold them; their difference is right modulo 2^64 for signed values, too.
[[nodiscard]] inline unsigned OffsetBits(std::uint64_t minimumBits, std::uint64_t maximumBits) {
  return static_cast<unsigned>(std::bit_width(maximumBits - minimumBits));
}

/// Whole bytes that `count` offsets need; `count` is at most kMaximumBlockValues.
[[nodiscard]] inline std::uint64_t PackedBytes(std::uint64_t count, unsigned bits) {
  return (count * bits + 7) / 8;
}

/// Appends the offsets of `count` values that stand `stride` bytes apart.
template <typename T>
void PackOffsets(const std::uint8_t* values, std::size_t count, std::size_t stride,
                 std::uint64_t baseBits, unsigned bits, std::vector<std::uint8_t>& out) {
  if (bits == 0) return;
  std::uint64_t word = 0;
  unsigned filled = 0;
  const auto emit = [&out](std::uint64_t pending, std::size_t bytes) {
    std::uint8_t raw[sizeof(pending)];
    std::memcpy(raw, &pending, sizeof(pending));
    out.insert(out.end(), raw, raw + bytes);
  };
  for (std::size_t i = 0; i < count; ++i, values += stride) {
    const std::uint64_t offset = WidenBits(LoadComponent<T>(values)) - baseBits;
    word |= offset << filled;
    if (filled + bits < 64) {
      filled += bits;
      continue;
    }
    emit(word, sizeof(word));
    word = filled == 0 ? 0 : offset >> (64 - filled);
    filled = filled + bits - 64;
  }
  emit(word, (filled + 7) / 8);
}

/// The offset at bit `position`, however near it is to the end of `packed`.
[[nodiscard]] inline std::uint64_t ReadOffset(std::span<const std::uint8_t> packed,
                                              std::uint64_t position, unsigned bits) {
  const std::size_t byte = position / 8;
  const unsigned shift = position % 8;
  std::uint64_t word = 0;
  std::memcpy(&word, packed.data() + byte, std::min<std::size_t>(8, packed.size() - byte));
  word >>= shift;
  if (shift + bits > 64) word |= std::uint64_t{packed[byte + 8]} << (64 - shift);
  return bits == 64 ? word : word & ((std::uint64_t{1} << bits) - 1);
}

/// Offsets that can be read as eight bytes at once without leaving `packedBytes`.
[[nodiscard]] inline std::size_t CountWholeReads(std::size_t packedBytes, std::size_t count,
                                                 unsigned bits) {
  // An offset of up to 57 bits lies within eight bytes whatever bit it begins at.
  if (bits > 57 || packedBytes < 8) return 0;
  return std::min<std::size_t>(count, ((packedBytes - 8) * 8 + 7) / bits + 1);
}

/// Undoes PackOffsets; `packed` has PackedBytes(count, bits) bytes.
template <typename T>
void UnpackOffsets(std::span<const std::uint8_t> packed, std::size_t count, std::size_t stride,
                   std::uint64_t baseBits, unsigned bits, std::uint8_t* values) {
  if (bits == 0) {
    for (std::size_t i = 0; i < count; ++i) {
      StoreComponent(values + i * stride, static_cast<T>(baseBits));
    }
    return;
  }
  const std::size_t whole = CountWholeReads(packed.size(), count, bits);
  const std::uint64_t mask = (std::uint64_t{1} << (bits & 63)) - 1;
  const std::uint8_t* const from = packed.data();
  std::uint64_t position = 0;
  for (std::size_t i = 0; i < whole; ++i, position += bits) {
    const auto word = LoadComponent<std::uint64_t>(from + position / 8) >> (position % 8);
    StoreComponent(values + i * stride, static_cast<T>(baseBits + (word & mask)));
  }
  for (std::size_t i = whole; i < count; ++i, position += bits) {
    const std::uint64_t offset = ReadOffset(packed, position, bits);
    StoreComponent(values + i * stride, static_cast<T>(baseBits + offset));
  }
}

}  // namespace oocpc
