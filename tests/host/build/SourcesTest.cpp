// Several scans in one cloud: what file each point is of, and scans of different layouts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "host/build/Append.h"
#include "host/build/PointLayout.h"
#include "host/build/ScanInputs.h"
#include "host/cloud/Export.h"
#include "host/cloud/Verify.h"
#include "host/select/Select.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/ScanContent.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::brute::LasFile;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

void ExpectSound(const fs::path& repository) {
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(repository, {}, report)));
  for (const Fault& fault : report.faults) ADD_FAILURE() << fault.stream << ": " << fault.what;
}

std::uint64_t CountOf(Cloud& cloud, const std::string& text) {
  SelectOptions options;
  options.text = text;
  SelectReport report;
  EXPECT_TRUE(IsOk(Select(cloud, options, nullptr, report))) << text;
  return report.selected;
}

std::uint64_t CountFrom(Cloud& cloud, const std::string& source) {
  return CountOf(cloud, "#num{type=string}(\"source\", ==, \"" + source + "\")");
}

bool HasColumn(const Cloud& cloud, const std::string& name) {
  return std::ranges::find(cloud.GetColumns(), name, &CloudColumn::name) !=
         cloud.GetColumns().end();
}

Outcome Append(const ScanFolder& folder, std::vector<fs::path> inputs,
               std::vector<std::string>* warnings = nullptr) {
  ImportOptions options = folder.Options(std::move(inputs));
  options.timePoint = 1000 + folder.Open()->GetIterationCount();
  if (warnings != nullptr) {
    options.notice = [warnings](const std::string& text) { warnings->push_back(text); };
  }
  ImportReport report;
  return AppendScans(options, report);
}

/// A scan of a format with so many points in a small cube, with its scale and offset.
Bytes Scan(unsigned format, std::uint32_t count, std::array<double, 3> scale = {0.01, 0.02, 0.001},
           std::array<double, 3> offset = {1000, -2000, 3}, unsigned seed = 1) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = count;
  builder.scale = scale;
  builder.offset = offset;
  builder.seed = seed;
  Bytes file = builder.Build();
  oocpctest::PlacePoints(file, oocpctest::RandomPositions(count, 100000, seed));
  return file;
}

TEST(SourceNames, AreThoseOfTheFilesWithTheirFoldersWhereTakenAndNumbersWhereThatIsToo) {
  std::set<std::string> taken;
  EXPECT_EQ(NameSource("/scans/north/a.las", taken), "a.las");
  EXPECT_EQ(NameSource("/scans/south/a.las", taken), "south/a.las");
  EXPECT_EQ(NameSource("/other/south/a.las", taken), "a.las (2)");
  EXPECT_EQ(NameSource("/more/south/a.las", taken), "a.las (3)");
  EXPECT_EQ(NameSource("/scans/north/b.las", taken), "b.las");
}

TEST(Sources, AreToldOfEachPointOfSeveralScans) {
  const ScanFolder folder;
  fs::create_directory(folder / "south");
  folder.Import({folder.Add("a.las", Scan(3, 100)), folder.Add("b.las", Scan(3, 50)),
                 folder.Add("south/a.las", Scan(3, 7))});
  ExpectSound(folder.Repository());
  const auto cloud = folder.Open();
  EXPECT_EQ(CountFrom(*cloud, "a.las"), 100u);
  EXPECT_EQ(CountFrom(*cloud, "b.las"), 50u);
  EXPECT_EQ(CountFrom(*cloud, "south/a.las"), 7u);
  EXPECT_EQ(CountOf(*cloud, "#num{type=string}(\"source\", <, \"b\")"), 100u);
}

TEST(Sources, AreNotStoredOfOneScanUnlessAskedFor) {
  const ScanFolder folder;
  const auto scan = folder.Add("a.las", Scan(3, 100));
  folder.Import({scan});
  EXPECT_FALSE(HasColumn(*folder.Open(), "source"));
  EXPECT_EQ(folder.Open()->GetPointCloud().GetDataRepository()->GetStringRepository(), nullptr);
  ImportOptions options = folder.Options({scan});
  options.overwrite = true;
  options.nameSources = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_EQ(CountFrom(*folder.Open(), "a.las"), 100u);
}

