// What becomes of the records of several sources in a file of all their points.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "host/cloud/Export.h"
#include "host/formats/laz/CopcWriter.h"
#include "host/formats/laz/LazScan.h"
#include "host/lod/ExportCopc.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ReadFile;
using oocpctest::ScanFolder;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;
using Bytes = std::vector<std::uint8_t>;

constexpr std::array<const char*, 3> kFileNames{"out.las", "out.laz", "out.copc.laz"};
constexpr unsigned kAdjustedTime = 1;
constexpr unsigned kWktBit = 16;

struct Source {
  unsigned format = 6;
  unsigned minor = 4;
  unsigned encoding = 0;
  std::vector<LasBuilder::Record> records{};
  std::vector<LasBuilder::Record> extendedRecords{};
  std::size_t headerPadding = 0;
  unsigned seed = 1;
};

LasBuilder::Record Wkt(const std::string& text) {
  Bytes bytes(text.begin(), text.end());
  bytes.push_back(0);
  return {"LASF_Projection", 2112, bytes};
}

/// GeoTIFF keys of one projected system.
LasBuilder::Record GeoKeys(std::uint16_t number) {
  Bytes bytes(16);
  LasBuilder::Put(bytes, 0, std::uint16_t{1});
  LasBuilder::Put(bytes, 6, std::uint16_t{1});
  LasBuilder::Put(bytes, 8, std::uint16_t{3072});
  LasBuilder::Put(bytes, 12, std::uint16_t{1});
  LasBuilder::Put(bytes, 14, number);
  return {"LASF_Projection", 34735, bytes};
}

LasBuilder::Record Note(std::uint16_t id, const std::string& text) {
  return {"someone", id, {text.begin(), text.end()}};
}

Bytes FileOf(const Source& source) {
  LasBuilder builder;
  builder.format = source.format;
  builder.minor = source.minor;
  builder.pointCount = 40;
  builder.records = source.records;
  builder.extendedRecords = source.extendedRecords;
  builder.headerPadding = source.headerPadding;
  builder.seed = source.seed;
  Bytes file = builder.Build();
  oocpctest::PlacePoints(file, oocpctest::RandomPositions(40, 1000, source.seed));
  LasBuilder::Put(file, 6, static_cast<std::uint16_t>(source.encoding));
  return file;
}

void Import(const ScanFolder& folder, const std::vector<Source>& sources) {
  std::vector<std::filesystem::path> paths;
  for (const Source& source : sources) {
    paths.push_back(folder.Add(std::to_string(paths.size()) + ".las", FileOf(source)));
  }
  folder.Import(paths);
}

void ExportTo(const ScanFolder& folder, const std::string& name) {
  const auto cloud = folder.Open();
  std::uint64_t points = 0;
  CopcReport copc;
  const Outcome outcome = IsCopcName(folder / name)
                              ? ExportCopc(*cloud, 0, folder / name, {}, copc)
                              : ExportLas(*cloud, 0, folder / name, {}, points);
  EXPECT_TRUE(IsOk(outcome));
}

/// A header that is read again, and the file's records as "user number payload"; those of the
/// format itself are left out.
struct Written {
  LasHeader header;
  std::vector<std::string> records;

  explicit Written(const std::filesystem::path& path) {
    const Bytes file = ReadFile(path);
    const Outcome outcome = path.extension() == ".laz" ? ParseLazHeader(file, "x", header)
                                                       : ParseLasHeader(file, "x", header);
    EXPECT_TRUE(IsOk(outcome));
    for (const LasVariableRecord& record : header.records) {
      if (record.IsCompression() || IsCopcRecord(record)) continue;
      std::string text(
          file.begin() + static_cast<std::ptrdiff_t>(record.payloadOffset),
          file.begin() + static_cast<std::ptrdiff_t>(record.payloadOffset + record.payloadBytes));
      while (!text.empty() && text.back() == 0) text.pop_back();
      if (record.recordId == 34735)
        text = std::to_string(LasBuilder::Get<std::uint16_t>(file, record.payloadOffset + 14));
      records.push_back(record.userId + " " + std::to_string(record.recordId) + " " + text +
                        (record.extended ? " extended" : ""));
    }
  }
  [[nodiscard]] unsigned Flags() const { return header.globalEncoding; }
};

