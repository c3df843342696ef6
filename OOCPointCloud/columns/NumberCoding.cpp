// Entropy coding of natural numbers by range asymmetric numeral systems (J. Duda, "Asymmetric
// numeral systems", 2013): a state of 32 bits, renewed by 16 bits at a time.
#include "OOCPointCloud/columns/NumberCoding.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/NumberTokens.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

constexpr std::uint32_t kLeastState = 1u << 16;
/// Numbers are coded in quarters, which are decoded side by side, so that a processor need not wait
/// for one before it begins the next. Few numbers are coded in one.
constexpr std::size_t kLanes = 4;
constexpr std::size_t kFewNumbers = 1024;
/// Zeros at the end, so that eight bytes can be read from every place.
constexpr std::size_t kPadding = 8;

std::size_t LaneCount(std::size_t numbers) { return numbers < kFewNumbers ? 1 : kLanes; }

/// Where a lane's numbers begin; the end is where the next one's do.
std::size_t LaneBegin(std::size_t numbers, std::size_t lanes, std::size_t lane) {
  return numbers * lane / lanes;
}

/// Bits one behind the other, the low ones first.
class BitWriter {
 public:
  explicit BitWriter(std::vector<std::uint8_t>& out) : out_(out) {}
  void Put(std::uint64_t value, unsigned bits) {
    if (bits == 0) return;
    pending_ |= value << filled_;
    if (filled_ + bits >= 64) {
      Emit(8);
      pending_ = filled_ == 0 ? 0 : value >> (64 - filled_);
      filled_ = filled_ + bits - 64;
    } else {
      filled_ += bits;
    }
  }
  void Finish() { Emit((filled_ + 7) / 8); }

 private:
  void Emit(std::size_t bytes) {
    std::uint8_t raw[8];
    std::memcpy(raw, &pending_, sizeof(raw));
    out_.insert(out_.end(), raw, raw + bytes);
  }
  std::vector<std::uint8_t>& out_;
  std::uint64_t pending_ = 0;
  unsigned filled_ = 0;
};

/// What the encoder needs of each token.
struct TokenCode {
  std::uint32_t start = 0;
  std::uint32_t share = 0;
  double inverse = 0;
};

std::array<TokenCode, TokenCounts::kTokens> MakeCodes(const TokenShares& shares) {
  std::array<TokenCode, TokenCounts::kTokens> codes;
  std::uint32_t start = 0;
  for (std::size_t token = 0; token < codes.size(); ++token) {
    const std::uint32_t share = shares.shares[token];
    codes[token] = {start, share, share == 0 ? 0 : 1.0 / share};
    start += share;
  }
  return codes;
}

/// Appends the words of a lane's tokens, which a decoder reads forwards, and the first state.
void EncodeLane(std::span<const std::uint64_t> numbers,
                const std::array<TokenCode, TokenCounts::kTokens>& codes,
                std::vector<std::uint16_t>& words, std::vector<std::uint8_t>& out) {
  words.clear();
  std::uint32_t state = kLeastState;
  for (std::size_t i = numbers.size(); i-- > 0;) {
    const TokenCode& code = codes[TokenOf(numbers[i]).token];
    if (state >= std::uint64_t{code.share} << (32 - kShareBits)) {
      words.push_back(static_cast<std::uint16_t>(state));
      state >>= 16;
    }
    // The half keeps the rounded quotient off the next whole number.
    const auto quotient = static_cast<std::uint32_t>((state + 0.5) * code.inverse);
    state = (quotient << kShareBits) + (state - quotient * code.share) + code.start;
  }
  AppendLittleEndian(out, state);
  const std::size_t at = out.size();
  out.resize(at + words.size() * sizeof(std::uint16_t));
  std::reverse(words.begin(), words.end());
  if (!words.empty()) std::memcpy(out.data() + at, words.data(), out.size() - at);
}

/// One place of the decoder's table: the token, its share, and how far into the share it is.
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
      for (std::uint16_t i = 0; i < share; ++i, ++at) {
        slots[at] = {share, i};
        tokens[at] = static_cast<std::uint8_t>(token);
      }
    }
  }
};

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

  /// Decodes a number; the caller knows that words and bits are there.
  void Step(const DecodeTable& table) {
    const std::uint32_t slot = state & (kShares - 1);
    const Slot& place = table.slots[slot];
    const TokenRange& range = kTokenRanges[table.tokens[slot]];
    state = place.share * (state >> kShareBits) + place.offset;
    std::uint16_t word;
    std::memcpy(&word, words, sizeof(word));
    const bool renew = state < kLeastState;
    state = renew ? state << 16 | word : state;
    words += renew ? sizeof(word) : 0;
    const std::uint64_t window =
        LoadLittleEndian<std::uint64_t>(bits + bitPosition / 8) >> (bitPosition % 8);
    *number++ = range.base + (window & ((std::uint64_t{1} << range.rawBits) - 1));
    bitPosition += range.rawBits;
  }
  /// Whether so many steps, of at most so many bits, stay within words and bits.
  [[nodiscard]] bool CanStep(std::size_t steps, std::uint64_t mostBits) const {
    return static_cast<std::size_t>(wordsEnd - words) >= steps * sizeof(std::uint16_t) &&
           bitCount - bitPosition >= steps * mostBits;
  }
  /// One step near the end, every byte checked.
  [[nodiscard]] bool StepCarefully(const DecodeTable& table) {
    const std::uint32_t slot = state & (kShares - 1);
    const Slot& place = table.slots[slot];
    const std::uint64_t raw = kTokenRanges[table.tokens[slot]].rawBits;
    const std::uint32_t next = place.share * (state >> kShareBits) + place.offset;
    if (next < kLeastState && wordsEnd - words < 2) return false;
    if (bitCount - bitPosition < raw) return false;
    // Reading the word is safe also when it is not needed: bits and padding follow the words.
    Step(table);
    return true;
  }
  [[nodiscard]] bool IsDone() const {
    return number == numberEnd && state == kLeastState && words == wordsEnd &&
           bitCount - bitPosition < 8;
  }
};

