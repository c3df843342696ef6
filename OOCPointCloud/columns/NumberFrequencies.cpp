// Token frequencies as whole shares of 4096.
#include "OOCPointCloud/columns/NumberFrequencies.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "OOCPointCloud/columns/NumberTokens.h"

namespace oocpc {

void AddTurns(const TurnCounts& turns, std::size_t numbers, TokenCounts& counts) {
  for (std::size_t token = 0; token < TokenCounts::kTokens; ++token) {
    counts.counts[token] += turns[0][token] + turns[1][token];
  }
  counts.total += numbers;
}

template <typename Number>
bool TokenCounts::Add(std::span<const Number> numbers) {
  if (BitsOf(numbers) >= kCodedNumbersEnd) return false;
  TurnCounts turns{};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const NumberToken token = TokenOf(numbers[i]);
    ++turns[i % 2][token.token];
    rawBits += token.rawBits;
  }
  AddTurns(turns, numbers.size(), *this);
  return true;
}

template bool TokenCounts::Add(std::span<const std::uint32_t> numbers);
template bool TokenCounts::Add(std::span<const std::uint64_t> numbers);

std::uint64_t TokenCounts::EstimateBytes(std::uint64_t numbers) const {
  double bits = static_cast<double>(rawBits);
  unsigned used = 0;
  for (const std::uint32_t count : counts) {
    if (count == 0) continue;
    ++used;
    bits += count * std::log2(static_cast<double>(total) / count);
  }
  constexpr unsigned kHeadBytes = 24;
  bits *= static_cast<double>(numbers) / static_cast<double>(total);
  return static_cast<std::uint64_t>(bits / 8) + kHeadBytes + used * kShareBits / 8;
}

TokenShares TokenShares::Of(const TokenCounts& counts) {
  TokenShares result;
  result.first = TokenCounts::kTokens;
  std::uint32_t given = 0;
  unsigned most = 0;
  for (unsigned token = 0; token < TokenCounts::kTokens; ++token) {
    if (counts.counts[token] == 0) continue;
    result.first = std::min(result.first, token);
    result.last = token;
    const std::uint64_t share = std::uint64_t{counts.counts[token]} * kShares / counts.total;
    result.shares[token] = static_cast<std::uint16_t>(std::max<std::uint64_t>(share, 1));
    given += result.shares[token];
    if (counts.counts[token] > counts.counts[most]) most = token;
  }
  // What rounding left over, or gave too much of, is the most frequent token's, and where that is
  // not enough, its followers'.
  if (given <= kShares) {
    result.shares[most] = static_cast<std::uint16_t>(result.shares[most] + (kShares - given));
    return result;
  }
  for (std::uint32_t excess = given - kShares; excess > 0;) {
    auto* const largest = std::max_element(result.shares.begin(), result.shares.end());
    const auto taken = std::min<std::uint32_t>(excess, std::max(1, *largest / 2));
    *largest = static_cast<std::uint16_t>(*largest - taken);
    excess -= taken;
  }
  return result;
}

void TokenShares::Encode(std::vector<std::uint8_t>& out) const {
  out.push_back(static_cast<std::uint8_t>(first));
  out.push_back(static_cast<std::uint8_t>(last));
  if (first == last) return;  // it has them all
  std::uint32_t pending = 0;
  unsigned pendingBits = 0;
  for (unsigned token = first; token <= last; ++token) {
    pending |= std::uint32_t{shares[token]} << pendingBits;
    for (pendingBits += kShareBits; pendingBits >= 8; pendingBits -= 8) {
      out.push_back(static_cast<std::uint8_t>(pending));
      pending >>= 8;
    }
  }
  if (pendingBits > 0) out.push_back(static_cast<std::uint8_t>(pending));
}

bool TokenShares::Decode(std::span<const std::uint8_t>& coded, TokenShares& shares) {
  shares = {};
  if (coded.size() < 2 || coded[0] > coded[1] || coded[1] >= kTokensEnd) return false;
  shares.first = coded[0];
  shares.last = coded[1];
  coded = coded.subspan(2);
  if (shares.first == shares.last) {
    shares.shares[shares.first] = kShares;
    return true;
  }
  const std::size_t count = shares.last - shares.first + 1;
  const std::size_t bytes = (count * kShareBits + 7) / 8;
  if (coded.size() < bytes) return false;
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = i * kShareBits / 8;
    const unsigned pair = coded[at] | (at + 1 < bytes ? coded[at + 1] << 8 : 0u);
    const unsigned share = (i % 2 == 0 ? pair : pair >> 4) & (kShares - 1);
    shares.shares[shares.first + i] = static_cast<std::uint16_t>(share);
    sum += share;
  }
  coded = coded.subspan(bytes);
  return sum == kShares && shares.shares[shares.first] != 0 && shares.shares[shares.last] != 0;
}

}  // namespace oocpc