TEST(Sources, AreToldWhereThePointsDoNotFitIntoMemory) {
  const ScanFolder folder;
  ImportOptions options =
      folder.Options({folder.Add("a.las", ScanOf(700000)), folder.Add("b.las", ScanOf(500000, 3))});
  options.memoryBytes = 1;  // as little as there can be
  options.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  const auto cloud = folder.Open();
  EXPECT_EQ(CountFrom(*cloud, "a.las"), 700000u);
  EXPECT_EQ(CountFrom(*cloud, "b.las"), 500000u);
  EXPECT_EQ(CountOf(*cloud,
                    "#and(#num{type=double}(\"source_index\", <, 700000), "
                    "#num{type=string}(\"source\", ==, \"a.las\"))"),
            700000u);
}

TEST(Sources, AreToldOfAppendedPointsWhereTheyAreOfTheOthers) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", Scan(3, 100));
  folder.Import({a, folder.Add("b.las", Scan(3, 50))});
  ASSERT_TRUE(IsOk(Append(folder, {a, folder.Add("c.las", Scan(3, 9))})));
  ASSERT_TRUE(IsOk(Append(folder, {folder.Add("d.las", Scan(3, 4))})));
  ExpectSound(folder.Repository());
  const auto cloud = folder.Open();
  const std::string parent = folder.Path().filename().string();
  EXPECT_EQ(CountFrom(*cloud, "a.las"), 100u);
  EXPECT_EQ(CountFrom(*cloud, parent + "/a.las"), 100u);
  EXPECT_EQ(CountFrom(*cloud, "c.las"), 9u);
  EXPECT_EQ(CountFrom(*cloud, "d.las"), 4u);
}

TEST(Sources, AreNotToldOfAppendedPointsWhereTheyAreNotOfTheOthers) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", Scan(3, 100))});
  ASSERT_TRUE(IsOk(Append(folder, {folder.Add("b.las", Scan(3, 50))})));
  EXPECT_FALSE(HasColumn(*folder.Open(), "source"));
  ExpectSound(folder.Repository());
}

TEST(Sources, LeaveTheirNamesFreeInScans) {
  LasBuilder builder;
  builder.extraBytes = 9;
  builder.Describe(
      {LasBuilder::Descriptor(1, "source"), LasBuilder::Descriptor(7, "source_index")});
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", builder.Build()), folder.Add("b.las", builder.Build())});
  const auto cloud = folder.Open();
  EXPECT_TRUE(HasColumn(*cloud, "source_2"));
  EXPECT_TRUE(HasColumn(*cloud, "source_index_2"));
  EXPECT_EQ(CountFrom(*cloud, "b.las"), 5u);
}

TEST(RepeatedSources, AreWarnedOfInAnImport) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", Scan(3, 10));
  ImportOptions options =
      folder.Options({a, folder.Add("b.las", Scan(3, 10)), folder.Path() / "." / "a.las"});
  std::vector<std::string> warnings;
  options.notice = [&](const std::string& text) { warnings.push_back(text); };
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_EQ(report.pointCount, 30u);
  EXPECT_THAT(warnings, ElementsAre(HasSubstr("named more than once")));
}

TEST(RepeatedSources, AreWarnedOfInAnAppend) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", Scan(3, 10));
  folder.Import({a});
  std::vector<std::string> warnings;
  ASSERT_TRUE(IsOk(Append(folder, {a}, &warnings)));
  EXPECT_THAT(warnings, ElementsAre(HasSubstr("a.las seems to be in the cloud already")));
  EXPECT_EQ(CountOf(*folder.Open(), "#true()"), 20u) << "it is done all the same";
  warnings.clear();
  fs::create_directory(folder / "other");
  ASSERT_TRUE(IsOk(
      Append(folder,
             {folder.Add("b.las", Scan(3, 10)),
              folder.Add("other/a.las", Scan(3, 10, {0.01, 0.02, 0.001}, {1000, -2000, 3}, 2))},
             &warnings)));
  EXPECT_THAT(warnings, IsEmpty()) << "another name, and another header";
}

/// A scan that states a coordinate system as WKT does.
Bytes ScanIn(const std::string& system) {
  LasBuilder builder;
  builder.pointCount = 10;
  Bytes wkt(system.begin(), system.end());
  wkt.push_back(0);
  if (!system.empty()) builder.records.push_back({"LASF_Projection", 2112, wkt});
  return builder.Build();
}

