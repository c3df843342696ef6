// Whatever goes into a block comes out of it bit for bit, for every type and every kind of data.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

#include "tests/support/ColumnValues.h"

namespace {

using oocpc::BlockEncoding;
using oocpc::BlockEntry;
using oocpc::ColumnType;
using oocpc::EncodedBlock;
using oocpc::ValueType;
using oocpctest::Bytes;
namespace result = oocpc::result;

constexpr ValueType kAllTypes[] = {ValueType::kUInt8,  ValueType::kInt8,   ValueType::kUInt16,
                                   ValueType::kInt16,  ValueType::kUInt32, ValueType::kInt32,
                                   ValueType::kUInt64, ValueType::kInt64,  ValueType::kFloat,
                                   ValueType::kDouble, ValueType::kString};

// One component as plainly as can be: a 64-bit integer, or a double.
struct PlainNumber {
  bool isFloating = false;
  bool isSigned = false;
  std::uint64_t bits = 0;
  double number = 0;
};

PlainNumber ReadPlainly(ValueType type, const std::uint8_t* at) {
  const std::uint32_t width = oocpc::ComponentBytes(type);
  std::uint64_t bits = 0;
  for (std::uint32_t i = 0; i < width; ++i) bits |= std::uint64_t{at[i]} << (8 * i);
  if (type == ValueType::kFloat) {
    return {true, true, 0, std::bit_cast<float>(static_cast<std::uint32_t>(bits))};
  }
  if (type == ValueType::kDouble) return {true, true, 0, std::bit_cast<double>(bits)};
  const bool isSigned = type == ValueType::kInt8 || type == ValueType::kInt16 ||
                        type == ValueType::kInt32 || type == ValueType::kInt64;
  if (isSigned && width < 8 && (bits >> (width * 8 - 1)) != 0)
    bits |= ~std::uint64_t{0} << (width * 8);
  return {false, isSigned, bits, 0};
}

bool IsBelow(const PlainNumber& a, const PlainNumber& b) {
  if (a.isFloating) return a.number < b.number;
  if (a.isSigned) return static_cast<std::int64_t>(a.bits) < static_cast<std::int64_t>(b.bits);
  return a.bits < b.bits;
}

PlainNumber FromEntry(ValueType type, std::uint64_t bits) {
  const bool isFloating = type == ValueType::kFloat || type == ValueType::kDouble;
  const std::uint8_t zeros[8]{};
  return {isFloating, ReadPlainly(type, zeros).isSigned, bits, std::bit_cast<double>(bits)};
}

// No value lies outside the range, and both ends are reached.
void ExpectExactRange(ColumnType type, const Bytes& values, const BlockEntry& entry) {
  const std::uint32_t width = oocpc::ComponentBytes(type.value);
  bool sawNan = false;
  for (std::size_t component = 0; component < type.components; ++component) {
    const PlainNumber least = FromEntry(type.value, entry.minimumBits[component]);
    const PlainNumber greatest = FromEntry(type.value, entry.maximumBits[component]);
    bool reachedLeast = false;
    bool reachedGreatest = false;
    bool onlyNans = true;
    for (std::size_t at = component * width; at < values.size(); at += oocpc::ValueBytes(type)) {
      const PlainNumber value = ReadPlainly(type.value, values.data() + at);
      if (value.isFloating && std::isnan(value.number)) {
        sawNan = true;
        continue;
      }
      onlyNans = false;
      ASSERT_FALSE(IsBelow(value, least));
      ASSERT_FALSE(IsBelow(greatest, value));
      reachedLeast |= !IsBelow(least, value);
      reachedGreatest |= !IsBelow(value, greatest);
    }
    if (!onlyNans) {
      EXPECT_TRUE(reachedLeast);
      EXPECT_TRUE(reachedGreatest);
    }
  }
  EXPECT_EQ(entry.hasNan, sawNan);
}

EncodedBlock ExpectRoundTrip(ColumnType type, const Bytes& values) {
  const EncodedBlock block = oocpc::EncodeBlock(type, values);
  Bytes back{9, 9, 9};
  EXPECT_EQ(oocpc::DecodeBlock(block.entry, block.bytes, back), result::kOk)
      << oocpc::ValueTypeName(type.value) << " x " << int{type.components};
  EXPECT_EQ(back, values) << oocpc::ValueTypeName(type.value) << " x " << int{type.components};
  return block;
}

// Kinds of data that lead to different encodings.
enum class Kind {
  kNoise,
  kFewBits,
  kConstant,
  kRising,
  kTwoValues,
  kLevels,   // noise of eight bits upon a level that jumps every 128 values
  kRepeats,  // full-width noise, a quarter of the block, then the same again: only zstd sees it
  kRepeatedSteps  // likewise, but of differences
};
constexpr Kind kKinds[] = {Kind::kNoise,     Kind::kFewBits, Kind::kConstant, Kind::kRising,
                           Kind::kTwoValues, Kind::kLevels,  Kind::kRepeats,  Kind::kRepeatedSteps};

Bytes MakeValues(Kind kind, ColumnType type, std::size_t count, std::mt19937_64& random) {
  const std::uint32_t width = oocpc::ComponentBytes(type.value);
  if (kind == Kind::kNoise) return oocpctest::RandomBytes(random, count * oocpc::ValueBytes(type));
  const std::uint64_t base = random();
  const std::uint64_t other = random();
  const std::uint64_t mask = (std::uint64_t{1} << (random() % (width * 8))) - 1;
  Bytes values;
  std::uint64_t rising = base;
  std::vector<std::uint64_t> noise(count * type.components / 4 + 1);
  for (std::uint64_t& number : noise) number = random();
  for (std::size_t i = 0; i < count * type.components; ++i) {
    std::uint64_t value = base;
    if (kind == Kind::kFewBits) value = base + (random() & mask);
    if (kind == Kind::kRising) value = rising += random() % 5;
    if (kind == Kind::kTwoValues) value = random() % 2 == 0 ? base : other;
    const std::uint64_t level = noise[i / (128 * type.components)];
    if (kind == Kind::kLevels) value = (level & 0x7F00) + random() % 256;
    if (kind == Kind::kRepeats) value = noise[i % noise.size()];
    if (kind == Kind::kRepeatedSteps) value = rising += noise[i % noise.size()];
    const std::size_t at = values.size();
    values.resize(at + width);
    std::memcpy(values.data() + at, &value, width);
  }
  return values;
}

TEST(BlockRoundTrip, HoldsForEveryTypeAndKindOfData) {
  std::mt19937_64 random(20240501);
  std::set<BlockEncoding> met;
  for (const ValueType value : kAllTypes) {
    for (std::uint8_t components = 1; components <= 3; ++components) {
      const ColumnType type{value, components};
      for (const Kind kind : kKinds) {
        for (const std::size_t count : {1u, 2u, 7u, 64u, 1000u, 4099u}) {
          const Bytes values = MakeValues(kind, type, count, random);
          const EncodedBlock block = ExpectRoundTrip(type, values);
          ExpectExactRange(type, values, block.entry);
          met.insert(block.entry.encoding);
        }
      }
    }
  }
  EXPECT_EQ(met.size(), 7u) << "every encoding takes part";
}

TEST(BlockRoundTrip, HoldsForEveryPackedWidthUpTo64Bits) {
  std::mt19937_64 random(5);
  for (unsigned bits = 1; bits <= 63; ++bits) {
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    for (const std::size_t count : {2u, 9u, 63u, 130u}) {
      std::vector<std::uint64_t> values{0, mask};
      while (values.size() < count) values.push_back(random() & mask);
      for (auto& value : values) value += 0x8000000000000000u - mask;
      const Bytes bytes = oocpctest::ValuesAsBytes(values);
      const EncodedBlock block = ExpectRoundTrip({ValueType::kUInt64, 1}, bytes);
      if (block.entry.encoding == BlockEncoding::kBitPacked) {
        EXPECT_EQ(block.bytes.size(), (count * bits + 7) / 8);
      }
      ExpectRoundTrip({ValueType::kInt64, 1}, bytes);
    }
  }
}

TEST(BlockRoundTrip, HoldsAtTheEndsOf64BitIntegers) {
  const auto least = std::numeric_limits<std::int64_t>::min();
  const auto most = std::numeric_limits<std::int64_t>::max();
  ExpectRoundTrip({ValueType::kInt64, 1}, oocpctest::ValuesAsBytes({least, most}));
  ExpectRoundTrip({ValueType::kInt64, 1},
                  oocpctest::ValuesAsBytes({least, std::int64_t{0}, most, least}));
  ExpectRoundTrip({ValueType::kInt64, 1}, oocpctest::ValuesAsBytes({least, least + 1}));
  ExpectRoundTrip({ValueType::kUInt64, 1},
                  oocpctest::ValuesAsBytes<std::uint64_t>({~0ull, ~0ull - 3}));
}

TEST(BlockRoundTrip, KeepsNanPayloadsAndMinusZero) {
  const std::vector<std::uint64_t> patterns{0x7FF8000000000001,
                                            0xFFF123456789ABCD,
                                            0x8000000000000000,
                                            0,
                                            0x7FF0000000000000,
                                            0xFFF0000000000000,
                                            1};
  const EncodedBlock mixed =
      ExpectRoundTrip({ValueType::kDouble, 1}, oocpctest::ValuesAsBytes(patterns));
  EXPECT_TRUE(mixed.entry.hasNan);
  for (const std::uint64_t pattern : patterns) {
    const std::vector<std::uint64_t> same(100, pattern);
    const EncodedBlock block =
        ExpectRoundTrip({ValueType::kDouble, 1}, oocpctest::ValuesAsBytes(same));
    EXPECT_EQ(block.entry.encoding, BlockEncoding::kConstant);
  }
}

TEST(BlockRoundTrip, HoldsForNoValues) {
  for (const ValueType value : kAllTypes) ExpectRoundTrip({value, 3}, {});
}

TEST(BlockRoundTrip, HoldsOnSeveralThreadsAtOnce) {
  const auto work = [](std::uint64_t seed) {
    std::mt19937_64 random(seed);
    for (int i = 0; i < 20; ++i) {
      ExpectRoundTrip({ValueType::kDouble, 2},
                      MakeValues(Kind::kRising, {ValueType::kDouble, 2}, 3000, random));
    }
  };
  std::thread first(work, 1);
  std::thread second(work, 2);
  first.join();
  second.join();
}

}  // namespace
