// The bytes of a whole small main stream, literally.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <numeric>

namespace {

using Bytes = std::vector<std::uint8_t>;

// clang-format off
const Bytes kGolden{
    0x56, 0x71, 0x50, 0x43, 0x01, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B,
    0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17,
    0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23,
    0x24, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B,
    0x3C, 0x3D, 0x3E, 0x3F, 0x40, 0x41, 0x42, 0x00, 0x00, 0x00, 0x10, 0x10,
    0x00, 0x00, 0x00, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8,
    0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF, 0x00, 0x00, 0x00, 0x40, 0x30,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0xBF, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0xBF, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0xF0, 0xBF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0xF0, 0x3F, 0x00, 0x00, 0x01, 0x00, 0x03, 0x00, 0x00, 0x00, 0x07,
    0x08, 0x09, 0x00, 0x00, 0x00, 0x60, 0x48, 0x00, 0x00, 0x00, 0x01, 0x00,
    0x9E, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0x0B, 0xBF, 0x83,
    0x05, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F, 0x01, 0x00, 0x00, 0x00,
    0x67, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x41, 0x02, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xB1, 0xFB, 0x19, 0x65,
};
// clang-format on

TEST(MainStream, HasTheseBytes) {
  OOCPCCatalogue catalogue;
  std::iota(catalogue.header.data5.begin(), catalogue.header.data5.end(), std::uint8_t{5});
  std::iota(catalogue.header.data13.begin(), catalogue.header.data13.end(), std::uint8_t{13});
  std::iota(catalogue.header.data61.begin(), catalogue.header.data61.end(), std::uint8_t{61});
  std::iota(catalogue.identity.begin(), catalogue.identity.end(), std::uint8_t{0xA0});
  catalogue.mortonSeed = {-1, -1, -1, 1, 1, 1};
  catalogue.chunks.emplace_back(oocpc::chunk_type::kAccelerator1, Bytes{7, 8, 9});
  catalogue.information.creationTime = 5;
  catalogue.information.localFrameOffset = {0, 0, 1};
  catalogue.information.generator = "g";
  EXPECT_EQ(OOCPCEncodeMainStream(catalogue, {{"A", 2}}), kGolden);
}

TEST(MainStream, TakesStreamsAndSealFromTheWriterAlone) {
  OOCPCCatalogue catalogue;
  const Bytes plain = OOCPCEncodeMainStream(catalogue, {{"A", 2}});
  catalogue.information.catalogueBytes = 99;
  catalogue.information.catalogueChecksum = 99;
  catalogue.information.streams = {{"B", 3}};
  EXPECT_EQ(OOCPCEncodeMainStream(catalogue, {{"A", 2}}), plain);
}

TEST(MainStream, KeepsTheOrderOfItsChunks) {
  OOCPCCatalogue catalogue;
  catalogue.chunks.emplace_back(9, Bytes{1});
  catalogue.chunks.emplace_back(3, Bytes{});
  const Bytes bytes = OOCPCEncodeMainStream(catalogue, {});
  const Bytes expected{9, 0, 0, 0, 1, 0, 0, 0, 1, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x60};
  constexpr std::ptrdiff_t kChunksBegin = 67 + 8 + 16 + 8 + 48;
  EXPECT_EQ(Bytes(bytes.begin() + kChunksBegin, bytes.begin() + kChunksBegin + 21), expected);
}

TEST(MainStreamDecoding, GivesBackWhatWasEncoded) {
  OOCPCCatalogue catalogue;
  ASSERT_EQ(OOCPCDecodeMainStream(kGolden, catalogue), oocpc::result::kOk);
  EXPECT_EQ(catalogue.header.data13[0], 13);
  EXPECT_EQ(catalogue.identity[15], 0xAF);
  ASSERT_EQ(catalogue.chunks.size(), 1u);
  EXPECT_EQ(catalogue.information.streams.at(0).committedBytes, 2u);
  EXPECT_EQ(OOCPCEncodeMainStream(catalogue, catalogue.information.streams), kGolden);
}

TEST(MainStreamDecoding, RefusesAMainStreamWithAnyByteAlteredOrMissing) {
  for (std::size_t i = 0; i < kGolden.size(); ++i) {
    Bytes altered = kGolden;
    altered[i] ^= 0x10;
    OOCPCCatalogue catalogue;
    EXPECT_LT(OOCPCDecodeMainStream(altered, catalogue), 0) << "byte " << i;
    EXPECT_LT(OOCPCDecodeMainStream(std::span(kGolden).first(i), catalogue), 0) << i << " bytes";
    EXPECT_TRUE(catalogue.chunks.empty());
  }
  Bytes longer = kGolden;
  longer.push_back(0);
  OOCPCCatalogue catalogue;
  EXPECT_EQ(OOCPCDecodeMainStream(longer, catalogue), oocpc::result::kChunkPayloadShort);
}

TEST(MainStreamDecoding, SaysWhatIsWrong) {
  OOCPCCatalogue catalogue;
  Bytes altered = kGolden;
  altered[0] = 'X';
  EXPECT_EQ(OOCPCDecodeMainStream(altered, catalogue), oocpc::result::kBadHeader);
  altered = kGolden;
  altered[20] ^= 1;
  EXPECT_EQ(OOCPCDecodeMainStream(altered, catalogue), oocpc::result::kCatalogueMismatch);
  EXPECT_EQ(OOCPCDecodeMainStream(std::span(kGolden).first(158), catalogue),
            oocpc::result::kNoRepositoryInformation);
  OOCPCCatalogue odd;
  odd.chunks.emplace_back(oocpc::chunk_type::kValue16, Bytes{1});
  EXPECT_EQ(OOCPCDecodeMainStream(OOCPCEncodeMainStream(odd, {}), catalogue),
            oocpc::result::kBadRecord);
}

}  // namespace
