// A strong 64-bit hash of some bytes: XXH64 as its author published it.
#pragma once

#include <cstdint>
#include <span>

namespace tarnhost {

/// XXH64 with the seed 0.
[[nodiscard]] std::uint64_t Hash64(std::span<const std::uint8_t> bytes);

}  // namespace tarnhost
