// Integers in runs of 128: the stored bytes, and which bytes are refused.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <limits>

#include "OOCPointCloud/columns/RunPacking.h"
#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::BytesOf;
using oocpctest::ValuesAsBytes;

constexpr ColumnType kShorts{ValueType::kUInt16, 1};

Bytes ExpectRoundTrip(ColumnType type, const Bytes& values) {
  Bytes packed = oocpc::PackRuns(type, values);
  packed.shrink_to_fit();
  EXPECT_EQ(packed.size(), oocpc::CountRunBytes(type, values));
  Bytes back(values.size(), 9);
  EXPECT_TRUE(oocpc::UnpackRuns(type, packed, back));
  EXPECT_EQ(back, values);
  return packed;
}

bool IsAccepted(ColumnType type, const Bytes& packed, std::size_t count) {
  Bytes values(count * oocpc::ValueBytes(type));
  return oocpc::UnpackRuns(type, packed, values);
}

TEST(RunPacking, StoresBitsLeastValueAndOffsets) {
  // From 100: 0 2 5 7 1 in three bits each, 0 | 2<<3 | 5<<6 | 7<<9 | 1<<12.
  EXPECT_EQ(ExpectRoundTrip(kShorts, ValuesAsBytes<std::uint16_t>({100, 102, 105, 107, 101})),
            BytesOf("03 6400 501F"));
}

TEST(RunPacking, StoresOneComponentBehindTheOther) {
  // -1 and 0 in one bit each from -1, then 500 twice in none.
  EXPECT_EQ(ExpectRoundTrip({ValueType::kInt16, 2}, ValuesAsBytes<std::int16_t>({0, 500, -1, 500})),
            BytesOf("01 FFFF 01 00 F401"));
}

TEST(RunPacking, BeginsAnewEvery128Values) {
  std::vector<std::uint16_t> values(128, 7);
  values.push_back(9);
  EXPECT_EQ(ExpectRoundTrip(kShorts, ValuesAsBytes(values)), BytesOf("00 0700 00 0900"));
  values.assign(256, 0xABCD);
  EXPECT_EQ(ExpectRoundTrip(kShorts, ValuesAsBytes(values)), BytesOf("00 CDAB 00 CDAB"));
}

TEST(RunPacking, CoversTheEndsOfEveryIntegerType) {
  ExpectRoundTrip({ValueType::kInt8, 1}, ValuesAsBytes<std::int8_t>({-128, 127, 0}));
  ExpectRoundTrip({ValueType::kUInt8, 1}, ValuesAsBytes<std::uint8_t>({255, 0, 1}));
  ExpectRoundTrip({ValueType::kInt16, 1}, ValuesAsBytes<std::int16_t>({-32768, 32767}));
  ExpectRoundTrip({ValueType::kInt32, 1},
                  ValuesAsBytes({std::numeric_limits<std::int32_t>::min(), 0,
                                 std::numeric_limits<std::int32_t>::max()}));
  ExpectRoundTrip({ValueType::kString, 1}, ValuesAsBytes<std::uint32_t>({~0u, 0, 5}));
  ExpectRoundTrip({ValueType::kInt64, 1},
                  ValuesAsBytes({std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                                 std::numeric_limits<std::int64_t>::max()}));
  ExpectRoundTrip({ValueType::kUInt64, 1}, ValuesAsBytes<std::uint64_t>({~0ull, 0, 1}));
}

TEST(RunPacking, HoldsForEveryTypeAndManyCounts) {
  std::mt19937_64 random(12);
  for (int type = 1; type <= 11; ++type) {
    const auto value = static_cast<ValueType>(type);
    if (value == ValueType::kFloat || value == ValueType::kDouble) continue;
    for (std::uint8_t components = 1; components <= 3; ++components) {
      for (const std::size_t count : {1u, 2u, 127u, 128u, 129u, 1000u}) {
        const ColumnType column{value, components};
        ExpectRoundTrip(column, oocpctest::RandomBytes(random, count * oocpc::ValueBytes(column)));
      }
    }
  }
}

TEST(RunPacking, RefusesFloatingPoint) {
  EXPECT_FALSE(IsAccepted({ValueType::kFloat, 1}, BytesOf("00 00000000"), 1));
  EXPECT_FALSE(IsAccepted({ValueType::kDouble, 1}, BytesOf("00 0000000000000000"), 1));
}

TEST(RunPacking, RefusesMoreBitsThanTheTypeHas) {
  EXPECT_TRUE(IsAccepted(kShorts, BytesOf("10 0000 FFFF"), 1));
  EXPECT_FALSE(IsAccepted(kShorts, BytesOf("11 0000 FFFF00"), 1));
  EXPECT_FALSE(IsAccepted(kShorts, BytesOf("FF 0000 FFFF"), 1));
}

TEST(RunPacking, RefusesEveryTruncationAndWhateverFollows) {
  std::mt19937_64 random(13);
  const ColumnType type{ValueType::kInt32, 2};
  const std::size_t count = 200;
  const Bytes packed =
      oocpc::PackRuns(type, oocpctest::RandomBytes(random, count * oocpc::ValueBytes(type)));
  for (std::size_t length = 0; length < packed.size(); ++length) {
    EXPECT_FALSE(IsAccepted(type, Bytes(packed.data(), packed.data() + length), count)) << length;
  }
  Bytes longer = packed;
  longer.push_back(0);
  EXPECT_FALSE(IsAccepted(type, longer, count));
}

TEST(RunPacking, BlockOfTooFewBytesForItsRunsIsRefused) {
  const Bytes stored = BytesOf("00 0700");
  oocpc::BlockEntry entry;
  entry.type = kShorts;
  entry.encoding = oocpc::BlockEncoding::kRuns;
  entry.storedBytes = static_cast<std::uint32_t>(stored.size());
  entry.dataChecksum = oocpc::Crc32c(stored);
  entry.minimumBits[0] = 7;
  entry.maximumBits[0] = 7;
  Bytes values;
  entry.valueCount = 128;
  EXPECT_EQ(oocpc::DecodeBlock(entry, stored, values), oocpc::result::kOk);
  for (const std::uint32_t count : {0u, 129u, oocpc::kMaximumBlockValues}) {
    entry.valueCount = count;
    EXPECT_EQ(oocpc::DecodeBlock(entry, stored, values), oocpc::result::kBadRecord);
  }
}

}  // namespace
