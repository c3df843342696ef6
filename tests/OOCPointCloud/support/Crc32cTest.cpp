// CRC-32C against the published examples and against a bit-by-bit twin.
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "OOCPointCloud/support/Bytes.h"
#include "OOCPointCloud/support/Crc32cKernels.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint32_t BitByBit(std::span<const std::uint8_t> bytes, std::uint32_t before = 0) {
  std::uint32_t crc = ~before;
  for (const std::uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
  }
  return ~crc;
}

Bytes RandomBytes(std::size_t length, std::mt19937& random) {
  Bytes bytes(length);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

TEST(Crc32c, GivesThePublishedValues) {  // RFC 3720, appendix B.4
  Bytes ascending(32);
  std::iota(ascending.begin(), ascending.end(), std::uint8_t{0});
  const Bytes descending(ascending.rbegin(), ascending.rend());
  EXPECT_EQ(oocpc::Crc32c(Bytes(32, 0x00)), 0x8A9136AAu);
  EXPECT_EQ(oocpc::Crc32c(Bytes(32, 0xFF)), 0x62A8AB43u);
  EXPECT_EQ(oocpc::Crc32c(ascending), 0x46DD794Eu);
  EXPECT_EQ(oocpc::Crc32c(descending), 0x113FDB5Cu);
  const std::string_view digits = "123456789";
  EXPECT_EQ(oocpc::Crc32c(Bytes(digits.begin(), digits.end())), 0xE3069283u);
}

TEST(Crc32c, OfNothingIsWhatWasBefore) {
  EXPECT_EQ(oocpc::Crc32c({}), 0u);
  EXPECT_EQ(oocpc::Crc32c({}, 0x12345678u), 0x12345678u);
}

TEST(Crc32c, GoesOnWhereverABufferIsCut) {
  std::mt19937 random(7);
  const Bytes bytes = RandomBytes(100, random);
  const std::span all(bytes);
  const std::uint32_t whole = oocpc::Crc32c(all);
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    EXPECT_EQ(oocpc::Crc32c(all.subspan(cut), oocpc::Crc32c(all.first(cut))), whole) << cut;
  }
}

TEST(Crc32cKernels, AgreeWithTheBitByBitTwinAtEveryLengthAndAlignment) {
  std::mt19937 random(8);
  const Bytes bytes = RandomBytes(80, random);
  for (std::size_t begin = 0; begin < 9; ++begin) {
    for (std::size_t length = 0; begin + length <= bytes.size(); ++length) {
      const auto part = std::span(bytes).subspan(begin, length);
      const std::uint32_t before = random();
      const std::uint32_t expected = BitByBit(part, before);
      ASSERT_EQ(oocpc::detail::Crc32cByTable(part, before), expected) << begin << ' ' << length;
      if (!oocpc::detail::HasCrc32cInstruction()) continue;
      ASSERT_EQ(oocpc::detail::Crc32cByInstruction(part, before), expected)
          << begin << ' ' << length;
    }
  }
}

TEST(Crc32cKernels, AgreeOnLongBuffers) {
  std::mt19937 random(9);
  const Bytes bytes = RandomBytes(1'000'003, random);
  const std::uint32_t expected = BitByBit(bytes);
  EXPECT_EQ(oocpc::detail::Crc32cByTable(bytes, 0), expected);
  EXPECT_EQ(oocpc::Crc32c(bytes), expected);
}

}  // namespace
