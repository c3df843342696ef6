// PCD files as scans: text, binary and compressed, and what is wrong with bad ones.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>

#include "host/formats/pcd/Lzf.h"
#include "tests/support/ScanContent.h"

namespace {

namespace result = oocpc::result;
using oocpctest::Coordinates;
using oocpctest::PutNumber;
using oocpctest::Refuses;
using oocpctest::ScanContent;
using ::testing::ElementsAre;

const std::string kFields =
    "VERSION 0.7\nFIELDS x y z _ rgba normal\nSIZE 4 4 8 1 4 2\nTYPE F F F U U I\n"
    "COUNT 1 1 1 3 1 2\n";

std::string Header(const std::string& data, std::size_t points = 2) {
  const std::string count = std::to_string(points);
  return "# .PCD v0.7\n" + kFields + "WIDTH " + count +
         "\nHEIGHT 1\nVIEWPOINT 1 2 3 1 0 0 0\nPOINTS " + count + "\nDATA " + data + "\n";
}

/// The fields of both points, one after the other, as compressed files order them.
std::string Columns() {
  std::string bytes;
  for (const float value : {1.5F, 2.5F, -1.0F, -2.0F}) PutNumber(bytes, value);
  for (const double value : {7.125, 8.125}) PutNumber(bytes, value);
  bytes += "paddin";
  for (const std::uint32_t value : {0x40102030u, 0x50112131u}) PutNumber(bytes, value);
  for (const std::int16_t value : {-1, 2, -3, 4}) PutNumber(bytes, value);
  return bytes;
}

/// The same point by point.
std::string Rows() {
  const std::string columns = Columns();
  std::string rows;
  for (std::size_t i = 0; i < 2; ++i) {
    std::size_t at = 0;
    for (const std::size_t bytes : {4, 4, 8, 3, 4, 4}) {
      rows += columns.substr(at + i * bytes, bytes);
      at += 2 * bytes;
    }
  }
  return rows;
}

/// LZF that repeats nothing.
std::string Literal(const std::string& bytes) {
  std::string packed;
  for (std::size_t at = 0; at < bytes.size(); at += 32) {
    const std::string part = bytes.substr(at, 32);
    packed += static_cast<char>(part.size() - 1);
    packed += part;
  }
  return packed;
}

std::string Compressed(const std::string& packed, std::size_t unpackedBytes) {
  std::string bytes = Header("binary_compressed");
  PutNumber(bytes, static_cast<std::uint32_t>(packed.size()));
  PutNumber(bytes, static_cast<std::uint32_t>(unpackedBytes));
  return bytes + packed;
}

void ExpectPoints(const ScanContent& scan) {
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what << scan.GetOutcome().where;
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{1.5, -1, 7.125}, Coordinates{2.5, -2, 8.125}));
  EXPECT_THAT(scan.Dimensions(), ElementsAre("DEF_COLOR:uint8_t*3", "alpha:uint8_t",
                                             "normal_0:int16_t", "normal_1:int16_t"));
  EXPECT_THAT(scan.Values("DEF_COLOR"), ElementsAre(0x10, 0x20, 0x30, 0x11, 0x21, 0x31));
  EXPECT_THAT(scan.Values("alpha"), ElementsAre(0x40, 0x50));
  EXPECT_THAT(scan.Values("normal_0"), ElementsAre(-1, -3));
  EXPECT_THAT(scan.Values("normal_1"), ElementsAre(2, 4));
}

std::vector<std::uint8_t> Unpack(std::initializer_list<int> packed, std::size_t bytes, bool& ok) {
  const std::vector<std::uint8_t> in(packed.begin(), packed.end());
  std::vector<std::uint8_t> out(bytes);
  ok = tarnhost::DecompressLzf(in, out);
  return out;
}

TEST(PcdScan, ReadsText) {
  ExpectPoints(ScanContent("a.pcd", Header("ascii") + "1.5 -1 7.125 0 0 0 1074798640 -1 2\n"
                                                      "2.5 -2 8.125 0 0 0 1343299889 -3 4\n"));
}

TEST(PcdScan, ReadsBinary) { ExpectPoints(ScanContent("a.pcd", Header("binary") + Rows())); }

TEST(PcdScan, ReadsCompressedFieldByField) {
  ExpectPoints(ScanContent("a.pcd", Compressed(Literal(Columns()), Columns().size())));
}

/// LZF that repeats what it can, made the simple way: runs of 3 to 9 bytes from shortly before.
std::string Repeating(const std::string& bytes) {
  std::string packed;
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t length = 0;
    std::size_t distance = 0;
    for (std::size_t back = 1; back <= std::min<std::size_t>(at, 32); ++back) {
      std::size_t same = 0;
      while (same < 8 && at + same < bytes.size() && bytes[at + same] == bytes[at + same - back]) {
        ++same;
      }
      if (same > length) {
        length = same;
        distance = back;
      }
    }
    if (length < 3) {
      packed += std::string(1, '\0') + bytes[at++];
      continue;
    }
    packed += static_cast<char>((length - 2) << 5);
    packed += static_cast<char>(distance - 1);
    at += length;
  }
  return packed;
}

