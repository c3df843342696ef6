// Folders and files under long names and in any script; and when two paths are one.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include "OOCPointCloud/repository/FileSystem.h"
#include "tests/support/SmallRepository.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using namespace oocpc::detail;
using oocpctest::TemporaryFolder;

const fs::path kName = u8"Straße 点群 облако é";

/// A folder whose path has more than 260 characters, and more than 260 bytes in any encoding.
class LongPaths : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 12; ++i) {
      deep_ /= fs::path(u8"ordner-Ωμέγα-フォルダ-" + std::u8string(8, 'x'));
      ASSERT_EQ(MakeFolder(deep_), result::kOk) << i;
    }
    ASSERT_GT(deep_.native().size(), 300u);
  }

  TemporaryFolder folder_;
  fs::path deep_ = folder_.Path();
};

TEST_F(LongPaths, HoldFilesThatAreWrittenReplacedListedAndRemoved) {
  const std::vector<std::uint8_t> bytes{1, 2, 3};
  {
    AppendFile file;
    ASSERT_EQ(AppendFile::Open(deep_ / kName, file), result::kOk);
    ASSERT_EQ(file.Append(bytes), result::kOk);
    ASSERT_EQ(file.Sync(), result::kOk);
  }
  ASSERT_EQ(SyncFolder(deep_), result::kOk);
  const fs::path other = deep_ / "other";
  ASSERT_EQ(ReplaceFile(deep_ / kName, other), result::kOk);
  EXPECT_EQ(GetFileKind(deep_ / kName), FileKind::kNone);
  EXPECT_EQ(GetOwnKind(other), FileKind::kFile);
  std::vector<std::uint8_t> read;
  EXPECT_EQ(ReadWholeFile(other, read), result::kOk);
  EXPECT_EQ(read, bytes);
  std::shared_ptr<const OOCPCByteSource> mapped;
  ASSERT_EQ(OOCPCMapFile(other, mapped), result::kOk);
  EXPECT_EQ(mapped->GetBytes().size(), 3u);
  std::vector<fs::path> paths;
  EXPECT_EQ(ListFolder(deep_, paths), result::kOk);
  EXPECT_EQ(paths, std::vector<fs::path>{other});
  std::uint64_t free = 0;
  EXPECT_EQ(GetFreeBytes(deep_, free), result::kOk);
  EXPECT_GT(free, 0u);
  EXPECT_EQ(RemoveFile(other), result::kOk);
  EXPECT_EQ(GetFileKind(other), FileKind::kNone);
  EXPECT_EQ(RemoveFolder(folder_.Path()), result::kOk) << "with all that is in it";
  EXPECT_FALSE(IsNameTaken(folder_.Path()));
}

TEST_F(LongPaths, HoldRepositories) {
  const fs::path place = deep_ / kName;
  {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    ASSERT_EQ(OOCPCFolderStreamStore::Create(place, store), result::kOk);
    std::unique_ptr<OOCPCFolderStreamStore> second;
    EXPECT_EQ(OOCPCFolderStreamStore::Open(place, second), result::kBeingWritten);
    OOCPCRepositoryWriter writer(std::move(store));
    std::uint64_t position = 0;
    ASSERT_EQ(writer.Append("DEF_X", std::vector<std::uint8_t>(100, 7), position), result::kOk);
    ASSERT_EQ(writer.Commit(oocpctest::SmallCatalogue()), result::kOk);
  }
  const fs::path moved = deep_ / "moved";
  ASSERT_EQ(MoveFolder(place, moved), result::kOk);
  std::unique_ptr<OOCPCFolderRepository> repository;
  ASSERT_EQ(OOCPCFolderRepository::Open(moved, repository), result::kOk);
  EXPECT_EQ(oocpctest::CheckRepository(*repository), result::kOk);
}

/// What paths become when they are resolved.
fs::path Resolved(const fs::path& path) {
  fs::path resolved;
  EXPECT_EQ(ResolvePath(path, resolved), result::kOk) << path;
  return resolved;
}

TEST_F(LongPaths, AreResolved) {
  ASSERT_EQ(MakeFolder(deep_ / kName), result::kOk);
  const fs::path resolved = Resolved(deep_ / kName);
  EXPECT_TRUE(resolved.is_absolute());
  EXPECT_EQ(Resolved(deep_ / "." / kName / ".." / kName), resolved);
  EXPECT_EQ(Resolved(deep_ / kName / "absent" / "file"), resolved / "absent" / "file");
  EXPECT_EQ(Resolved(deep_ / kName / "absent").lexically_relative(Resolved(deep_)),
            kName / "absent");
}

TEST(ResolvePath, KnowsRelativePaths) {
  EXPECT_EQ(Resolved("absent"), Resolved(fs::current_path()) / "absent");
}

TEST(ResolvePath, FollowsLinks) {
  const TemporaryFolder folder;
  ASSERT_EQ(MakeFolder(folder / "there"), result::kOk);
  std::error_code error;
  fs::create_directory_symlink(folder / "there", folder / "link", error);
  if (error) GTEST_SKIP() << "no links can be made here";
  EXPECT_EQ(Resolved(folder / "link" / "file"), Resolved(folder / "there") / "file");
  EXPECT_EQ(GetFileKind(folder / "link"), FileKind::kFolder);
  EXPECT_EQ(GetOwnKind(folder / "link"), FileKind::kOther);
}

}  // namespace
