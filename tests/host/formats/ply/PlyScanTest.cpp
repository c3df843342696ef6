// PLY files as scans: text, both byte orders, other elements, and what is wrong with bad ones.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>

#include "tests/support/ScanContent.h"

namespace {

namespace result = oocpc::result;
using oocpctest::Coordinates;
using oocpctest::PutNumber;
using oocpctest::Refuses;
using oocpctest::ScanContent;
using ::testing::ElementsAre;

const std::string kVertices =
    "element vertex 2\nproperty float x\nproperty float y\nproperty double z\n"
    "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty short level\n";

std::string Header(const std::string& format, const std::string& elements) {
  return "ply\nformat " + format + " 1.0\ncomment made by hand\n" + elements + "end_header\n";
}

std::string BinaryVertices(bool isBigEndian) {
  std::string bytes;
  for (int i = 0; i < 2; ++i) {
    PutNumber(bytes, 1.5F + static_cast<float>(i), isBigEndian);
    PutNumber(bytes, -0.25F, isBigEndian);
    PutNumber(bytes, 100.125, isBigEndian);
    bytes += std::string("\x01\x02", 2) + static_cast<char>(200 + i);
    PutNumber(bytes, static_cast<std::int16_t>(-300 - i), isBigEndian);
  }
  return bytes;
}

void ExpectVertices(const ScanContent& scan) {
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what << scan.GetOutcome().where;
  EXPECT_THAT(scan.Points(),
              ElementsAre(Coordinates{1.5, -0.25, 100.125}, Coordinates{2.5, -0.25, 100.125}));
  EXPECT_THAT(scan.Dimensions(), ElementsAre("DEF_COLOR:uint8_t*3", "level:int16_t"));
  EXPECT_THAT(scan.Values("DEF_COLOR"), ElementsAre(1, 2, 200, 1, 2, 201));
  EXPECT_THAT(scan.Values("level"), ElementsAre(-300, -301));
}

TEST(PlyScan, ReadsText) {
  ExpectVertices(ScanContent("a.ply", Header("ascii", kVertices) +
                                          "1.5 -0.25 100.125 1 2 200 -300\n"
                                          "2.5 -0.25 100.125 1 2 201 -301\n"));
}

TEST(PlyScan, ReadsBothByteOrders) {
  ExpectVertices(
      ScanContent("a.ply", Header("binary_little_endian", kVertices) + BinaryVertices(false)));
  ExpectVertices(
      ScanContent("a.ply", Header("binary_big_endian", kVertices) + BinaryVertices(true)));
}

TEST(PlyScan, ReadsLinesThatEndInReturnAndLineFeedAndThroughATemporaryFile) {
  const ScanContent scan("a.ply",
                         "ply\r\nformat ascii 1.0\r\nelement vertex 1\r\nproperty float x\r\n"
                         "property float y\r\nproperty float z\r\nend_header\r\n1 2 3\r\n",
                         {}, 0);
  ASSERT_TRUE(scan.Ok());
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{1, 2, 3}));
}

TEST(PlyScan, PassesOverElementsBeforeAndBehindTheVertices) {
  const std::string before =
      "element camera 1\nproperty float angle\n"
      "element part 2\nproperty list uchar int members\nproperty char kind\n";
  const std::string after = "element face 1\nproperty list uchar int vertex_indices\n";
  const std::string text = Header("ascii", before + kVertices + after) +
                           "0.5\n2 7 8 1\n0 2\n1.5 -0.25 100.125 1 2 200 -300\n"
                           "2.5 -0.25 100.125 1 2 201 -301\n3 0 1 0\n";
  const ScanContent scan("a.ply", text);
  ExpectVertices(scan);
  EXPECT_THAT(scan.Scan().GetNotices(),
              ElementsAre("elements that are no points are passed over: 1 of \"camera\", 2 of "
                          "\"part\", 1 of \"face\""));
  for (const bool isBigEndian : {false, true}) {
    std::string bytes = Header(isBigEndian ? "binary_big_endian" : "binary_little_endian",
                               before + kVertices + after);
    PutNumber(bytes, 0.5F, isBigEndian);
    bytes += '\x02';
    PutNumber(bytes, std::int32_t{7}, isBigEndian);
    PutNumber(bytes, std::int32_t{8}, isBigEndian);
    bytes += std::string("\x01\x00\x02", 3);
    bytes += BinaryVertices(isBigEndian);
    ExpectVertices(ScanContent("a.ply", bytes));
  }
}

TEST(PlyScan, KeepsTheHeaderWithItsComments) {
  const std::string header = Header("binary_little_endian", kVertices);
  const ScanContent scan("a.ply", header + BinaryVertices(false));
  ASSERT_TRUE(scan.Ok());
  const auto leading = scan.Scan().GetLeadingBytes();
  EXPECT_EQ(std::string(leading.begin(), leading.end()), header);
}

