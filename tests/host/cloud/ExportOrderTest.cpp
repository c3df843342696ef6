// Clouds that know the order of their sources give the very same files back.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/build/Append.h"
#include "host/cloud/Export.h"
#include "tests/support/LazFiles.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ReadFile;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using Bytes = std::vector<std::uint8_t>;

void ImportInOrder(const ScanFolder& folder, std::vector<fs::path> scans) {
  ImportOptions options = folder.Options(std::move(scans));
  options.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
}

Bytes Exported(const ScanFolder& folder, const std::string& name, std::uint64_t iteration = 0,
               std::uint64_t memory = 0) {
  fs::remove(folder / name);
  ExportOptions options;
  options.iteration = iteration;
  options.memoryBytes = memory;
  ExportReport report;
  EXPECT_TRUE(IsOk(ExportLas(*folder.Open(), options, folder / name, report)));
  return ReadFile(folder / name);
}

/// All records of a scan, in its order, and what stands before and behind them.
struct Content {
  explicit Content(const fs::path& path) {
    std::unique_ptr<ScanFile> scan;
    EXPECT_TRUE(IsOk(OpenScan(path, scan)));
    ScanWorkspace workspace{std::uint64_t{1} << 32, {}, {}};
    EXPECT_TRUE(IsOk(scan->Prepare(workspace)));
    records.resize(scan->GetPointCount() * scan->GetRecordBytes());
    scan->ReadRecords(0, scan->GetPointCount(), records.data());
    leading.assign(scan->GetLeadingBytes().begin(), scan->GetLeadingBytes().end());
    trailing.assign(scan->GetTrailingBytes().begin(), scan->GetTrailingBytes().end());
  }
  Bytes leading;
  Bytes records;
  Bytes trailing;
};

/// A scan of points in no order that the octree or their times could tell.
Bytes Unordered(unsigned format, std::uint32_t count, unsigned seed = 1) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = count;
  builder.seed = seed;
  builder.extraBytes = 3;
  builder.padding = 9;
  builder.extendedRecords.push_back({"someone", 78, Bytes(100, 8)});
  Bytes file = builder.Build();
  oocpctest::PlacePoints(file, oocpctest::RandomPositions(count, 1000, seed));
  return file;
}

class OrderOfFormat : public ::testing::TestWithParam<unsigned> {};

TEST_P(OrderOfFormat, ComesBackByteForByte) {
  const ScanFolder folder;
  const Bytes file = Unordered(GetParam(), 70000);
  ImportInOrder(folder, {folder.Add("scan.las", file)});
  EXPECT_TRUE(Exported(folder, "out.las") == file);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, OrderOfFormat, ::testing::Range(0u, 11u));

TEST(ExportOrder, IsThatOfEveryRealScan) {
  const auto scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& scan : scans) {
    const ScanFolder folder;
    ImportInOrder(folder, {scan});
    EXPECT_TRUE(Exported(folder, "out.las") == ReadFile(scan)) << scan;
  }
}

TEST(ExportOrder, IsThatOfEveryRealCompressedScan) {
  const auto scans = oocpctest::TestLazScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& scan : scans) {
    if (fs::file_size(scan) > 3000000) continue;
    SCOPED_TRACE(scan.string());
    const ScanFolder folder;
    ImportInOrder(folder, {scan});
    Exported(folder, "out.laz");
    const Content before(scan);
    const Content after(folder / "out.laz");
    EXPECT_TRUE(before.records == after.records);
  }
}

TEST(ExportOrder, IsRestoredInCompressedFiles) {
  const ScanFolder folder;
  const Bytes file = Unordered(7, 120000);
  const auto scan = folder.Add("scan.laz", oocpctest::CompressLas(file, {{7000}}).bytes);
  ImportInOrder(folder, {scan});
  Exported(folder, "out.laz");
  const Content before(scan);
  const Content after(folder / "out.laz");
  EXPECT_TRUE(before.leading == after.leading);
  EXPECT_TRUE(before.records == after.records);
  EXPECT_TRUE(before.trailing == after.trailing);
  EXPECT_TRUE(Exported(folder, "out.las") == file);
}

TEST(ExportOrder, IsTheSameHoweverLittleMemoryThereIs) {
  const ScanFolder folder;
  const Bytes file = Unordered(3, 150000);
  ImportInOrder(folder, {folder.Add("scan.las", file)});
  EXPECT_TRUE(Exported(folder, "out.las", 0, 200000) == file);
  EXPECT_TRUE(Exported(folder, "out.las", 0, 5000000) == file);
}

TEST(ExportOrder, IsThatOfTheFilesOneAfterTheOther) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", Unordered(3, 5000));
  const auto b = folder.Add("b.las", Unordered(3, 3000, 2));
  ImportInOrder(folder, {b, a});
  Exported(folder, "out.las");
  Bytes expected = Content(b).records;
  const Bytes more = Content(a).records;
  expected.insert(expected.end(), more.begin(), more.end());
  EXPECT_TRUE(Content(folder / "out.las").records == expected);
}

TEST(ExportOrder, HoldsForEachIterationOfAppendedScans) {
  const ScanFolder folder;
  const Bytes first = Unordered(3, 40000);
  const auto a = folder.Add("a.las", first);
  const auto b = folder.Add("b.las", Unordered(3, 30000, 2));
  ImportInOrder(folder, {a});
  ImportOptions options = folder.Options({b});
  options.timePoint = 1000;
  ImportReport report;
  ASSERT_TRUE(IsOk(AppendScans(options, report)));
  Exported(folder, "out.las", 1);
  Bytes expected = Content(a).records;
  const Bytes more = Content(b).records;
  expected.insert(expected.end(), more.begin(), more.end());
  EXPECT_TRUE(Content(folder / "out.las").records == expected);
  EXPECT_TRUE(Exported(folder, "out.las", 0) == first) << "header included";
}

TEST(ExportOrder, IsNotKnownWithoutAskingForIt) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  EXPECT_FALSE(HasSourceOrder(*folder.Open()));
}

/// The first iteration of a cloud without order, after an append.
TEST(ExportBounds, AreThoseOfTheFirstSourceForItsPointsAlone) {
  const ScanFolder folder;
  Bytes first = ScanOf(500);
  // As some writers round it: the last bit differs from integer * scale + offset.
  const auto greatest = LasBuilder::Get<double>(first, 179);
  LasBuilder::Put(first, 179, std::nextafter(greatest, greatest + 1));
  folder.ImportBytes(first);
  ImportOptions options = folder.Options({folder.Add("more.las", ScanOf(70))});
  options.timePoint = 1000;
  ImportReport report;
  ASSERT_TRUE(IsOk(AppendScans(options, report)));
  const Bytes out = Exported(folder, "out.las", 0);
  const std::size_t points = LasBuilder::Get<std::uint32_t>(first, 96);
  EXPECT_TRUE(
      std::equal(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(points), out.begin()))
      << "the header";
  EXPECT_NE(LasBuilder::Get<double>(Exported(folder, "out.las", 1), 179),
            LasBuilder::Get<double>(first, 179))
      << "all points are not those of the first source";
}

}  // namespace
}  // namespace tarnhost