TEST(OtherCoordinateSystems, AreToldOfInAnImport) {
  const ScanFolder folder;
  ImportOptions options = folder.Options({folder.Add("none.las", ScanIn("")),
                                          folder.Add("a.las", ScanIn("PROJCS[\"here\"]")),
                                          folder.Add("b.las", ScanIn("PROJCS[\"there\"]")),
                                          folder.Add("c.las", ScanIn("PROJCS[\"here\"]"))});
  std::vector<std::string> notes;
  options.notice = [&](const std::string& text) { notes.push_back(text); };
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_THAT(notes, ElementsAre(HasSubstr("b.las: its coordinate system is there, that of the "
                                           "cloud here")));
}

TEST(OtherCoordinateSystems, AreToldOfInAnAppend) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", ScanIn("PROJCS[\"here\"]"))});
  std::vector<std::string> notes;
  ASSERT_TRUE(IsOk(
      Append(folder,
             {folder.Add("none.las", ScanIn("")), folder.Add("b.las", ScanIn("PROJCS[\"there\"]"))},
             &notes)));
  EXPECT_THAT(notes, ElementsAre(HasSubstr("b.las: its coordinate system is there")));
}

TEST(OtherCoordinateSystems, MayBeTheSameInAnotherNotation) {
  const ScanFolder folder;
  const std::string byNumber = "EPSG:26912";  // as keys give it
  ImportOptions options = folder.Options(
      {folder.Add("a.las", ScanIn("PROJCS[\"UTM\",AUTHORITY[\"EPSG\",\"26912\"]]")),
       folder.Add("b.las", ScanIn(byNumber)), folder.Add("c.las", ScanIn("EPSG:26913"))});
  std::vector<std::string> notes;
  options.notice = [&](const std::string& text) { notes.push_back(text); };
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_THAT(notes, ElementsAre(HasSubstr("c.las: its coordinate system is EPSG:26913")));
}

/// A scan whose header says how its GPS times count.
Bytes TimedScan(unsigned format, bool isAdjusted, std::uint32_t points = 10) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = points;
  Bytes file = builder.Build();
  LasBuilder::Put(file, 6, static_cast<std::uint16_t>(isAdjusted ? 1 : 0));
  return file;
}

TEST(OtherGpsTimes, AreToldOfInAnImport) {
  const ScanFolder folder;
  ImportOptions options = folder.Options(
      {folder.Add("untimed.las", TimedScan(0, false)),
       folder.Add("none.las", TimedScan(1, false, 0)), folder.Add("a.las", TimedScan(1, true)),
       folder.Add("b.las", TimedScan(6, false)), folder.Add("c.las", TimedScan(3, true))});
  std::vector<std::string> notes;
  options.notice = [&](const std::string& text) { notes.push_back(text); };
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_THAT(notes, ElementsAre(HasSubstr("b.las: its GPS times are seconds of the week, those of "
                                           "the cloud adjusted standard seconds")));
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.las", {}, points)));
  EXPECT_EQ(oocpctest::ReadFile(folder / "out.las")[6] & 1, 1) << "that of the first times";
}

TEST(OtherGpsTimes, AreToldOfInAnAppend) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", TimedScan(3, false))});
  std::vector<std::string> notes;
  ASSERT_TRUE(IsOk(Append(
      folder,
      {folder.Add("b.las", TimedScan(3, true)), folder.Add("untimed.las", TimedScan(2, true))},
      &notes)));
  EXPECT_THAT(notes, ElementsAre(HasSubstr("b.las: its GPS times are adjusted standard seconds")));
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

std::uint64_t CountKind(Cloud& cloud, const std::string& kind) {
  return CountOf(cloud, "#num{type=string}(\"kind\", ==, \"" + kind + "\")");
}

/// Points whose kind is none of these; queries cannot ask for the empty text itself.
std::uint64_t CountWithout(Cloud& cloud, const std::vector<std::string>& kinds) {
  std::string text;
  for (const std::string& kind : kinds) {
    text += (text.empty() ? "" : ", ");
    text += "#not(#num{type=string}(\"kind\", ==, \"" + kind + "\"))";
  }
  return CountOf(cloud, "#and(" + text + ")");
}

