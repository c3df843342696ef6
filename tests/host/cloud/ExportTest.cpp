// What was imported comes out again: every record, and every byte beside the records.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "host/cloud/Export.h"
#include "host/cloud/Verify.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::brute::LasFile;
using Bytes = std::vector<std::uint8_t>;

std::vector<std::string> SortedRecords(const LasFile& file) {
  std::vector<std::string> records;
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    const std::uint8_t* record = file.GetRecord(i);
    records.emplace_back(record, record + file.GetRecordBytes());
  }
  std::sort(records.begin(), records.end());
  return records;
}

/// The bytes before and behind the points.
Bytes BesidePoints(const LasFile& file) {
  Bytes bytes = file.GetBytes();
  bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(file.GetPointsBegin()),
              bytes.begin() + static_cast<std::ptrdiff_t>(file.GetPointsEnd()));
  return bytes;
}

void ExpectRoundTrip(const std::filesystem::path& scan) {
  SCOPED_TRACE(scan.string());
  LasFile before;
  ASSERT_TRUE(before.Load(scan));
  const ScanFolder folder;
  folder.Import({scan});
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(folder.Repository(), {}, report)));
  EXPECT_EQ(report.faultCount, 0u);
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.las", {}, count)));
  LasFile after;
  ASSERT_TRUE(after.Load(folder / "out.las"));
  EXPECT_EQ(count, before.GetPointCount());
  EXPECT_TRUE(SortedRecords(before) == SortedRecords(after)) << "records differ";
  EXPECT_TRUE(BesidePoints(before) == BesidePoints(after)) << "header or records differ";
}

TEST(Export, GivesBackEveryRealScan) {
  const auto scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& scan : scans) ExpectRoundTrip(scan);
}

class ExportFormat : public ::testing::TestWithParam<unsigned> {};

TEST_P(ExportFormat, GivesBackScansOfThatPointFormat) {
  LasBuilder builder;
  builder.format = GetParam();
  builder.pointCount = 500;
  builder.extraBytes = 11;
  builder.headerPadding = 3;
  builder.padding = 5;
  builder.Describe({LasBuilder::Descriptor(10, "Height"), LasBuilder::Descriptor(3, "Echo")});
  builder.records.push_back({"someone", 77, Bytes(100, 9)});
  builder.extendedRecords.push_back({"someone", 78, Bytes(1000, 8)});
  const ScanFolder folder;
  ExpectRoundTrip(folder.Add("scan.las", builder.Build()));
}

INSTANTIATE_TEST_SUITE_P(AllFormats, ExportFormat, ::testing::Range(0u, 11u));

TEST(Export, GivesBackATreeOfSeveralNodes) {
  const ScanFolder folder;
  ExpectRoundTrip(folder.Add("scan.las", ScanOf(60000)));
}

TEST(Export, GivesBackAScanWithoutPoints) {
  const ScanFolder folder;
  ExpectRoundTrip(folder.Add("scan.las", ScanOf(0)));
}

TEST(Export, GivesBackASinglePoint) {
  const ScanFolder folder;
  ExpectRoundTrip(folder.Add("scan.las", ScanOf(1)));
}

TEST(Export, CountsAndBoundsThePointsOfSeveralScansAnew) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", ScanOf(100, 6));
  LasBuilder other;
  other.format = 6;
  other.pointCount = 50;
  other.seed = 9;
  const auto b = folder.Add("b.las", other.Build());
  folder.Import({a, b});
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.las", {}, count)));
  EXPECT_EQ(count, 150u);
  LasFile first;
  LasFile second;
  LasFile out;
  ASSERT_TRUE(first.Load(a));
  ASSERT_TRUE(second.Load(b));
  ASSERT_TRUE(out.Load(folder / "out.las"));
  auto expected = SortedRecords(first);
  const auto more = SortedRecords(second);
  expected.insert(expected.end(), more.begin(), more.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_TRUE(SortedRecords(out) == expected);
  std::uint64_t returns = 0;
  for (std::uint64_t i = 0; i < 150; ++i) returns += (out.GetRecord(i)[14] & 15u) == 2 ? 1 : 0;
  EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out.GetBytes(), 255 + 8), returns);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double greatest = -1e300;
    for (std::uint64_t i = 0; i < 150; ++i) greatest = std::max(greatest, out.GetSource(i, axis));
    EXPECT_EQ(LasBuilder::Get<double>(out.GetBytes(), 179 + 16 * axis), greatest);
  }
}

TEST(Export, LeavesNothingWhenStopped) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100));
  std::uint64_t count = 0;
  const auto stop = [](const ProgressReport&) { return false; };
  const auto cloud = folder.Open();
  EXPECT_EQ(ExportLas(*cloud, 0, folder / "out.las", stop, count).code, result::kStopped);
  EXPECT_EQ(folder.List(), (std::vector<std::string>{"cloud.tarn", "scan.las"}));
}

TEST(Export, RefusesAnIterationThatIsNotThere) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  std::uint64_t count = 0;
  const auto cloud = folder.Open();
  EXPECT_EQ(ExportLas(*cloud, 1, folder / "out.las", {}, count).code, result::kIndexOutOfRange);
  EXPECT_FALSE(std::filesystem::exists(folder / "out.las"));
}

