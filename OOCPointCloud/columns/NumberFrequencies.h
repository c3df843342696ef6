// Token frequencies as whole shares of 4096.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "OOCPointCloud/columns/NumberCoding.h"

namespace oocpc {

inline constexpr unsigned kShareBits = 12;
inline constexpr std::uint32_t kShares = 1u << kShareBits;

/// All bits that any of the numbers has.
template <typename Number>
[[nodiscard]] Number BitsOf(std::span<const Number> numbers) {
  Number all = 0;
  for (const Number number : numbers) all |= number;
  return all;
}

/// How often each token turned up. Equal tokens often follow each other: counting them in two
/// tables, in turn, they need not wait for each other.
using TurnCounts = std::array<std::array<std::uint32_t, TokenCounts::kTokens>, 2>;

/// Adds what was counted, but for `rawBits`, which turns do not tell.
void AddTurns(const TurnCounts& turns, std::size_t numbers, TokenCounts& counts);

/// The share of each token; every token that turns up has at least one, and all together kShares.
struct TokenShares {
  std::array<std::uint16_t, TokenCounts::kTokens> shares{};
  unsigned first = 0;  ///< least token that turns up
  unsigned last = 0;   ///< greatest

  [[nodiscard]] static TokenShares Of(const TokenCounts& counts);
  /// Appends first, last, and the shares in between, twelve bits each.
  void Encode(std::vector<std::uint8_t>& out) const;
  /// Takes shares from the front of `coded`; false when they are not shares.
  [[nodiscard]] static bool Decode(std::span<const std::uint8_t>& coded, TokenShares& shares);
};

}  // namespace oocpc
