// Stored blocks written by hand, good ones and such as must be refused.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <bit>
#include <limits>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::BlockEncoding;
using oocpc::BlockEntry;
using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::BytesOf;
using oocpctest::ValuesAsBytes;
namespace result = oocpc::result;

constexpr ColumnType kBytes8{ValueType::kUInt8, 1};
constexpr ColumnType kShorts{ValueType::kUInt16, 1};
constexpr ColumnType kDoubles{ValueType::kDouble, 1};

BlockEntry EntryOf(BlockEncoding encoding, std::uint32_t count, const Bytes& stored,
                   std::uint64_t minimum = 0, std::uint64_t maximum = 0) {
  BlockEntry entry;
  entry.encoding = encoding;
  entry.valueCount = count;
  entry.storedBytes = static_cast<std::uint32_t>(stored.size());
  entry.dataChecksum = oocpc::Crc32c(stored);
  entry.minimumBits[0] = minimum;
  entry.maximumBits[0] = maximum;
  return entry;
}

HRESULT Decode(ColumnType type, BlockEntry entry, const Bytes& stored) {
  entry.type = type;
  Bytes values;
  return oocpc::DecodeBlock(entry, stored, values);
}

Bytes DecodeGood(ColumnType type, BlockEntry entry, const Bytes& stored) {
  entry.type = type;
  Bytes values;
  EXPECT_EQ(oocpc::DecodeBlock(entry, stored, values), result::kOk);
  return values;
}

// A zstd frame (RFC 8878) of eight bytes of content in one raw block.
const char* const kFrameHead = "28 B5 2F FD 20 08 41 00 00";

Bytes FrameOf(const char* content) { return BytesOf(std::string(kFrameHead) + content); }

TEST(StoredBlock, OfRawValuesIsTheValues) {
  const Bytes stored = BytesOf("01 00 FF 7F");
  EXPECT_EQ(DecodeGood(kShorts, EntryOf(BlockEncoding::kRaw, 2, stored, 1, 0x7FFF), stored),
            stored);
}

TEST(StoredBlock, OfAConstantRepeatsIt) {
  const Bytes stored = BytesOf("34 12");
  EXPECT_EQ(
      DecodeGood(kShorts, EntryOf(BlockEncoding::kConstant, 3, stored, 0x1234, 0x1234), stored),
      BytesOf("34 12 34 12 34 12"));
}

TEST(StoredBlock, OfPackedBitsAddsTheMinimum) {
  const Bytes stored = BytesOf("50 1F");
  EXPECT_EQ(DecodeGood(kShorts, EntryOf(BlockEncoding::kBitPacked, 5, stored, 100, 107), stored),
            ValuesAsBytes<std::uint16_t>({100, 102, 105, 107, 101}));
}

TEST(StoredBlock, OfPackedBitsMayHaveNoBytesAtAll) {
  EXPECT_EQ(DecodeGood(kShorts, EntryOf(BlockEncoding::kBitPacked, 2, {}, 9, 9), {}),
            ValuesAsBytes<std::uint16_t>({9, 9}));
}

TEST(StoredBlock, OfShuffledBytesHasLowBytesFirst) {
  const Bytes stored = FrameOf("01 02 03 04 A0 00 B0 00");
  EXPECT_EQ(DecodeGood(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 4, stored, 2, 0xB003), stored),
            ValuesAsBytes<std::uint16_t>({0xA001, 2, 0xB003, 4}));
}

TEST(StoredBlock, OfDeltasUndoesZigZag) {
  // Steps +10, +2, -3, -32768 as 20, 4, 5, 65535.
  const Bytes stored = FrameOf("14 04 05 FF 00 00 00 FF");
  EXPECT_EQ(
      DecodeGood(kShorts, EntryOf(BlockEncoding::kDeltaShuffleZstd, 4, stored, 9, 0x8009), stored),
      ValuesAsBytes<std::uint16_t>({10, 12, 9, 0x8009}));
}

TEST(StoredBlock, IsRefusedWhenAnyByteIsAltered) {
  const Bytes good = FrameOf("01 02 03 04 00 00 00 00");
  const BlockEntry entry = EntryOf(BlockEncoding::kShuffleZstd, 4, good, 1, 4);
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const int change : {1, 0x80, 0xFF}) {
      Bytes bad = good;
      bad[at] = static_cast<std::uint8_t>(bad[at] ^ change);
      EXPECT_EQ(Decode(kShorts, entry, bad), result::kChecksumMismatch) << at;
    }
  }
}

TEST(StoredBlock, IsRefusedWhenItsLengthIsNotTheStatedOne) {
  const Bytes stored = BytesOf("01 00 02 00");
  BlockEntry entry = EntryOf(BlockEncoding::kRaw, 2, stored, 1, 2);
  entry.storedBytes = 5;
  EXPECT_EQ(Decode(kShorts, entry, stored), result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWhenLengthAndCountDisagree) {
  const Bytes two = BytesOf("01 00");
  const Bytes three = BytesOf("01 00 02");
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kRaw, 2, two, 1, 1), two), result::kBadRecord);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kConstant, 2, three, 1, 1), three),
            result::kBadRecord);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kConstant, 0, two), two), result::kBadRecord);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kBitPacked, 5, three, 100, 107), three),
            result::kBadRecord);
  EXPECT_EQ(Decode(kBytes8, EntryOf(BlockEncoding::kShuffleZstd, 0, {}), {}), result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWithMoreValuesThanABlockMayHave) {
  const Bytes stored = BytesOf("07");
  EXPECT_EQ(Decode(kBytes8,
                   EntryOf(BlockEncoding::kConstant, oocpc::kMaximumBlockValues + 1, stored, 7, 7),
                   stored),
            result::kBadRecord);
  EXPECT_EQ(
      Decode(kBytes8, EntryOf(BlockEncoding::kConstant, oocpc::kMaximumBlockValues, stored, 7, 7),
             stored),
      result::kOk);
}

