// Mapping files: what is there, what is not, and what is no file.
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using oocpctest::TemporaryFolder;
using oocpctest::WriteFile;
using Source = std::shared_ptr<const OOCPCByteSource>;
using Bytes = std::vector<std::uint8_t>;

TEST(MapFile, GivesTheBytesOfAFile) {
  const TemporaryFolder folder;
  const Bytes bytes{5, 4, 3, 0, 255};
  WriteFile(folder / "file", bytes);
  Source source;
  ASSERT_EQ(OOCPCMapFile(folder / "file", source), oocpc::result::kOk);
  const auto mapped = source->GetBytes();
  EXPECT_EQ(Bytes(mapped.begin(), mapped.end()), bytes);
}

TEST(MapFile, GivesNoBytesOfAnEmptyFile) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", {});
  Source source;
  ASSERT_EQ(OOCPCMapFile(folder / "file", source), oocpc::result::kOk);
  ASSERT_NE(source, nullptr);
  EXPECT_TRUE(source->GetBytes().empty());
}

TEST(MapFile, OutlivesTheFilesName) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", Bytes(10'000, 42));
  Source source;
  ASSERT_EQ(OOCPCMapFile(folder / "file", source), oocpc::result::kOk);
  std::filesystem::remove(folder / "file");
  EXPECT_EQ(source->GetBytes()[9'999], 42);
}

TEST(MapFile, MissesAFileThatIsNotThere) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", {});
  Source source = std::shared_ptr<const OOCPCByteSource>();
  EXPECT_EQ(OOCPCMapFile(folder / "none", source), oocpc::result::kStreamMissing);
  EXPECT_EQ(OOCPCMapFile(folder.Path() / "file" / "inside", source), oocpc::result::kStreamMissing);
  EXPECT_EQ(source, nullptr);
}

TEST(MapFile, RefusesWhatIsNoFile) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder / "folder");
  Source source;
  EXPECT_EQ(OOCPCMapFile(folder / "folder", source), oocpc::result::kIoError);
  if (!oocpctest::MakePipe(folder / "pipe")) GTEST_SKIP() << "files are no pipes here";
  EXPECT_EQ(OOCPCMapFile(folder / "pipe", source), oocpc::result::kIoError);
  std::filesystem::create_symlink(folder / "loop", folder / "loop");
  EXPECT_EQ(OOCPCMapFile(folder / "loop", source), oocpc::result::kIoError);
}

TEST(MapFile, IsDeniedAFileWithoutPermission) {
  const TemporaryFolder folder;
  WriteFile(folder / "file", Bytes{1});
  std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
  std::filesystem::permissions(folder / "file", std::filesystem::perms::none);
  const oocpctest::WithoutPrivileges bound;
  if (!bound.IsBound()) GTEST_SKIP() << "permissions do not bind this process";
  Source source;
  EXPECT_EQ(OOCPCMapFile(folder / "file", source), oocpc::result::kAccessDenied);
}

}  // namespace
