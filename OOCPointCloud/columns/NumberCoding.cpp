// Encoding of natural numbers by range asymmetric numeral systems (J. Duda, "Asymmetric
// numeral systems", 2013): a state of 32 bits, renewed by 16 bits at a time.
#include "OOCPointCloud/columns/NumberCoding.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/NumberLanes.h"
#include "OOCPointCloud/columns/NumberTokens.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Bits one behind the other, the low ones first, into memory that has room for them and for eight
/// bytes more.
class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : out_(out) {}
  /// Up to 57 bits; those of `value` above them are zero.
  void Put(std::uint64_t value, unsigned bits) {
    pending_ |= value << filled_;
    filled_ += bits;
    std::memcpy(out_, &pending_, sizeof(pending_));
    out_ += filled_ / 8;
    const unsigned stored = filled_ & ~7u;
    pending_ = pending_ >> stored / 2 >> stored / 2;  // 64 at once would be too many
    filled_ &= 7u;
  }
  /// Behind the last byte that has bits.
  [[nodiscard]] std::uint8_t* GetEnd() const { return out_ + (filled_ > 0 ? 1 : 0); }

 private:
  std::uint8_t* out_;
  std::uint64_t pending_ = 0;
  unsigned filled_ = 0;
};

/// What the encoder needs of each token.
struct TokenCode {
  // A state is below share * 2^20 when it is divided by the share, so the product of both does not
  // leave 64 bits, and is off by less than would change the quotient.
  static constexpr unsigned kInverseBits = 44;

  std::uint64_t inverse = 0;  ///< 2^44 / share, rounded up
  std::uint64_t end = 0;      ///< from this state on, 16 bits go out first
  std::uint32_t start = 0;
  std::uint32_t others = 0;  ///< shares of all other tokens
};

using TokenCodes = std::array<TokenCode, TokenCounts::kTokens>;

TokenCodes MakeCodes(const TokenShares& shares) {
  TokenCodes codes;
  std::uint32_t start = 0;
  for (std::size_t token = 0; token < codes.size(); ++token) {
    const std::uint64_t share = shares.shares[token];
    if (share == 0) continue;
    codes[token].inverse = ((std::uint64_t{1} << TokenCode::kInverseBits) + share - 1) / share;
    codes[token].end = share << (32 - kShareBits);
    codes[token].start = start;
    codes[token].others = kShares - static_cast<std::uint32_t>(share);
    start += static_cast<std::uint32_t>(share);
  }
  return codes;
}

/// Encodes from its end to its front, into words that a decoder reads forwards.
struct Lane {
  std::uint32_t state = kLeastState;
  const std::uint8_t* token = nullptr;  ///< behind the next one
  std::uint16_t* word = nullptr;        ///< the last one written

  void Encode(const TokenCodes& codes) {
    const TokenCode& code = codes[*--token];
    const bool full = state >= code.end;
    *(word - 1) = static_cast<std::uint16_t>(state);
    word -= full ? 1 : 0;
    state >>= full ? 16 : 0;
    const auto quotient =
        static_cast<std::uint32_t>(state * code.inverse >> TokenCode::kInverseBits);
    state += quotient * code.others + code.start;
  }
};

/// Memory that a thread works in. Unusually much is not kept.
struct EncodeBuffer {
  EncodeBuffer() = default;
  EncodeBuffer(const EncodeBuffer&) = delete;
  EncodeBuffer& operator=(const EncodeBuffer&) = delete;

  Bytes tokens;
  Bytes bits;
  std::vector<std::uint16_t> words;

  void Fit(std::size_t numbers, std::size_t numberBytes) {
    Grow(tokens, numbers);
    Grow(bits, numbers * numberBytes + kLanes * 2 * sizeof(std::uint64_t));
    Grow(words, numbers + kLanes);
  }
  void Release() {
    if (tokens.size() <= kKeptNumbers) return;
    Bytes().swap(tokens);
    Bytes().swap(bits);
    std::vector<std::uint16_t>().swap(words);
  }

 private:
  static constexpr std::size_t kKeptNumbers = std::size_t{1} << 17;
  template <typename T>
  static void Grow(std::vector<T>& vector, std::size_t size) {
    if (vector.size() < size) vector.resize(size);
  }
};

/// What a number's token does not tell.
template <typename Number>
std::uint64_t RawBitsOf(Number number, NumberToken token) {
  return number & ((std::uint64_t{1} << token.rawBits) - 1);
}

/// Numbers below this have so few raw bits that those of two can be written at once.
constexpr std::uint64_t kPairedNumbersEnd = std::uint64_t{1} << 31;

