// Values as entropy-coded residuals: the stored bytes, every transform, and which bytes are
// refused.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "OOCPointCloud/columns/ResidualCoding.h"
#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::BytesOf;
using oocpctest::ValuesAsBytes;

constexpr ColumnType kInts{ValueType::kInt32, 1};
constexpr ColumnType kLongs{ValueType::kUInt64, 1};
constexpr ColumnType kPositions{ValueType::kInt32, 3};

// The first byte of a block.
constexpr std::uint8_t kOffsets = 0;
constexpr std::uint8_t kDifferences = 1;
constexpr std::uint8_t kRelativeOffsets = 2;
constexpr std::uint8_t kRelativeDifferences = 3;

Bytes ExpectRoundTrip(ColumnType type, const Bytes& values) {
  Bytes coded = oocpc::EncodeResiduals(type, values);
  coded.shrink_to_fit();
  Bytes back(values.size(), 9);
  EXPECT_TRUE(oocpc::DecodeResiduals(type, coded, back))
      << oocpc::ValueTypeName(type.value) << " x " << int{type.components};
  EXPECT_EQ(back, values) << oocpc::ValueTypeName(type.value) << " x " << int{type.components};
  return coded;
}

bool IsAccepted(ColumnType type, Bytes coded, std::size_t count) {
  coded.shrink_to_fit();
  Bytes values(count * oocpc::ValueBytes(type));
  return oocpc::DecodeResiduals(type, coded, values);
}

Bytes Decoded(ColumnType type, const Bytes& coded, std::size_t count) {
  Bytes values(count * oocpc::ValueBytes(type));
  EXPECT_TRUE(oocpc::DecodeResiduals(type, coded, values));
  return values;
}

// One coded number that is repeated as often as needed: below 32, fewer than 1024 times.
std::string CodedSame(const std::string& number) {
  return number + number + "04000000 00000000 00000100 0000000000000000";
}

// A component whose residuals are all the same, without a dictionary.
std::string SameResiduals(const std::string& base, const std::string& number) {
  return base + "00000000" + CodedSame(number);
}

// Residuals 0, 2, 2: see the numbers' own tests for how they are coded.
const char* const kZeroTwoTwo = "0002 550500AB0A 04000000 00000000 10C00600 0000000000000000";

TEST(ResidualCoding, StoresHeadBaseAndDifferences) {
  // From 10, differences 0 +1 +1, zigzag 0 2 2; no decimals, no dictionary.
  const Bytes coded = ExpectRoundTrip(kInts, ValuesAsBytes<std::int32_t>({10, 11, 12}));
  EXPECT_EQ(coded, BytesOf(std::string("01 FF 0A00000000000000 00000000") + kZeroTwoTwo));
}

TEST(ResidualCoding, StoresOffsetsWhereTheyAreSmaller) {
  // -5 and -4 in turn: offsets 0 and 1, differences 0, +1, -1.
  std::vector<std::int32_t> values;
  for (int i = 0; i < 4000; ++i) values.push_back(i % 2 - 5);
  EXPECT_EQ(ExpectRoundTrip(kInts, ValuesAsBytes(values))[0], kOffsets);
}

TEST(ResidualCoding, StoresTheSecondComponentFirstWhenOthersAreRelativeToIt) {
  // Bases 1, 2, 3; the second component's differences -1, the others' the same and 0 and +1 more.
  const std::string coded = "03 FF" + SameResiduals("0200000000000000", "01") +
                            SameResiduals("0100000000000000", "00") +
                            SameResiduals("0300000000000000", "02");
  EXPECT_EQ(Decoded(kPositions, BytesOf(coded), 2),
            ValuesAsBytes<std::int32_t>({0, 1, 3, -1, 0, 3}));
}

TEST(ResidualCoding, TakesComponentsRelativeToTheSecondWhereTheyMoveTogether) {
  std::mt19937 random(81);
  std::vector<std::uint16_t> grays;
  for (int i = 0; i < 4000; ++i) {
    const auto gray = static_cast<std::uint16_t>(20000 + random() % 20000);
    for (int channel = 0; channel < 3; ++channel) {
      grays.push_back(static_cast<std::uint16_t>(gray + random() % 4));
    }
  }
  const auto how = ExpectRoundTrip({ValueType::kUInt16, 3}, ValuesAsBytes(grays))[0];
  EXPECT_TRUE(how == kRelativeOffsets || how == kRelativeDifferences) << int{how};
}

TEST(ResidualCoding, TakesDifferencesOfIndependentComponentsOneByOne) {
  std::mt19937 random(82);
  std::vector<std::int32_t> walk;
  std::int32_t at[3] = {1000, 2000, 3000};
  for (int i = 0; i < 4000; ++i) {
    for (std::int32_t& number : at) {
      walk.push_back(number += static_cast<std::int32_t>(random() % 1000) - 500);
    }
  }
  EXPECT_EQ(ExpectRoundTrip(kPositions, ValuesAsBytes(walk))[0], kDifferences);
}

