// The record of a column's block table.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"

namespace {

using oocpc::BlockEncoding;
using oocpc::BlockEntry;
using oocpc::ColumnType;
using oocpc::ValueType;
namespace result = oocpc::result;
using Bytes = std::vector<std::uint8_t>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::array<std::uint64_t, 3> Bits(double x, double y, double z) {
  return {std::bit_cast<std::uint64_t>(x), std::bit_cast<std::uint64_t>(y),
          std::bit_cast<std::uint64_t>(z)};
}

BlockEntry SampleEntry() {
  BlockEntry entry;
  entry.offsetBytes = 0x1122334455667788;
  entry.storedBytes = 0xA1B2C3;
  entry.valueCount = 16384;
  entry.encoding = BlockEncoding::kDeltaShuffleZstd;
  entry.hasNan = true;
  entry.type = {ValueType::kDouble, 3};
  entry.dataChecksum = 0xDEADBEEF;
  entry.minimumBits = Bits(-1.5, 0.0, kInfinity);
  entry.maximumBits = Bits(2.5, 0.0, -kInfinity);
  entry.firstValue = 0x0102030405060708;
  return entry;
}

const char* const kGolden =
    "88 77 66 55 44 33 22 11 C3 B2 A1 00 00 40 00 00 04 01 0A 03 EF BE AD DE "
    "08 07 06 05 04 03 02 01 "
    "00 00 00 00 00 00 F8 BF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 7F "
    "00 00 00 00 00 00 04 40 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 FF BA 60 B1 91";

/// Of classes 1 to 31, in five bits each.
BlockEntry SmallEntry() {
  BlockEntry entry;
  entry.offsetBytes = 7;
  entry.storedBytes = 625;
  entry.valueCount = 1000;
  entry.encoding = BlockEncoding::kBitPacked;
  entry.type = {ValueType::kUInt8, 1};
  entry.dataChecksum = 0x04030201;
  entry.minimumBits = {1, 0, 0};
  entry.maximumBits = {31, 0, 0};
  entry.firstValue = 2000;
  return entry;
}

const char* const kSmallGolden =
    "07 00 00 00 00 00 00 00 71 02 00 00 E8 03 00 00 02 00 01 01 01 02 03 04 "
    "D0 07 00 00 00 00 00 00 01 1F 00 00 FD 97 4F 92";

Bytes Encoded(const BlockEntry& entry) {
  Bytes bytes;
  entry.Encode(bytes);
  return bytes;
}

/// The sample with one byte changed and a checksum that agrees with the change.
Bytes Resealed(const char* golden, std::size_t at, std::uint8_t value) {
  Bytes bytes = oocpctest::BytesOf(golden);
  bytes.resize(bytes.size() - sizeof(std::uint32_t));
  bytes[at] = value;
  oocpc::AppendChecksum(bytes);
  return bytes;
}

TEST(BlockEntryRecord, IsByteForByteAsDocumented) {
  EXPECT_EQ(Encoded(SampleEntry()), oocpctest::BytesOf(kGolden));
  EXPECT_EQ(Encoded(SmallEntry()), oocpctest::BytesOf(kSmallGolden));
}

TEST(BlockEntryRecord, IsAsLongAsItsValuesNeed) {
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kUInt8, 1}), 40u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kInt16, 1}), 40u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kUInt8, 3}), 44u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kUInt16, 3}), 48u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kDouble, 1}), 52u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kInt32, 3}), 60u);
  EXPECT_EQ(BlockEntry::RecordBytes({ValueType::kDouble, 3}), BlockEntry::kMostBytes);
}

/// Limits of every type come back, each widened as the values are.
TEST(BlockEntryRecord, KeepsTheLimitsOfEveryType) {
  for (std::uint8_t number = 1; oocpc::IsValueType(number); ++number) {
    for (std::uint8_t components = 1; components <= 3; ++components) {
      const ColumnType type{static_cast<ValueType>(number), components};
      Bytes values(std::size_t{2} * oocpc::ValueBytes(type), 0x3F);
      values.front() = 0x81;  // of integers the least or the greatest
      values.back() = 0xC0;
      const BlockEntry entry = oocpc::EncodeBlock(type, values).entry;
      const Bytes bytes = Encoded(entry);
      ASSERT_EQ(bytes.size(), BlockEntry::RecordBytes(type));
      BlockEntry back;
      ASSERT_EQ(BlockEntry::Decode(bytes, back), result::kOk) << int{number};
      EXPECT_EQ(back.type, type);
      EXPECT_EQ(back.minimumBits, entry.minimumBits) << int{number};
      EXPECT_EQ(back.maximumBits, entry.maximumBits) << int{number};
    }
  }
}

TEST(BlockEntryRecord, IsAppendedBehindWhatIsThere) {
  Bytes bytes{1, 2, 3};
  SampleEntry().Encode(bytes);
  EXPECT_EQ(Bytes(bytes.begin() + 3, bytes.end()), oocpctest::BytesOf(kGolden));
}

