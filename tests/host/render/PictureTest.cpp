// Pictures written as PNG files and read again.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "host/render/Picture.h"
#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
namespace fs = std::filesystem;

Picture RandomPicture(PictureSize size) {
  Picture picture;
  picture.size = size;
  picture.bytes.resize(std::size_t{size.width} * size.height * 3);
  std::mt19937 random(3);
  for (std::uint8_t& byte : picture.bytes) byte = static_cast<std::uint8_t>(random());
  return picture;
}

std::vector<std::uint8_t> BytesOfPng(const oocpctest::TemporaryFolder& folder) {
  EXPECT_TRUE(WritePng(RandomPicture({20, 10}), folder / "made.png").Ok());
  return oocpctest::ReadFile(folder / "made.png");
}

TEST(Png, ComesBackAsItWasWritten) {
  const oocpctest::TemporaryFolder folder;
  for (const PictureSize size : {PictureSize{1, 1}, {37, 21}, {1, 300}, {300, 1}}) {
    const Picture written = RandomPicture(size);
    ASSERT_TRUE(WritePng(written, folder / "picture.png").Ok());
    Picture read;
    ASSERT_TRUE(ReadPng(folder / "picture.png", read).Ok());
    EXPECT_EQ(read.size.width, size.width);
    EXPECT_EQ(read.size.height, size.height);
    EXPECT_EQ(read.bytes, written.bytes);
  }
}

TEST(Png, StatesItsSignatureAndSizeAsTheFormatWants) {
  const oocpctest::TemporaryFolder folder;
  const std::vector<std::uint8_t> bytes = BytesOfPng(folder);
  const std::vector<std::uint8_t> expected{0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0,  13, 'I',
                                           'H',  'D', 'R', 0,   0,  0,  20, 0,  0, 0, 10, 8,  2};
  ASSERT_GE(bytes.size(), expected.size());
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin()));
}

TEST(Png, ReplacesAFileThatIsThere) {
  const oocpctest::TemporaryFolder folder;
  oocpctest::WriteFile(folder / "picture.png", std::vector<std::uint8_t>(100000, 1));
  ASSERT_TRUE(WritePng(RandomPicture({5, 5}), folder / "picture.png").Ok());
  Picture read;
  EXPECT_TRUE(ReadPng(folder / "picture.png", read).Ok());
}

TEST(Png, IsNotRecognisedInOtherFiles) {
  const oocpctest::TemporaryFolder folder;
  Picture picture;
  for (const std::string text : {"", "x", "LASF and so on, which is no picture at all"}) {
    oocpctest::WriteFile(folder / "other.png", std::vector<std::uint8_t>(text.begin(), text.end()));
    const Outcome outcome = ReadPng(folder / "other.png", picture);
    EXPECT_EQ(outcome.code, result::kScanNotRecognised) << text;
    EXPECT_EQ(outcome.where, (folder / "other.png").string());
    EXPECT_FALSE(outcome.what.empty());
  }
  EXPECT_EQ(ReadPng(folder / "absent.png", picture).code, result::kScanNotRecognised);
}

TEST(Png, IsNotRecognisedWhenItIsCutOrAltered) {
  const oocpctest::TemporaryFolder folder;
  const std::vector<std::uint8_t> whole = BytesOfPng(folder);
  Picture picture;
  for (const std::size_t length : {std::size_t{8}, std::size_t{30}, whole.size() / 2}) {
    oocpctest::WriteFile(folder / "cut.png", std::span(whole).first(length));
    EXPECT_EQ(ReadPng(folder / "cut.png", picture).code, result::kScanNotRecognised) << length;
  }
  std::vector<std::uint8_t> altered = whole;
  altered[18] ^= 1;  // in the header, which has a checksum
  oocpctest::WriteFile(folder / "altered.png", altered);
  EXPECT_EQ(ReadPng(folder / "altered.png", picture).code, result::kScanNotRecognised);
}

/// The checksum of a PNG chunk, bit by bit.
std::uint32_t ChunkChecksum(std::span<const std::uint8_t> bytes) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    sum ^= byte;
    for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320 : 0);
  }
  return ~sum;
}

TEST(Png, IsRefusedBeforeMemoryIsTakenWhenItStatesAHugeSize) {
  const oocpctest::TemporaryFolder folder;
  std::vector<std::uint8_t> bytes = BytesOfPng(folder);
  bytes[17] = 1;  // 65,556 pixels wide
  const std::uint32_t sum = ChunkChecksum(std::span(bytes).subspan(12, 17));
  for (std::size_t i = 0; i < 4; ++i)
    bytes[29 + i] = static_cast<std::uint8_t>(sum >> (24 - 8 * i));
  oocpctest::WriteFile(folder / "huge.png", bytes);
  Picture picture;
  EXPECT_EQ(ReadPng(folder / "huge.png", picture).code, result::kPictureRefused);
  EXPECT_TRUE(picture.bytes.empty());
}

TEST(Png, FailsWhereItCannotBeWritten) {
  const oocpctest::TemporaryFolder folder;
  const Picture picture = RandomPicture({5, 5});
  const Outcome outcome = WritePng(picture, folder / "absent" / "picture.png");
  EXPECT_EQ(outcome.code, result::kIoError);
  EXPECT_NE(outcome.where.find("picture.png"), std::string::npos);
  fs::create_directory(folder / "locked");
  fs::permissions(folder / "locked", fs::perms::owner_read | fs::perms::owner_exec);
  {
    const oocpctest::WithoutPrivileges bound;
    if (bound.IsBound()) {
      EXPECT_FALSE(WritePng(picture, folder / "locked" / "picture.png").Ok());
    }
  }
  fs::permissions(folder / "locked", fs::perms::owner_all);
  EXPECT_TRUE(fs::is_empty(folder / "locked"));
}

TEST(Png, CannotBeMadeOfAPictureWithoutPixels) {
  const oocpctest::TemporaryFolder folder;
  Picture picture;
  picture.size = {0, 0};
  EXPECT_FALSE(WritePng(picture, folder / "nothing.png").Ok());
  EXPECT_FALSE(fs::exists(folder / "nothing.png"));
}

}  // namespace
}  // namespace tarnhost
