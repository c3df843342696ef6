// Clouds written as COPC files: their nodes, and their points.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "host/cloud/Export.h"
#include "host/formats/laz/CopcWriter.h"
#include "host/formats/laz/LazScan.h"
#include "host/lod/ExportCopc.h"
#include "tests/support/NodeReaders.h"
#include "tests/support/RecordSums.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using Bytes = std::vector<std::uint8_t>;

std::unique_ptr<LazScan> OpenPrepared(const std::filesystem::path& path) {
  std::unique_ptr<LazScan> scan;
  EXPECT_TRUE(IsOk(LazScan::Open(path, scan)));
  ScanWorkspace workspace{std::uint64_t{1} << 32, {}, {}};
  if (scan) {
    EXPECT_TRUE(IsOk(scan->Prepare(workspace)));
  }
  return scan;
}

CopcReport Export(const ScanFolder& folder, const std::string& name = "out.copc.laz") {
  CopcReport report;
  EXPECT_TRUE(IsOk(ExportCopc(*folder.Open(), 0, folder / name, {}, report)));
  return report;
}

/// "level x y z" to number of points, of nodes that have some, as the octree tells.
std::map<std::string, std::uint32_t> NodesOf(Cloud& cloud) {
  std::map<std::string, std::uint32_t> nodes;
  EXPECT_TRUE(IsOk(cloud.WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
    std::array<std::uint64_t, 3> cell{};
    std::uint64_t left = node.indexInLevel;
    for (unsigned bit = 0; left != 0; ++bit) {
      for (auto& value : cell) {
        value += (left & 1u) << bit;
        left >>= 1;
      }
    }
    if (node.ownPointCount != 0) {
      nodes[std::to_string(node.level) + " " + std::to_string(cell[0]) + " " +
            std::to_string(cell[1]) + " " + std::to_string(cell[2])] = node.ownPointCount;
    }
    return Descend::kIntoChildren;
  })));
  return nodes;
}

TEST(ExportCopc, WritesEachNodeAsAChunk) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(60000, 7));
  const CopcReport report = Export(folder);
  EXPECT_EQ(report.pointCount, 60000u);
  EXPECT_EQ(report.format, 7);
  const auto scan = OpenPrepared(folder / "out.copc.laz");
  EXPECT_TRUE(scan->GetLazLayout().HasVariableChunks());
  EXPECT_EQ(scan->GetChunks().size(), NodesOf(*folder.Open()).size());
  EXPECT_GT(scan->GetChunks().size(), 8u);
  const auto& records = scan->GetHeader().records;
  EXPECT_EQ(records.front().userId, "copc");
  EXPECT_EQ(records.front().payloadOffset, 429u);
  EXPECT_EQ(records.back().userId, "copc");
  EXPECT_EQ(records.back().recordId, 1000);
}

TEST(ExportCopc, KeepsEveryPoint) {
  for (const unsigned format : {6u, 7u, 8u}) {
    LasBuilder builder;
    builder.format = format;
    builder.pointCount = 3000;
    builder.extraBytes = 3;
    builder.records.push_back({"someone", 7, Bytes(12, 3)});
    builder.extendedRecords.push_back({"someone", 8, Bytes(13, 3)});
    const ScanFolder folder;
    folder.ImportBytes(builder.Build());
    Export(folder);
    std::unique_ptr<ScanFile> before;
    ASSERT_TRUE(IsOk(OpenScan(folder / "scan.las", before)));
    const auto after = OpenPrepared(folder / "out.copc.laz");
    EXPECT_TRUE(oocpctest::SumRecords(*before) == oocpctest::SumRecords(*after));
    ASSERT_EQ(after->GetHeader().records.size(), 4u);
    EXPECT_EQ(after->GetHeader().records[1].recordId, 7);
    EXPECT_EQ(after->GetHeader().records[2].recordId, 8);
    LasHeader source;
    ASSERT_TRUE(IsOk(ParseLasHeader(oocpctest::ReadFile(folder / "scan.las"), "x", source)));
    EXPECT_EQ(after->GetHeader().min, source.min);
    EXPECT_EQ(after->GetHeader().max, source.max);
    EXPECT_EQ(after->GetHeader().returnCounts, source.returnCounts);
  }
}

