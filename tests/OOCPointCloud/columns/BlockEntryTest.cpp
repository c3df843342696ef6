// The 96-byte record of a column's block table.
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
  entry.dataChecksum = 0xDEADBEEF;
  entry.minimumBits = Bits(-1.5, 0.0, kInfinity);
  entry.maximumBits = Bits(2.5, 0.0, -kInfinity);
  entry.firstValue = 0x0102030405060708;
  return entry;
}

const char* const kGolden =
    "88 77 66 55 44 33 22 11 C3 B2 A1 00 00 40 00 00 04 01 00 00 EF BE AD DE "
    "00 00 00 00 00 00 F8 BF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 7F "
    "00 00 00 00 00 00 04 40 00 00 00 00 00 00 00 00 00 00 00 00 00 00 F0 FF "
    "08 07 06 05 04 03 02 01 00 00 00 00 00 00 00 00 00 00 00 00 B4 E7 C7 3B ";

HRESULT Decode(const Bytes& bytes, BlockEntry& entry) {
  std::uint8_t record[BlockEntry::kBytes];
  std::copy_n(bytes.begin(), sizeof(record), record);
  return BlockEntry::Decode(record, entry);
}

// The sample with one byte changed and a checksum that agrees with the change.
Bytes Resealed(std::size_t at, std::uint8_t value) {
  const Bytes golden = oocpctest::BytesOf(kGolden);
  Bytes bytes(golden.begin(), golden.begin() + 92);
  bytes[at] = value;
  oocpc::AppendChecksum(bytes);
  return bytes;
}

TEST(BlockEntryRecord, IsByteForByteAsDocumented) {
  Bytes bytes;
  SampleEntry().Encode(bytes);
  EXPECT_EQ(bytes, oocpctest::BytesOf(kGolden));
}

TEST(BlockEntryRecord, IsAppendedBehindWhatIsThere) {
  Bytes bytes{1, 2, 3};
  SampleEntry().Encode(bytes);
  EXPECT_EQ(Bytes(bytes.begin() + 3, bytes.end()), oocpctest::BytesOf(kGolden));
}

TEST(BlockEntryRecord, ComesBackAsItWasWritten) {
  BlockEntry entry;
  ASSERT_EQ(Decode(oocpctest::BytesOf(kGolden), entry), result::kOk);
  EXPECT_EQ(entry.offsetBytes, 0x1122334455667788u);
  EXPECT_EQ(entry.storedBytes, 0xA1B2C3u);
  EXPECT_EQ(entry.valueCount, 16384u);
  EXPECT_EQ(entry.encoding, BlockEncoding::kDeltaShuffleZstd);
  EXPECT_TRUE(entry.hasNan);
  EXPECT_EQ(entry.dataChecksum, 0xDEADBEEFu);
  EXPECT_EQ(entry.minimumBits, SampleEntry().minimumBits);
  EXPECT_EQ(entry.maximumBits, SampleEntry().maximumBits);
  EXPECT_EQ(entry.firstValue, 0x0102030405060708u);
}

TEST(BlockEntryRecord, IsRefusedWhenAnyBitIsFlipped) {
  const Bytes good = oocpctest::BytesOf(kGolden);
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Bytes bad = good;
    bad[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    BlockEntry entry;
    ASSERT_EQ(Decode(bad, entry), result::kChecksumMismatch) << "bit " << bit;
    ASSERT_EQ(entry.storedBytes, 0u) << "a refused record must leave the entry as it was";
  }
}

TEST(BlockEntryRecord, RefusesAnEncodingThatIsNotKnown) {
  BlockEntry entry;
  EXPECT_EQ(Decode(Resealed(16, 7), entry), result::kUnknownEncoding);
  EXPECT_EQ(Decode(Resealed(16, 255), entry), result::kUnknownEncoding);
  EXPECT_EQ(entry.valueCount, 0u);
}

TEST(BlockEntryRecord, RefusesBytesThatMustBeZero) {
  BlockEntry entry;
  EXPECT_EQ(Decode(Resealed(17, 2), entry), result::kBadRecord) << "unknown flag";
  EXPECT_EQ(Decode(Resealed(18, 1), entry), result::kBadRecord);
  EXPECT_EQ(Decode(Resealed(19, 1), entry), result::kBadRecord);
  for (std::size_t at = 80; at < 92; ++at) {
    EXPECT_EQ(Decode(Resealed(at, 0x80), entry), result::kBadRecord) << at;
  }
}

TEST(BlockEntryRecord, RefusesMoreValuesThanABlockMayHave) {
  BlockEntry largest = SampleEntry();
  largest.valueCount = oocpc::kMaximumBlockValues;
  Bytes bytes;
  largest.Encode(bytes);
  BlockEntry entry;
  EXPECT_EQ(Decode(bytes, entry), result::kOk);
  ++largest.valueCount;
  bytes.clear();
  largest.Encode(bytes);
  EXPECT_EQ(Decode(bytes, entry), result::kBadRecord);
}

TEST(BlockEntryRecord, RefusesValueNumbersThatWrap) {
  BlockEntry last = SampleEntry();
  last.firstValue = ~std::uint64_t{0} - last.valueCount;
  Bytes bytes;
  last.Encode(bytes);
  BlockEntry entry;
  EXPECT_EQ(Decode(bytes, entry), result::kOk);
  EXPECT_EQ(entry.firstValue, last.firstValue);
  ++last.firstValue;
  bytes.clear();
  last.Encode(bytes);
  EXPECT_EQ(Decode(bytes, entry), result::kBadRecord);
  EXPECT_EQ(entry.firstValue, last.firstValue - 1) << "as it was";
}

}  // namespace