/// Finds and counts the tokens of a lane's numbers, and writes what they do not tell; gives the end
/// of that. `all` has the bits of all numbers.
template <typename Number>
std::uint8_t* Tokenize(std::span<const Number> numbers, std::uint64_t all, std::uint8_t* tokens,
                       TurnCounts& counts, std::uint8_t* bits) {
  BitWriter writer(bits);
  std::size_t i = 0;
  if (all < kOwnTokens) {  // which tell everything
    for (; i < numbers.size(); ++i) {
      tokens[i] = static_cast<std::uint8_t>(numbers[i]);
      ++counts[i % 2][tokens[i]];
    }
  }
  if (all < kPairedNumbersEnd) {
    for (; i + 1 < numbers.size(); i += 2) {
      const NumberToken first = TokenOf(numbers[i]);
      const NumberToken second = TokenOf(numbers[i + 1]);
      tokens[i] = first.token;
      tokens[i + 1] = second.token;
      ++counts[0][first.token];
      ++counts[1][second.token];
      writer.Put(RawBitsOf(numbers[i], first) | RawBitsOf(numbers[i + 1], second) << first.rawBits,
                 static_cast<unsigned>(first.rawBits) + second.rawBits);
    }
  }
  for (; i < numbers.size(); ++i) {
    const NumberToken token = TokenOf(numbers[i]);
    tokens[i] = token.token;
    ++counts[i % 2][token.token];
    writer.Put(RawBitsOf(numbers[i], token), token.rawBits);
  }
  return writer.GetEnd();
}

/// All lanes have the same number of tokens left, or one more.
void EncodeLanes(std::span<Lane> lanes, std::span<const std::size_t> counts,
                 const TokenCodes& codes) {
  const std::size_t common = *std::ranges::min_element(counts);
  for (std::size_t lane = 0; lane < lanes.size(); ++lane) {
    if (counts[lane] > common) lanes[lane].Encode(codes);
  }
  if (lanes.size() == kLanes) {
    // Side by side, and in registers: each waits for its own multiplication only.
    Lane a = lanes[0];
    Lane b = lanes[1];
    Lane c = lanes[2];
    Lane d = lanes[3];
    for (std::size_t i = 0; i < common; ++i) {
      a.Encode(codes);
      b.Encode(codes);
      c.Encode(codes);
      d.Encode(codes);
    }
    lanes[0] = a;
    lanes[1] = b;
    lanes[2] = c;
    lanes[3] = d;
  } else {
    for (Lane& lane : lanes) {
      for (std::size_t i = 0; i < common; ++i) lane.Encode(codes);
    }
  }
}

void AppendBytes(Bytes& out, const void* from, std::size_t bytes) {
  const std::size_t at = out.size();
  out.resize(at + bytes);
  if (bytes > 0) std::memcpy(out.data() + at, from, bytes);
}

}  // namespace

template <typename Number>
bool EncodeNumbers(std::span<const Number> numbers, Bytes& out) {
  const Number numberBits = BitsOf(numbers);
  if (numberBits >= kCodedNumbersEnd) return false;
  thread_local EncodeBuffer buffer;
  buffer.Fit(numbers.size(), sizeof(Number));
  const std::size_t laneCount = LaneCount(numbers.size());
  std::array<Lane, kLanes> lanes;
  std::array<std::size_t, kLanes> counts{};
  std::array<std::uint16_t*, kLanes> wordsEnd{};
  std::array<std::span<const std::uint8_t>, kLanes> bits;
  TurnCounts turns{};
  std::uint8_t* nextBits = buffer.bits.data();
  for (std::size_t lane = 0; lane < laneCount; ++lane) {
    const std::size_t begin = LaneBegin(numbers.size(), laneCount, lane);
    const std::size_t end = LaneBegin(numbers.size(), laneCount, lane + 1);
    counts[lane] = end - begin;
    std::uint8_t* const bitsEnd = Tokenize(numbers.subspan(begin, end - begin), numberBits,
                                           buffer.tokens.data() + begin, turns, nextBits);
    bits[lane] = {nextBits, bitsEnd};
    nextBits = bitsEnd;
    // A word of its own before each lane's: the next word's place is written before it is needed.
    wordsEnd[lane] = buffer.words.data() + end + lane + 1;
    lanes[lane].token = buffer.tokens.data() + end;
    lanes[lane].word = wordsEnd[lane];
  }
  TokenCounts tokenCounts;
  AddTurns(turns, numbers.size(), tokenCounts);
  const TokenShares shares = TokenShares::Of(tokenCounts);
  EncodeLanes(std::span(lanes).first(laneCount), std::span(counts).first(laneCount),
              MakeCodes(shares));
  shares.Encode(out);
  for (std::size_t lane = 0; lane < laneCount; ++lane) {
    const auto words = static_cast<std::size_t>(wordsEnd[lane] - lanes[lane].word);
    AppendLittleEndian(out, static_cast<std::uint32_t>(sizeof(std::uint32_t) + 2 * words));
    AppendLittleEndian(out, static_cast<std::uint32_t>(bits[lane].size()));
  }
  for (std::size_t lane = 0; lane < laneCount; ++lane) {
    AppendLittleEndian(out, lanes[lane].state);
    AppendBytes(out, lanes[lane].word,
                static_cast<std::size_t>(wordsEnd[lane] - lanes[lane].word) * 2);
    AppendBytes(out, bits[lane].data(), bits[lane].size());
  }
  out.resize(out.size() + kLanePadding);
  buffer.Release();
  return true;
}

template bool EncodeNumbers(std::span<const std::uint32_t> numbers, Bytes& out);
template bool EncodeNumbers(std::span<const std::uint64_t> numbers, Bytes& out);

}  // namespace oocpc
