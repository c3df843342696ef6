// LZF, the compression inside PCD files.
#pragma once

#include <cstdint>
#include <span>

namespace tarnhost {

/// The most that a byte of LZF can stand for: three bytes name 264.
inline constexpr std::uint64_t kMostLzfGrowth = 88;

/// Decompresses `packed`, which has to give exactly as many bytes as `out` has. False for bytes
/// that are no such thing.
[[nodiscard]] bool DecompressLzf(std::span<const std::uint8_t> packed, std::span<std::uint8_t> out);

}  // namespace tarnhost