TEST(StoredBlock, IsRefusedWhenTheFrameStatesAnotherSize) {
  const Bytes stored = FrameOf("01 02 03 04 00 00 00 00");
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 3, stored, 1, 4), stored),
            result::kBadRecord);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 5, stored, 1, 4), stored),
            result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWhenItIsNotOneWholeFrame) {
  for (const char* text : {"", "28 B5 2F", "28 B5 2F FD 20 08", "00 01 02 03 04 05 06 07 08"}) {
    const Bytes stored = BytesOf(text);
    EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 4, stored), stored),
              result::kBadRecord)
        << text;
  }
  Bytes behind = FrameOf("01 02 03 04 00 00 00 00");
  behind.push_back(0);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 4, behind), behind),
            result::kBadRecord);
  const Bytes skippable = BytesOf("50 2A 4D 18 00 00 00 00");
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 4, skippable), skippable),
            result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWhenTheFrameHoldsLessThanItStates) {
  // States eight bytes, holds a block of seven.
  const Bytes stored = BytesOf("28 B5 2F FD 20 08 39 00 00 01 02 03 04 05 06 07");
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kShuffleZstd, 4, stored), stored),
            result::kBadRecord);
  EXPECT_EQ(Decode(kShorts, EntryOf(BlockEncoding::kDeltaShuffleZstd, 4, stored), stored),
            result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWithPackedFloatingPoint) {
  const std::uint64_t one = std::bit_cast<std::uint64_t>(1.0);
  EXPECT_EQ(Decode(kDoubles, EntryOf(BlockEncoding::kBitPacked, 2, {}, one, one), {}),
            result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWithAnEncodingThatIsNotKnown) {
  const Bytes stored = BytesOf("07");
  EXPECT_EQ(Decode(kBytes8, EntryOf(static_cast<BlockEncoding>(7), 1, stored, 7, 7), stored),
            result::kUnknownEncoding);
}

TEST(StoredBlock, IsRefusedWithARangeThatItsTypeCanNotHave) {
  const Bytes stored = BytesOf("07");
  const auto minusOne = static_cast<std::uint64_t>(-1);
  const auto refuses = [&](ColumnType type, std::uint64_t minimum, std::uint64_t maximum) {
    return Decode(type, EntryOf(BlockEncoding::kConstant, 1, stored, minimum, maximum), stored) ==
           result::kBadRecord;
  };
  EXPECT_TRUE(refuses(kBytes8, 8, 7)) << "minimum above maximum";
  EXPECT_TRUE(refuses(kBytes8, 0, 256)) << "above the type";
  EXPECT_TRUE(refuses(kBytes8, 0, minusOne));
  EXPECT_TRUE(refuses({ValueType::kInt8, 1}, static_cast<std::uint64_t>(-129), 0))
      << "below the type";
  EXPECT_TRUE(refuses({ValueType::kInt8, 1}, 0, 128));
  EXPECT_TRUE(refuses({ValueType::kInt8, 1}, 0, minusOne)) << "signed order counts";
  EXPECT_FALSE(refuses({ValueType::kInt8, 1}, minusOne, 7));
}

TEST(StoredBlock, IsRefusedWithARangeThatFloatsCanNotHave) {
  const Bytes stored = ValuesAsBytes({1.0});
  const auto bits = [](double value) { return std::bit_cast<std::uint64_t>(value); };
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto codeOf = [&](double minimum, double maximum, bool hasNan) {
    BlockEntry entry = EntryOf(BlockEncoding::kConstant, 1, stored, bits(minimum), bits(maximum));
    entry.hasNan = hasNan;
    return Decode(kDoubles, entry, stored);
  };
  EXPECT_EQ(codeOf(1, 1, false), result::kOk);
  EXPECT_EQ(codeOf(infinity, -infinity, true), result::kOk) << "nothing but NaNs";
  EXPECT_EQ(codeOf(infinity, -infinity, false), result::kBadRecord);
  EXPECT_EQ(codeOf(2, 1, true), result::kBadRecord);
  EXPECT_EQ(codeOf(nan, 1, true), result::kBadRecord);
  EXPECT_EQ(codeOf(1, nan, true), result::kBadRecord);
}

TEST(StoredBlock, IsRefusedWithFactsAboutComponentsItDoesNotHave) {
  const Bytes stored = BytesOf("07");
  BlockEntry second = EntryOf(BlockEncoding::kConstant, 1, stored, 7, 7);
  second.maximumBits[1] = 1;
  EXPECT_EQ(Decode(kBytes8, second, stored), result::kBadRecord);
  BlockEntry nan = EntryOf(BlockEncoding::kConstant, 1, stored, 7, 7);
  nan.hasNan = true;
  EXPECT_EQ(Decode(kBytes8, nan, stored), result::kBadRecord) << "integers have no NaNs";
}

}  // namespace
