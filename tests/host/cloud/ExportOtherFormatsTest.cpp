// Clouds that came from scans of other formats, written as LAS, LAZ and COPC.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "host/build/Append.h"
#include "host/cloud/Export.h"
#include "host/formats/laz/CopcWriter.h"
#include "host/lod/ExportCopc.h"
#include "tests/support/ScanContent.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace {

using oocpctest::Coordinates;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::PutNumber;
using oocpctest::ScanContent;
using oocpctest::ScanFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

/// A PLY file with 8-bit colours, an intensity that LAS would round, and a name LAS does not have.
std::vector<std::uint8_t> PlyFile() {
  std::string bytes =
      "ply\nformat binary_little_endian 1.0\nelement vertex 1\nproperty double x\n"
      "property double y\nproperty double z\nproperty uchar red\nproperty uchar green\n"
      "property uchar blue\nproperty float intensity\nproperty uchar classification\n"
      "property int quality\nend_header\n";
  for (const double value : {500000.25, 4500000.5, -3.125}) PutNumber(bytes, value);
  bytes += std::string("\x00\x80\xFF", 3);
  PutNumber(bytes, 0.75F);
  bytes += '\x06';
  PutNumber(bytes, std::int32_t{-70000});
  return {bytes.begin(), bytes.end()};
}

void ExpectPoint(const ScanContent& scan) {
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{500000.25, 4500000.5, -3.125}));
  EXPECT_THAT(scan.Dimensions(), IsSupersetOf({"DEF_COLOR:uint16_t*3", "classification:uint8_t",
                                               "intensity_2:float", "quality:int32_t"}));
  EXPECT_THAT(scan.Values("DEF_COLOR"), ElementsAre(0, 0x8080, 0xFFFF));
  EXPECT_THAT(scan.Values("intensity"), ElementsAre(0));
  EXPECT_THAT(scan.Values("intensity_2"), ElementsAre(0.75));
  EXPECT_THAT(scan.Values("classification"), ElementsAre(6));
  EXPECT_THAT(scan.Values("quality"), ElementsAre(-70000));
}

TEST(ExportOtherFormats, MakesALasHeaderWithExtraBytes) {
  const ScanFolder folder;
  folder.Import({folder.Add("scan.ply", PlyFile())});
  const auto cloud = folder.Open();
  for (const char* name : {"out.las", "out.laz"}) {
    SCOPED_TRACE(name);
    std::uint64_t points = 0;
    ASSERT_TRUE(IsOk(tarnhost::ExportLas(*cloud, 0, folder / name, {}, points)));
    EXPECT_EQ(points, 1u);
    ExpectPoint(ScanContent(folder / name));
  }
  tarnhost::CopcReport report;
  ASSERT_TRUE(IsOk(tarnhost::ExportCopc(*cloud, 0, folder / "out.copc.laz", {}, report)));
  ExpectPoint(ScanContent(folder / "out.copc.laz"));
}

/// A cloud of a CSV file, whose columns have the types that LAS has for their names.
void ImportText(const ScanFolder& folder, const std::string& text) {
  folder.Import({folder.Add("scan.csv", {text.begin(), text.end()})});
}

void Append(const ScanFolder& folder, const std::filesystem::path& scan) {
  tarnhost::ImportOptions options = folder.Options({scan});
  options.timePoint = 1000;
  tarnhost::ImportReport report;
  EXPECT_TRUE(IsOk(tarnhost::AppendScans(options, report)));
}

/// The point format that a file states.
int FormatOf(const std::filesystem::path& path) { return oocpctest::ReadFile(path)[104] & 0x7F; }

/// What became of a cloud's export into a LAS, LAZ or COPC file.
tarnhost::Outcome ExportTo(const ScanFolder& folder, const std::string& name,
                           std::uint64_t iteration = 0) {
  const auto cloud = folder.Open();
  tarnhost::CopcReport copc;
  std::uint64_t points = 0;
  return tarnhost::IsCopcName(folder / name)
             ? tarnhost::ExportCopc(*cloud, iteration, folder / name, {}, copc)
             : tarnhost::ExportLas(*cloud, iteration, folder / name, {}, points);
}

