// Every file of the real scans: each one is imported, sound, exported and the same again, or it is
// broken by intent and refused with a reason.
#include <gtest/gtest.h>

#include <map>

#include "host/cloud/Checksums.h"
#include "host/cloud/Export.h"
#include "host/cloud/Verify.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/ScanSums.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::SumsOf;

/// Broken by intent, and what is said of them.
const std::map<std::string, std::string> kBroken{
    {"corrupt_crc.e57", "does not have the checksum that it states"},
    {"InvalidCVHeader.e57", "no compressed vector begins here"},
};

std::vector<fs::path> AllFiles() {
  std::vector<fs::path> files;
  for (const fs::path& file : oocpctest::TestFiles()) {
    if (file.extension() == ".md") continue;
#ifndef NDEBUG  // where many million points take long
    if (fs::file_size(file) > (std::uintmax_t{10} << 20)) continue;
#endif
    files.push_back(file);
  }
  return files;
}

void ExpectRefusal(const fs::path& file, const std::string& what) {
  const ScanFolder folder;
  ImportReport report;
  const Outcome outcome = ImportScans(folder.Options({file}), report);
  EXPECT_FALSE(outcome.Ok());
  EXPECT_NE(outcome.what.find(what), std::string::npos) << outcome.what;
  EXPECT_NE(outcome.where.find(file.filename().string()), std::string::npos) << outcome.where;
  EXPECT_FALSE(outcome.remedy.empty());
  EXPECT_TRUE(folder.List().empty()) << "nothing is left";
}

void ExpectSound(const fs::path& repository) {
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(repository, {}, report)));
  for (const Fault& fault : report.faults) ADD_FAILURE() << fault.stream << ": " << fault.what;
}

/// A LAS file may have further dimensions, and some of another type under a name of their own.
void ExpectSameValues(const Checksums& before, const Checksums& after, bool isLas) {
  if (isLas) {
    EXPECT_TRUE(before == after);
    return;
  }
  EXPECT_EQ(before.pointCount, after.pointCount);
  EXPECT_EQ(before.transform.scale, after.transform.scale);
  EXPECT_EQ(before.transform.offset, after.transform.offset);
  EXPECT_EQ(before.dimensions[0], after.dimensions[0]) << "positions";
  for (const auto& [name, sum] : before.dimensions) {
    if (name == "DEF_COLOR") continue;  // of 8 bits, it is spread over 16
    const auto isSame = [&, own = &name, value = sum](const auto& other) {
      return (other.first == *own || other.first == *own + "_2") && other.second == value;
    };
    EXPECT_TRUE(std::ranges::any_of(after.dimensions, isSame)) << name;
  }
}

TEST(AllFiles, AreImportedSoundExportedAndTheSameOrRefusedWithAReason) {
  const std::vector<fs::path> files = AllFiles();
  if (files.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  std::size_t refused = 0;
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.string());
    if (const auto broken = kBroken.find(file.filename().string()); broken != kBroken.end()) {
      ExpectRefusal(file, broken->second);
      ++refused;
      continue;
    }
    const ScanFolder folder;
    folder.Import({file});
    ExpectSound(folder.Repository());
    const Checksums before = SumsOf(file);
    Checksums stored;
    ASSERT_TRUE(IsOk(SumCloud(*folder.Open(), 0, {}, stored)));
    EXPECT_TRUE(stored == before) << "in the repository";
    const bool isLas = file.extension() == ".las" || file.extension() == ".laz";
    std::uint64_t count = 0;
    ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.laz", {}, count)));
    ExpectSameValues(before, SumsOf(folder / "out.laz"), isLas);
  }
  EXPECT_EQ(refused, kBroken.size());
}

}  // namespace
}  // namespace tarnhost
