// Which encoding a block gets, its stored bytes, and its minimum and maximum.
#include <OOCPointCloud/ColumnBlocks.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::BlockEncoding;
using oocpc::ColumnType;
using oocpc::EncodeBlock;
using oocpc::EncodedBlock;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::BytesOf;
using oocpctest::ValuesAsBytes;

std::uint64_t DoubleBits(double value) { return std::bit_cast<std::uint64_t>(value); }

std::vector<std::uint32_t> RandomNumbers(std::size_t count, std::uint32_t below) {
  std::mt19937 random(7);
  std::vector<std::uint32_t> values(count);
  for (auto& value : values) value = random() % below;
  return values;
}

TEST(BlockEncodingChoice, StoresOneValueThatAllPointsShareOnce) {
  const EncodedBlock block =
      EncodeBlock({ValueType::kInt16, 1}, ValuesAsBytes<std::int16_t>({-2, -2, -2}));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kConstant);
  EXPECT_EQ(block.bytes, BytesOf("FE FF"));
  EXPECT_EQ(block.entry.valueCount, 3u);
}

TEST(BlockEncodingChoice, TreatsASingleValueAsConstant) {
  const EncodedBlock block = EncodeBlock({ValueType::kDouble, 3}, ValuesAsBytes({1.0, 2.0, 3.0}));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kConstant);
  EXPECT_EQ(block.bytes, ValuesAsBytes({1.0, 2.0, 3.0}));
}

TEST(BlockEncodingChoice, TellsMinusZeroFromZero) {
  const EncodedBlock block =
      EncodeBlock({ValueType::kFloat, 1}, ValuesAsBytes({0.0f, -0.0f, 0.0f}));
  EXPECT_NE(block.entry.encoding, BlockEncoding::kConstant);
}

TEST(BlockEncodingChoice, StoresNothingForNoValues) {
  const EncodedBlock block = EncodeBlock({ValueType::kDouble, 3}, {});
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kRaw);
  EXPECT_TRUE(block.bytes.empty());
  EXPECT_EQ(block.entry.valueCount, 0u);
  EXPECT_EQ(block.entry.minimumBits, (std::array<std::uint64_t, 3>{}));
}

TEST(BlockEncodingChoice, PacksOffsetsFromTheMinimumLowBitsFirst) {
  // Offsets 0 2 5 7 1 in three bits each: 0 | 2<<3 | 5<<6 | 7<<9 | 1<<12.
  const EncodedBlock block =
      EncodeBlock({ValueType::kInt8, 1}, ValuesAsBytes<std::int8_t>({-3, -1, 2, 4, -2}));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kBitPacked);
  EXPECT_EQ(block.bytes, BytesOf("50 1F"));
}

TEST(BlockEncodingChoice, PacksEachComponentByItself) {
  // The first component needs one bit a value, the second none.
  const EncodedBlock block =
      EncodeBlock({ValueType::kUInt16, 2}, ValuesAsBytes<std::uint16_t>({8, 500, 9, 500, 9, 500}));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kBitPacked);
  EXPECT_EQ(block.bytes, BytesOf("06"));
}

TEST(BlockEncodingChoice, KeepsValuesRawWhenNothingIsSaved) {
  const EncodedBlock integers =
      EncodeBlock({ValueType::kUInt8, 1}, ValuesAsBytes<std::uint8_t>({0, 255, 7}));
  EXPECT_EQ(integers.entry.encoding, BlockEncoding::kRaw);
  EXPECT_EQ(integers.bytes, BytesOf("00 FF 07"));
  std::mt19937_64 random(3);
  const Bytes noise = oocpctest::RandomBytes(random, 8000);
  EXPECT_EQ(EncodeBlock({ValueType::kDouble, 1}, noise).bytes, noise);
}

TEST(BlockEncodingChoice, PrefersLightPackingToAHeavyEncodingThatSavesLittle) {
  // Ten random bits a value: zstd can't do better than packing them.
  const EncodedBlock block =
      EncodeBlock({ValueType::kUInt32, 1}, ValuesAsBytes(RandomNumbers(10000, 1024)));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kBitPacked);
  EXPECT_EQ(block.bytes.size(), 12500u);
}

