// Compressed scans come out as they went in: every record, and every byte beside the records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/cloud/Export.h"
#include "host/cloud/Verify.h"
#include "host/formats/laz/LazScan.h"
#include "tests/support/LazFiles.h"
#include "tests/support/NodeReaders.h"
#include "tests/support/RecordSums.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::CompressLas;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::SumRecords;
using Bytes = std::vector<std::uint8_t>;

std::unique_ptr<ScanFile> OpenPrepared(const std::filesystem::path& path) {
  std::unique_ptr<ScanFile> scan;
  EXPECT_TRUE(IsOk(OpenScan(path, scan)));
  ScanWorkspace workspace{std::uint64_t{1} << 32, {}, {}};
  if (scan) {
    EXPECT_TRUE(IsOk(scan->Prepare(workspace)));
  }
  return scan;
}

LasFrame FrameOf(const ScanFile& scan) {
  LasFrame frame{scan.GetLeadingBytes(), scan.GetTrailingBytes(), scan.GetPointCount()};
  EXPECT_TRUE(IsOk(DropRecords(frame, IsCopcRecord, "test")));
  return frame;
}

Bytes Copy(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

void ExpectRoundTrip(const std::filesystem::path& path) {
  SCOPED_TRACE(path.string());
  const ScanFolder folder;
  folder.Import({path});
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(folder.Repository(), {}, report)));
  EXPECT_EQ(report.faultCount, 0u);
  const auto before = OpenPrepared(path);
  for (const char* name : {"out.laz", "out.las"}) {
    SCOPED_TRACE(name);
    std::uint64_t count = 0;
    ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / name, {}, count)));
    const auto after = OpenPrepared(folder / name);
    EXPECT_EQ(dynamic_cast<LazScan*>(after.get()) != nullptr, std::string(name) == "out.laz");
    EXPECT_TRUE(SumRecords(*before) == SumRecords(*after)) << "records differ";
    const LasFrame expected = FrameOf(*before);
    EXPECT_TRUE(Copy(expected.leadingBytes) == Copy(after->GetLeadingBytes())) << "header differs";
    EXPECT_TRUE(Copy(expected.trailingBytes) == Copy(after->GetTrailingBytes()));
  }
}

TEST(ExportLaz, GivesBackEveryRealScan) {
  const auto scans = oocpctest::TestLazScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& scan : scans) ExpectRoundTrip(scan);
}

class ExportLazFormat : public ::testing::TestWithParam<unsigned> {};

TEST_P(ExportLazFormat, GivesBackScansOfThatPointFormat) {
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
  ExpectRoundTrip(folder.Add("scan.laz", CompressLas(builder.Build(), {{200}}).bytes));
}

INSTANTIATE_TEST_SUITE_P(AllFormats, ExportLazFormat, ::testing::Range(0u, 11u));

TEST(ExportLaz, GivesBackScansOfManyChunks) {
  const ScanFolder folder;
  ExpectRoundTrip(folder.Add("scan.laz", CompressLas(ScanOf(120000), {{7000}}).bytes));
}

/// Where the extended record of a LAS file made by SmoothScan stands, behind its points.
std::size_t ExtendedRecordAt(const Bytes& file) {
  EXPECT_EQ(LasBuilder::Get<std::uint32_t>(file, 243), 1u);
  return static_cast<std::size_t>(LasBuilder::Get<std::uint64_t>(file, 235));
}

class ExportLazIndependently : public ::testing::TestWithParam<unsigned> {};

TEST_P(ExportLazIndependently, IsReadPointByPointByAnIndependentReader) {
  if (!oocpctest::HasNodeReaders()) GTEST_SKIP() << "laz-perf for node is not installed";
  const ScanFolder folder;
  constexpr std::uint32_t kPoints = 2 * laz::kUsualChunkPoints + 10'000;
  const Bytes las = oocpctest::SmoothScan(GetParam(), kPoints, 3);
  ImportOptions options = folder.Options({folder.Add("scan.las", las)});
  options.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.laz", {}, count)));
  std::unique_ptr<LazScan> scan;
  ASSERT_TRUE(IsOk(LazScan::Open(folder / "out.laz", scan)));
  EXPECT_EQ(scan->GetChunks().size(), 3u);

  ASSERT_TRUE(oocpctest::RunNodeReader("read_laz.js", {folder / "out.laz", folder / "records"}));
  const Bytes read = oocpctest::ReadFile(folder / "records");
  const std::size_t stride = LasBuilder::FormatBytes(GetParam()) + 3;
  ASSERT_EQ(read.size(), kPoints * stride);
  const std::uint8_t* const written = las.data() + LasBuilder::Get<std::uint32_t>(las, 96);
  for (std::size_t i = 0; i < kPoints; ++i) {
    ASSERT_EQ(std::memcmp(read.data() + i * stride, written + i * stride, stride), 0)
        << "point " << i;
  }
  // The chunks and their table are shorter than the points were: what stood behind them moved.
  const Bytes laz = oocpctest::ReadFile(folder / "out.laz");
  ASSERT_LT(ExtendedRecordAt(laz), ExtendedRecordAt(las));
  EXPECT_EQ(Bytes(laz.begin() + static_cast<std::ptrdiff_t>(ExtendedRecordAt(laz)), laz.end()),
            Bytes(las.begin() + static_cast<std::ptrdiff_t>(ExtendedRecordAt(las)), las.end()));
}