TEST(ResidualCoding, UndoesEveryTransform) {
  // Base 5, residual +2 always.
  const auto decoded = [](const char* how) {
    return Decoded(kInts, BytesOf(how + SameResiduals("0500000000000000", "04")), 3);
  };
  EXPECT_EQ(decoded("00FF"), ValuesAsBytes<std::int32_t>({7, 7, 7}));
  EXPECT_EQ(decoded("01FF"), ValuesAsBytes<std::int32_t>({7, 9, 11}));
  const std::string three = SameResiduals("0200000000000000", "02") +
                            SameResiduals("0100000000000000", "04") +
                            SameResiduals("0300000000000000", "01");
  EXPECT_EQ(Decoded(kPositions, BytesOf("02FF" + three), 2),
            ValuesAsBytes<std::int32_t>({4, 3, 3, 4, 3, 3}));
  EXPECT_EQ(Decoded(kPositions, BytesOf("00FF" + three), 2),
            ValuesAsBytes<std::int32_t>({3, 3, 2, 3, 3, 2}));
}

TEST(ResidualCoding, HoldsForEveryTypeNumberOfComponentsAndCount) {
  std::mt19937_64 random(83);
  for (int value = 1; value <= 11; ++value) {
    for (std::uint8_t components = 1; components <= 3; ++components) {
      const ColumnType type{static_cast<ValueType>(value), components};
      const std::uint32_t width = oocpc::ComponentBytes(type.value);
      for (const std::size_t count : {1u, 2u, 7u, 8u, 1023u, 1024u, 4001u}) {
        Bytes values(count * oocpc::ValueBytes(type));
        std::uint64_t number = random() >> 8;
        for (std::size_t at = 0; at < values.size(); at += width) {
          number += random() % 200;
          std::memcpy(values.data() + at, &number, width);
        }
        ExpectRoundTrip(type, values);
      }
    }
  }
}

TEST(ResidualCoding, HoldsForDecimalNumbers) {
  std::vector<double> times;
  std::vector<float> heights;
  for (int i = 0; i < 5000; ++i) {
    times.push_back((123456789012 + i * 37) / 1e6);
    heights.push_back(static_cast<float>(std::round(1e4 + 500 * std::sin(i * 0.01)) / 100));
  }
  EXPECT_EQ(ExpectRoundTrip({ValueType::kDouble, 1}, ValuesAsBytes(times))[1], 6);
  EXPECT_EQ(ExpectRoundTrip({ValueType::kFloat, 1}, ValuesAsBytes(heights))[1], 2);
}

TEST(ResidualCoding, WrapsAroundAtTheEndsOf64BitIntegers) {
  using Limits = std::numeric_limits<std::int64_t>;
  ExpectRoundTrip({ValueType::kInt64, 1}, ValuesAsBytes({Limits::max(), Limits::min()}));
  ExpectRoundTrip({ValueType::kInt64, 1},
                  ValuesAsBytes({Limits::min(), Limits::max(), Limits::min() + 1}));
  ExpectRoundTrip(kLongs, ValuesAsBytes<std::uint64_t>({~0ull, 0, 1, ~0ull - 1}));
  ExpectRoundTrip({ValueType::kUInt64, 3},
                  ValuesAsBytes<std::uint64_t>({~0ull, 0, 1, 1, ~0ull, 0}));
}

TEST(ResidualCoding, GivesNothingWhenResidualsAreTooLarge) {
  EXPECT_TRUE(
      oocpc::EncodeResiduals(kLongs, ValuesAsBytes<std::uint64_t>({0, 1ull << 60, 5})).empty());
  std::vector<std::uint64_t> repeated(100, 0);
  repeated[50] = 1ull << 62;
  EXPECT_TRUE(oocpc::EncodeResiduals(kLongs, ValuesAsBytes(repeated)).empty())
      << "dictionaries hold no larger ones, either";
}

TEST(ResidualCoding, TakesResidualsFromTheDictionaryByTheirPlace) {
  // One entry, number 6 (+3), and all values at place 0.
  const std::string dictionary = "0900000000000000 01000000" + CodedSame("06");
  EXPECT_EQ(Decoded(kLongs, BytesOf("01FF" + dictionary + CodedSame("00")), 3),
            ValuesAsBytes<std::uint64_t>({12, 15, 18}));
  EXPECT_FALSE(IsAccepted(kLongs, BytesOf("01FF" + dictionary + CodedSame("01")), 3))
      << "there is no place 1";
}