TEST(BlockEntryRecord, ComesBackAsItWasWritten) {
  BlockEntry entry;
  ASSERT_EQ(BlockEntry::Decode(oocpctest::BytesOf(kGolden), entry), result::kOk);
  EXPECT_EQ(entry.offsetBytes, 0x1122334455667788u);
  EXPECT_EQ(entry.storedBytes, 0xA1B2C3u);
  EXPECT_EQ(entry.valueCount, 16384u);
  EXPECT_EQ(entry.encoding, BlockEncoding::kDeltaShuffleZstd);
  EXPECT_TRUE(entry.hasNan);
  EXPECT_EQ(entry.type, (ColumnType{ValueType::kDouble, 3}));
  EXPECT_EQ(entry.dataChecksum, 0xDEADBEEFu);
  EXPECT_EQ(entry.minimumBits, SampleEntry().minimumBits);
  EXPECT_EQ(entry.maximumBits, SampleEntry().maximumBits);
  EXPECT_EQ(entry.firstValue, 0x0102030405060708u);
}

TEST(BlockEntryRecord, IsRefusedWhenAnyBitIsFlipped) {
  for (const char* golden : {kGolden, kSmallGolden}) {
    const Bytes good = oocpctest::BytesOf(golden);
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
      Bytes bad = good;
      bad[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
      BlockEntry entry;
      ASSERT_EQ(BlockEntry::Decode(bad, entry), result::kChecksumMismatch) << "bit " << bit;
      ASSERT_EQ(entry.storedBytes, 0u) << "a refused record must leave the entry as it was";
    }
  }
}

TEST(BlockEntryRecord, RefusesAnEncodingThatIsNotKnown) {
  BlockEntry entry;
  EXPECT_EQ(BlockEntry::Decode(Resealed(kGolden, 16, 7), entry), result::kUnknownEncoding);
  EXPECT_EQ(BlockEntry::Decode(Resealed(kGolden, 16, 255), entry), result::kUnknownEncoding);
  EXPECT_EQ(entry.valueCount, 0u);
}

TEST(BlockEntryRecord, RefusesFlagsAndPaddingThatMustBeZero) {
  BlockEntry entry;
  EXPECT_EQ(BlockEntry::Decode(Resealed(kGolden, 17, 2), entry), result::kBadRecord) << "flag";
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 34, 1), entry), result::kBadRecord);
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 35, 0x80), entry), result::kBadRecord);
}

TEST(BlockEntryRecord, RefusesTypesThatThereAreNotAndLengthsOfOthers) {
  BlockEntry entry;
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 18, 0), entry), result::kBadRecord);
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 18, 12), entry), result::kBadRecord);
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 19, 0), entry), result::kBadRecord);
  EXPECT_EQ(BlockEntry::Decode(Resealed(kSmallGolden, 19, 3), entry), result::kBadRecord)
      << "which takes 44 bytes";
  EXPECT_EQ(BlockEntry::Decode(Resealed(kGolden, 19, 4), entry), result::kBadRecord);
  const Bytes whole = oocpctest::BytesOf(kSmallGolden);
  for (std::size_t bytes = 0; bytes < 48; ++bytes) {
    Bytes content = whole;
    content.resize(bytes);
    oocpc::AppendChecksum(content);
    EXPECT_EQ(BlockEntry::Decode(content, entry), bytes == 36 ? result::kOk : result::kBadRecord)
        << bytes;
  }
}

TEST(BlockEntryRecord, RefusesLimitsThatAreNaN) {
  BlockEntry entry;
  // The double 0x7FF8... as the minimum of x, and 0x7FF4..., which signals, as the float of its
  // maximum.
  EXPECT_EQ(BlockEntry::Decode(Resealed(kGolden, 39, 0x7F), entry), result::kBadRecord);
  BlockEntry floats = SmallEntry();
  floats.type = {ValueType::kFloat, 1};
  floats.minimumBits = Bits(0, 0, 0);
  floats.maximumBits = Bits(kInfinity, 0, 0);
  Bytes bytes = Encoded(floats);
  ASSERT_EQ(BlockEntry::Decode(bytes, entry), result::kOk);
  bytes.resize(bytes.size() - sizeof(std::uint32_t));
  bytes.back() = 0x7F;
  bytes[bytes.size() - 2] = 0xA0;
  oocpc::AppendChecksum(bytes);
  EXPECT_EQ(BlockEntry::Decode(bytes, entry), result::kBadRecord);
}

TEST(BlockEntryRecord, RefusesMoreValuesThanABlockMayHave) {
  BlockEntry largest = SampleEntry();
  largest.valueCount = oocpc::kMaximumBlockValues;
  BlockEntry entry;
  EXPECT_EQ(BlockEntry::Decode(Encoded(largest), entry), result::kOk);
  ++largest.valueCount;
  EXPECT_EQ(BlockEntry::Decode(Encoded(largest), entry), result::kBadRecord);
}

TEST(BlockEntryRecord, RefusesValueNumbersThatWrap) {
  BlockEntry last = SampleEntry();
  last.firstValue = ~std::uint64_t{0} - last.valueCount;
  BlockEntry entry;
  EXPECT_EQ(BlockEntry::Decode(Encoded(last), entry), result::kOk);
  EXPECT_EQ(entry.firstValue, last.firstValue);
  ++last.firstValue;
  EXPECT_EQ(BlockEntry::Decode(Encoded(last), entry), result::kBadRecord);
  EXPECT_EQ(entry.firstValue, last.firstValue - 1) << "as it was";
}

}  // namespace
