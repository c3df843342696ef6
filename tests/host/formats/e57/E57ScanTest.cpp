// E57 files as scans: every kind of number, poses, spherical coordinates, and what is wrong with
// bad ones.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

#include "host/formats/e57/E57Schema.h"
#include "tests/support/E57Builder.h"
#include "tests/support/TestData.h"

namespace {

namespace result = oocpc::result;
using oocpctest::Coordinates;
using oocpctest::E57Builder;
using oocpctest::E57TestScan;
using oocpctest::PackBits;
using oocpctest::PackNumbers;
using oocpctest::PutNumber;
using oocpctest::Refuses;
using oocpctest::ScanContent;
using ::testing::DoubleNear;
using ::testing::ElementsAre;

const std::string kFloats =
    "<cartesianX type=\"Float\" precision=\"single\"/><cartesianY type=\"Float\" "
    "precision=\"single\"/><cartesianZ type=\"Float\" precision=\"single\"/>";

E57TestScan FloatScan() {
  E57TestScan scan;
  scan.prototype = kFloats;
  scan.streams = {PackNumbers<float>({1, 2, 3}), PackNumbers<float>({0.5, 0.5, 0.25}),
                  PackNumbers<float>({-1, -2, -3})};
  scan.recordCount = 3;
  return scan;
}

ScanContent Open(const std::vector<E57TestScan>& scans, E57Builder builder = {}) {
  return ScanContent("a.e57", builder.Build(scans));
}

std::string Value(const std::string& name, double value) {
  return "<" + name + " type=\"Float\">" + std::to_string(value) + "</" + name + ">";
}

TEST(E57Scan, ReadsFloats) {
  const ScanContent scan = Open({FloatScan()});
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what << scan.GetOutcome().where;
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{1, 0.5, -1}, Coordinates{2, 0.5, -2},
                                         Coordinates{3, 0.25, -3}));
  EXPECT_THAT(scan.Dimensions(), ElementsAre("scan_index:uint32_t"));
}

/// A text behind its length: of one byte, or of eight.
std::string PackText(const std::string& text, bool isLong = false) {
  std::string bytes;
  if (text.size() < 128 && !isLong) {
    bytes += static_cast<char>(2 * text.size());
  } else {
    PutNumber(bytes, std::uint64_t{2 * text.size() + 1});
  }
  return bytes + text;
}

TEST(E57Scan, ReadsTextsAcrossPacketsAndNumbersThemThroughAllScans) {
  E57TestScan first = FloatScan();
  first.prototype += "<className type=\"String\"/>";
  first.streams.push_back(PackText("tree") + PackText(std::string(300, 'a')) + PackText("tree"));
  first.streamBytes = 7;
  E57TestScan second = FloatScan();
  E57TestScan third = FloatScan();
  third.prototype += "<className type=\"String\"/>";
  third.streams.push_back(PackText("") + PackText("ground", true) + PackText("tree"));
  const ScanContent scan = Open({first, second, third});
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what << scan.GetOutcome().where;
  EXPECT_THAT(scan.Dimensions(), ElementsAre("scan_index:uint32_t", "class_name:string"));
  EXPECT_THAT(scan.Scan().GetStrings(), ElementsAre("", "tree", std::string(300, 'a'), "ground"));
  EXPECT_THAT(scan.Values("class_name"), ElementsAre(1, 2, 1, 0, 0, 0, 0, 3, 1));
}

TEST(E57Scan, RefusesTextsLongerThanAnyAndTextsThatAreMissing) {
  E57TestScan scan = FloatScan();
  scan.prototype += "<name type=\"String\"/>";
  std::string endless;
  PutNumber(endless, ~std::uint64_t{0});
  scan.streams.push_back(endless);
  EXPECT_TRUE(Refuses(Open({scan}), result::kScanContradictory, "a text of field \"name\""));
  scan.streams.back() = PackText("one") + PackText("two");
  EXPECT_TRUE(Refuses(Open({scan}), result::kScanTruncated, "1 of 3 points"));
}

TEST(E57Scan, TellsHowFarItsOpeningIsAndStopsWhenAskedTo) {
  const std::string bytes = E57Builder().Build({FloatScan()});
  for (const char* const unit : {"bytes", ""}) {
    tarnhost::ScanOptions options;
    options.progress = [unit](const tarnhost::ProgressReport& report) {
      return std::string(report.unit) != unit;
    };
    EXPECT_EQ(ScanContent("a.e57", bytes, options).GetOutcome().code, result::kStopped) << unit;
  }
}