TEST(TextsOfPoints, AreFoundByQueries) {
  const ScanFolder folder;
  folder.Import(
      {folder.Add("a.csv", Text("x,y,z,kind\n1,2,3,ground\n4,5,6,tree\n7,8,9,ground\n"))});
  const auto cloud = folder.Open();
  EXPECT_EQ(CountKind(*cloud, "ground"), 2u);
  EXPECT_EQ(CountKind(*cloud, "tree"), 1u);
  EXPECT_EQ(CountKind(*cloud, "roof"), 0u);
  ExpectSound(folder.Repository());
}

TEST(TextsOfPoints, AreThoseOfEachScanAndEmptyWhereAScanHasNone) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.xyz", Text("1 2 3 8\n1 2 3 9\n")),
                 folder.Add("b.csv", Text("x,y,z,kind\n1,2,3,tree\n1,2,3,ground\n1,2,3,b.csv\n"))});
  const auto cloud = folder.Open();
  EXPECT_EQ(CountWithout(*cloud, {"tree", "ground", "b.csv"}), 2u) << "no text is no source's name";
  EXPECT_EQ(CountKind(*cloud, "tree"), 1u);
  EXPECT_EQ(CountKind(*cloud, "b.csv"), 1u) << "also the name of a source";
  EXPECT_EQ(CountFrom(*cloud, "b.csv"), 3u);
  EXPECT_EQ(CountFrom(*cloud, "a.xyz"), 2u);
  ExpectSound(folder.Repository());
}

TEST(TextsOfPoints, AreAppendedWithTheNumbersThatTheCloudHasForThem) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.csv", Text("x,y,z,kind\n1,2,3,ground\n1,2,3,tree\n"))});
  ASSERT_TRUE(IsOk(Append(
      folder, {folder.Add("b.csv", Text("x,y,z,kind\n1,2,4,roof\n1,2,4,tree\n1,2,4,tree\n"))})));
  ASSERT_TRUE(IsOk(Append(folder, {folder.Add("c.xyz", Text("1 2 5\n"))})));
  const auto cloud = folder.Open();
  EXPECT_EQ(CountKind(*cloud, "ground"), 1u);
  EXPECT_EQ(CountKind(*cloud, "tree"), 3u);
  EXPECT_EQ(CountKind(*cloud, "roof"), 1u);
  EXPECT_EQ(CountWithout(*cloud, {"ground", "tree", "roof"}), 1u);
  const auto* dictionary = cloud->GetPointCloud().GetDataRepository()->GetStringRepository();
  ASSERT_NE(dictionary, nullptr);
  EXPECT_EQ(dictionary->GetCount(), 4u) << "each text once";
  ExpectSound(folder.Repository());
}

TEST(TextsOfPoints, AreNotMergedWithNumbers) {
  const ScanFolder folder;
  ImportReport report;
  const Outcome outcome =
      ImportScans(folder.Options({folder.Add("a.csv", Text("x,y,z,kind\n1,2,3,ground\n")),
                                  folder.Add("b.csv", Text("x,y,z,kind\n1,2,3,4\n"))}),
                  report);
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_THAT(outcome.what, HasSubstr("kind"));
}

// Scans of different layouts.

/// What a point of a scan has to be in the cloud of all: the number of a field; 0 without it.
double Expected(const LasFile& scan, const oocpctest::brute::Field& field, bool finer,
                std::uint64_t point) {
  const auto* own = scan.FindField(field.name);
  if (own == nullptr) return 0;
  const double number = scan.GetValue(*own, point).number;
  return finer && field.name == "scan_angle" ? std::round(number / 0.006) : number;
}

