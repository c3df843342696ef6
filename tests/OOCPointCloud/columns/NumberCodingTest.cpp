// Entropy coding of natural numbers: tokens, shares, stored bytes, and which bytes are refused.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

#include "OOCPointCloud/columns/NumberCoding.h"
#include "OOCPointCloud/columns/NumberFrequencies.h"
#include "OOCPointCloud/columns/NumberTokens.h"
#include "tests/support/ByteText.h"

namespace {

using oocpc::kTokenRanges;
using oocpc::TokenCounts;
using oocpc::TokenOf;
using oocpc::TokenShares;
using oocpctest::BytesOf;
using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint64_t>;

constexpr std::uint64_t kLargest = oocpc::kCodedNumbersEnd - 1;

TokenCounts CountsOf(const Numbers& numbers) {
  TokenCounts counts;
  EXPECT_TRUE(counts.Add(std::span<const std::uint64_t>(numbers)));
  return counts;
}

Bytes Encode(const Numbers& numbers) {
  Bytes coded;
  EXPECT_TRUE(oocpc::EncodeNumbers(std::span<const std::uint64_t>(numbers), coded));
  coded.shrink_to_fit();  // so that a sanitizer sees every step beyond the end
  return coded;
}

Bytes ExpectRoundTrip(const Numbers& numbers) {
  const Bytes coded = Encode(numbers);
  Numbers back(numbers.size(), 77);
  std::span<const std::uint8_t> rest(coded);
  EXPECT_TRUE(oocpc::DecodeNumbers(rest, back)) << numbers.size();
  EXPECT_TRUE(rest.empty());
  EXPECT_EQ(back, numbers);
  return coded;
}

bool IsAccepted(Bytes coded, std::size_t count) {
  coded.shrink_to_fit();
  Numbers numbers(count);
  std::span<const std::uint8_t> rest(coded);
  return oocpc::DecodeNumbers(rest, numbers);
}

/// Numbers of geometrically distributed size, up to `mostBits` bits.
Numbers MixedNumbers(std::size_t count, unsigned mostBits, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  Numbers numbers(count);
  for (std::uint64_t& number : numbers) number = random() >> (64 - 1 - random() % mostBits);
  return numbers;
}

std::uint32_t SumOf(const TokenShares& shares) {
  return std::accumulate(shares.shares.begin(), shares.shares.end(), 0u);
}

void ExpectUsableShares(const TokenCounts& counts) {
  const TokenShares shares = TokenShares::Of(counts);
  EXPECT_EQ(SumOf(shares), oocpc::kShares);
  for (std::size_t token = 0; token < TokenCounts::kTokens; ++token) {
    EXPECT_EQ(shares.shares[token] != 0, counts.counts[token] != 0) << token;
  }
  EXPECT_NE(shares.shares[shares.first], 0u);
  EXPECT_NE(shares.shares[shares.last], 0u);
}

TokenCounts CountsFrom(const std::vector<std::uint32_t>& counted) {
  TokenCounts counts;
  std::copy(counted.begin(), counted.end(), counts.counts);
  counts.total = std::accumulate(counted.begin(), counted.end(), std::uint64_t{0});
  return counts;
}

TEST(NumberTokens, AreSmallNumbersThemselves) {
  for (std::uint64_t number = 0; number < 32; ++number) {
    EXPECT_EQ(TokenOf<std::uint64_t>(number).token, number);
    EXPECT_EQ(TokenOf<std::uint64_t>(number).rawBits, 0u);
  }
}

TEST(NumberTokens, TellTheLengthAndTwoBitsOfLargerOnes) {
  EXPECT_EQ(TokenOf<std::uint64_t>(32).token, 32u);  // 100 | 000
  EXPECT_EQ(TokenOf<std::uint64_t>(32).rawBits, 3u);
  EXPECT_EQ(TokenOf<std::uint64_t>(39).token, 32u);
  EXPECT_EQ(TokenOf<std::uint64_t>(40).token, 33u);  // 101 | 000
  EXPECT_EQ(TokenOf<std::uint64_t>(63).token, 35u);
  EXPECT_EQ(TokenOf<std::uint64_t>(64).token, 36u);
  EXPECT_EQ(TokenOf<std::uint64_t>(100).token, 38u);  // 110 | 0100
  EXPECT_EQ(TokenOf<std::uint64_t>(100).rawBits, 4u);
  EXPECT_EQ(TokenOf<std::uint64_t>(kLargest).token, oocpc::kTokensEnd - 1);
  EXPECT_EQ(TokenOf<std::uint64_t>(kLargest).rawBits, 57u);
}

TEST(NumberTokens, CoverAllNumbersWithoutGapOrOverlap) {
  std::uint64_t next = 0;
  for (unsigned token = 0; token < oocpc::kTokensEnd; ++token) {
    const auto& range = kTokenRanges[token];
    EXPECT_EQ(range.base, next) << token;
    EXPECT_EQ(range.mask, (std::uint64_t{1} << range.rawBits) - 1);
    EXPECT_EQ(TokenOf<std::uint64_t>(range.base).token, token);
    EXPECT_EQ(TokenOf<std::uint64_t>(range.base + range.mask).token, token);
    EXPECT_EQ(TokenOf<std::uint64_t>(range.base).rawBits, range.rawBits);
    next = range.base + range.mask + 1;
  }
  EXPECT_EQ(next, oocpc::kCodedNumbersEnd);
}

TEST(NumberShares, AddUpWhenOneOfAllTokensDominates) {
  for (const unsigned dominant : {0u, 100u, 255u}) {
    std::vector<std::uint32_t> counted(256, 1);
    counted[dominant] = 16'000'000;
    ExpectUsableShares(CountsFrom(counted));
  }
}

TEST(NumberShares, AddUpWhenAllAreEquallyFrequent) {
  for (const std::uint32_t count : {1u, 3u, 65'536u}) {
    const TokenCounts counts = CountsFrom(std::vector<std::uint32_t>(256, count));
    ExpectUsableShares(counts);
    EXPECT_EQ(TokenShares::Of(counts).shares[9], 16u);
  }
  ExpectUsableShares(CountsFrom(std::vector<std::uint32_t>(7, 1)));
}

TEST(NumberShares, AddUpWhenSeveralLargeOnesGiveTheRestItsShare) {
  // Rounding up 254 rare tokens takes more than the greatest of many middling ones has to spare.
  std::vector<std::uint32_t> counted(256, 1);
  for (const std::size_t large : {3u, 90u, 200u, 255u}) counted[large] = 1'000'000;
  ExpectUsableShares(CountsFrom(counted));
  for (std::size_t token = 0; token < 256; token += 2) counted[token] = 10'000;
  ExpectUsableShares(CountsFrom(counted));
}

TEST(NumberShares, AddUpForAnyCounts) {
  std::mt19937 random(21);
  for (int round = 0; round < 500; ++round) {
    std::vector<std::uint32_t> counted(256);
    const unsigned rarity = 1 + random() % 20;
    for (std::uint32_t& count : counted) {
      if (random() % rarity == 0) count = 1 + (random() >> (8 + random() % 24));
    }
    counted[random() % 256] += 1;
    ExpectUsableShares(CountsFrom(counted));
  }
}

TEST(NumberShares, OfASingleTokenAreAllOfThem) {
  const TokenShares shares = TokenShares::Of(CountsOf({5, 5, 5}));
  EXPECT_EQ(shares.shares[5], oocpc::kShares);
  Bytes coded;
  shares.Encode(coded);
  EXPECT_EQ(coded, BytesOf("05 05"));
}

TEST(NumberShares, TakeTwelveBitsEach) {
  // 0 once, 2 twice: 1365, 0, 2731 (of what rounding leaves, the most frequent gets all).
  Bytes coded;
  TokenShares::Of(CountsOf({0, 2, 2})).Encode(coded);
  EXPECT_EQ(coded, BytesOf("00 02 55 05 00 AB 0A"));
  std::span<const std::uint8_t> rest(coded);
  TokenShares back;
  EXPECT_TRUE(TokenShares::Decode(rest, back));
  EXPECT_TRUE(rest.empty());
  EXPECT_EQ(back.shares[2], 2731u);
}

TEST(NumberShares, AreRefusedWhenTheyAreNotShares) {
  const auto isAccepted = [](const char* text) {
    const Bytes coded = BytesOf(text);
    std::span<const std::uint8_t> rest(coded);
    TokenShares shares;
    return TokenShares::Decode(rest, shares);
  };
  EXPECT_TRUE(isAccepted("00 01 00 08 80"));
  EXPECT_FALSE(isAccepted("")) << "nothing";
  EXPECT_FALSE(isAccepted("00"));
  EXPECT_FALSE(isAccepted("01 00 00 08 80")) << "last before first";
  EXPECT_FALSE(isAccepted("00 01 00 08")) << "too short";
  EXPECT_FALSE(isAccepted("00 01 01 08 80")) << "4097 in all";
  EXPECT_FALSE(isAccepted("00 01 FF 07 80")) << "4095 in all";
  EXPECT_FALSE(isAccepted("00 02 00 00 80 00 08")) << "the first has none";
  EXPECT_FALSE(isAccepted("00 02 00 08 80 00 00")) << "the last has none";
  EXPECT_TRUE(isAccepted("FB FB"));
  EXPECT_FALSE(isAccepted("FC FC")) << "a token of numbers from 2^60 on";
}

TEST(NumberCoding, StoresTokensAsAStateAndRawBitsBehindIt) {
  // States from 65536, the last number first: 2 has 2731 shares from 1365 on, so 65536 = 23 * 2731
  // + 2723 becomes 23 * 4096 + 1365 + 2723 = 98296, and likewise 147436; 0 has 1365 shares from 0
  // on, so 147436 = 108 * 1365 + 16 becomes 108 * 4096 + 16 = 442384.
  EXPECT_EQ(ExpectRoundTrip({0, 2, 2}), BytesOf("00 02 55 05 00 AB 0A 04000000 00000000 10C00600"
                                                "0000000000000000"));
  // Both have token 38; 100 is 110 | 0100 and 101 is 110 | 0101.
  EXPECT_EQ(ExpectRoundTrip({100, 101}), BytesOf("26 26 04000000 01000000 00000100 54"
                                                 "0000000000000000"));
}

TEST(NumberCoding, KeepsNumbersInFourLanesFrom1024On) {
  // A number that all have takes no words: a head, four times sizes and state, the padding.
  EXPECT_EQ(ExpectRoundTrip(Numbers(1023, 7)).size(), 2u + 8 + 4 + 8);
  EXPECT_EQ(ExpectRoundTrip(Numbers(1024, 7)).size(), 2u + 4 * (8 + 4) + 8);
}

TEST(NumberCoding, HoldsForAnyCountAndSize) {
  for (const std::size_t count :
       {1u, 2u, 3u, 63u, 1022u, 1023u, 1024u, 1025u, 1026u, 1027u, 5000u}) {
    for (const unsigned bits : {1u, 5u, 14u, 15u, 28u, 31u, 60u}) {
      ExpectRoundTrip(MixedNumbers(count, bits, count + bits));
    }
  }
}

TEST(NumberCoding, HoldsForOneRareLargeNumberAmongSmallOnes) {
  Numbers numbers(5000, 3);
  numbers[0] = numbers[2500] = numbers[4999] = kLargest;
  ExpectRoundTrip(numbers);
}

TEST(NumberCoding, HoldsForTheLargestNumber) {
  ExpectRoundTrip({kLargest});
  ExpectRoundTrip(Numbers(2000, kLargest));
  ExpectRoundTrip({0, kLargest, 1, kLargest - 1, std::uint64_t{1} << 59});
}

TEST(NumberCoding, RefusesNumbersFrom2To60On) {
  TokenCounts counts;
  for (const Numbers& numbers : {Numbers{1, oocpc::kCodedNumbersEnd}, Numbers{~std::uint64_t{0}}}) {
    EXPECT_FALSE(counts.Add(std::span<const std::uint64_t>(numbers)));
    Bytes coded{7};
    EXPECT_FALSE(oocpc::EncodeNumbers(std::span<const std::uint64_t>(numbers), coded));
    EXPECT_EQ(coded, Bytes{7});
  }
}

TEST(NumberCoding, GivesTheSameBytesForNumbersOf32Bits) {
  for (const std::size_t count : {1u, 1023u, 1024u, 1025u, 30'001u}) {
    const Numbers numbers = MixedNumbers(count, 32, count);
    const std::vector<std::uint32_t> narrow(numbers.begin(), numbers.end());
    Bytes coded;
    EXPECT_TRUE(oocpc::EncodeNumbers(std::span<const std::uint32_t>(narrow), coded));
    EXPECT_EQ(coded, Encode(numbers)) << count;
  }
}

TEST(NumberCoding, HoldsForAllTokensAtOnce) {
  Numbers numbers;
  for (unsigned token = 0; token < oocpc::kTokensEnd; ++token) {
    numbers.insert(numbers.end(), 1 + token % 9,
                   kTokenRanges[token].base + kTokenRanges[token].mask);
  }
  ExpectRoundTrip(numbers);
  numbers.insert(numbers.end(), 100'000, 200);
  ExpectRoundTrip(numbers);
}

TEST(NumberCoding, EstimatesItsSizeWithinAFewPercent) {
  std::mt19937_64 random(31);
  std::geometric_distribution<std::uint64_t> geometric(0.05);
  Numbers peaked(16384);
  for (std::uint64_t& number : peaked) number = geometric(random);
  for (const Numbers& numbers : {peaked, MixedNumbers(16384, 16, 1), MixedNumbers(16384, 40, 2)}) {
    const auto real = static_cast<double>(Encode(numbers).size());
    const auto estimate = static_cast<double>(CountsOf(numbers).EstimateBytes(numbers.size()));
    EXPECT_LT(std::abs(real - estimate), 0.03 * real);
  }
}

TEST(NumberCoding, TakesLittleMoreThanTheEntropy) {
  std::mt19937_64 random(32);
  Numbers numbers(16384);
  for (std::uint64_t& number : numbers) number = random() % 10 == 0 ? 1 : 0;
  const double entropy = -(0.1 * std::log2(0.1) + 0.9 * std::log2(0.9));
  EXPECT_LT(static_cast<double>(Encode(numbers).size()), 16384 * entropy / 8 * 1.03 + 80);
}

TEST(NumberCoding, LeavesWhatFollowsTheNumbers) {
  Bytes coded = Encode({9, 8, 7});
  coded.push_back(0xEE);
  Numbers back(3);
  std::span<const std::uint8_t> rest(coded);
  EXPECT_TRUE(oocpc::DecodeNumbers(rest, back));
  EXPECT_EQ(Bytes(rest.begin(), rest.end()), BytesOf("EE"));
}

TEST(NumberCoding, RefusesEveryTruncation) {
  for (const std::size_t count : {5u, 1500u}) {
    const Bytes coded = Encode(MixedNumbers(count, 20, 41));
    for (std::size_t length = 0; length < coded.size(); ++length) {
      EXPECT_FALSE(IsAccepted(Bytes(coded.data(), coded.data() + length), count)) << length;
    }
  }
}

TEST(NumberCoding, RefusesOrDecodesEveryByteChangedWithinItsBounds) {
  std::size_t refused = 0;
  for (const std::size_t count : {40u, 1100u}) {
    const Bytes coded = Encode(MixedNumbers(count, 20, 42));
    for (std::size_t at = 0; at < coded.size(); ++at) {
      for (const int change : {1, 0x10, 0x80, 0xFF}) {
        Bytes altered = coded;
        altered[at] = static_cast<std::uint8_t>(altered[at] ^ change);
        if (!IsAccepted(altered, count)) ++refused;
      }
    }
  }
  EXPECT_GT(refused, 4000u) << "states and sizes hardly ever come out right by chance";
}

TEST(NumberCoding, RefusesAnotherCountThanWasCoded) {
  const Bytes coded = Encode(MixedNumbers(500, 12, 43));
  EXPECT_TRUE(IsAccepted(coded, 500));
  for (const std::size_t count : {1u, 499u, 501u, 1024u, 5000u}) {
    EXPECT_FALSE(IsAccepted(coded, count)) << count;
  }
}

TEST(NumberCoding, RefusesAStateThatNoEncoderReaches) {
  const auto withState = [](const char* state) {
    return BytesOf(std::string("07 07 04000000 00000000") + state + "0000000000000000");
  };
  EXPECT_TRUE(IsAccepted(withState("00000100"), 3));
  EXPECT_FALSE(IsAccepted(withState("FFFF0000"), 3)) << "below 2^16";
  EXPECT_FALSE(IsAccepted(withState("01000100"), 3)) << "does not end in 2^16";
}

TEST(NumberCoding, RefusesSizesThatDoNotFit) {
  const auto withSizes = [](const char* sizes, const char* rest) {
    return BytesOf(std::string("07 07") + sizes + "00000100" + rest);
  };
  EXPECT_TRUE(IsAccepted(withSizes("04000000 00000000", "0000000000000000"), 3));
  EXPECT_FALSE(IsAccepted(withSizes("03000000 01000000", "0000000000000000"), 3)) << "no state";
  EXPECT_FALSE(IsAccepted(withSizes("05000000 00000000", "000000000000000000"), 3)) << "odd";
  EXPECT_FALSE(IsAccepted(withSizes("06000000 00000000", "00000000000000000000"), 3))
      << "a word too many";
  EXPECT_FALSE(IsAccepted(withSizes("04000000 01000000", "000000000000000000"), 3))
      << "a byte of bits too many";
  EXPECT_FALSE(IsAccepted(withSizes("FEFFFFFF FFFFFFFF", "0000000000000000"), 3));
  EXPECT_FALSE(IsAccepted(withSizes("04000000 FFFFFFFF", "0000000000000000"), 3));
  EXPECT_FALSE(IsAccepted(withSizes("04000000 00000000", "0000000000000001"), 3))
      << "padding is zeros";
}

}  // namespace
