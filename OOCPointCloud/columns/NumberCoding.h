// Entropy coding of natural numbers: small ones and leading bits by their frequency, the rest as
// they are.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace oocpc {

/// Numbers from this on cannot be coded.
inline constexpr std::uint64_t kCodedNumbersEnd = std::uint64_t{1} << 60;

/// How often each token turns up among numbers; see docs/format.md.
struct TokenCounts {
  static constexpr std::size_t kTokens = 256;

  std::uint32_t counts[kTokens] = {};
  std::uint64_t rawBits = 0;
  std::uint64_t total = 0;

  /// False when a number is too large to be coded. `Number` is std::uint32_t or std::uint64_t, here
  /// and below.
  template <typename Number>
  [[nodiscard]] bool Add(std::span<const Number> numbers);
  /// Bytes that coding so many numbers takes, of which those that were added are a sample; to a few
  /// percent when they are all.
  [[nodiscard]] std::uint64_t EstimateBytes(std::uint64_t numbers) const;
};

/// Appends the coded numbers, at least one; nothing, and false, when one is too large to be coded.
/// What it appends does not depend on the type of the numbers.
template <typename Number>
[[nodiscard]] bool EncodeNumbers(std::span<const Number> numbers, std::vector<std::uint8_t>& out);

/// Decodes as many numbers as `numbers` holds, at least one, from the front of `coded`, which is
/// moved behind them. False when the bytes are not those of so many numbers.
[[nodiscard]] bool DecodeNumbers(std::span<const std::uint8_t>& coded,
                                 std::span<std::uint64_t> numbers);

}  // namespace oocpc
