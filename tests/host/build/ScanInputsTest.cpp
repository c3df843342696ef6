// Which scans the inputs of an import or an append name.
#include <gtest/gtest.h>

#include <string>

#include "host/build/ScanInputs.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/System.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;

using Names = std::vector<std::string>;

/// Names, relative to the folder, of the scans that inputs name.
Names NamesOf(const ScanFolder& folder, const std::vector<fs::path>& inputs) {
  std::vector<fs::path> files;
  EXPECT_TRUE(IsOk(ListScans(inputs, files)));
  Names names;
  for (const fs::path& file : files)
    names.push_back(file.lexically_relative(folder.Path()).generic_string());
  return names;
}

TEST(ScanInputs, TakeTheScansOfAFolderInTheOrderOfTheirNames) {
  const ScanFolder folder;
  fs::create_directory(folder / "tiles");
  for (const char* name : {"tiles/c.las", "tiles/a.LAZ", "tiles/b.Las", "tiles/readme.txt",
                           "tiles/._a.laz", "tiles/las"}) {
    folder.Add(name, {1});
  }
  fs::create_directory(folder / "tiles/deeper.las");
  folder.Add("tiles/deeper.las/x.las", {1});
  EXPECT_EQ(NamesOf(folder, {folder / "tiles"}),
            (Names{"tiles/a.LAZ", "tiles/b.Las", "tiles/c.las"}));
}

TEST(ScanInputs, KeepTheOrderOfFilesAndFoldersNamed) {
  const ScanFolder folder;
  fs::create_directory(folder / "tiles");
  folder.Add("tiles/a.las", {1});
  folder.Add("z.las", {1});
  EXPECT_EQ(NamesOf(folder, {folder / "z.las", folder / "tiles/", folder / "y.las"}),
            (Names{"z.las", "tiles/a.las", "y.las"}));
}

TEST(ScanInputs, RefuseAFolderWithoutScans) {
  const ScanFolder folder;
  fs::create_directory(folder / "tiles");
  folder.Add("tiles/readme.txt", {1});
  std::vector<fs::path> files;
  const Outcome outcome = ListScans({folder / "tiles"}, files);
  EXPECT_EQ(outcome.code, result::kScanNotRecognised);
  EXPECT_EQ(outcome.what, "the folder holds no scan");
  EXPECT_EQ(outcome.where, (folder / "tiles").string());
}

TEST(ScanInputs, SayThatARepositoryIsNoFolderOfScans) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(3));
  std::vector<fs::path> files;
  const Outcome outcome = ListScans({folder.Repository()}, files);
  EXPECT_EQ(outcome.code, result::kScanNotRecognised);
  EXPECT_EQ(outcome.what, "this is a repository, not a folder of scans");
}

TEST(ScanInputs, TellAFolderThatMayNotBeRead) {
  const ScanFolder folder;
  fs::create_directory(folder / "tiles");
  fs::permissions(folder.Path(), fs::perms::all);
  fs::permissions(folder / "tiles", fs::perms::none);
  {
    const oocpctest::WithoutPrivileges user;
    if (!user.IsBound()) GTEST_SKIP() << "permissions bind nobody here";
    std::vector<fs::path> files;
    EXPECT_EQ(ListScans({folder / "tiles"}, files).code, result::kAccessDenied);
  }
  fs::permissions(folder / "tiles", fs::perms::owner_all);
}

TEST(ScanInputs, RefuseToBeNone) {
  std::vector<fs::path> files;
  EXPECT_EQ(ListScans({}, files).code, result::kScanNotRecognised);
}

TEST(ScanInputs, AreImportedAsOneCloud) {
  const ScanFolder folder;
  fs::create_directory(folder / "tiles");
  folder.Add("tiles/b.las", ScanOf(20));
  folder.Add("tiles/a.las", ScanOf(10));
  const ImportReport report = folder.Import({folder / "tiles"});
  EXPECT_EQ(report.pointCount, 30u);
  EXPECT_EQ(report.scanCount, 2u);
  EXPECT_EQ(folder.Open()->GetSources()[0].fileName, "a.las");
}

}  // namespace
}  // namespace tarnhost
