// What an import that overwrites refuses to take away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/build/Import.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using ::testing::HasSubstr;

Outcome Overwrite(const ScanFolder& folder, const fs::path& input, const fs::path& output = {}) {
  ImportOptions options = folder.Options({input});
  options.overwrite = true;
  if (!output.empty()) options.output = output;
  ImportReport report;
  return ImportScans(options, report);
}

TEST(Overwrite, KeepsARepositoryWithAForeignFileInItsFolder) {
  for (const char* name : {"notes.txt", "DEF_notes.txt", "Main", "main.cpp", ".hidden"}) {
    SCOPED_TRACE(name);
    const ScanFolder folder;
    const auto scan = folder.Add("scan.las", ScanOf(10));
    folder.Import({scan});
    if (fs::exists(folder.Repository() / name)) continue;  // "Main" is "main" here
    oocpctest::WriteFile(folder.Repository() / name, std::vector<std::uint8_t>{1});
    const Outcome outcome = Overwrite(folder, scan);
    EXPECT_EQ(outcome.code, result::kAlreadyExists);
    EXPECT_THAT(outcome.what, HasSubstr(name));
    EXPECT_TRUE(fs::exists(folder.Repository() / name));
    fs::remove(folder.Repository() / name);
    EXPECT_TRUE(IsOk(Overwrite(folder, scan)));
  }
}

TEST(Overwrite, KeepsARepositoryWithAFolderInItsFolder) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  folder.Import({scan});
  fs::create_directory(folder.Repository() / "DEF_FOLDER");
  EXPECT_EQ(Overwrite(folder, scan).code, result::kAlreadyExists);
  EXPECT_TRUE(fs::exists(folder.Repository() / "DEF_FOLDER"));
}

TEST(Overwrite, TakesWhatWritersAndRepairsLeft) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  folder.Import({scan});
  const std::vector<std::string> names{"main.new", "main.copy.new", "main.before-repair-2"};
  for (const std::string& name : names) {
    oocpctest::WriteFile(folder.Repository() / name, std::vector<std::uint8_t>{1});
  }
  EXPECT_TRUE(IsOk(Overwrite(folder, scan)));
  for (const std::string& name : names) EXPECT_FALSE(fs::exists(folder.Repository() / name));
}

/// Where an import leaves what it replaces when it is killed between two renames.
fs::path Aside(const ScanFolder& folder) { return folder / ".cloud.tarn.importing-4711.aside"; }

TEST(Overwrite, PutsBackWhatAKilledOneSetAside) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  folder.Import({scan});
  const std::string before = oocpctest::StateOf(folder.Repository());
  fs::rename(folder.Repository(), Aside(folder));
  std::unique_ptr<Cloud> cloud;
  EXPECT_EQ(Cloud::Open(folder.Repository(), cloud).remedy, "tarn repair puts the repository back");
  ImportReport report;
  EXPECT_EQ(ImportScans(folder.Options({scan}), report).code, result::kAlreadyExists);
  EXPECT_EQ(oocpctest::StateOf(folder.Repository()), before);
  EXPECT_FALSE(fs::exists(Aside(folder)));
}

TEST(Overwrite, RemovesWhatAKilledOneHadReplacedAlready) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  folder.Import({scan});
  fs::rename(folder.Repository(), Aside(folder));
  const auto other = folder.Add("other.las", ScanOf(20));
  ImportOptions options = folder.Options({other});
  options.output = folder / "elsewhere.tarn";
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  fs::rename(options.output, folder.Repository());
  const std::string after = oocpctest::StateOf(folder.Repository());
  ASSERT_TRUE(IsOk(Overwrite(folder, other)));
  EXPECT_FALSE(fs::exists(Aside(folder)));
  EXPECT_EQ(oocpctest::StateOf(folder.Repository()), after);
}

TEST(Overwrite, RefusesASourceInThePlace) {
  const ScanFolder folder;
  const auto outside = folder.Add("scan.las", ScanOf(10));
  folder.Import({outside});
  const fs::path inside = folder.Repository() / "scan.las";
  fs::copy(outside, inside);
  const Outcome outcome = Overwrite(folder, inside);
  EXPECT_EQ(outcome.code, result::kAlreadyExists);
  EXPECT_THAT(outcome.what, HasSubstr("a source lies in the place"));
  EXPECT_EQ(outcome.where, inside.string());
  EXPECT_TRUE(fs::exists(inside));
  // However it is written, and also as a folder of scans.
  EXPECT_THAT(
      Overwrite(folder, folder.Path() / "." / "cloud.tarn" / ".." / "cloud.tarn/scan.las").what,
      HasSubstr("a source lies in the place"));
  EXPECT_THAT(Overwrite(folder, folder.Repository()).what, HasSubstr("a source lies in the place"));
  for (const char* name : {"link.las", "CLOUD.TARN/SCAN.LAS"}) {
    std::error_code ignored;  // a system may know no links, and tell upper from lower case
    fs::create_symlink(inside, folder / "link.las", ignored);
    if (!fs::exists(folder / name)) continue;
    EXPECT_THAT(Overwrite(folder, folder / name).what, HasSubstr("a source lies in the place"));
  }
}

TEST(Overwrite, TakesASourceBesideThePlace) {
  const ScanFolder folder;
  folder.Import({folder.Add("scan.las", ScanOf(10))});
  // Its name begins as the repository's does.
  EXPECT_TRUE(IsOk(Overwrite(folder, folder.Add("cloud.tarn.las", ScanOf(20)))));
}

}  // namespace
}  // namespace tarnhost
