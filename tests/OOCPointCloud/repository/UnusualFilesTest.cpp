// Repositories under names in every script, deep in folders, and with streams beyond 4 GiB.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "OOCPointCloud/repository/FileSystem.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
namespace detail = oocpc::detail;
using Bytes = std::vector<std::uint8_t>;
using oocpc::result::kOk;
using oocpctest::TemporaryFolder;

/// Writes a repository's files into a new folder, reads them back, moves them and removes them.
void ExpectToWorkIn(const fs::path& parent) {
  const fs::path folder = parent / "scan.tarn";
  std::unique_ptr<OOCPCFolderStreamStore> store;
  ASSERT_EQ(OOCPCFolderStreamStore::Create(folder, store), kOk);
  ASSERT_EQ(store->Append("A", Bytes{1, 2}), kOk);
  ASSERT_EQ(store->Append("A", Bytes{3}), kOk);
  ASSERT_EQ(store->Sync("A"), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{4}), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{5}), kOk);
  Bytes main;
  ASSERT_EQ(store->ReadMain(main), kOk);
  EXPECT_EQ(main, (Bytes{5}));
  std::shared_ptr<const OOCPCByteSource> mapped;
  ASSERT_EQ(OOCPCMapFile(folder / "A", mapped), kOk);
  EXPECT_TRUE(std::ranges::equal(mapped->GetBytes(), Bytes{1, 2, 3}));
  mapped.reset();
  store.reset();
  std::vector<fs::path> paths;
  ASSERT_EQ(detail::ListFolder(folder, paths), kOk);
  EXPECT_EQ(paths.size(), 4u) << "A, main, main.copy, writer.lock";
  ASSERT_EQ(detail::MoveFolder(folder, parent / "moved.tarn"), kOk);
  EXPECT_EQ(detail::GetFileKind(folder), detail::FileKind::kNone);
  EXPECT_EQ(detail::GetFileKind(parent / "moved.tarn" / "A"), detail::FileKind::kFile);
  ASSERT_EQ(detail::RemoveFolder(parent / "moved.tarn"), kOk);
  EXPECT_FALSE(detail::IsNameTaken(parent / "moved.tarn"));
}

TEST(UnusualFiles, MayHaveNamesInEveryScript) {
  const TemporaryFolder folder;
  const fs::path parent = folder.Path() / fs::path(u8"Straße Ωμέγα 点群 🌲");
  ASSERT_EQ(detail::MakeFolder(parent), kOk);
  ExpectToWorkIn(parent);
  std::vector<fs::path> paths;
  ASSERT_EQ(detail::ListFolder(folder.Path(), paths), kOk);
  EXPECT_EQ(paths, std::vector<fs::path>{parent});
}

TEST(UnusualFiles, MayLieDeeperThan260Characters) {
  const TemporaryFolder folder;
  fs::path parent = folder.Path();
  const std::string name(60, 'd');
  for (int depth = 0; depth < 6; ++depth) {
    parent /= name;
    ASSERT_EQ(detail::MakeFolder(parent), kOk) << parent;
  }
  ASSERT_GT(parent.native().size(), 360u);
  ExpectToWorkIn(parent);
  EXPECT_EQ(detail::RemoveFolder(folder.Path() / name), kOk);
}

TEST(UnusualFiles, MayBeLargerThanFourGibibytes) {
  constexpr std::uint64_t kLarge = (std::uint64_t{4} << 30) + (1 << 20);
  const TemporaryFolder folder;
  const fs::path path = folder / "large";
  {
    detail::AppendFile file;
    ASSERT_EQ(detail::AppendFile::Open(path, file), kOk);
    ASSERT_EQ(file.Truncate(kLarge), kOk);  // takes no room where files have holes
    ASSERT_EQ(file.Append(Bytes{7, 8, 9}), kOk);
    std::uint64_t length = 0;
    ASSERT_EQ(file.GetLength(length), kOk);
    EXPECT_EQ(length, kLarge + 3);
  }
  std::uint64_t length = 0;
  ASSERT_EQ(detail::GetFileLength(path, length), kOk);
  EXPECT_EQ(length, kLarge + 3);
  std::shared_ptr<const OOCPCByteSource> mapped;
  ASSERT_EQ(OOCPCMapFile(path, mapped), kOk);
  ASSERT_EQ(mapped->GetBytes().size(), kLarge + 3);
  EXPECT_TRUE(std::ranges::equal(mapped->GetBytes().last(4), Bytes{0, 7, 8, 9}));
  EXPECT_EQ(mapped->GetBytes().front(), 0);
}

TEST(UnusualFiles, GoOnBeingReadableWhileTheyGrowAndTheMainStreamIsReplaced) {
  const TemporaryFolder folder;
  std::unique_ptr<OOCPCFolderStreamStore> store;
  ASSERT_EQ(OOCPCFolderStreamStore::Create(folder / "scan.tarn", store), kOk);
  const Bytes large(3 << 20, 6);
  ASSERT_EQ(store->Append("A", large), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{1}), kOk);
  std::shared_ptr<const OOCPCByteSource> main;
  std::shared_ptr<const OOCPCByteSource> stream;
  ASSERT_EQ(OOCPCMapFile(folder / "scan.tarn/main", main), kOk);
  ASSERT_EQ(OOCPCMapFile(folder / "scan.tarn/A", stream), kOk);
  ASSERT_EQ(store->Append("A", Bytes{9}), kOk);
  ASSERT_EQ(store->ReplaceMain(Bytes{2}), kOk);
  EXPECT_TRUE(std::ranges::equal(main->GetBytes(), Bytes{1}));
  EXPECT_TRUE(std::ranges::equal(stream->GetBytes(), large));
  EXPECT_EQ(oocpctest::ReadFile(folder / "scan.tarn/main"), (Bytes{2}));
}

}  // namespace