TEST(E57Scan, ReadsIntegersOfAnyWidthAcrossPackets) {
  constexpr std::size_t kCount = 3000;
  std::vector<std::uint64_t> xs;
  std::vector<std::uint64_t> colors;
  std::vector<std::uint64_t> large;
  for (std::size_t i = 0; i < kCount; ++i) {
    xs.push_back(i * 173 % (1u << 19));
    colors.push_back(i % 256);
    large.push_back(0x9E3779B97F4A7C15u * i);
  }
  E57TestScan scan;
  scan.prototype =
      "<cartesianX type=\"ScaledInteger\" minimum=\"-262144\" maximum=\"262143\" scale=\"1e-3\" "
      "offset=\"10\"/>"
      "<cartesianY type=\"ScaledInteger\" minimum=\"7\" maximum=\"7\" scale=\"0.5\"/>"
      "<cartesianZ type=\"Integer\" minimum=\"0\" maximum=\"4\"/>"
      "<colorRed type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
      "<colorGreen type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
      "<colorBlue type=\"Integer\" minimum=\"0\" maximum=\"255\"/>"
      "<rowIndex type=\"Integer\" minimum=\"-3\" maximum=\"1000\"/>"
      "<ext:id type=\"Integer\"/>"
      "<timeStamp type=\"Float\"/>";
  std::vector<std::uint64_t> zs(kCount, 3);
  std::vector<std::uint64_t> indices(kCount, 13);
  scan.streams = {
      PackBits(xs, 19),      std::string(),       PackBits(zs, 3),
      PackBits(colors, 8),   PackBits(colors, 8), PackBits(colors, 8),
      PackBits(indices, 10), PackBits(large, 64), PackNumbers(std::vector<double>(kCount, 123.5))};
  scan.recordCount = kCount;
  for (const std::size_t streamBytes : {60, 997, 6000}) {
    scan.streamBytes = streamBytes;
    const ScanContent content = Open({scan});
    ASSERT_TRUE(content.Ok()) << content.GetOutcome().what << content.GetOutcome().where;
    EXPECT_THAT(content.Dimensions(),
                ElementsAre("scan_index:uint32_t", "DEF_COLOR:uint8_t*3", "row_index:int16_t",
                            "ext:id:int64_t", "time_stamp:double"));
    // The scale and the offset are the file's own.
    EXPECT_EQ(content.Scan().GetTransform().scale, (oocpc::Vector3d{1e-3, 0.5, 1}));
    EXPECT_EQ(content.Scan().GetTransform().offset, (oocpc::Vector3d{10, 0, 0}));
    const auto points = content.Points();
    const auto reds = content.Values("DEF_COLOR");
    const auto ids = content.Values("ext:id");
    ASSERT_EQ(points.size(), kCount);
    for (std::size_t i = 0; i < kCount; ++i) {
      const double stored = static_cast<double>(xs[i]) - 262144;
      ASSERT_EQ(points[i], (Coordinates{(stored + 10000) / 1000, 3.5, 3})) << i;
      ASSERT_EQ(reds[3 * i], static_cast<double>(i % 256));
      // An integer of 64 bits has the lowest number as its least value.
      const auto id = static_cast<std::int64_t>(large[i] + 0x8000000000000000u);
      ASSERT_EQ(ids[i], static_cast<double>(id));
    }
    EXPECT_EQ(content.Values("row_index")[0], 10);
    EXPECT_EQ(content.Values("time_stamp")[kCount - 1], 123.5);
  }
}