/// Checks that a file holds all points of scans, one scan after the other, every field of each.
void ExpectAll(const fs::path& file, const std::vector<fs::path>& scans, unsigned format) {
  LasFile out;
  ASSERT_TRUE(out.Load(file));
  EXPECT_EQ(out.GetBytes()[104], format);
  std::uint64_t at = 0;
  for (const fs::path& path : scans) {
    LasFile scan;
    ASSERT_TRUE(scan.Load(path));
    const bool finer = format >= 6 && scan.GetBytes()[104] < 6;
    for (const auto& field : scan.GetFields()) EXPECT_NE(out.FindField(field.name), nullptr);
    ASSERT_LE(at + scan.GetPointCount(), out.GetPointCount());
    for (std::uint64_t i = 0; i < scan.GetPointCount(); ++i) {
      for (const auto& field : out.GetFields()) {
        const double expected = Expected(scan, field, finer, i);
        const double found = out.GetValue(field, at + i).number;
        if (field.kind == oocpctest::brute::Field::Kind::kCoordinate) {
          ASSERT_NEAR(found, expected, 1e-9) << field.name;
        } else if (!(std::isnan(expected) && std::isnan(found))) {
          ASSERT_EQ(found, expected) << field.name << " of point " << i << " of " << path;
        }
      }
    }
    at += scan.GetPointCount();
  }
  EXPECT_EQ(at, out.GetPointCount());
}

/// Imports scans with their order, exports them, and checks that.
void ExpectMerged(const ScanFolder& folder, const std::vector<fs::path>& scans, unsigned format) {
  ImportOptions options = folder.Options(scans);
  options.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  ExpectSound(folder.Repository());
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.las", {}, points)));
  ExpectAll(folder / "out.las", scans, format);
}

struct FormatPair {
  unsigned a;
  unsigned b;
  unsigned merged;
};

class MixedFormats : public ::testing::TestWithParam<FormatPair> {};

TEST_P(MixedFormats, BecomeTheSmallestThatHoldsBoth) {
  const ScanFolder folder;
  const auto [a, b, merged] = GetParam();
  ExpectMerged(folder,
               {folder.Add("a.las", Scan(a, 300)),
                folder.Add("b.las", Scan(b, 200, {0.01, 0.02, 0.001}, {1000, -2000, 3}, 7))},
               merged);
}

INSTANTIATE_TEST_SUITE_P(Pairs, MixedFormats,
                         ::testing::Values(FormatPair{0, 1, 1}, FormatPair{1, 2, 3},
                                           FormatPair{3, 0, 3}, FormatPair{4, 2, 5},
                                           FormatPair{0, 6, 6}, FormatPair{3, 7, 7},
                                           FormatPair{6, 8, 8}, FormatPair{8, 9, 10},
                                           FormatPair{2, 6, 7}, FormatPair{7, 4, 10}),
                         [](const auto& info) {
                           return std::to_string(info.param.a) + "And" +
                                  std::to_string(info.param.b);
                         });

TEST(MixedScans, KeepExtraBytesOfEach) {
  LasBuilder a;
  a.format = 1;
  a.pointCount = 40;
  a.extraBytes = 10;
  a.Describe({LasBuilder::Descriptor(10, "Height", 8 | 16), LasBuilder::Descriptor(3, "Echo")});
  LasBuilder b;
  b.format = 0;
  b.pointCount = 30;
  b.seed = 5;
  b.extraBytes = 5;
  b.Describe({LasBuilder::Descriptor(5, "Echo", 1), LasBuilder::Descriptor(2, "Offset")});
  const ScanFolder folder;
  ExpectMerged(folder, {folder.Add("a.las", a.Build()), folder.Add("b.las", b.Build())}, 1);
  // What the descriptors say beyond names and types comes along; Echo, now wider, keeps no bounds.
  std::unique_ptr<ScanFile> out;
  ASSERT_TRUE(IsOk(OpenScan(folder / "out.las", out)));
  LasHeader header;
  ASSERT_TRUE(IsOk(ParseLasFrame(out->GetLeadingBytes(), out->GetPointCount(),
                                 out->GetTrailingBytes(), "out", header)));
  ASSERT_EQ(header.extraByteDescriptors.size(), 3 * kExtraByteDescriptorBytes);
  EXPECT_EQ(header.extraByteDescriptors[3], 8 | 16);
  EXPECT_EQ(header.extraByteDescriptors[kExtraByteDescriptorBytes + 2], 5);
}

