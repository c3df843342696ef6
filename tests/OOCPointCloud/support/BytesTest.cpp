// Reading never passes the end of what it was given, and a seal notices every altered bit.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <limits>

#include "OOCPointCloud/support/Bytes.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using oocpc::ByteReader;

TEST(ByteWriting, PutsTheLeastByteFirst) {
  Bytes out;
  oocpc::AppendLittleEndian(out, std::uint16_t{0x0102});
  oocpc::AppendLittleEndian(out, std::uint32_t{0x03040506});
  oocpc::AppendLittleEndian(out, 1.0);
  EXPECT_EQ(out, (Bytes{2, 1, 6, 5, 4, 3, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(ByteWriting, PutsALengthBeforeATextAndAChecksumBehindTheBytesItCovers) {
  Bytes out{9};
  oocpc::AppendText(out, "ab");
  EXPECT_EQ(out, (Bytes{9, 2, 0, 0, 0, 'a', 'b'}));
  out = {9, '1', '2', '3', '4', '5', '6', '7', '8', '9'};
  oocpc::AppendChecksum(out, 1);
  EXPECT_EQ(Bytes(out.begin() + 10, out.end()), (Bytes{0x83, 0x92, 0x06, 0xE3}));
}

TEST(ByteReading, GivesBackWhatWasWritten) {
  Bytes out;
  oocpc::AppendLittleEndian(out, std::int64_t{-5});
  oocpc::AppendText(out, std::string_view("x\0y", 3));
  oocpc::AppendLittleEndian(out, std::uint8_t{7});
  ByteReader reader(out);
  std::int64_t number = 0;
  std::string text;
  std::span<const std::uint8_t> rest;
  ASSERT_TRUE(reader.Read(number));
  ASSERT_TRUE(reader.ReadText(text));
  EXPECT_EQ(reader.GetRemaining(), 1u);
  ASSERT_TRUE(reader.ReadBytes(1, rest));
  EXPECT_EQ(number, -5);
  EXPECT_EQ(text, std::string("x\0y", 3));
  EXPECT_EQ(rest.front(), 7);
  EXPECT_EQ(reader.GetRemaining(), 0u);
}

TEST(ByteReading, FailsBehindTheEndAndEverAfter) {
  const Bytes bytes{1, 2, 3};
  ByteReader reader(bytes);
  std::uint32_t tooLong = 77;
  std::uint8_t fits = 77;
  EXPECT_FALSE(reader.Read(tooLong));
  EXPECT_FALSE(reader.Read(fits));
  EXPECT_EQ(tooLong, 77u);
  EXPECT_EQ(fits, 77);
}

TEST(ByteReading, RefusesLengthsThatWouldWrap) {
  const Bytes bytes{1, 2, 3};
  ByteReader reader(bytes);
  std::uint8_t first = 0;
  std::span<const std::uint8_t> run;
  ASSERT_TRUE(reader.Read(first));
  EXPECT_FALSE(reader.ReadBytes(std::numeric_limits<std::size_t>::max(), run));
  EXPECT_TRUE(run.empty());
}

TEST(ByteReading, RefusesATextThatAnnouncesMoreThanThereIs) {
  const Bytes bytes{0xFF, 0xFF, 0xFF, 0xFF, 'a'};
  ByteReader reader(bytes);
  std::string text = "kept";
  EXPECT_FALSE(reader.ReadText(text));
  EXPECT_EQ(text, "kept");
}

HRESULT Check(const Bytes& payload, std::span<const std::uint8_t>& content) {
  return oocpc::CheckSealedPayload(payload.data(), static_cast<std::uint32_t>(payload.size()),
                                   content);
}

TEST(SealedPayload, GivesWhatLiesBeforeTheSeal) {
  Bytes payload{1, 2, 3};
  oocpc::AppendChecksum(payload);
  std::span<const std::uint8_t> content;
  ASSERT_EQ(Check(payload, content), oocpc::result::kOk);
  EXPECT_EQ(Bytes(content.begin(), content.end()), (Bytes{1, 2, 3}));
}

TEST(SealedPayload, MayBeEmptyBeforeTheSeal) {
  Bytes payload;
  oocpc::AppendChecksum(payload);
  std::span<const std::uint8_t> content;
  EXPECT_EQ(Check(payload, content), oocpc::result::kOk);
  EXPECT_TRUE(content.empty());
}

TEST(SealedPayload, IsABadRecordWhenItHasNoRoomForASeal) {
  std::span<const std::uint8_t> content;
  EXPECT_EQ(Check({1, 2, 3}, content), oocpc::result::kBadRecord);
  EXPECT_EQ(oocpc::CheckSealedPayload(nullptr, 0, content), oocpc::result::kBadRecord);
}

TEST(SealedPayload, NoticesEveryAlteredBit) {
  Bytes payload{1, 2, 3, 4, 5, 6, 7, 8, 9};
  oocpc::AppendChecksum(payload);
  for (std::size_t bit = 0; bit < 8 * payload.size(); ++bit) {
    Bytes altered = payload;
    altered[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    std::span<const std::uint8_t> content;
    EXPECT_EQ(Check(altered, content), oocpc::result::kChecksumMismatch) << bit;
  }
}

}  // namespace