TEST(ExportCopc, KeepsEqualPointsInTheCellThatTheyLieIn) {
  constexpr std::uint32_t kEqual = 100000;
  Bytes file = ScanOf(kEqual + 1000, 7);
  auto positions = oocpctest::RandomPositions(kEqual + 1000, 1000000);
  std::fill(positions.begin() + 1000, positions.end(), positions.front());
  oocpctest::PlacePoints(file, positions);
  const ScanFolder folder;
  folder.ImportBytes(file);
  std::uint32_t deepest = 0;
  EXPECT_TRUE(IsOk(folder.Open()->WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
    deepest = std::max(deepest, node.level);
    return Descend::kIntoChildren;
  })));
  ASSERT_GT(deepest, 21u) << "no points lie below the finest cells";
  EXPECT_EQ(Export(folder).pointCount, kEqual + 1000u);
  std::unique_ptr<ScanFile> before;
  ASSERT_TRUE(IsOk(OpenScan(folder / "scan.las", before)));
  const auto after = OpenPrepared(folder / "out.copc.laz");
  EXPECT_TRUE(oocpctest::SumRecords(*before) == oocpctest::SumRecords(*after));
  std::uint64_t inOneChunk = 0;
  for (const auto& chunk : after->GetChunks())
    inOneChunk = std::max<std::uint64_t>(inOneChunk, chunk.points);
  EXPECT_GT(inOneChunk, kEqual / 2);
}

TEST(ExportCopc, TellsWhetherKeysAreAllThereIsOfACoordinateSystem) {
  const LasBuilder::Record keys{"LASF_Projection", 34735, Bytes(16, 1)};
  const LasBuilder::Record noKeys{"LASF_Projection", 34735, Bytes(8, 1)};
  const LasBuilder::Record text{"LASF_Projection", 2112, Bytes(9, 'W')};
  const std::vector<std::pair<std::vector<LasBuilder::Record>, bool>> cases{
      {{keys}, true}, {{keys, text}, false}, {{text}, false}, {{noKeys}, false}, {{}, false}};
  for (const auto& [records, lacksWkt] : cases) {
    LasBuilder builder;
    builder.format = 3;
    builder.minor = 2;
    builder.records = records;
    const ScanFolder folder;
    folder.ImportBytes(builder.Build());
    EXPECT_EQ(Export(folder).lacksWkt, lacksWkt);
  }
}

TEST(ExportCopc, IsReadByAnIndependentReader) {
  if (!oocpctest::HasNodeReaders()) GTEST_SKIP() << "copc for node is not installed";
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(60000, 7));
  Export(folder);
  ASSERT_TRUE(oocpctest::RunNodeReader(
      "read_copc.js", {folder / "out.copc.laz", folder / "nodes", folder / "records"}));
  std::map<std::string, std::uint32_t> nodes;
  std::ifstream lines(folder / "nodes");
  for (std::string line; std::getline(lines, line);) {
    const std::size_t space = line.rfind(' ');
    nodes[line.substr(0, space)] = static_cast<std::uint32_t>(std::stoul(line.substr(space)));
  }
  EXPECT_EQ(nodes, NodesOf(*folder.Open()));
  const Bytes records = oocpctest::ReadFile(folder / "records");
  oocpctest::RecordSums read;
  for (std::size_t at = 0; at + 36 <= records.size(); at += 36) read.Add(records.data() + at, 36);
  std::unique_ptr<ScanFile> before;
  ASSERT_TRUE(IsOk(OpenScan(folder / "scan.las", before)));
  EXPECT_TRUE(read == oocpctest::SumRecords(*before));
}

class CopcConversion : public ::testing::TestWithParam<unsigned> {};

