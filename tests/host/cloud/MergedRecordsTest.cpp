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

}  // namespace
}  // namespace tarnhost