TEST(ResidualCoding, UsesADictionaryForRepeatedStepsOf64Bits) {
  std::mt19937_64 random(84);
  std::vector<std::uint64_t> values;
  std::uint64_t value = 77;
  for (int i = 0; i < 4000; ++i) {
    values.push_back(value += random() % 2 == 0 ? 0x123456789ABCD : 0xFEDCBA987654);
  }
  const Bytes coded = ExpectRoundTrip(kLongs, ValuesAsBytes(values));
  EXPECT_EQ(oocpc::LoadLittleEndian<std::uint32_t>(coded.data() + 10), 3u) << "with the first's 0";
  EXPECT_LT(coded.size(), 1000u) << "a bit each, and the heads";
}

TEST(ResidualCoding, RefusesADictionaryOfMoreEntriesThanValues) {
  const std::string entries = CodedSame("06") + CodedSame("00");
  EXPECT_TRUE(IsAccepted(kLongs, BytesOf("01FF 0900000000000000 03000000" + entries), 3));
  EXPECT_FALSE(IsAccepted(kLongs, BytesOf("01FF 0900000000000000 04000000" + entries), 3));
  EXPECT_FALSE(IsAccepted(kLongs, BytesOf("01FF 0900000000000000 FFFFFFFF" + entries), 3));
}

TEST(ResidualCoding, RefusesContradictoryHeads) {
  const std::string one = SameResiduals("0500000000000000", "00");
  const std::string three = one + one + one;
  EXPECT_TRUE(IsAccepted(kInts, BytesOf("01FF" + one), 2));
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("02FF" + one), 2)) << "one component, relative to what?";
  EXPECT_FALSE(IsAccepted({ValueType::kInt32, 2}, BytesOf("03FF" + one + one), 2));
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("04FF" + one), 2)) << "unknown transform";
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("81FF" + one), 2));
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("0100" + one), 2)) << "decimals of integers";
  EXPECT_TRUE(IsAccepted({ValueType::kDouble, 1}, BytesOf("0109" + one), 2));
  EXPECT_FALSE(IsAccepted({ValueType::kDouble, 1}, BytesOf("010A" + one), 2)) << "ten decimals";
  EXPECT_TRUE(IsAccepted(kPositions, BytesOf("03FF" + three), 2));
  EXPECT_FALSE(IsAccepted(kPositions, BytesOf("03FF" + one + one), 2)) << "a component short";
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("01FF" + one + "00"), 2)) << "a byte too many";
  EXPECT_FALSE(IsAccepted(kInts, BytesOf("01FF" + one), 0)) << "no values";
}

TEST(ResidualCoding, RefusesEveryTruncationAndHoldsOutEveryChangedByte) {
  std::mt19937_64 random(85);
  std::vector<double> values;
  for (int i = 0; i < 1100; ++i)
    values.push_back(1e8 + (random() % 2 == 0 ? 1 : 3) * (i / 5) / 7.0);
  const Bytes coded = ExpectRoundTrip({ValueType::kDouble, 1}, ValuesAsBytes(values));
  for (std::size_t length = 0; length < coded.size(); ++length) {
    EXPECT_FALSE(IsAccepted({ValueType::kDouble, 1}, Bytes(coded.data(), coded.data() + length),
                            values.size()));
  }
  std::size_t refused = 0;
  for (std::size_t at = 0; at < coded.size(); ++at) {
    for (const int change : {1, 0x40, 0xFF}) {
      Bytes altered = coded;
      altered[at] = static_cast<std::uint8_t>(altered[at] ^ change);
      if (!IsAccepted({ValueType::kDouble, 1}, altered, values.size())) ++refused;
    }
  }
  EXPECT_GT(refused, 1000u) << "most other bytes are plain bits, which the checksum guards";
}

TEST(ResidualCoding, BlockThatIsMadeByHandIsDecoded) {
  const Bytes stored = BytesOf(std::string("01 FF 0A00000000000000 00000000") + kZeroTwoTwo);
  oocpc::BlockEntry entry;
  entry.type = kInts;
  entry.encoding = oocpc::BlockEncoding::kResiduals;
  entry.valueCount = 3;
  entry.storedBytes = static_cast<std::uint32_t>(stored.size());
  entry.dataChecksum = oocpc::Crc32c(stored);
  entry.minimumBits[0] = 10;
  entry.maximumBits[0] = 12;
  Bytes values;
  EXPECT_EQ(oocpc::DecodeBlock(entry, stored, values), oocpc::result::kOk);
  EXPECT_EQ(values, ValuesAsBytes<std::int32_t>({10, 11, 12}));
  for (const std::uint32_t count : {0u, 2u, 4u}) {
    entry.valueCount = count;
    EXPECT_EQ(oocpc::DecodeBlock(entry, stored, values), oocpc::result::kBadRecord);
  }
}

}  // namespace