bool DecodeLanes(std::array<Lane, kLanes>& lanes, std::size_t count, const DecodeTable& table,
                 std::uint64_t mostBits) {
  constexpr std::size_t kAtOnce = 16;
  if (count == kLanes) {
    std::size_t left = static_cast<std::size_t>(lanes[0].numberEnd - lanes[0].number);
    for (const Lane& lane : lanes) {
      left = std::min(left, static_cast<std::size_t>(lane.numberEnd - lane.number));
    }
    for (; left >= kAtOnce; left -= kAtOnce) {
      if (!std::all_of(lanes.begin(), lanes.end(),
                       [&](const Lane& lane) { return lane.CanStep(kAtOnce, mostBits); })) {
        break;
      }
      std::array<Lane, kLanes> running = lanes;
      for (std::size_t i = 0; i < kAtOnce; ++i) {
        for (Lane& lane : running) lane.Step(table);
      }
      lanes = running;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    Lane& lane = lanes[i];
    while (lane.number < lane.numberEnd) {
      if (!lane.StepCarefully(table)) return false;
    }
    if (!lane.IsDone()) return false;
  }
  return true;
}

}  // namespace

void EncodeNumbers(std::span<const std::uint64_t> numbers, const TokenCounts& counts,
                   std::vector<std::uint8_t>& out) {
  const TokenShares shares = TokenShares::Of(counts);
  shares.Encode(out);
  const auto codes = MakeCodes(shares);
  const std::size_t lanes = LaneCount(numbers.size());
  const std::size_t sizesAt = out.size();
  out.resize(sizesAt + lanes * 2 * sizeof(std::uint32_t));
  std::vector<std::uint16_t> words;
  const auto note = [&](std::size_t index, std::size_t begin) {
    const auto size = static_cast<std::uint32_t>(out.size() - begin);
    std::memcpy(out.data() + sizesAt + index * sizeof(size), &size, sizeof(size));
  };
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    const std::size_t first = LaneBegin(numbers.size(), lanes, lane);
    const auto part = numbers.subspan(first, LaneBegin(numbers.size(), lanes, lane + 1) - first);
    std::size_t begin = out.size();
    EncodeLane(part, codes, words, out);
    note(2 * lane, begin);
    begin = out.size();
    BitWriter bits(out);
    for (const std::uint64_t number : part) {
      const unsigned raw = TokenOf(number).rawBits;
      bits.Put(number & ((std::uint64_t{1} << raw) - 1), raw);
    }
    bits.Finish();
    note(2 * lane + 1, begin);
  }
  out.resize(out.size() + kPadding);
}

bool DecodeNumbers(std::span<const std::uint8_t>& coded, std::span<std::uint64_t> numbers) {
  TokenShares shares;
  if (!TokenShares::Decode(coded, shares)) return false;
  const std::size_t count = LaneCount(numbers.size());
  const std::size_t sizesBytes = count * 2 * sizeof(std::uint32_t);
  if (coded.size() < sizesBytes) return false;
  const std::uint8_t* const sizes = coded.data();
  coded = coded.subspan(sizesBytes);
  std::array<Lane, kLanes> lanes;
  for (std::size_t i = 0; i < count; ++i) {
    Lane& lane = lanes[i];
    const auto wordBytes = LoadLittleEndian<std::uint32_t>(sizes + i * 8);
    const auto bitBytes = LoadLittleEndian<std::uint32_t>(sizes + i * 8 + 4);
    if (wordBytes < sizeof(lane.state) || wordBytes % 2 != 0 || coded.size() < wordBytes ||
        coded.size() - wordBytes < bitBytes) {
      return false;
    }
    lane.state = LoadLittleEndian<std::uint32_t>(coded.data());
    lane.words = coded.data() + sizeof(lane.state);
    lane.wordsEnd = coded.data() + wordBytes;
    lane.bits = lane.wordsEnd;
    lane.bitCount = std::uint64_t{bitBytes} * 8;
    lane.number = numbers.data() + LaneBegin(numbers.size(), count, i);
    lane.numberEnd = numbers.data() + LaneBegin(numbers.size(), count, i + 1);
    if (lane.state < kLeastState) return false;
    coded = coded.subspan(std::size_t{wordBytes} + bitBytes);
  }
  if (coded.size() < kPadding) return false;
  for (std::size_t i = 0; i < kPadding; ++i) {
    if (coded[i] != 0) return false;
  }
  coded = coded.subspan(kPadding);
  const DecodeTable table(shares);
  return DecodeLanes(lanes, count, table, kTokenRanges[shares.last].rawBits);
}

}  // namespace oocpc
