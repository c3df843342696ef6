// The arithmetic coder, its models and the coders built on it, against worked examples.
#include <gtest/gtest.h>

#include <random>

#include "host/formats/laz/ArithmeticDecoder.h"
#include "host/formats/laz/ArithmeticEncoder.h"
#include "host/formats/laz/GpsTimeCoder.h"
#include "host/formats/laz/IntegerCoder.h"
#include "host/formats/laz/RunningMedian.h"

namespace tarnhost::laz {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <typename Encode>
Bytes Encoded(const Encode& encode) {
  ArithmeticEncoder encoder;
  encoder.Start();
  encode(encoder);
  encoder.Finish();
  return encoder.GetBytes();
}

TEST(LazSymbolModel, StartsWithAllSymbolsEquallyLikely) {
  SymbolModel<5> five;
  five.Start<true>(5);
  const std::vector<std::uint32_t> below{0, 6553, 13107, 19660, 26214};
  for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(five.GetBelow(i), below[i]);
  SymbolModel<33> many;
  many.Start<true>(33);
  EXPECT_EQ(many.GetBelow(1), 992u);
  EXPECT_EQ(many.GetBelow(32), 31775u);
}

TEST(LazSymbolModel, LearnsAndGivesTheBytesOfTheFormat) {
  const std::vector<std::uint32_t> symbols{0, 1, 2, 3, 4, 4, 4, 4, 3, 0, 4, 4};
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    SymbolModel<5> model;
    model.Start<false>(5);
    for (const std::uint32_t symbol : symbols) encoder.Symbol(model, symbol);
  });
  EXPECT_EQ(bytes, (Bytes{0x0f, 0xf8, 0x60, 0x70, 0, 0, 0}));
  ArithmeticDecoder decoder(bytes);
  SymbolModel<5> model;
  model.Start<true>(5);
  for (const std::uint32_t symbol : symbols) EXPECT_EQ(decoder.Symbol(model, 0), symbol);
  EXPECT_TRUE(decoder.IsSound());
  EXPECT_EQ(decoder.GetNext(), bytes.data() + bytes.size());
  const std::vector<std::uint32_t> below{0, 6144, 10240, 14336, 20480};
  for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(model.GetBelow(i), below[i]);
}

TEST(LazBitModel, LearnsAndGivesTheBytesOfTheFormat) {
  const std::vector<std::uint32_t> bits{0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0};
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    BitModel model;
    for (const std::uint32_t bit : bits) encoder.Bit(model, bit);
  });
  EXPECT_EQ(bytes, (Bytes{0x61, 0, 0, 0, 0}));
  ArithmeticDecoder decoder(bytes);
  BitModel model;
  for (const std::uint32_t bit : bits) EXPECT_EQ(decoder.Bit(model, 0), bit);
  EXPECT_EQ(model.GetProbabilityOfZero(), 5213u);
}

TEST(LazRawBits, GiveTheBytesOfTheFormat) {
  const std::vector<std::pair<unsigned, std::uint32_t>> numbers{
      {1, 1}, {3, 5}, {19, 300000}, {8, 200}, {16, 54321}, {23, 7654321}, {32, 0xDEADBEEF}};
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    for (const auto& [bits, value] : numbers) encoder.Raw(bits, value);
  });
  EXPECT_EQ(bytes, (Bytes{0xd9, 0x23, 0x2d, 0xaa, 0xdf, 0x8f, 0x65, 0x98, 0x21, 0x12, 0x41, 0x9a,
                          0xf7, 0, 0, 0}));
  ArithmeticDecoder decoder(bytes);
  for (const auto& [bits, value] : numbers) EXPECT_EQ(decoder.Raw(bits, 0), value);
}

TEST(LazIntegers, GiveTheBytesOfTheFormat) {
  const std::vector<std::int32_t> values{
      0, 1, -1, 2, 300, -70000, 2147483647, std::numeric_limits<std::int32_t>::min(), 5};
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    IntegerCoder<32, 2> integers;
    integers.Start<false>();
    for (std::size_t i = 0; i < values.size(); ++i) integers.Code(encoder, 10, values[i], i % 2);
  });
  EXPECT_EQ(bytes, (Bytes{0x21, 0x82, 0xe3, 0x00, 0x60, 0x84, 0xdf, 0xc2, 0xf9, 0x84, 0x8f, 0x76,
                          0x38, 0xcc, 0x9b, 0x92, 0x98, 0x0f, 0x20, 0x39, 0,    0,    0}));
  ArithmeticDecoder decoder(bytes);
  IntegerCoder<32, 2> integers;
  integers.Start<true>();
  const std::vector<std::uint32_t> widths{4, 4, 4, 4, 9, 17, 31, 31, 3};
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(integers.Code(decoder, 10, 0, i % 2), values[i]);
    EXPECT_EQ(integers.GetWidth(), widths[i]);
  }
}