constexpr std::array<const char*, 3> kFileNames{"out.las", "out.laz", "out.copc.laz"};

TEST(ExportOtherFormats, RefusesValuesThatNoPointFormatHasBitsFor) {
  const ScanFolder folder;
  ImportText(folder, "x,y,z,return_number\n1.5,2,3,1\n2.5,3,4,20\n");
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    const tarnhost::Outcome outcome = ExportTo(folder, name);
    EXPECT_EQ(outcome.code, oocpc::result::kScanUnsupported);
    EXPECT_THAT(outcome.what, HasSubstr("a return_number is larger than the"));
    EXPECT_FALSE(std::filesystem::exists(folder / name));
  }
}

TEST(ExportOtherFormats, ChoosesAPointFormatThatHasBitsForTheLargestValues) {
  const ScanFolder folder;
  ImportText(folder,
             "x,y,z,classification,return_number\n1.5,2,3,64,9\n2.5,3,4,2,1\n3.5,3,4,255,15\n");
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(IsOk(ExportTo(folder, name)));
    const ScanContent scan(folder / name);
    EXPECT_THAT(scan.Values("classification"), UnorderedElementsAre(64, 2, 255));
    EXPECT_THAT(scan.Values("return_number"), UnorderedElementsAre(9, 1, 15));
    EXPECT_EQ(FormatOf(folder / name), 6);
  }
}

TEST(ExportOtherFormats, KeepsTheShortestPointFormatWhereItsBitsAreEnough) {
  const ScanFolder folder;
  ImportText(folder, "x,y,z,classification,return_number\n1.5,2,3,31,7\n");
  ASSERT_TRUE(IsOk(ExportTo(folder, "out.las")));
  EXPECT_EQ(FormatOf(folder / "out.las"), 0);
}

TEST(ExportOtherFormats, LeavesTheFirstSourcesPointFormatWhereAppendedValuesTakeMoreBits) {
  LasBuilder builder;
  builder.format = 3;
  builder.minor = 2;
  builder.scale = {0.01, 0.01, 0.01};
  std::vector<std::uint8_t> las = builder.Build();
  oocpctest::PlacePoints(las, oocpctest::RandomPositions(builder.pointCount, 1000));
  const ScanFolder folder;
  const ScanContent before(folder.Add("scan.las", las));
  folder.Import({folder / "scan.las"});
  const std::string text = "x,y,z,classification\n1000.01,-1999.98,3.01,200\n";
  Append(folder, folder.Add("more.csv", {text.begin(), text.end()}));
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(IsOk(ExportTo(folder, name, 1)));
    EXPECT_EQ(FormatOf(folder / name), 7);
    const ScanContent after(folder / name);
    for (const char* dimension : {"classification", "gps_time", "DEF_COLOR", "withheld"}) {
      std::vector<double> values = before.Values(dimension);
      const bool isClass = dimension == std::string("classification");
      values.resize(values.size() + values.size() / builder.pointCount, isClass ? 200 : 0);
      EXPECT_THAT(after.Values(dimension), UnorderedElementsAreArray(values)) << dimension;
    }
    std::vector<double> angles;  // in the units of the newer formats
    for (const double degrees : before.Values("scan_angle")) {
      angles.push_back(std::round(degrees / 0.006));
    }
    angles.push_back(0);
    EXPECT_THAT(after.Values("scan_angle"), UnorderedElementsAreArray(angles));
    EXPECT_THAT(after.Values("scan_angle_2"), IsEmpty());
  }
}