TEST(MergedRecords, HaveTheCoordinateSystemOfTheFirstSourceThatStatesOne) {
  const ScanFolder folder;
  Import(folder, {{.format = 6, .records = {Note(1, "mine")}, .seed = 1},
                  {.format = 7, .encoding = kWktBit, .records = {Wkt("HERE")}, .seed = 2},
                  {.format = 7, .encoding = kWktBit, .records = {Wkt("THERE")}, .seed = 3},
                  {.format = 6, .records = {GeoKeys(2992), Note(2, "theirs")}, .seed = 4}});
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ExportTo(folder, name);
    const Written written(folder / name);
    EXPECT_THAT(written.records,
                ElementsAre("someone 1 mine", "LASF_Projection 2112 HERE", "someone 2 theirs"));
    EXPECT_EQ(written.Flags() & kWktBit, kWktBit);
  }
}

TEST(MergedRecords, HaveAllRecordsOfThatSystemAndItsFlag) {
  const ScanFolder folder;
  Import(folder,
         {{.format = 1, .encoding = kAdjustedTime, .seed = 1},
          {.format = 2, .encoding = kWktBit, .records = {GeoKeys(2992), Wkt("HERE")}, .seed = 2},
          {.format = 3, .records = {GeoKeys(2993)}, .seed = 3}});
  for (const char* name : {"out.las", "out.laz"}) {
    SCOPED_TRACE(name);
    ExportTo(folder, name);
    const Written written(folder / name);
    EXPECT_EQ(written.header.pointFormat, 3);
    EXPECT_THAT(written.records,
                ElementsAre("LASF_Projection 34735 2992", "LASF_Projection 2112 HERE"));
    EXPECT_EQ(written.Flags(), kWktBit | kAdjustedTime);
  }
}

TEST(MergedRecords, HaveNoFlagOfASystemThatIsNotTaken) {
  const ScanFolder folder;
  // The first one's says nothing.
  Import(folder, {{.format = 1, .encoding = kWktBit, .records = {Wkt("")}, .seed = 1},
                  {.format = 2, .records = {GeoKeys(2992)}, .seed = 2},
                  {.format = 2, .encoding = kWktBit, .records = {Wkt("THERE")}, .seed = 3}});
  ExportTo(folder, "out.las");
  const Written written(folder / "out.las");
  EXPECT_THAT(written.records, ElementsAre("LASF_Projection 34735 2992"));
  EXPECT_EQ(written.Flags(), 0u);
}

/// The records of files of two such sources in either order.
void ExpectRecords(const Source& a, const Source& b, const std::vector<std::string>& expected,
                   unsigned flags) {
  for (const std::vector<Source>& sources : {std::vector{a, b}, std::vector{b, a}}) {
    const ScanFolder folder;
    Import(folder, sources);
    for (const char* name : kFileNames) {
      SCOPED_TRACE(name);
      ExportTo(folder, name);
      const Written written(folder / name);
      EXPECT_THAT(written.records, UnorderedElementsAreArray(expected));
      EXPECT_EQ(written.Flags(), flags);
      EXPECT_EQ(written.header.pointCount, 80u);
      std::unique_ptr<ScanFile> scan;
      ASSERT_TRUE(IsOk(OpenScan(folder / name, scan)));
      ScanWorkspace workspace{std::uint64_t{1} << 30, {}, {}};
      EXPECT_TRUE(IsOk(scan->Prepare(workspace)));
    }
  }
}

TEST(RecordsOfScansOfOneLayout, AreAllKeptInEitherOrder) {
  const Source plain{.records = {Note(1, "mine"), Note(2, "both")},
                     .extendedRecords = {Note(3, "far")},
                     .seed = 1};
  const Source withSystem{.encoding = kWktBit,
                          .records = {Note(2, "both"), Wkt("HERE"), Note(1, "theirs")},
                          .extendedRecords = {Note(4, "farther"), Note(3, "far")},
                          .seed = 2};
  ExpectRecords(plain, withSystem,
                {"someone 1 mine", "someone 2 both", "LASF_Projection 2112 HERE",
                 "someone 1 theirs", "someone 3 far extended", "someone 4 farther extended"},
                kWktBit);
}