TEST(MixedScans, KeepRecordsOfEachButOneCoordinateSystem) {
  LasBuilder a;
  a.format = 0;
  a.records = {{"LASF_Projection", 34735, Bytes(8, 1)}, {"someone", 5, Bytes(3, 3)}};
  LasBuilder b;
  b.format = 6;
  b.records = {{"LASF_Projection", 34735, Bytes(8, 2)},
               {"someone", 5, Bytes(3, 3)},
               {"someone", 6, Bytes(4, 4)}};
  b.extendedRecords = {{"else", 7, Bytes(50, 9)}};
  const ScanFolder folder;
  ExpectMerged(folder, {folder.Add("a.las", a.Build()), folder.Add("b.las", b.Build())}, 6);
  std::unique_ptr<ScanFile> out;
  ASSERT_TRUE(IsOk(OpenScan(folder / "out.las", out)));
  LasHeader header;
  ASSERT_TRUE(IsOk(ParseLasFrame(out->GetLeadingBytes(), out->GetPointCount(),
                                 out->GetTrailingBytes(), "out", header)));
  std::vector<std::string> records;
  for (const LasVariableRecord& record : header.records) {
    records.push_back(record.userId + " " + std::to_string(record.recordId));
  }
  EXPECT_THAT(records, ElementsAre("LASF_Projection 34735", "someone 5", "someone 6", "else 7"));
  EXPECT_EQ(out->GetLeadingBytes()[header.records[0].payloadOffset], 1);
  EXPECT_EQ(out->GetTrailingBytes().back(), 9);
}

/// A PLY file of one point with 8-bit colours, in whole units.
Bytes PlyWithColor(const std::string& point, const std::string& color) {
  return Text(
      "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
      "property float z\nproperty uchar red\nproperty uchar green\nproperty uchar blue\n"
      "end_header\n" +
      point + " " + color + "\n");
}

TEST(MixedScans, SpreadColorsOf8BitsOver16WhereOthersHaveThese) {
  LasBuilder las;
  las.format = 2;
  las.pointCount = 2;
  las.scale = {0.01, 0.01, 0.01};
  las.offset = {0, 0, 0};
  Bytes colored = las.Build();
  oocpctest::PlacePoints(colored, {{0, 0, 0}, {1000, 1000, 1000}});
  const oocpctest::ScanContent before(
      "a.las", {reinterpret_cast<const char*>(colored.data()), colored.size()});
  std::vector<double> expected = before.Values("DEF_COLOR");
  expected.insert(expected.end(), {0, 128 * 257, 65535});
  const Bytes ply = PlyWithColor("1 2 3", "0 128 255");
  for (const bool isAppended : {false, true}) {
    const ScanFolder folder;
    const fs::path a = folder.Add("a.las", colored);
    const fs::path b = folder.Add("b.ply", ply);
    ImportOptions options = folder.Options({a});
    options.keepOrder = true;
    if (!isAppended) options.inputs.push_back(b);
    ImportReport report;
    ASSERT_TRUE(IsOk(ImportScans(options, report)));
    if (isAppended) {
      ASSERT_TRUE(IsOk(Append(folder, {b})));
    }
    ExpectSound(folder.Repository());
    std::uint64_t points = 0;
    ASSERT_TRUE(
        IsOk(ExportLas(*folder.Open(), isAppended ? 1 : 0, folder / "out.las", {}, points)));
    EXPECT_THAT(oocpctest::ScanContent(folder / "out.las").Values("DEF_COLOR"),
                ElementsAreArray(expected));
  }
}

TEST(MixedScans, LeaveColorsOf8BitsWhereAllHaveThese) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.ply", PlyWithColor("1 2 3", "0 128 255")),
                 folder.Add("b.ply", PlyWithColor("4 2 3", "1 2 3"))});
  const auto cloud = folder.Open();
  const auto color = std::ranges::find(cloud->GetColumns(), "DEF_COLOR", &CloudColumn::name);
  ASSERT_NE(color, cloud->GetColumns().end());
  EXPECT_EQ(color->type, (oocpc::ColumnType{oocpc::ValueType::kUInt8, 3}));
}

TEST(MixedScans, ConvertScalesAndOffsetsExactly) {
  const ScanFolder folder;
  ExpectMerged(folder,
               {folder.Add("a.las", Scan(3, 300, {0.01, 0.01, 0.01}, {1000, -2000, 3})),
                folder.Add("b.las", Scan(3, 200, {0.001, 0.001, 0.001}, {1000, -2500.5, 0})),
                folder.Add("c.las", Scan(3, 100, {0.005, -0.01, 0.01}, {990, 0, 0}))},
               3);
  if (HasFatalFailure()) return;
  EXPECT_EQ(folder.Open()->GetTransform().scale, (oocpc::Vector3d{0.001, 0.001, 0.001}));
}

