// Every scan there is, through a repository into LAS and LAZ: nothing of it is lost.
#include <gtest/gtest.h>

#include <optional>

#include "host/cloud/Checksums.h"
#include "host/cloud/CloudFacts.h"
#include "host/cloud/Export.h"
#include "tests/support/RecordSums.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using Bytes = std::vector<std::uint8_t>;

/// A scan that can be read: some of the test data are broken by intent.
std::unique_ptr<ScanFile> Prepared(const fs::path& path) {
  std::unique_ptr<ScanFile> scan;
  if (!OpenScan(path, scan).Ok()) return nullptr;
  ScanWorkspace workspace{std::uint64_t{1} << 32, fs::temp_directory_path(), {}};
  return scan->Prepare(workspace).Ok() ? std::move(scan) : nullptr;
}

struct Record {
  std::string user;
  std::uint16_t id = 0;
  std::string description;
  bool extended = false;
  Bytes payload;
  bool operator==(const Record&) const = default;
};

/// What a file says besides its points.
struct Facts {
  LasHeader header;
  std::vector<Record> records;
  std::string coordinateSystem;
};

Facts FactsOf(const ScanFile& scan) {
  Facts facts;
  // Records that are true of a COPC file's order of points alone are not kept.
  LasFrame frame{scan.GetLeadingBytes(), scan.GetTrailingBytes(), scan.GetPointCount()};
  EXPECT_TRUE(IsOk(DropRecords(frame, IsCopcRecord, "test")));
  EXPECT_TRUE(IsOk(ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes,
                                 "test", facts.header)));
  const SourceRecord source{"scan", frame.sourcePointCount, frame.leadingBytes,
                            frame.trailingBytes};
  facts.coordinateSystem = FindCoordinateSystem(facts.header, source);
  const std::uint64_t pointsEnd =
      facts.header.pointsOffset + frame.sourcePointCount * facts.header.pointBytes;
  for (const LasVariableRecord& record : facts.header.records) {
    const auto from = record.extended
                          ? frame.trailingBytes.subspan(record.payloadOffset - pointsEnd)
                          : frame.leadingBytes.subspan(record.payloadOffset);
    facts.records.push_back(
        {record.userId, record.recordId, record.description, record.extended,
         Bytes(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(record.payloadBytes))});
  }
  return facts;
}

void ExpectSameFacts(const Facts& before, const Facts& after) {
  const LasHeader& a = before.header;
  const LasHeader& b = after.header;
  EXPECT_EQ(a.pointFormat, b.pointFormat);
  EXPECT_EQ(a.pointBytes, b.pointBytes);
  EXPECT_EQ(a.versionMajor, b.versionMajor);
  EXPECT_EQ(a.versionMinor, b.versionMinor);
  EXPECT_EQ(a.scale, b.scale);
  EXPECT_EQ(a.offset, b.offset);
  EXPECT_EQ(a.min, b.min);
  EXPECT_EQ(a.max, b.max);
  EXPECT_EQ(a.globalEncoding, b.globalEncoding);
  EXPECT_EQ(a.fileSourceId, b.fileSourceId);
  EXPECT_EQ(a.guid, b.guid);
  EXPECT_EQ(a.creationDay, b.creationDay);
  EXPECT_EQ(a.creationYear, b.creationYear);
  EXPECT_EQ(a.systemIdentifier, b.systemIdentifier);
  EXPECT_EQ(a.generatingSoftware, b.generatingSoftware);
  EXPECT_EQ(a.pointCount, b.pointCount);
  EXPECT_EQ(a.legacyPointCount, b.legacyPointCount);
  EXPECT_EQ(a.returnCounts, b.returnCounts);
  EXPECT_EQ(a.legacyReturnCounts, b.legacyReturnCounts);
  EXPECT_EQ(a.extraByteDescriptors, b.extraByteDescriptors);
  EXPECT_EQ(before.coordinateSystem, after.coordinateSystem);
  EXPECT_TRUE(before.records == after.records) << "variable-length records";
}

/// Large scans take long; the tests of each export have them all.
constexpr std::uintmax_t kMostBytes = 25u << 20;

TEST(NothingLost, OfAnyScanThatCanBeRead) {
  std::vector<fs::path> scans = oocpctest::TestScans();
  const auto compressed = oocpctest::TestLazScans();
  scans.insert(scans.end(), compressed.begin(), compressed.end());
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  std::size_t readable = 0;
  for (const fs::path& path : scans) {
    if (fs::file_size(path) > kMostBytes) continue;
    SCOPED_TRACE(path.string());
    const auto scan = Prepared(path);
    if (scan == nullptr) continue;
    ++readable;
    const ScanFolder folder;
    folder.Import({path});
    const Facts before = FactsOf(*scan);
    const oocpctest::RecordSums records = oocpctest::SumRecords(*scan);
    Checksums sums;
    ASSERT_TRUE(IsOk(SumCloud(*folder.Open(), 0, {}, sums)));
    for (const char* name : {"out.las", "out.laz"}) {
      SCOPED_TRACE(name);
      std::uint64_t count = 0;
      ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / name, {}, count)));
      const auto out = Prepared(folder / name);
      ASSERT_NE(out, nullptr);
      ExpectSameFacts(before, FactsOf(*out));
      EXPECT_TRUE(oocpctest::SumRecords(*out) == records) << "points";
      ScanWorkspace workspace{std::uint64_t{1} << 32, fs::temp_directory_path(), {}};
      Checksums outSums;
      ASSERT_TRUE(IsOk(SumScan(*out, workspace, {}, outSums)));
      EXPECT_TRUE(outSums == sums) << "checksums";
    }
  }
  EXPECT_GT(readable, 10u);
}

}  // namespace
}  // namespace tarnhost