TEST(RecordsOfScansOfOneLayout, HoldASystemThatStandsBehindThePointsOfALaterOne) {
  ExpectRecords({.seed = 1}, {.encoding = kWktBit, .extendedRecords = {Wkt("HERE")}, .seed = 2},
                {"LASF_Projection 2112 HERE extended"}, kWktBit);
}

TEST(RecordsOfScansOfOneLayout, ReplaceASystemThatSaysNothing) {
  const ScanFolder folder;
  Import(folder, {{.records = {Wkt(""), Note(1, "mine")}, .extendedRecords = {Wkt("")}, .seed = 1},
                  {.encoding = kWktBit, .records = {Wkt("HERE")}, .seed = 2}});
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ExportTo(folder, name);
    EXPECT_THAT(Written(folder / name).records,
                ElementsAre("someone 1 mine", "LASF_Projection 2112 HERE"));
  }
}

TEST(RecordsOfScansOfOneLayout, MakeAFileOfANewerVersionWhereTheyAskForIt) {
  const ScanFolder folder;
  Import(folder,
         {{.format = 3, .minor = 2, .records = {Note(1, "mine")}, .headerPadding = 9, .seed = 1},
          {.format = 3, .encoding = kWktBit, .extendedRecords = {Wkt("HERE")}, .seed = 2}});
  for (const char* name : {"out.las", "out.laz"}) {
    SCOPED_TRACE(name);
    ExportTo(folder, name);
    const Written written(folder / name);
    EXPECT_EQ(written.header.versionMinor, 4);
    EXPECT_EQ(written.header.pointCount, 80u);
    EXPECT_THAT(written.records,
                ElementsAre("someone 1 mine", "LASF_Projection 2112 HERE extended"));
  }
}

TEST(RecordsOfScansOfOneLayout, LeaveTheWavePacketsOfTheFirstOneWhereTheHeaderSays) {
  const LasBuilder::Record waves{"LASF_Spec", 65535, Bytes(30, 7)};
  const ScanFolder folder;
  Bytes first = FileOf({.extendedRecords = {Note(1, "mine"), waves}});
  const auto extendedAt = LasBuilder::Get<std::uint64_t>(first, 235);
  LasBuilder::Put(first, 227, std::uint64_t{extendedAt + 60 + 4});
  const Bytes second =
      FileOf({.records = {Wkt("HERE")}, .extendedRecords = {Note(2, "theirs"), waves}, .seed = 2});
  folder.Import({folder.Add("0.las", first), folder.Add("1.las", second)});
  for (const char* name : {"out.las", "out.laz"}) {
    SCOPED_TRACE(name);
    ExportTo(folder, name);
    const Written written(folder / name);
    const auto& records = written.header.records;
    const auto wavesAt = std::ranges::find(records, 65535, &LasVariableRecord::recordId);
    ASSERT_NE(wavesAt, records.end());
    EXPECT_EQ(written.header.waveformOffset, wavesAt->payloadOffset - 60);
    EXPECT_EQ(std::ranges::count(records, 65535, &LasVariableRecord::recordId), 1);
    EXPECT_EQ(records.back().recordId, 2);
  }
}

TEST(RecordsOfScansOfOneLayout, LeaveTheFirstHeaderAsItIsWhereOthersAddNothing) {
  const ScanFolder folder;
  Import(folder, {{.format = 3, .minor = 2, .records = {Note(1, "mine")}, .headerPadding = 9},
                  {.format = 3, .records = {Note(1, "mine")}, .seed = 2}});
  ExportTo(folder, "out.las");
  const Bytes before = ReadFile(folder / "0.las");
  const Bytes after = ReadFile(folder / "out.las");
  constexpr std::size_t kCountsAt = 107;
  constexpr std::size_t kHeadBytes = 227;
  const std::size_t pointsAt = LasBuilder::Get<std::uint32_t>(before, 96);
  EXPECT_TRUE(std::equal(before.begin(), before.begin() + kCountsAt, after.begin()));
  EXPECT_TRUE(std::equal(before.begin() + kHeadBytes,
                         before.begin() + static_cast<std::ptrdiff_t>(pointsAt),
                         after.begin() + kHeadBytes));
}

}  // namespace
}  // namespace tarnhost