TEST(BlockEncodingChoice, TakesResidualsForATimeThatRises) {
  std::vector<double> times;
  for (int i = 0; i < 16384; ++i) times.push_back(3.1e8 + i * 1.0 / 1024);
  const EncodedBlock block = EncodeBlock({ValueType::kDouble, 1}, ValuesAsBytes(times));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kResiduals);
  EXPECT_LT(block.bytes.size(), 300u) << "all steps are the same";
}

TEST(BlockEncodingChoice, TakesRunsWhereNeighboursAreAlikeButNotPredictable) {
  // Eight random bits upon a level that changes with each run of 128.
  std::vector<std::uint32_t> values = RandomNumbers(16384, 256);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] += static_cast<std::uint32_t>(i / 128 * 7919 % 128 * 1000);
  }
  const EncodedBlock block = EncodeBlock({ValueType::kUInt32, 1}, ValuesAsBytes(values));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kRuns);
  EXPECT_EQ(block.bytes.size(), 128u * (1 + 4 + 128));
}

TEST(BlockEncodingChoice, TakesShuffledBytesWhereFarNeighboursRepeat) {
  // Random patterns of numbers from 1 to 2, and the same again three times: neither decimal nor
  // near their neighbours, and too many for a dictionary.
  std::vector<double> values(16384);
  std::mt19937_64 random(8);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::uint64_t pattern = 0x3FF0000000000000u | random() >> 12;
    values[i] = i < 4096 ? std::bit_cast<double>(pattern) : values[i - 4096];
  }
  const EncodedBlock block = EncodeBlock({ValueType::kDouble, 1}, ValuesAsBytes(values));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kShuffleZstd);
  EXPECT_LT(block.bytes.size(), 4096u * 8);
}

TEST(BlockEncodingChoice, TakesDeltasWhereStepsRepeatFarAway) {
  // Random steps of 64 bits, and the same again, from another start each time.
  std::vector<std::uint64_t> steps(4096);
  std::mt19937_64 random(9);
  for (std::uint64_t& step : steps) step = random();
  std::vector<std::uint64_t> values;
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < 16384; ++i) values.push_back(value += steps[i % steps.size()]);
  const EncodedBlock block = EncodeBlock({ValueType::kUInt64, 1}, ValuesAsBytes(values));
  EXPECT_EQ(block.entry.encoding, BlockEncoding::kDeltaShuffleZstd);
}

TEST(BlockEncodingChoice, StaysLightWhenAskedToWhateverIsSaved) {
  // Next to no entropy, and yet a value that takes all bits in every run of 128.
  std::vector<std::uint16_t> values(16384, 1);
  for (std::size_t i = 0; i < values.size(); i += 64) values[i] = i % 128 == 0 ? 0 : 255;
  const Bytes bytes = ValuesAsBytes(values);
  const ColumnType type{ValueType::kUInt16, 1};
  const EncodedBlock small = EncodeBlock(type, bytes);
  EXPECT_EQ(small.entry.encoding, BlockEncoding::kResiduals);
  EXPECT_LT(small.bytes.size(), values.size() / 8);
  const EncodedBlock light = EncodeBlock(type, bytes, oocpc::BlockEncodings::kLight);
  EXPECT_EQ(light.entry.encoding, BlockEncoding::kBitPacked);
  Bytes back;
  ASSERT_EQ(DecodeBlock(light.entry, light.bytes, back), oocpc::result::kOk);
  EXPECT_EQ(back, bytes);
}

TEST(BlockEncodingChoice, NeverStoresMoreThanTheRawBytes) {
  std::mt19937_64 random(11);
  for (std::size_t count = 1; count < 200; ++count) {
    const Bytes values = oocpctest::RandomBytes(random, count * 4);
    EXPECT_LE(EncodeBlock({ValueType::kUInt32, 1}, values).bytes.size(), values.size());
  }
}

