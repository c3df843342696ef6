// Encoding of natural numbers by range asymmetric numeral systems (J. Duda, "Asymmetric
// numeral systems", 2013): a state of 32 bits, renewed by 16 bits at a time.
#include "OOCPointCloud/columns/NumberCoding.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/NumberLanes.h"
#include "OOCPointCloud/columns/NumberTokens.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

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

}  // namespace

void EncodeNumbers(std::span<const std::uint64_t> numbers, const TokenCounts& counts,
                   std::vector<std::uint8_t>& out) {
  const TokenShares shares = TokenShares::Of(counts);
  shares.Encode(out);
  const auto codes = MakeCodes(shares);
  const std::size_t lanes = LaneCount(numbers.size());
  const std::size_t sizesAt = out.size();
  out.resize(sizesAt + lanes * kLaneSizesBytes);
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
  out.resize(out.size() + kLanePadding);
}

}  // namespace oocpc