TEST(PcdScan, UnpacksIntoATemporaryFileWhereMemoryIsShort) {
  constexpr std::size_t kPoints = 120000;
  std::string columns;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    for (std::size_t i = 0; i < kPoints; ++i) {
      PutNumber(columns, static_cast<float>(i / 100 % 50 + axis));
    }
  }
  ASSERT_GT(columns.size(), 1u << 20) << "more than one run";
  const std::string packed = Repeating(columns);
  ASSERT_LT(packed.size(), columns.size());
  std::string bytes =
      "VERSION 0.7\nFIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nWIDTH 120000\nHEIGHT 1\nPOINTS 120000\n"
      "DATA binary_compressed\n";
  PutNumber(bytes, static_cast<std::uint32_t>(packed.size()));
  PutNumber(bytes, static_cast<std::uint32_t>(columns.size()));
  bytes += packed;
  const oocpctest::TemporaryFolder folder;
  tarnhost::ScanOptions little;
  little.memoryBytes = 1000;
  little.temporaryFolder = folder.Path();
  const ScanContent small("a.pcd", bytes, little, 1000);
  const ScanContent large("a.pcd", bytes, {}, 1u << 26);
  ASSERT_TRUE(small.Ok()) << small.GetOutcome().what;
  ASSERT_TRUE(large.Ok());
  EXPECT_EQ(small.Points(), large.Points());
  EXPECT_EQ(small.Points()[77777], (Coordinates{27, 28, 29}));
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
  little.temporaryFolder = folder / "missing";
  EXPECT_EQ(ScanContent("a.pcd", bytes, little, 1000).GetOutcome().code, result::kIoError);
  tarnhost::ScanOptions stopped;
  stopped.progress = [](const tarnhost::ProgressReport&) { return false; };
  EXPECT_EQ(ScanContent("a.pcd", bytes, stopped).GetOutcome().code, result::kStopped);
}

TEST(PcdScan, KeepsTheHeaderWithTheViewpoint) {
  const ScanContent scan("a.pcd", Header("binary") + Rows());
  ASSERT_TRUE(scan.Ok());
  const auto leading = scan.Scan().GetLeadingBytes();
  EXPECT_EQ(std::string(leading.begin(), leading.end()), Header("binary"));
}

TEST(PcdScan, ReadsFloatsThatPackColours) {
  std::string bytes =
      "VERSION 0.7\nFIELDS x y z rgb\nSIZE 4 4 4 4\nTYPE F F F F\nWIDTH 1\nHEIGHT 1\nPOINTS 1\n"
      "DATA binary\n";
  for (const float value : {1.0F, 2.0F, 3.0F}) PutNumber(bytes, value);
  PutNumber(bytes, std::uint32_t{0x00FF8001});
  const ScanContent scan("colour.pcd", bytes);
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Values("DEF_COLOR"), ElementsAre(0xFF, 0x80, 0x01));
}

TEST(PcdScan, LeavesOutPointsWithoutAPlaceAndSaysHowMany) {
  const ScanContent scan(
      "a.pcd",
      "VERSION 0.7\nFIELDS x y z i\nSIZE 4 4 4 1\nTYPE F F F U\nWIDTH 2\nHEIGHT 2\nDATA ascii\n"
      "1 2 3 10\nnan nan nan 11\n4 5 6 12\n1 inf 3 13\n");
  ASSERT_TRUE(scan.Ok());
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{1, 2, 3}, Coordinates{4, 5, 6}));
  EXPECT_THAT(scan.Values("i"), ElementsAre(10, 12));
  EXPECT_THAT(scan.Scan().GetNotices(),
              ElementsAre("2 points have no place (a coordinate is missing, invalid or no number) "
                          "and are left out"));
}

TEST(PcdScan, SaysHowManyPointsAreMissing) {
  const std::string rows = Rows();
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", Header("binary") + rows.substr(1)),
                      result::kScanTruncated, "2 points, 1 are missing"));
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", Header("ascii") + "1 2 3 0 0 0 0 0 0\n"),
                      result::kScanTruncated, "1 are missing"));
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", Header("binary_compressed") + "123"),
                      result::kScanTruncated, "2 are missing"));
  const std::string packed = Compressed(Literal(Columns()), Columns().size());
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", packed.substr(0, packed.size() - 3)),
                      result::kScanTruncated, "3 bytes of the compressed points"));
}

TEST(PcdScan, RefusesCompressedPointsThatAreNone) {
  std::string damaged = Literal(Columns());
  damaged[0] = '\xFF';  // repeats what is not there
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", Compressed(damaged, Columns().size())),
                      result::kScanContradictory, "damaged", "byte"));
  EXPECT_TRUE(Refuses(ScanContent("a.pcd", Compressed(Literal(Columns()), 1000)),
                      result::kScanContradictory, "not as long as"));
}

TEST(PcdScan, NamesLineAndWordThatIsNoValue) {
  EXPECT_TRUE(
      Refuses(ScanContent("a.pcd", Header("ascii") + "1 2 3 0 0 0 0 0 0\n1 2 3 0 0 0 0 0 70000\n"),
              result::kScanContradictory, "\"70000\" is no value of type int16_t", "line 13"));
}