TEST(LazIntegers, WrapAroundIn16Bits) {
  const std::vector<std::pair<std::int32_t, std::int32_t>> steps{
      {0, 65535}, {65535, 0}, {100, 40000}, {0, 32768}, {7, 7}};
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    IntegerCoder<16, 1> integers;
    integers.Start<false>();
    for (const auto& [prediction, value] : steps) integers.Code(encoder, prediction, value);
  });
  EXPECT_EQ(bytes, (Bytes{0x0f, 0x79, 0x60, 0x60, 0x31, 0xc7, 0xac, 0, 0, 0}));
  ArithmeticDecoder decoder(bytes);
  IntegerCoder<16, 1> integers;
  integers.Start<true>();
  for (const auto& [prediction, value] : steps) {
    EXPECT_EQ(integers.Code(decoder, prediction, 0), value);
  }
}

TEST(LazRunningMedian, DropsOneEndOrTheOther) {
  const std::vector<std::pair<int, int>> steps{{5, 0},  {3, 0},  {-2, 0}, {8, 0}, {8, 3}, {1, 3},
                                               {-7, 1}, {-9, 0}, {4, 0},  {4, 1}, {20, 4}};
  RunningMedian median;
  for (const auto& [added, expected] : steps) {
    median.Add(added);
    EXPECT_EQ(median.Get(), expected) << "after " << added;
  }
}

/// Times of all kinds: even steps, multiples, jumps, several sequences, patterns of no number.
std::vector<std::uint64_t> ManyTimes(bool layered) {
  std::mt19937_64 random(3);
  std::vector<std::uint64_t> times;
  std::array<std::uint64_t, 5> sequences{};
  for (auto& sequence : sequences) sequence = random();
  std::uint64_t last = 0;
  for (int i = 0; i < 20000; ++i) {
    std::uint64_t& time = sequences[random() % (i < 5000 ? 1 : 5)];
    switch (random() % 8) {
      case 0:
        time += random() % 100000 - 50000;
        break;
      case 1:
        time += 1000 * (random() % 1200) - 1000 * 600;
        break;
      case 2:
        time += random() % 50 == 0 ? random() : 0;
        break;
      default:
        time += 1000;
    }
    if (layered && time == last) continue;
    times.push_back(last = time);
  }
  return times;
}

template <bool kLayered>
void ExpectTimesSurvive() {
  const std::vector<std::uint64_t> times = ManyTimes(kLayered);
  bool sound = true;
  const Bytes bytes = Encoded([&](ArithmeticEncoder& encoder) {
    GpsTimeCoder<kLayered> coder;
    coder.template Start<false>(0);
    for (const std::uint64_t time : times) coder.Code(encoder, time, sound);
  });
  ArithmeticDecoder decoder(bytes);
  GpsTimeCoder<kLayered> coder;
  coder.template Start<true>(0);
  for (const std::uint64_t time : times) ASSERT_EQ(coder.Code(decoder, 0, sound), time);
  EXPECT_TRUE(sound);
  EXPECT_EQ(decoder.GetNext(), bytes.data() + bytes.size());
}

TEST(LazGpsTimes, SurviveInThePointwiseScheme) { ExpectTimesSurvive<false>(); }
TEST(LazGpsTimes, SurviveInTheLayeredScheme) { ExpectTimesSurvive<true>(); }

TEST(LazDecoder, ReadsNothingBehindItsBytes) {
  // On the heap, so that the address sanitizer sees a byte too many.
  for (std::size_t length = 0; length < 12; ++length) {
    const Bytes bytes(length, 0x5A);
    ArithmeticDecoder decoder(bytes);
    SymbolModel<256> model;
    model.Start<true>(256);
    for (int i = 0; i < 100; ++i) EXPECT_LT(decoder.Symbol(model, 0), 256u);
    EXPECT_FALSE(decoder.IsSound());
  }
}

TEST(LazDecoder, KnowsAValueThatNoEncoderWrites) {
  const Bytes bytes(64, 0xFF);
  const ArithmeticDecoder decoder(bytes);
  EXPECT_FALSE(decoder.IsSound());
}

}  // namespace
}  // namespace tarnhost::laz