TEST_P(CopcConversion, GivesOlderPointsTheirPlaceInNewerFormats) {
  LasBuilder builder;
  builder.format = GetParam();
  builder.minor = 2;
  builder.pointCount = 1;
  builder.extraBytes = 2;
  Bytes file = builder.Build();
  const Bytes old(file.end() - static_cast<std::ptrdiff_t>(builder.PointBytes()), file.end());
  const ScanFolder folder;
  folder.ImportBytes(file);
  const CopcReport report = Export(folder);
  EXPECT_EQ(report.sourceFormat, GetParam());
  EXPECT_EQ(report.format, GetParam() < 2 ? 6 : 7);
  const auto scan = OpenPrepared(folder / "out.copc.laz");
  EXPECT_EQ(scan->GetHeader().versionMinor, 4);
  Bytes record(scan->GetRecordBytes());
  scan->ReadRecords(0, 1, record.data());
  EXPECT_TRUE(std::equal(old.begin(), old.begin() + 14, record.begin()));
  EXPECT_EQ(record[14] & 15, old[14] & 7);
  EXPECT_EQ(record[14] >> 4, old[14] >> 3 & 7);
  EXPECT_EQ(record[15] >> 6, old[14] >> 6);
  EXPECT_EQ(record[15] & 15, old[15] >> 5);
  EXPECT_EQ(record[16], old[15] & 31);
  EXPECT_EQ(record[17], old[17]);
  const auto rank = static_cast<std::int8_t>(old[16]);
  EXPECT_EQ(std::lround(LasBuilder::Get<std::int16_t>(record, 18) * 0.006), rank);
  EXPECT_EQ(LasBuilder::Get<std::uint16_t>(record, 20), LasBuilder::Get<std::uint16_t>(old, 18));
  const bool timed = GetParam() == 1 || GetParam() == 3;
  EXPECT_EQ(LasBuilder::Get<std::uint64_t>(record, 22),
            timed ? LasBuilder::Get<std::uint64_t>(old, 20) : 0u);
  EXPECT_TRUE(std::equal(record.begin() + 30, record.end(), old.begin() + (timed ? 28 : 20)));
}

INSTANTIATE_TEST_SUITE_P(OlderFormats, CopcConversion, ::testing::Range(0u, 4u));

TEST(ExportCopc, RefusesWavePackets) {
  for (const unsigned format : {4u, 5u, 9u, 10u}) {
    const ScanFolder folder;
    folder.ImportBytes(ScanOf(10, format));
    CopcReport report;
    const Outcome outcome = ExportCopc(*folder.Open(), 0, folder / "a.copc.laz", {}, report);
    EXPECT_EQ(outcome.code, result::kScanUnsupported);
    EXPECT_THAT(outcome.what, testing::HasSubstr("have wave packets"));
    EXPECT_FALSE(std::filesystem::exists(folder / "a.copc.laz"));
  }
}

TEST(ExportCopc, WritesACloudWithoutPoints) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(0, 6));
  EXPECT_EQ(Export(folder).pointCount, 0u);
  EXPECT_EQ(OpenPrepared(folder / "out.copc.laz")->GetPointCount(), 0u);
}

TEST(ExportCopc, LeavesNothingWhenStopped) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100, 6));
  CopcReport report;
  const auto stop = [](const ProgressReport&) { return false; };
  EXPECT_EQ(ExportCopc(*folder.Open(), 0, folder / "a.copc.laz", stop, report).code,
            result::kStopped);
  EXPECT_EQ(folder.List(), (std::vector<std::string>{"cloud.tarn", "scan.las"}));
}

TEST(ExportCopc, WritesItsOwnExportAgainAsItWas) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(20000, 8));
  Export(folder, "first.copc.laz");
  const ScanFolder again;
  again.Import({folder / "first.copc.laz"});
  Export(again, "second.copc.laz");
  const auto first = OpenPrepared(folder / "first.copc.laz");
  const auto second = OpenPrepared(again / "second.copc.laz");
  EXPECT_TRUE(oocpctest::SumRecords(*first) == oocpctest::SumRecords(*second));
  EXPECT_EQ(first->GetHeader().records.size(), second->GetHeader().records.size());
}

TEST(CopcName, IsToldByItsEnding) {
  EXPECT_TRUE(IsCopcName("a/b.copc.laz"));
  EXPECT_TRUE(IsCopcName("B.COPC.LAZ"));
  EXPECT_FALSE(IsCopcName("copc.laz"));
  EXPECT_FALSE(IsCopcName("a.laz"));
}

TEST(CopcName, IsRefusedForJustAnyPoints) {
  const ScanFolder folder;
  const Bytes las = ScanOf(0, 6);
  std::unique_ptr<LasWriter> writer;
  const Outcome outcome =
      LasWriter::Create(folder / "a.copc.laz",
                        {std::span(las).first(375), std::span<const std::uint8_t>(), 0}, writer);
  EXPECT_EQ(outcome.code, result::kScanUnsupported);
  EXPECT_THAT(outcome.what, testing::HasSubstr("holds an octree"));
}

}  // namespace
}  // namespace tarnhost
