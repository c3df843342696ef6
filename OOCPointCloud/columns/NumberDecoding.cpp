// Decoding of entropy-coded numbers. Tokens of all lanes come first, for a while, then the bits
// behind them: so each loop has few enough variables to stay in registers.
#include <algorithm>
#include <array>
#include <cstring>

#include "OOCPointCloud/columns/NumberCoding.h"
#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/NumberLanes.h"
#include "OOCPointCloud/columns/NumberTokens.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

/// One place of the table: the share of its token, and how far into the share it is.
struct Slot {
  std::uint16_t share;
  std::uint16_t offset;
};

struct DecodeTable {
  std::array<Slot, kShares> slots;
  std::array<std::uint8_t, kShares> tokens;
  explicit DecodeTable(const TokenShares& shares) {
    std::size_t at = 0;
    for (unsigned token = shares.first; token <= shares.last; ++token) {
      const std::uint16_t share = shares.shares[token];
      std::memset(tokens.data() + at, static_cast<int>(token), share);
      for (std::uint16_t i = 0; i < share; ++i) slots[at + i] = {share, i};
      at += share;
    }
  }
};

/// The state behind one that had this slot, not yet renewed.
std::uint32_t NextState(std::uint32_t state, const Slot& slot) {
  return slot.share * (state >> kShareBits) + slot.offset;
}

/// A lane on its way through its words and bits.
struct Lane {
  std::uint32_t state = 0;
  const std::uint8_t* words = nullptr;
  const std::uint8_t* wordsEnd = nullptr;
  const std::uint8_t* bits = nullptr;
  std::uint64_t bitPosition = 0;
  std::uint64_t bitCount = 0;
  std::uint64_t* number = nullptr;
  std::uint64_t* numberEnd = nullptr;

  /// Numbers that are surely there, of so many raw bits at most.
  [[nodiscard]] std::size_t CountSureSteps(std::uint64_t mostBits) const {
    const auto words16 = static_cast<std::size_t>(wordsEnd - words) / sizeof(std::uint16_t);
    const auto steps = std::min(words16, static_cast<std::size_t>(numberEnd - number));
    return mostBits == 0 ? steps
                         : std::min<std::size_t>(steps, (bitCount - bitPosition) / mostBits);
  }
  [[nodiscard]] std::uint64_t LoadBits() const {
    return LoadLittleEndian<std::uint64_t>(bits + bitPosition / 8) >> (bitPosition % 8);
  }
  /// Adds their raw bits to tokens; kAtOnce at a time, whose bits together fit in one load.
  template <std::size_t kAtOnce>
  void AddBits(const std::uint8_t* tokens, std::size_t count) {
    std::uint64_t position = bitPosition;
    const auto load = [&] {
      return LoadLittleEndian<std::uint64_t>(bits + position / 8) >> (position % 8);
    };
    const auto take = [&](std::uint64_t& window, std::size_t i) {
      const TokenRange& range = kTokenRanges[tokens[i]];
      number[i] = range.base + (window & range.mask);
      window >>= range.rawBits;
      position += range.rawBits;
    };
    const std::size_t together = count - count % kAtOnce;
    for (std::size_t i = 0; i < together; i += kAtOnce) {
      std::uint64_t window = load();
      for (std::size_t k = 0; k < kAtOnce; ++k) take(window, i + k);
    }
    for (std::size_t i = together; i < count; ++i) {
      std::uint64_t window = load();
      take(window, i);
    }
    number += count;
    bitPosition = position;
  }
  /// Decodes a number, every byte checked.
  [[nodiscard]] bool Step(const DecodeTable& table) {
    const std::uint32_t at = state & (kShares - 1);
    state = NextState(state, table.slots[at]);
    if (state < kLeastState) {
      if (wordsEnd - words < 2) return false;
      state = state << 16 | LoadLittleEndian<std::uint16_t>(words);
      words += sizeof(std::uint16_t);
    }
    const TokenRange& range = kTokenRanges[table.tokens[at]];
    if (bitCount - bitPosition < range.rawBits) return false;
    *number++ = range.base + (LoadBits() & range.mask);
    bitPosition += range.rawBits;
    return true;
  }
  [[nodiscard]] bool IsDone() const {
    return number == numberEnd && state == kLeastState && words == wordsEnd &&
           bitCount - bitPosition < 8;
  }
};

using Lanes = std::array<Lane, kLanes>;

constexpr std::size_t kRoundSteps = 64;
using RoundTokens = std::array<std::array<std::uint8_t, kRoundSteps>, kLanes>;