TEST(BlockEncodingChoice, GivesTheSameBytesForTheSameInput) {
  const Bytes values = ValuesAsBytes(RandomNumbers(5000, 100));
  const EncodedBlock first = EncodeBlock({ValueType::kUInt32, 1}, values);
  // Something else in between, through the same thread's compressor.
  const Bytes others = ValuesAsBytes(RandomNumbers(7000, 3));
  EXPECT_NE(EncodeBlock({ValueType::kUInt16, 1}, others).bytes, first.bytes);
  EXPECT_EQ(EncodeBlock({ValueType::kUInt32, 1}, values).bytes, first.bytes);
}

TEST(BlockEncodingChoice, SealsTheStoredBytes) {
  const EncodedBlock block =
      EncodeBlock({ValueType::kUInt32, 1}, ValuesAsBytes(RandomNumbers(100, 9)));
  EXPECT_EQ(block.entry.dataChecksum, oocpc::Crc32c(block.bytes));
  EXPECT_EQ(block.entry.storedBytes, block.bytes.size());
  EXPECT_EQ(block.entry.offsetBytes, 0u);
}

TEST(BlockRange, WidensSignedIntegersWithTheirSign) {
  const EncodedBlock block =
      EncodeBlock({ValueType::kInt8, 2}, ValuesAsBytes<std::int8_t>({-128, 5, 127, 3}));
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.minimumBits[0]), -128);
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.maximumBits[0]), 127);
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.minimumBits[1]), 3);
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.maximumBits[1]), 5);
  EXPECT_EQ(block.entry.maximumBits[2], 0u);
}

TEST(BlockRange, CoversTheWholeOf64BitIntegers) {
  const auto least = std::numeric_limits<std::int64_t>::min();
  const auto most = std::numeric_limits<std::int64_t>::max();
  const EncodedBlock block = EncodeBlock({ValueType::kInt64, 1}, ValuesAsBytes({most, least}));
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.minimumBits[0]), least);
  EXPECT_EQ(static_cast<std::int64_t>(block.entry.maximumBits[0]), most);
  const EncodedBlock large =
      EncodeBlock({ValueType::kUInt64, 1}, ValuesAsBytes<std::uint64_t>({~0ull, 1}));
  EXPECT_EQ(large.entry.minimumBits[0], 1u);
  EXPECT_EQ(large.entry.maximumBits[0], ~0ull);
}

TEST(BlockRange, LeavesNansOutAndSaysSo) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const EncodedBlock block =
      EncodeBlock({ValueType::kDouble, 1}, ValuesAsBytes({nan, 2.0, nan, -7.5}));
  EXPECT_TRUE(block.entry.hasNan);
  EXPECT_EQ(block.entry.minimumBits[0], DoubleBits(-7.5));
  EXPECT_EQ(block.entry.maximumBits[0], DoubleBits(2.0));
}

TEST(BlockRange, OfNansAloneIsEmpty) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const EncodedBlock block = EncodeBlock({ValueType::kFloat, 1}, ValuesAsBytes({nan, nan}));
  EXPECT_TRUE(block.entry.hasNan);
  EXPECT_EQ(block.entry.minimumBits[0], DoubleBits(std::numeric_limits<double>::infinity()));
  EXPECT_EQ(block.entry.maximumBits[0], DoubleBits(-std::numeric_limits<double>::infinity()));
}

TEST(BlockRange, HasInfinitiesLikeOtherNumbers) {
  const float infinity = std::numeric_limits<float>::infinity();
  const EncodedBlock block =
      EncodeBlock({ValueType::kFloat, 1}, ValuesAsBytes({infinity, -infinity, 1.0f}));
  EXPECT_FALSE(block.entry.hasNan);
  EXPECT_EQ(block.entry.minimumBits[0], DoubleBits(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(block.entry.maximumBits[0], DoubleBits(std::numeric_limits<double>::infinity()));
}

TEST(BlockRange, WidensFloatsToDoubles) {
  const EncodedBlock block = EncodeBlock({ValueType::kFloat, 1}, ValuesAsBytes({0.1f, 0.2f}));
  EXPECT_FALSE(block.entry.hasNan);
  EXPECT_EQ(block.entry.minimumBits[0], DoubleBits(static_cast<double>(0.1f)));
  EXPECT_EQ(block.entry.maximumBits[0], DoubleBits(static_cast<double>(0.2f)));
}

}  // namespace