TEST(E57Scan, TurnsAndMovesScansAndKeepsTheirOwnCoordinates) {
  E57TestScan turned = FloatScan();
  // A quarter turn about z; the quaternion is not of length 1, which does not matter.
  turned.more = "<pose type=\"Structure\"><rotation type=\"Structure\">" + Value("w", 2) +
                Value("z", 2) + "</rotation><translation type=\"Structure\">" + Value("x", 100) +
                Value("y", 200) + "<z type=\"Float\"/></translation></pose>";
  turned.prototype += "<intensity type=\"Float\" precision=\"single\"/>";
  turned.streams.push_back(PackNumbers<float>({7, 8, 9}));
  const ScanContent scan = Open({FloatScan(), turned});
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Dimensions(),
              ElementsAre("scan_index:uint32_t", "cartesian_x:float", "cartesian_y:float",
                          "cartesian_z:float", "intensity:float"));
  EXPECT_THAT(scan.Values("scan_index"), ElementsAre(0, 0, 0, 1, 1, 1));
  EXPECT_THAT(scan.Values("cartesian_x"), ElementsAre(1, 2, 3, 1, 2, 3));
  EXPECT_TRUE(std::isnan(scan.Values("intensity")[0]));  // which the first scan does not have
  EXPECT_EQ(scan.Values("intensity")[5], 9);
  const auto points = scan.Points();
  const std::vector<Coordinates> expected{{1, 0.5, -1},    {2, 0.5, -2},    {3, 0.25, -3},
                                          {99.5, 201, -1}, {99.5, 202, -2}, {99.75, 203, -3}};
  ASSERT_EQ(points.size(), expected.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(points[i][axis], expected[i][axis], 1e-6) << i;
    }
  }
}

TEST(E57Scan, PlacesSphericalCoordinatesAndLeavesOutInvalidOnes) {
  constexpr double kPi = std::numbers::pi;
  E57TestScan scan;
  scan.prototype =
      "<sphericalRange type=\"Float\"/><sphericalAzimuth type=\"Float\"/><sphericalElevation "
      "type=\"Float\"/><sphericalInvalidState type=\"Integer\" minimum=\"0\" maximum=\"2\"/>";
  scan.streams = {PackNumbers<double>({2, 2, 5, 5}), PackNumbers<double>({0, kPi / 2, 0, 0}),
                  PackNumbers<double>({0, 0, kPi / 2, 0}), PackBits({0, 0, 0, 2}, 2)};
  scan.recordCount = 4;
  const ScanContent content = Open({scan});
  ASSERT_TRUE(content.Ok());
  const auto points = content.Points();
  ASSERT_EQ(points.size(), 3u);
  EXPECT_THAT(points[0],
              ElementsAre(DoubleNear(2, 1e-8), DoubleNear(0, 1e-8), DoubleNear(0, 1e-8)));
  EXPECT_THAT(points[1],
              ElementsAre(DoubleNear(0, 1e-8), DoubleNear(2, 1e-8), DoubleNear(0, 1e-8)));
  EXPECT_THAT(points[2],
              ElementsAre(DoubleNear(0, 1e-8), DoubleNear(0, 1e-8), DoubleNear(5, 1e-8)));
  EXPECT_THAT(content.Values("spherical_range"), ElementsAre(2, 2, 5));
  EXPECT_EQ(content.Scan().GetNotices().size(), 1u);
}

TEST(E57Scan, PlacesByTheSphereWherePointsHaveNoCartesianCoordinates) {
  E57TestScan scan = FloatScan();
  scan.prototype +=
      "<cartesianInvalidState type=\"Integer\" minimum=\"0\" maximum=\"2\"/><sphericalRange "
      "type=\"Float\"/><sphericalAzimuth type=\"Float\"/><sphericalElevation type=\"Float\"/>";
  scan.streams.push_back(PackBits({0, 1, 0}, 2));
  for (const double value : {9.0, 0.0, 0.0}) {
    scan.streams.push_back(PackNumbers<double>({value, value, value}));
  }
  const ScanContent content = Open({scan});
  ASSERT_TRUE(content.Ok());
  EXPECT_THAT(content.Points(),
              ElementsAre(Coordinates{1, 0.5, -1}, Coordinates{9, 0, 0}, Coordinates{3, 0.25, -3}));
}

TEST(E57Scan, JoinsFieldsOfOneNameAndDifferentTypes) {
  E57TestScan a = FloatScan();
  a.prototype += "<intensity type=\"Integer\" minimum=\"0\" maximum=\"100\"/>";
  a.streams.push_back(PackBits({1, 2, 3}, 7));
  E57TestScan b = FloatScan();
  b.prototype += "<intensity type=\"Integer\" minimum=\"-1000\" maximum=\"0\"/>";
  b.streams.push_back(PackBits({0, 1, 2}, 10));
  const ScanContent integers = Open({a, b});
  ASSERT_TRUE(integers.Ok());
  EXPECT_THAT(integers.Dimensions(), ElementsAre("scan_index:uint32_t", "intensity:int16_t"));
  EXPECT_THAT(integers.Values("intensity"), ElementsAre(1, 2, 3, -1000, -999, -998));
  E57TestScan c = FloatScan();
  c.prototype += "<intensity type=\"Float\" precision=\"single\"/>";
  c.streams.push_back(PackNumbers<float>({0.5, 1.5, 2.5}));
  const ScanContent mixed = Open({a, c});
  ASSERT_TRUE(mixed.Ok());
  EXPECT_THAT(mixed.Dimensions(), ElementsAre("scan_index:uint32_t", "intensity:double"));
  EXPECT_THAT(mixed.Values("intensity"), ElementsAre(1, 2, 3, 0.5, 1.5, 2.5));
}

