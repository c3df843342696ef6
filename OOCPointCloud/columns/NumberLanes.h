// What the encoder and the decoder of numbers agree on: numbers are coded in quarters, which are
// decoded side by side, so that a processor need not wait for one before it begins the next.
#pragma once

#include <cstddef>
#include <cstdint>

namespace oocpc {

/// States are kept from here up to 2^32, by 16 bits at a time.
inline constexpr std::uint32_t kLeastState = 1u << 16;
inline constexpr std::size_t kLanes = 4;
/// Zeros at the end, so that eight bytes can be read from every place.
inline constexpr std::size_t kLanePadding = 8;
/// Of each lane: the bytes of its state and words, and of its bits.
inline constexpr std::size_t kLaneSizesBytes = 2 * sizeof(std::uint32_t);

/// Few numbers are coded in one lane.
[[nodiscard]] inline std::size_t LaneCount(std::size_t numbers) {
  constexpr std::size_t kFewNumbers = 1024;
  return numbers < kFewNumbers ? 1 : kLanes;
}

/// Where a lane's numbers begin; the end is where the next one's do.
[[nodiscard]] inline std::size_t LaneBegin(std::size_t numbers, std::size_t lanes,
                                           std::size_t lane) {
  return numbers * lane / lanes;
}

}  // namespace oocpc