TEST(ExportOtherFormats, WritesColorsOfOtherTypesAsThreeExtraBytes) {
  std::string ply =
      "ply\nformat ascii 1.0\nelement vertex 2\nproperty double x\nproperty double y\n"
      "property double z\nproperty uchar red_2\nproperty float red\nproperty float green\n"
      "property float blue\nproperty uchar user_data\nend_header\n";
  ply += "1 2 3 9 0.25 0.5 0.75 200\n2 3 4 8 1 0 0.125 100\n";
  const ScanFolder folder;
  folder.Import({folder.Add("scan.ply", {ply.begin(), ply.end()})});
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(IsOk(ExportTo(folder, name)));
    const ScanContent scan(folder / name);
    EXPECT_THAT(scan.Values("red_2"), UnorderedElementsAre(9, 8));
    EXPECT_THAT(scan.Values("red_3"), UnorderedElementsAre(0.25, 1));
    EXPECT_THAT(scan.Values("green_2"), UnorderedElementsAre(0.5, 0));
    EXPECT_THAT(scan.Values("blue_2"), UnorderedElementsAre(0.75, 0.125));
    EXPECT_THAT(scan.Values("user_data"), UnorderedElementsAre(200, 100));
  }
}

TEST(ExportOtherFormats, WritesTextColorsAboveSixteenBitsAsThreeExtraBytes) {
  const ScanFolder folder;
  ImportText(folder, "x,y,z,red,green,blue,nir\n1.5,2,3,70000,1,65536,7\n");
  for (const char* name : kFileNames) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(IsOk(ExportTo(folder, name)));
    const ScanContent scan(folder / name);
    EXPECT_THAT(scan.Dimensions(),
                IsSupersetOf({"red_2:int32_t", "green_2:int32_t", "blue_2:int32_t"}));
    EXPECT_THAT(scan.Values("red_2"), ElementsAre(70000));
    EXPECT_THAT(scan.Values("green_2"), ElementsAre(1));
    EXPECT_THAT(scan.Values("blue_2"), ElementsAre(65536));
    EXPECT_THAT(scan.Values("nir"), ElementsAre(7));
  }
}

TEST(ExportOtherFormats, RefusesMoreColumnsThanARecordDescribes) {
  for (const int columns : {341, 342}) {
    std::string names = "x,y,z";
    std::string values = "1.5,2,3";
    for (int i = 0; i < columns; ++i) {
      names += ",c" + std::to_string(i);
      values += "," + std::to_string(1000 + i);
    }
    const ScanFolder folder;
    ImportText(folder, names + "\n" + values + "\n");
    for (const char* name : kFileNames) {
      SCOPED_TRACE(name);
      const tarnhost::Outcome outcome = ExportTo(folder, name);
      if (columns == 341) {
        ASSERT_TRUE(IsOk(outcome));
        EXPECT_THAT(ScanContent(folder / name).Values("c340"), ElementsAre(1340));
      } else {
        EXPECT_EQ(outcome.code, oocpc::result::kScanUnsupported);
        EXPECT_THAT(outcome.what, HasSubstr("need 342 extra bytes dimensions"));
      }
    }
  }
}

TEST(ExportOtherFormats, WritesEveryRealScan) {
  const std::vector<std::filesystem::path> scans = oocpctest::TestScansOfOtherFormats();
  if (scans.empty()) GTEST_SKIP() << "no real scans at hand";
  for (const auto& source : scans) {
    SCOPED_TRACE(source.string());
    const ScanFolder folder;
    folder.Import({source});
    const auto cloud = folder.Open();
    std::uint64_t count = 0;
    ASSERT_TRUE(IsOk(tarnhost::ExportLas(*cloud, 0, folder / "out.las", {}, count)));
    const ScanContent before(source, {}, 1u << 24);
    const ScanContent after(folder / "out.las", {}, 1u << 24);
    ASSERT_TRUE(after.Ok()) << after.GetOutcome().what;
    auto a = before.Points();
    auto b = after.Points();
    std::ranges::sort(a);
    std::ranges::sort(b);
    EXPECT_EQ(a, b);
  }
}

}  // namespace