/// The next tokens of every lane; the caller knows that words are there.
void DecodeTokens(Lanes& lanes, const DecodeTable& table, std::size_t steps, RoundTokens& tokens) {
  std::array<std::uint32_t, kLanes> states;
  std::array<const std::uint8_t*, kLanes> words;
  for (std::size_t k = 0; k < kLanes; ++k) {
    states[k] = lanes[k].state;
    words[k] = lanes[k].words;
  }
  for (std::size_t i = 0; i < steps; ++i) {
    for (std::size_t k = 0; k < kLanes; ++k) {
      const std::uint32_t at = states[k] & (kShares - 1);
      tokens[k][i] = table.tokens[at];
      const std::uint32_t next = NextState(states[k], table.slots[at]);
      // Without a branch, which could not be foreseen.
      const std::uint32_t renewed = next << 16 | LoadLittleEndian<std::uint16_t>(words[k]);
      const bool renew = next < kLeastState;
      states[k] = renew ? renewed : next;
      words[k] += renew ? sizeof(std::uint16_t) : 0;
    }
  }
  for (std::size_t k = 0; k < kLanes; ++k) {
    lanes[k].state = states[k];
    lanes[k].words = words[k];
  }
}

/// Rounds of many numbers, as long as all of them are surely there.
void DecodeRounds(Lanes& lanes, const DecodeTable& table, std::uint64_t mostBits) {
  constexpr std::size_t kFewestSteps = 4;
  constexpr std::uint64_t kLoadedBits = 57;  // whatever bit of a byte they begin at
  RoundTokens tokens;
  for (;;) {
    std::size_t steps = kRoundSteps;
    for (const Lane& lane : lanes) steps = std::min(steps, lane.CountSureSteps(mostBits));
    if (steps < kFewestSteps) return;
    DecodeTokens(lanes, table, steps, tokens);
    for (std::size_t k = 0; k < kLanes; ++k) {
      if (mostBits == 0) {
        lanes[k].number = std::copy_n(tokens[k].data(), steps, lanes[k].number);
      } else if (4 * mostBits <= kLoadedBits) {
        lanes[k].AddBits<4>(tokens[k].data(), steps);
      } else if (2 * mostBits <= kLoadedBits) {
        lanes[k].AddBits<2>(tokens[k].data(), steps);
      } else {
        lanes[k].AddBits<1>(tokens[k].data(), steps);
      }
    }
  }
}

bool DecodeLanes(std::span<Lane> lanes, const DecodeTable& table) {
  // Side by side here, too; lanes differ by one number at most.
  for (bool more = true; more;) {
    more = false;
    for (Lane& lane : lanes) {
      if (lane.number == lane.numberEnd) continue;
      if (!lane.Step(table)) return false;
      more = true;
    }
  }
  return std::ranges::all_of(lanes, [](const Lane& lane) { return lane.IsDone(); });
}

/// Takes a lane's bytes, whose sizes begin at `sizes`, from the front of `coded`.
bool TakeLane(std::span<const std::uint8_t>& coded, const std::uint8_t* sizes, Lane& lane) {
  const auto wordBytes = LoadLittleEndian<std::uint32_t>(sizes);
  const auto bitBytes = LoadLittleEndian<std::uint32_t>(sizes + sizeof(wordBytes));
  if (wordBytes < sizeof(lane.state) || wordBytes % 2 != 0 || coded.size() < wordBytes ||
      coded.size() - wordBytes < bitBytes) {
    return false;
  }
  lane.state = LoadLittleEndian<std::uint32_t>(coded.data());
  lane.words = coded.data() + sizeof(lane.state);
  lane.wordsEnd = coded.data() + wordBytes;
  lane.bits = lane.wordsEnd;
  lane.bitCount = std::uint64_t{bitBytes} * 8;
  coded = coded.subspan(std::size_t{wordBytes} + bitBytes);
  return lane.state >= kLeastState;
}

bool TakePadding(std::span<const std::uint8_t>& coded) {
  if (coded.size() < kLanePadding) return false;
  const auto padding = coded.first(kLanePadding);
  coded = coded.subspan(kLanePadding);
  return std::ranges::all_of(padding, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

bool DecodeNumbers(std::span<const std::uint8_t>& coded, std::span<std::uint64_t> numbers) {
  TokenShares shares;
  if (!TokenShares::Decode(coded, shares)) return false;
  const std::size_t count = LaneCount(numbers.size());
  if (coded.size() < count * kLaneSizesBytes) return false;
  const std::uint8_t* const sizes = coded.data();
  coded = coded.subspan(count * kLaneSizesBytes);
  Lanes lanes;
  for (std::size_t i = 0; i < count; ++i) {
    if (!TakeLane(coded, sizes + i * kLaneSizesBytes, lanes[i])) return false;
    lanes[i].number = numbers.data() + LaneBegin(numbers.size(), count, i);
    lanes[i].numberEnd = numbers.data() + LaneBegin(numbers.size(), count, i + 1);
  }
  if (!TakePadding(coded)) return false;
  const DecodeTable table(shares);
  if (count == kLanes) DecodeRounds(lanes, table, kTokenRanges[shares.last].rawBits);
  return DecodeLanes(std::span(lanes).first(count), table);
}

}  // namespace oocpc