TEST(E57Scan, ReadsFilesWithoutPoints) {
  E57TestScan none;
  none.hasPoints = false;
  for (const std::vector<E57TestScan>& scans :
       {std::vector<E57TestScan>{}, std::vector<E57TestScan>{none}}) {
    const ScanContent content = Open(scans);
    ASSERT_TRUE(content.Ok());
    EXPECT_EQ(content.Scan().GetPointCount(), 0u);
  }
}

TEST(E57Scan, KeepsTheXmlSection) {
  const ScanContent scan = Open({FloatScan()});
  ASSERT_TRUE(scan.Ok());
  const auto leading = scan.Scan().GetLeadingBytes();
  EXPECT_EQ(std::string(leading.begin(), leading.begin() + 5), "<?xml");
}

TEST(E57Scan, FindsEveryAlteredPage) {
  const std::string file = E57Builder().Build({FloatScan()});
  ASSERT_GE(file.size(), 1024u);
  for (std::size_t page = 0; page < file.size() / 1024; ++page) {
    std::string altered = file;
    altered[1024 * page + 500] = static_cast<char>(altered[1024 * page + 500] ^ 1);
    EXPECT_TRUE(Refuses(ScanContent("a.e57", altered), result::kScanContradictory,
                        "page " + std::to_string(page + 1) + " of", "byte"));
  }
}

TEST(E57Scan, RefusesFilesThatEndEarly) {
  const std::string file = E57Builder().Build({FloatScan()});
  EXPECT_TRUE(Refuses(ScanContent("a.e57", file.substr(0, 20)), result::kScanTruncated,
                      "header is cut off"));
  EXPECT_TRUE(Refuses(ScanContent("a.e57", file.substr(0, file.size() - 24)),
                      result::kScanTruncated, "24 bytes of the file are missing"));
}

TEST(E57Scan, RefusesHeadersThatMakeNoSense) {
  E57Builder later;
  later.version = 2;
  EXPECT_TRUE(Refuses(Open({FloatScan()}, later), result::kScanUnsupported, "version 2"));
  const std::string file = E57Builder().Build({FloatScan()});
  const auto with = [&](std::size_t at, std::uint64_t value) {
    std::string altered = file;
    std::string number;
    oocpctest::PutNumber(number, value);
    return altered.replace(at, 8, number);
  };
  EXPECT_TRUE(Refuses(ScanContent("a.e57", with(40, 3)), result::kScanContradictory,
                      "no sensible pages", "byte 40"));
  EXPECT_TRUE(Refuses(ScanContent("a.e57", with(24, 1u << 30)), result::kScanContradictory,
                      "behind the end", "byte 24"));
  EXPECT_TRUE(Refuses(ScanContent("a.e57", with(32, ~std::uint64_t{0})), result::kScanContradictory,
                      "behind the end"));
}

TEST(E57Scan, RefusesPacketsThatMakeNoSense) {
  E57Builder builder;
  builder.sectionKind = 9;
  EXPECT_TRUE(Refuses(Open({FloatScan()}, builder), result::kScanContradictory,
                      "no compressed vector", "scan 0, byte 48"));
  builder = {};
  builder.packetKind = 7;
  EXPECT_TRUE(
      Refuses(Open({FloatScan()}, builder), result::kScanContradictory, "packets of kind 7"));
  E57TestScan scan = FloatScan();
  scan.streams.pop_back();
  EXPECT_TRUE(Refuses(Open({scan}), result::kScanContradictory, "2 streams instead of 3"));
  scan = FloatScan();
  scan.streams[1].resize(9);
  EXPECT_TRUE(Refuses(Open({scan}), result::kScanTruncated, "1 of 3 points are missing", "scan 0"));
  scan = FloatScan();
  scan.recordCount = ~std::uint64_t{0};
  EXPECT_TRUE(Refuses(Open({scan}), result::kScanTruncated, "points are missing"));
}