TEST(PcdScan, NamesTheLineOfTheHeaderThatIsWrong) {
  const auto refuses = [](const std::string& rest, HRESULT code, const std::string& what) {
    return Refuses(ScanContent("a.pcd", "# .PCD v0.7\nVERSION 0.7\n" + rest), code, what, "a.pcd");
  };
  const std::string fields = "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\n";
  EXPECT_TRUE(refuses(fields, result::kScanTruncated, "no line DATA"));
  EXPECT_TRUE(refuses(fields + "POINTS 0\nDATA morse\n", result::kScanUnsupported, "\"morse\""));
  EXPECT_TRUE(refuses(fields + "DATA ascii\n", result::kScanContradictory, "neither POINTS nor"));
  EXPECT_TRUE(refuses(fields + "WIDTH 2\nHEIGHT 2\nPOINTS 5\nDATA ascii\n",
                      result::kScanContradictory, "not WIDTH times HEIGHT"));
  EXPECT_TRUE(refuses(fields + "WIDTH 18446744073709551615\nHEIGHT 2\nDATA binary\n",
                      result::kScanContradictory, "not WIDTH times HEIGHT"));
  EXPECT_TRUE(refuses(fields + "WIDTH two\n", result::kScanContradictory, "one whole number"));
  EXPECT_TRUE(refuses("SIZE four\n", result::kScanContradictory, "\"four\" is no whole number"));
  EXPECT_TRUE(refuses("FIELDS x y z\nSIZE 4 4\nTYPE F F F\nPOINTS 0\nDATA ascii\n",
                      result::kScanContradictory, "same number of fields"));
  EXPECT_TRUE(refuses("FIELDS x y z\nSIZE 4 4 3\nTYPE F F F\nPOINTS 0\nDATA ascii\n",
                      result::kScanUnsupported, "of 3 bytes"));
  EXPECT_TRUE(refuses("FIELDS x y z\nSIZE 4 4 4\nTYPE F F Q\nPOINTS 0\nDATA ascii\n",
                      result::kScanUnsupported, "type \"Q\""));
  EXPECT_TRUE(
      refuses("FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nCOUNT 1 1 4000000000\nPOINTS 0\nDATA ascii\n",
              result::kScanUnsupported, "more than 1024 values"));
  EXPECT_TRUE(refuses("nonsense\n", result::kScanContradictory, "\"nonsense\""));
  EXPECT_TRUE(refuses("FIELDS x y\nSIZE 4 4\nTYPE F F\nPOINTS 0\nDATA ascii\n",
                      result::kScanUnsupported, "no x, y and z"));
}

TEST(Lzf, GivesTheSameInRunsOfAnyLengthAsAtOnce) {
  std::string bytes;
  for (int i = 0; i < 2000; ++i) bytes += static_cast<char>(i * i % 7);
  const std::string packed = Repeating(bytes);
  const std::span<const std::uint8_t> in(reinterpret_cast<const std::uint8_t*>(packed.data()),
                                         packed.size());
  for (const std::size_t run : {1, 2, 3, 5, 64, 1999, 2000}) {
    tarnhost::LzfReader reader(in);
    std::vector<std::uint8_t> out(bytes.size());
    for (std::size_t at = 0; at < out.size(); at += run) {
      const std::size_t count = std::min(run, out.size() - at);
      ASSERT_TRUE(reader.Read(std::span(out).subspan(at, count), at));
    }
    EXPECT_TRUE(reader.IsAtEnd());
    EXPECT_TRUE(std::equal(out.begin(), out.end(), bytes.begin(),
                           [](std::uint8_t a, char b) { return static_cast<char>(a) == b; }));
  }
}

TEST(Lzf, RepeatsWhatStandsBefore) {
  bool ok = false;
  // Two literals, then nine bytes from two before: the long form of a length.
  EXPECT_THAT(Unpack({1, 'a', 'b', 0xE0, 0, 1}, 11, ok),
              ElementsAre('a', 'b', 'a', 'b', 'a', 'b', 'a', 'b', 'a', 'b', 'a'));
  EXPECT_TRUE(ok);
}

TEST(Lzf, RefusesWhatReachesOutOfItsBytes) {
  bool ok = true;
  Unpack({5, 'a'}, 6, ok);  // fewer literals than announced
  EXPECT_FALSE(ok);
  Unpack({1, 'a', 'b'}, 1, ok);  // more than there is room for
  EXPECT_FALSE(ok);
  Unpack({0, 'a'}, 2, ok);  // too few
  EXPECT_FALSE(ok);
  Unpack({0, 'a', 0x20, 1}, 4, ok);  // from before the beginning
  EXPECT_FALSE(ok);
  Unpack({0, 'a', 0x20}, 4, ok);  // cut within a repetition
  EXPECT_FALSE(ok);
  Unpack({0, 'a', 0xE0}, 4, ok);
  EXPECT_FALSE(ok);
}

}  // namespace