INSTANTIATE_TEST_SUITE_P(Formats, ExportLazIndependently, ::testing::Values(0, 1, 2, 3, 6, 7, 8));

TEST(ExportLaz, IsTheSameHoweverManyThreadsCompress) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(150000));
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "a.laz", {}, count)));
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "b.laz", {}, count)));
  EXPECT_TRUE(oocpctest::ReadFile(folder / "a.laz") == oocpctest::ReadFile(folder / "b.laz"));
}

TEST(ExportLaz, CountsThePointsOfSeveralScansAnew) {
  const ScanFolder folder;
  const auto a = folder.Add("a.laz", CompressLas(ScanOf(100, 6)).bytes);
  LasBuilder other;
  other.format = 6;
  other.pointCount = 50;
  other.seed = 9;
  other.extendedRecords.push_back({"other", 3, Bytes(10)});
  const auto b = folder.Add("b.las", other.Build());
  folder.Import({b, a});
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.laz", {}, count)));
  EXPECT_EQ(count, 150u);
  const auto out = OpenPrepared(folder / "out.laz");
  EXPECT_EQ(out->GetPointCount(), 150u);
  EXPECT_EQ(dynamic_cast<LazScan&>(*out).GetHeader().records.back().userId, "other");
  oocpctest::RecordSums sums = SumRecords(*OpenPrepared(a));
  const oocpctest::RecordSums more = SumRecords(*OpenPrepared(b));
  sums.count += more.count;
  sums.hashes += more.hashes;
  EXPECT_TRUE(SumRecords(*out) == sums);
}

TEST(ExportLaz, LeavesOutRecordsThatTellTheOrderOfAnotherFile) {
  LasBuilder builder;
  builder.format = 6;
  builder.records = {{"copc", 1, Bytes(160)}, {"someone", 77, Bytes(10, 9)}};
  builder.extendedRecords = {{"copc", 1000, Bytes(64)}, {"other", 5, Bytes(7)}};
  const ScanFolder folder;
  folder.Import({folder.Add("scan.copc.laz", CompressLas(builder.Build()).bytes)});
  // They stay listed in the repository.
  const auto cloud = folder.Open();
  EXPECT_EQ(cloud->GetSources().size(), 1u);
  std::uint64_t count = 0;
  for (const char* name : {"out.las", "out.laz"}) {
    ASSERT_TRUE(IsOk(ExportLas(*cloud, 0, folder / name, {}, count)));
    const auto out = OpenPrepared(folder / name);
    LasHeader header;
    ASSERT_TRUE(IsOk(ParseLasFrame(out->GetLeadingBytes(), out->GetPointCount(),
                                   out->GetTrailingBytes(), name, header)));
    ASSERT_EQ(header.records.size(), 2u);
    EXPECT_EQ(header.records[0].userId, "someone");
    EXPECT_EQ(header.records[1].userId, "other");
    EXPECT_EQ(out->GetTrailingBytes().size(), 67u);
  }
}

TEST(ExportLaz, ImportsDamagedChunksNotAtAll) {
  auto file = CompressLas(ScanOf(900), {{300}});
  std::fill_n(file.bytes.begin() + static_cast<std::ptrdiff_t>(file.chunks[1].offset) + 60, 500,
              std::uint8_t{0x77});
  const ScanFolder folder;
  ImportReport report;
  const Outcome outcome = ImportScans(folder.Options({folder.Add("scan.laz", file.bytes)}), report);
  EXPECT_EQ(outcome.code, result::kScanContradictory);
  EXPECT_THAT(outcome.what, testing::HasSubstr("chunk 2 of 3 is damaged"));
  EXPECT_EQ(folder.List(), (std::vector<std::string>{"scan.laz"}));
}

}  // namespace
}  // namespace tarnhost