TEST(E57Scan, RefusesDescriptionsThatMakeNoSense) {
  const auto refuses = [](const std::string& prototype, HRESULT code, const std::string& what) {
    E57TestScan scan = FloatScan();
    scan.prototype = prototype;
    return Refuses(Open({FloatScan(), scan}), code, what, "scan 1");
  };
  EXPECT_TRUE(refuses(kFloats + "<name type=\"Blob\"/>", result::kScanUnsupported,
                      "type \"Blob\" (field \"name\")"));
  EXPECT_TRUE(
      refuses("<cartesianX type=\"String\"/><cartesianY type=\"Float\"/>"
              "<cartesianZ type=\"Float\"/>",
              result::kScanContradictory, "\"cartesianX\" holds texts"));
  EXPECT_TRUE(refuses(kFloats + "<a type=\"Integer\" minimum=\"2\" maximum=\"1\"/>",
                      result::kScanContradictory, "limits"));
  EXPECT_TRUE(refuses(kFloats + "<a type=\"ScaledInteger\" scale=\"0\"/>",
                      result::kScanContradictory, "limits or the scale"));
  EXPECT_TRUE(refuses(kFloats + "<a type=\"Integer\" minimum=\"few\"/>", result::kScanContradictory,
                      "\"few\", which is no number"));
  EXPECT_TRUE(refuses("<a type=\"Float\"/>", result::kScanUnsupported, "no coordinates"));
  E57TestScan turned = FloatScan();
  turned.more = "<pose><rotation>" + Value("w", 0) + "</rotation></pose>";
  EXPECT_TRUE(Refuses(Open({turned}), result::kScanContradictory, "rotation"));
  E57TestScan bare;
  bare.recordCount = 1u << 30;
  for (const char* axis : {"cartesianX", "cartesianY", "cartesianZ"}) {
    bare.prototype += std::string("<") + axis + " type=\"Integer\" minimum=\"1\" maximum=\"1\"/>";
    bare.streams.emplace_back();
  }
  EXPECT_TRUE(Refuses(Open({bare}), result::kScanContradictory, "no space at all"));
  E57Builder builder;
  builder.xmlTail = "<";
  EXPECT_TRUE(Refuses(Open({}, builder), result::kScanContradictory, "XML section cannot be read"));
}

TEST(E57FieldName, IsThatOfPointClouds) {
  EXPECT_EQ(tarnhost::E57FieldName("colorRed"), "red");
  EXPECT_EQ(tarnhost::E57FieldName("isIntensityInvalid"), "is_intensity_invalid");
  EXPECT_EQ(tarnhost::E57FieldName("nor:normalX"), "nor:normalX");
}

TEST(E57Scan, ReadsPublicTestFiles) {
  const auto folder = oocpctest::TestDataFolder() / "e57";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no real scans at hand";
  const auto count = [&](const char* name) {
    const ScanContent scan(folder / name);
    EXPECT_TRUE(scan.Ok()) << name << ": " << scan.GetOutcome().what;
    return scan.Ok() ? scan.Scan().GetPointCount() : 0;
  };
  EXPECT_EQ(count("ColouredCubeFloat.e57"), 7680u);
  EXPECT_EQ(count("bunnyDouble.e57"), 30571u);
  EXPECT_EQ(count("tinyCartesianFloatRgb.e57"), 2090u);
  EXPECT_EQ(count("tiny_spherical.e57"), 180u);  // half of them are marked invalid
  EXPECT_EQ(count("cartesian_invalid_state_single.e57"), 1u);
  EXPECT_EQ(count("ZeroPoints.e57"), 0u);
  EXPECT_EQ(count("empty_pc.e57"), 0u);
  EXPECT_TRUE(Refuses(ScanContent(folder / "corrupt_crc.e57"), result::kScanContradictory,
                      "page 34 of 34"));
  EXPECT_TRUE(Refuses(ScanContent(folder / "InvalidCVHeader.e57"), result::kScanContradictory,
                      "no compressed vector"));
  // Three encodings of one object.
  const auto exact = ScanContent(folder / "bunnyDouble.e57").Points();
  for (const char* name : {"bunnyInt19.e57", "bunnyInt32.e57"}) {
    const auto points = ScanContent(folder / name).Points();
    ASSERT_EQ(points.size(), exact.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        ASSERT_NEAR(points[i][axis], exact[i][axis], 2e-6) << name << " point " << i;
      }
    }
  }
}

}  // namespace