TEST(PlyScan, KeepsFloatsThatNoIntegersGiveBack) {
  std::string bytes = Header("binary_little_endian",
                             "element vertex 2\nproperty float x\nproperty float y\n"
                             "property float z\n");
  for (const float value : {0.1F, 1.0F, 3.0F, 1.2345678e-7F, 1.0F, 1000000.25F}) {
    PutNumber(bytes, value);
  }
  const ScanContent scan("a.ply", bytes);
  ASSERT_TRUE(scan.Ok());
  EXPECT_THAT(scan.Dimensions(), ElementsAre("x_exact:float"));
  EXPECT_THAT(scan.Values("x_exact"),
              ElementsAre(static_cast<double>(0.1F), static_cast<double>(1.2345678e-7F)));
  EXPECT_NEAR(scan.Points()[1][0], 1.2345678e-7, 1e-9);
  EXPECT_EQ(scan.Points()[1][2], 1000000.25);
}

TEST(PlyScan, ReadsAFileWithoutPoints) {
  const ScanContent scan("a.ply", Header("ascii",
                                         "element vertex 0\nproperty float x\n"
                                         "property float y\nproperty float z\n"));
  ASSERT_TRUE(scan.Ok());
  EXPECT_EQ(scan.Scan().GetPointCount(), 0u);
}

TEST(PlyScan, SaysHowManyPointsAreMissing) {
  const std::string binary = Header("binary_little_endian", kVertices) + BinaryVertices(false);
  EXPECT_TRUE(Refuses(ScanContent("a.ply", binary.substr(0, binary.size() - 1)),
                      result::kScanTruncated, "2 points, 1 are missing"));
  EXPECT_TRUE(Refuses(ScanContent("a.ply", Header("ascii", kVertices) + "1 2 3 4 5 6 7\n"),
                      result::kScanTruncated, "more lines of data than the 1"));
  std::string huge = kVertices;
  huge.replace(huge.find("vertex 2"), 8, "vertex 18446744073709551615");
  EXPECT_TRUE(Refuses(ScanContent("a.ply", Header("binary_big_endian", huge)),
                      result::kScanTruncated, "are missing"));
}

TEST(PlyScan, RefusesAListLongerThanTheFile) {
  const std::string header = Header(
      "binary_little_endian", "element face 1\nproperty list uint double members\n" + kVertices);
  EXPECT_TRUE(Refuses(ScanContent("a.ply", header + "\xFF\xFF\xFF\xFF" + BinaryVertices(false)),
                      result::kScanTruncated, "within the elements \"face\""));
}

TEST(PlyScan, NamesLineAndWordThatIsNoValue) {
  EXPECT_TRUE(
      Refuses(ScanContent("a.ply", Header("ascii", kVertices) + "1 2 3 4 5 6 7\n1 2 3 4 5 300 7\n"),
              result::kScanContradictory, "\"300\" is no value of type uint8_t", "a.ply, line 14"));
  EXPECT_TRUE(Refuses(ScanContent("a.ply", Header("ascii", kVertices) + "1 2 3 4 5 6\n1 2\n"),
                      result::kScanContradictory, "6 values instead of 7", "line 13"));
  EXPECT_TRUE(
      Refuses(ScanContent("a.ply", Header("ascii", kVertices) + "1 up 3 4 5 6 7\n1 2 3 4 5 6 7\n"),
              result::kScanContradictory, "\"up\"", "line 13"));
}

TEST(PlyScan, NamesTheLineOfTheHeaderThatIsWrong) {
  const auto refuses = [](const std::string& text, HRESULT code, const std::string& what,
                          const std::string& where = "line") {
    return Refuses(ScanContent("a.ply", text), code, what, where);
  };
  EXPECT_TRUE(refuses("ply\nformat ascii 1.0\nelement vertex 1\n", result::kScanTruncated,
                      "has no end", "a.ply"));
  EXPECT_TRUE(refuses("ply\nformat morse 1.0\nend_header\n", result::kScanUnsupported, "\"morse\"",
                      "line 2"));
  EXPECT_TRUE(refuses("ply\nelement vertex 0\nproperty float x\nend_header\n",
                      result::kScanContradictory, "no format"));
  EXPECT_TRUE(refuses(Header("ascii", "element face 0\n"), result::kScanUnsupported,
                      "no element \"vertex\""));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex many\n"), result::kScanContradictory,
                      "a name and a count", "line 4"));
  EXPECT_TRUE(refuses(Header("ascii", "property float x\n"), result::kScanContradictory,
                      "before the first element"));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex 0\nproperty x\n"), result::kScanContradictory,
                      "a type and a name", "line 5"));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex 0\nproperty half x\n"),
                      result::kScanUnsupported, "\"half\" is no type"));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex 0\nproperty list float int x\n"),
                      result::kScanContradictory, "no integer"));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex 0\nproperty list int int x\n"),
                      result::kScanUnsupported, "hold lists (\"x\")", "a.ply"));
  EXPECT_TRUE(refuses(Header("ascii", "nonsense\n"), result::kScanContradictory, "\"nonsense\""));
  EXPECT_TRUE(refuses(Header("ascii", "element vertex 0\nproperty float x\n"),
                      result::kScanUnsupported, "no x, y and z", "a.ply"));
  std::string many = "element vertex 0\n";
  for (int i = 0; i < 1025; ++i) many += "property int p\n";
  EXPECT_TRUE(refuses(Header("ascii", many), result::kScanUnsupported, "more than 1024"));
}

}  // namespace