TEST(Export, LeavesNothingOfAnAlteredColumn) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100));
  auto bytes = oocpctest::ReadFile(folder.Repository() / "DEF_COLUMN_1");
  bytes[0] ^= 1;
  oocpctest::WriteFile(folder.Repository() / "DEF_COLUMN_1", bytes);
  std::uint64_t count = 0;
  const auto cloud = folder.Open();
  const Outcome outcome = ExportLas(*cloud, 0, folder / "out.las", {}, count);
  EXPECT_EQ(outcome.code, result::kChecksumMismatch);
  EXPECT_EQ(outcome.where, "column intensity, block 0");
  EXPECT_EQ(folder.List(), (std::vector<std::string>{"cloud.tarn", "scan.las"}));
}

/// A cloud of several blocks with points at random places, and damage in it.
class ExportOfDamaged : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kPoints = 30000;

  void Import(bool keepOrder = false) {
    Bytes file = ScanOf(kPoints);
    oocpctest::PlacePoints(file, oocpctest::RandomPositions(kPoints, 1000000));
    ImportOptions options = folder_.Options({folder_.Add("scan.las", file)});
    options.keepOrder = keepOrder;
    ImportReport report;
    ASSERT_TRUE(IsOk(ImportScans(options, report)));
    ASSERT_TRUE(before_.Load(folder_ / "scan.las"));
  }

  void FlipBit(const std::string& stream, std::size_t at) const {
    Bytes bytes = oocpctest::ReadFile(folder_.Repository() / stream);
    ASSERT_LT(at, bytes.size());
    bytes[at] ^= 1;
    oocpctest::WriteFile(folder_.Repository() / stream, bytes);
  }

  ExportReport ExportWhatIsSound() const {
    ExportOptions options;
    options.leavesOutDamaged = true;
    ExportReport report;
    EXPECT_TRUE(IsOk(ExportLas(*folder_.Open(), options, folder_ / "out.las", report)));
    EXPECT_EQ(report.pointCount + report.damagedPoints, kPoints);
    return report;
  }

  /// What was written are records of the scan, each as often as there at most.
  void ExpectPartOfScan(const ExportReport& report) const {
    LasFile after;
    ASSERT_TRUE(after.Load(folder_ / "out.las"));
    EXPECT_EQ(after.GetPointCount(), report.pointCount);
    const std::vector<std::string> all = SortedRecords(before_);
    const std::vector<std::string> part = SortedRecords(after);
    EXPECT_TRUE(std::ranges::includes(all, part));
  }

  ScanFolder folder_;
  LasFile before_;
};

TEST_F(ExportOfDamaged, IsTheWholeScanWhereNothingIsDamaged) {
  Import(true);
  EXPECT_EQ(ExportWhatIsSound().damagedPoints, 0u);
  EXPECT_EQ(oocpctest::ReadFile(folder_ / "out.las"), oocpctest::ReadFile(folder_ / "scan.las"));
}

TEST_F(ExportOfDamaged, LeavesOutThePointsOfABlockWhenAsked) {
  Import();
  FlipBit("DEF_COLUMN_1", 0);
  std::uint64_t count = 0;
  ASSERT_EQ(ExportLas(*folder_.Open(), 0, folder_ / "out.las", {}, count).code,
            result::kChecksumMismatch);
  const ExportReport report = ExportWhatIsSound();
  EXPECT_GT(report.pointCount, 0u);
  EXPECT_GT(report.damagedPoints, 0u);
  ExpectPartOfScan(report);
}

TEST_F(ExportOfDamaged, KeepsTheOrderOfTheRest) {
  Import(true);
  FlipBit("DEF_COLUMN_1", 0);
  const ExportReport report = ExportWhatIsSound();
  EXPECT_GT(report.damagedPoints, 0u);
  LasFile after;
  ASSERT_TRUE(after.Load(folder_ / "out.las"));
  std::uint64_t at = 0;
  for (std::uint64_t i = 0; i < after.GetPointCount(); ++i) {
    const std::size_t bytes = after.GetRecordBytes();
    while (at < kPoints && std::memcmp(before_.GetRecord(at), after.GetRecord(i), bytes) != 0) ++at;
    ASSERT_LT(at++, kPoints) << "record " << i << " does not follow the ones before";
  }
}

TEST_F(ExportOfDamaged, LeavesOutWhatIsBelowANodeWhenAsked) {
  Import();
  FlipBit("DEF_OCTREE", 0);  // the first child of the root
  const ExportReport report = ExportWhatIsSound();
  EXPECT_GT(report.pointCount, 0u);
  EXPECT_GT(report.damagedPoints, 0u);
  ExpectPartOfScan(report);
}

TEST_F(ExportOfDamaged, FailsWithoutARoot) {
  Import();
  FlipBit("DEF_OCTREE", oocpctest::ReadFile(folder_.Repository() / "DEF_OCTREE").size() - 1);
  ExportOptions options;
  options.leavesOutDamaged = true;
  ExportReport report;
  EXPECT_TRUE(oocpc::Failed(ExportLas(*folder_.Open(), options, folder_ / "out.las", report).code));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.las"));
}

}  // namespace
}  // namespace tarnhost