TEST(MixedScans, AreRefusedWhereIntegersOverflow) {
  const ScanFolder folder;
  auto wide = Scan(3, 2, {0.01, 0.01, 0.01}, {0, 0, 0});
  oocpctest::PlacePoints(wide, {{0, 0, 0}, {2000000000, 0, 0}});
  for (std::size_t at = 179; at < 227; at += 8) LasBuilder::Put(wide, at, 0.0);
  ImportReport report;
  // The header states a box of one place: the points themselves tell.
  const Outcome outcome =
      ImportScans(folder.Options({folder.Add("a.las", wide),
                                  folder.Add("b.las", Scan(3, 5, {0.001, 0.01, 0.01}, {0, 0, 0}))}),
                  report);
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_THAT(outcome.what, HasSubstr("do not fit into 32 bits"));
  EXPECT_THAT(folder.List(), ElementsAre("a.las", "b.las"));
}

TEST(MixedScans, AreRefusedWithoutACommonStep) {
  const ScanFolder folder;
  ImportReport report;
  const Outcome outcome = ImportScans(
      folder.Options({folder.Add("a.las", Scan(3, 5, {0.01, 0.01, 0.01}, {123456.7, 0, 0})),
                      folder.Add("b.las", Scan(3, 5, {1e-15, 0.01, 0.01}, {0, 0, 0}))}),
      report);
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_FALSE(outcome.what.empty());
}

TEST(MixedScans, AreRefusedWhereNoTypeHoldsBoth) {
  LasBuilder a;
  a.extraBytes = 8;
  a.Describe({LasBuilder::Descriptor(7, "Stamp")});
  LasBuilder b;
  b.extraBytes = 8;
  b.Describe({LasBuilder::Descriptor(10, "Stamp")});
  const ScanFolder folder;
  ImportReport report;
  const Outcome outcome = ImportScans(
      folder.Options({folder.Add("a.las", a.Build()), folder.Add("b.las", b.Build())}), report);
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_THAT(outcome.what, HasSubstr("Stamp (double)"));
  EXPECT_THAT(outcome.where, HasSubstr("b.las"));
}

TEST(MixedScans, AreAppendedWhereTheCloudHoldsThem) {
  const ScanFolder folder;
  const std::vector<fs::path> scans{
      folder.Add("a.las", Scan(3, 300, {0.001, 0.001, 0.001}, {0, 0, 0})),
      folder.Add("b.las", Scan(1, 100, {0.01, 0.002, 0.001}, {5, 7.5, 0})),
      folder.Add("c.las", Scan(0, 50, {0.001, 0.001, 0.001}, {0, 0, 0}, 3))};
  ImportOptions options = folder.Options({scans[0]});
  options.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  ASSERT_TRUE(IsOk(Append(folder, {scans[1]})));
  ASSERT_TRUE(IsOk(Append(folder, {scans[2]})));
  ExpectSound(folder.Repository());
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 2, folder / "out.las", {}, points)));
  ExpectAll(folder / "out.las", scans, 3);
  fs::remove(folder / "out.las");
  ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / "out.las", {}, points)));
  EXPECT_TRUE(oocpctest::ReadFile(folder / "out.las") == oocpctest::ReadFile(scans[0]))
      << "the first iteration is the first scan, byte for byte";
}

TEST(MixedScans, AreNotAppendedWhereTheCloudLacksADimensionOrAStep) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", Scan(1, 30, {0.01, 0.01, 0.01}, {0, 0, 0}))});
  Outcome outcome =
      Append(folder, {folder.Add("b.las", Scan(3, 10, {0.01, 0.01, 0.01}, {0, 0, 0}))});
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_THAT(outcome.what, HasSubstr("DEF_COLOR"));
  outcome = Append(folder, {folder.Add("c.las", Scan(1, 10, {0.001, 0.01, 0.01}, {0, 0, 0}))});
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  EXPECT_THAT(outcome.what, HasSubstr("between the steps"));
  EXPECT_THAT(outcome.where, HasSubstr("c.las"));
  EXPECT_EQ(folder.Open()->GetIterationCount(), 1u);
}

}  // namespace
}  // namespace tarnhost
