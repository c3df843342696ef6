// Files beyond 4 GiB: offsets and lengths that 32 bits do not hold. All but the ends is holes.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include "OOCPointCloud/repository/FileSystem.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using oocpc::detail::AppendFile;
using oocpc::result::kOk;
using oocpctest::TemporaryFolder;
using ByteSource = std::shared_ptr<const OOCPCByteSource>;

constexpr std::uint64_t kFar = (std::uint64_t{1} << 32) + 4099;
const std::vector<std::uint8_t> kHead{1, 2, 3, 4};
const std::vector<std::uint8_t> kTail{9, 8, 7, 6, 5};

std::vector<std::uint8_t> BytesAt(std::span<const std::uint8_t> bytes, std::uint64_t at,
                                  std::size_t count) {
  const auto part = bytes.subspan(static_cast<std::size_t>(at), count);
  return {part.begin(), part.end()};
}

class LargeFiles : public ::testing::Test {
 protected:
  /// A file with bytes at its start, and at an offset beyond 4 GiB.
  void Make() {
    ASSERT_TRUE(oocpctest::MakeSparse(file_));
    AppendFile file;
    ASSERT_EQ(AppendFile::Open(file_, file), kOk);
    ASSERT_EQ(file.Append(kHead), kOk);
    ASSERT_EQ(file.Truncate(kFar), kOk);
    ASSERT_EQ(file.Append(kTail), kOk);
    ASSERT_EQ(file.Sync(), kOk);
    std::uint64_t length = 0;
    ASSERT_EQ(file.GetLength(length), kOk);
    ASSERT_EQ(length, kFar + kTail.size());
  }

  TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "large";
};

TEST_F(LargeFiles, AreAppendedToAndMapped) {
  Make();
  std::uint64_t length = 0;
  EXPECT_EQ(oocpc::detail::GetFileLength(file_, length), kOk);
  EXPECT_EQ(length, kFar + kTail.size());
  ByteSource bytes;
  ASSERT_EQ(OOCPCMapFile(file_, bytes), kOk);
  ASSERT_EQ(bytes->GetBytes().size(), kFar + kTail.size());
  EXPECT_EQ(BytesAt(bytes->GetBytes(), 0, 4), kHead);
  EXPECT_EQ(BytesAt(bytes->GetBytes(), kFar, 5), kTail);
  EXPECT_EQ(bytes->GetBytes()[kFar - 1], 0);
  OOCPCForgetPages(bytes->GetBytes().subspan(kFar - 100));
  EXPECT_EQ(BytesAt(bytes->GetBytes(), kFar, 5), kTail);
}

TEST_F(LargeFiles, AreCutBeyond4GiB) {
  Make();
  AppendFile file;
  ASSERT_EQ(AppendFile::Open(file_, file), kOk);
  ASSERT_EQ(file.Truncate(kFar + 2), kOk);
  ByteSource bytes;
  ASSERT_EQ(OOCPCMapFile(file_, bytes), kOk);
  ASSERT_EQ(bytes->GetBytes().size(), kFar + 2);
  EXPECT_EQ(BytesAt(bytes->GetBytes(), kFar, 2), (std::vector<std::uint8_t>{9, 8}));
}

TEST_F(LargeFiles, AreStreamsOfARepository) {
  Make();
  std::filesystem::rename(file_, folder_ / "DEF_LARGE");
  std::unique_ptr<OOCPCFolderStreamStore> store;
  ASSERT_EQ(OOCPCFolderStreamStore::Open(folder_.Path(), store), kOk);
  ASSERT_EQ(store->Append("DEF_LARGE", kHead), kOk);
  ASSERT_EQ(store->Sync("DEF_LARGE"), kOk);
  std::uint64_t length = 0;
  ASSERT_EQ(store->GetLength("DEF_LARGE", length), kOk);
  EXPECT_EQ(length, kFar + kTail.size() + kHead.size());
  ASSERT_EQ(store->Truncate("DEF_LARGE", kFar), kOk);
  ASSERT_EQ(store->GetLength("DEF_LARGE", length), kOk);
  EXPECT_EQ(length, kFar);
}

}  // namespace
