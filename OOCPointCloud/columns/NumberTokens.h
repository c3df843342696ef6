// Tokens: numbers below 32 are their own; of larger ones the token says how many bits they have
// and the two bits behind the first, and the bits behind these are kept as they are.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace oocpc {

inline constexpr unsigned kTokenBits = 2;
inline constexpr std::uint64_t kOwnTokens = 32;
inline constexpr unsigned kShortestSplit = 6;  // bits of 32
/// The tokens of numbers that can be coded; behind them are those of numbers from 2^60 on.
inline constexpr unsigned kTokensEnd = 252;

/// A number as its token and the bits that the token does not tell.
struct NumberToken {
  std::uint8_t token;
  std::uint8_t rawBits;
};

/// `Number` is an unsigned integer of 32 or 64 bits.
template <typename Number>
[[nodiscard]] constexpr NumberToken TokenOf(Number number) {
  // Without a branch: small and large numbers take turns.
  const auto bits = static_cast<unsigned>(std::bit_width(number | Number{kOwnTokens}));
  const unsigned raw = bits - 1 - kTokenBits;
  const auto behindFirst = static_cast<unsigned>(number >> raw & 3u);
  const unsigned token = static_cast<unsigned>(kOwnTokens) + (bits - kShortestSplit) * 4;
  const bool own = number < kOwnTokens;
  return {static_cast<std::uint8_t>(own ? static_cast<unsigned>(number) : token + behindFirst),
          static_cast<std::uint8_t>(own ? 0 : raw)};
}

/// The least number of a token, and how many bits follow.
struct TokenRange {
  std::uint64_t base = 0;
  std::uint64_t mask = 0;  ///< of these bits
  std::uint64_t rawBits = 0;
};

[[nodiscard]] constexpr std::array<TokenRange, 256> MakeTokenRanges() {
  std::array<TokenRange, 256> ranges{};
  for (std::uint64_t token = 0; token < ranges.size(); ++token) {
    if (token < kOwnTokens) {
      ranges[token] = {token, 0, 0};
      continue;
    }
    const std::uint64_t bits = kShortestSplit + (token - kOwnTokens) / 4;
    const std::uint64_t raw = bits - 1 - kTokenBits;
    ranges[token] = {(4 + (token & 3)) << raw, (std::uint64_t{1} << raw) - 1, raw};
  }
  return ranges;
}

inline constexpr std::array<TokenRange, 256> kTokenRanges = MakeTokenRanges();

}  // namespace oocpc
