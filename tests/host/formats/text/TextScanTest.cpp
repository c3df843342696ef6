// Text files as scans: separators, headings, types, and what is wrong with bad lines.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>

#include <cmath>

#include "host/formats/converted/TextDictionary.h"
#include "tests/support/LasBuilder.h"
#include "tests/support/ScanContent.h"

namespace {

namespace result = oocpc::result;
using oocpctest::Coordinates;
using oocpctest::Refuses;
using oocpctest::ScanContent;
using tarnhost::ScanOptions;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

void ExpectTwoPoints(const ScanContent& scan) {
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what << scan.GetOutcome().where;
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{1.5, -2.25, 3}, Coordinates{10.5, 20.75, 30}));
}

TEST(TextScan, FindsTheSeparator) {
  for (const std::string separator : {",", ";", "\t", " ", "   ", ", ", " ;\t"}) {
    const ScanContent scan("a.xyz", "1.5" + separator + "-2.25" + separator + "3\n10.5" +
                                        separator + "20.75" + separator + "30");
    ExpectTwoPoints(scan);
    EXPECT_THAT(scan.Dimensions(), IsEmpty());
  }
}

TEST(TextScan, TakesAnySeparatorThatIsNamed) {
  for (const char separator : {':', '|', '_', ';', '\t', ' '}) {
    ScanOptions options;
    options.separator = separator;
    const std::string s(1, separator);
    const std::string text = "1.5" + s + "-2.25" + s + "3\n10.5" + s + "20.75" + s + "30";
    ExpectTwoPoints(ScanContent("a.xyz", text, options));
  }
  ExpectTwoPoints(ScanContent("a.xyz", "1.5|-2.25|3\n10.5|20.75|30\n"));
}

/// The texts of a dimension, point by point.
std::vector<std::string> Texts(const ScanContent& scan, const std::string& name) {
  std::vector<std::string> texts;
  for (const double number : scan.Values(name)) {
    texts.push_back(scan.Scan().GetStrings()[static_cast<std::size_t>(number)]);
  }
  return texts;
}

TEST(TextScan, KeepsColumnsThatHoldWordsAsTexts) {
  const ScanContent scan("a.csv",
                         "x,y,z,kind,level,note\n1,2,3,ground,4,\n1,2,3,tree,5,\"a \"\"b\"\", c\"\n"
                         "1,2,3,ground,6,tree\n1,2,3,12,7,\n");
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Dimensions(), ElementsAre("kind:string", "level:int32_t", "note:string"));
  EXPECT_THAT(Texts(scan, "kind"), ElementsAre("ground", "tree", "ground", "12"));
  EXPECT_THAT(Texts(scan, "note"), ElementsAre("", "a \"b\", c", "tree", ""));
  EXPECT_THAT(scan.Scan().GetStrings(), ElementsAre("ground", "", "tree", "a \"b\", c", "12"));
  EXPECT_THAT(scan.Scan().GetNotices(),
              ElementsAre("column \"kind\" holds texts, as \"ground\" in line 2",
                          "column \"note\" holds texts, as \"a \"\"b\"\", c\" in line 3"));
}

TEST(TextScan, TakesNoColumnOfWordsForTheOneThatUsuallyStandsThere) {
  const ScanContent scan("a.xyz", "1 2 3 ground\n4 5 6 tree\n");
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Dimensions(), ElementsAre("column_4:string"));
  EXPECT_THAT(Texts(scan, "column_4"), ElementsAre("ground", "tree"));
}

TEST(TextScan, NumbersTextsInTheirOrderHoweverLongTheFileIs) {
  std::string text = "x y z name\n";
  std::vector<std::string> expected;
  for (int i = 0; i < 150000; ++i) {
    expected.push_back("n" + std::to_string(i * 7919 % 1000));
    text += "1 2 " + std::to_string(i) + " " + expected.back() + "\n";
  }
  ASSERT_GT(text.size(), 2u << 20) << "more than one stretch";
  const ScanContent scan("a.txt", text, {}, 1u << 24);
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_EQ(Texts(scan, "name"), expected);
  EXPECT_EQ(scan.Scan().GetStrings().size(), 1000u);
  EXPECT_EQ(scan.Scan().GetStrings()[1], expected[1]);
}

TEST(TextScan, RefusesMoreTextsThanADictionaryHolds) {
  std::string text = "x y z name\n";
  for (std::size_t i = 0; i <= tarnhost::TextDictionary::kMostTexts; ++i) {
    text += "1 2 3 n" + std::to_string(i) + "\n";
  }
  EXPECT_TRUE(Refuses(ScanContent("a.txt", text), result::kScanUnsupported,
                      "more different texts than can be kept", "a.txt"));
}

TEST(TextScan, TellsHowFarItsOpeningIsAndStopsWhenAskedTo) {
  std::string text = "x,y,z,name\n";
  for (int i = 0; i < 1000; ++i) text += "1,2,3,word\n";
  // Whenever it is told to stop, it does; when it is not, it gets to the end of all it states.
  for (int stopAt = 0;; ++stopAt) {
    ScanOptions options;
    int told = 0;
    std::uint64_t mostBytes = 0;
    std::uint64_t mostPoints = 0;
    options.progress = [&](const tarnhost::ProgressReport& report) {
      EXPECT_LE(report.done, report.total);
      EXPECT_STREQ(report.stage, "opening");
      std::uint64_t& most = *report.unit == '\0' ? mostPoints : mostBytes;
      most = std::max(most, report.done);
      return told++ != stopAt;
    };
    const ScanContent scan("a.csv", text, options);
    if (scan.Ok()) {
      EXPECT_EQ(mostPoints, 1000u);
      EXPECT_EQ(mostBytes, 3 * (text.size() - std::string("x,y,z,name\n").size()));
      EXPECT_GE(stopAt, 5);
      return;
    }
    ASSERT_EQ(scan.GetOutcome().code, result::kStopped) << scan.GetOutcome().what;
  }
}

TEST(TextScan, TakesNamesFromTheHeading) {
  const ScanContent scan("a.csv",
                         "\xEF\xBB\xBF\"level\",Y,X,Z,red,Green,blue,gps_time\r\n"
                         "7,-2.25,1.5,3,1,2,3,100\r\n-8,20.75,10.5,30,4,5,6,200\r\n");
  ExpectTwoPoints(scan);
  EXPECT_THAT(scan.Dimensions(),
              ElementsAre("level:int32_t", "DEF_COLOR:uint8_t*3", "gps_time:double"));
  EXPECT_THAT(scan.Values("level"), ElementsAre(7, -8));
  EXPECT_THAT(scan.Values("DEF_COLOR"), ElementsAre(1, 2, 3, 4, 5, 6));
  const auto leading = scan.Scan().GetLeadingBytes();
  EXPECT_EQ(std::string(leading.begin() + 3, leading.begin() + 10), "\"level\"");
}

TEST(TextScan, TakesNamesFromTheCommentBeforeThePoints) {
  const ScanContent scan("a.txt",
                         "# made by hand\n//X Y Z Quality\n1.5 -2.25 3 9\n"
                         "# between\n\n10.5 20.75 30 8\n");
  ExpectTwoPoints(scan);
  EXPECT_THAT(scan.Values("Quality"), ElementsAre(9, 8));
}

TEST(TextScan, TakesNamesFromTheOptions) {
  const ScanContent scan("a.data", "a line to skip\n1.5,word,-2.25,3,5\n10.5,x,20.75,30,6\n",
                         ScanOptions{{"x", "-", "y", "z", "intensity"}, 1});
  ExpectTwoPoints(scan);
  EXPECT_THAT(scan.Dimensions(), ElementsAre("intensity:uint16_t"));
  // A heading gives way to the options.
  const ScanContent headed("a.csv", "a,b,c\n1.5,-2.25,3\n10.5,20.75,30\n",
                           ScanOptions{{"x", "y", "z"}, 0});
  ExpectTwoPoints(headed);
}

TEST(TextScan, NamesUsualColumnsWithoutAHeading) {
  const ScanContent points("a.pts", "2\n1.5 -2.25 3 100 1 2 3\n10.5 20.75 30 200 4 5 6\n");
  ExpectTwoPoints(points);
  EXPECT_THAT(points.Dimensions(), ElementsAre("intensity:uint16_t", "DEF_COLOR:uint8_t*3"));
  const ScanContent colors("a.xyz", "1.5 -2.25 3 1 2 300\n10.5 20.75 30 4 5 6\n");
  ExpectTwoPoints(colors);
  EXPECT_THAT(colors.Dimensions(), ElementsAre("DEF_COLOR:uint16_t*3"));
  const ScanContent five("a.xyz", "1.5 -2.25 3 1 0.5\n10.5 20.75 30 4 1\n");
  ExpectTwoPoints(five);
  EXPECT_THAT(five.Dimensions(), ElementsAre("column_4:int32_t", "column_5:double"));
}

TEST(TextScan, FindsTheSmallestTypes) {
  const ScanContent scan("a.csv",
                         "x,y,z,small,large,huge,real,gap,empty,classification,intensity\n"
                         "1,2,3,-5,3000000000,18446744073709551615,1e3,4,,2,65535\n"
                         "1,2,4,5,-3000000000,1,2.5,,,255,0\n");
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_THAT(scan.Dimensions(),
              ElementsAre("small:int32_t", "large:int64_t", "huge:uint64_t", "real:double",
                          "gap:double", "classification:uint8_t", "intensity:uint16_t"));
  EXPECT_THAT(scan.Values("large"), ElementsAre(3e9, -3e9));
  EXPECT_THAT(scan.Values("real"), ElementsAre(1000, 2.5));
  EXPECT_TRUE(std::isnan(scan.Values("gap")[1]));
}

TEST(TextScan, KeepsTheDecimalsAsTheStepOfPositions) {
  const ScanContent scan("a.xyz", "500000.10 4500000.250 1\n500001.25 4500000.500 2\n");
  ASSERT_TRUE(scan.Ok());
  EXPECT_EQ(scan.Scan().GetTransform().scale, (oocpc::Vector3d{0.01, 0.001, 1}));
  EXPECT_THAT(scan.Dimensions(), IsEmpty());
  EXPECT_THAT(scan.Points(), ElementsAre(Coordinates{500000.10, 4500000.25, 1},
                                         Coordinates{500001.25, 4500000.5, 2}));
}

TEST(TextScan, KeepsNumbersThatNoStepGivesBack) {
  const ScanContent scan("a.xyz", "0.123456789012345 0 0\n1000000 0 0\n");
  ASSERT_TRUE(scan.Ok());
  EXPECT_THAT(scan.Dimensions(), ElementsAre("x_exact:double"));
  EXPECT_THAT(scan.Values("x_exact"), ElementsAre(0.123456789012345, 1000000));
}

TEST(TextScan, LeavesOutPointsWithoutAPlace) {
  const ScanContent scan("a.csv",
                         "x,y,z,i\n1.5,-2.25,3,1\nnan,1,1,2\n,1,1,3\n1,1e300,1,4\n"
                         "10.5,20.75,30,5\n");
  ExpectTwoPoints(scan);
  EXPECT_THAT(scan.Values("i"), ElementsAre(1, 5));
  ASSERT_EQ(scan.Scan().GetNotices().size(), 1u);
  EXPECT_EQ(scan.Scan().GetNotices()[0].substr(0, 8), "3 points");
}

TEST(TextScan, ReadsLongFilesInStretchesInTheirOrder) {
  std::string text = "x y z number\n";
  constexpr int kCount = 200000;
  for (int i = 0; i < kCount; ++i) text += "0.5 1 2 " + std::to_string(i) + "\n";
  ASSERT_GT(text.size(), std::size_t{2} << 20);
  const ScanContent scan("a.txt", text, {}, 0);
  ASSERT_TRUE(scan.Ok());
  const auto numbers = scan.Values("number");
  ASSERT_EQ(numbers.size(), static_cast<std::size_t>(kCount));
  for (int i = 0; i < kCount; ++i) ASSERT_EQ(numbers[static_cast<std::size_t>(i)], i);
  // The line of a mistake far behind is counted through.
  EXPECT_TRUE(Refuses(ScanContent("a.txt", text + "1 2 end 4\n"), result::kScanContradictory,
                      "\"end\" in column \"z\" is no number", "line 200002"));
}

TEST(TextScan, ReadsAHeadingWithoutPoints) {
  const ScanContent scan("a.csv", "x,y,z,intensity\n");
  ASSERT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  EXPECT_EQ(scan.Scan().GetPointCount(), 0u);
}

TEST(TextScan, RefusesTextWithoutCoordinates) {
  EXPECT_TRUE(Refuses(ScanContent("a.csv", "a,b,c\n1,2,3\n"), result::kScanNotRecognised,
                      "no columns x, y and z"));
  EXPECT_TRUE(Refuses(ScanContent("a.txt", ""), result::kScanNotRecognised, "the file is empty"));
  EXPECT_TRUE(
      Refuses(ScanContent("a.txt", "\n"), result::kScanNotRecognised, "no columns x, y and z"));
  EXPECT_TRUE(Refuses(ScanContent("a.txt", "1 2\n3 4\n"), result::kScanNotRecognised,
                      "no columns x, y and z"));
}

TEST(TextScan, RefusesLinesThatEndWithACarriageReturnAlone) {
  EXPECT_TRUE(Refuses(ScanContent("a.xyz", "1 2 3\r4 5 6\r7 8 9\r"), result::kScanNotRecognised,
                      "a carriage return alone"));
}

TEST(TextScan, NamesTheEncodingOfATextThatIsNotUtf8) {
  using namespace std::string_literals;
  for (const auto& [text, encoding] :
       {std::pair("\xFF\xFE"s + "1\0 \0"s, "encoded in UTF-16"),
        std::pair("\xFE\xFF\0"s + "1\0 "s, "encoded in UTF-16"),
        std::pair("\xFF\xFE\0\0"s + "1\0\0\0"s, "encoded in UTF-32"),
        std::pair("\0\0\xFE\xFF\0\0\0"s + "1"s, "encoded in UTF-32")}) {
    const ScanContent scan("a.txt", text);
    EXPECT_TRUE(Refuses(scan, result::kScanNotRecognised, encoding));
    EXPECT_EQ(scan.GetOutcome().remedy, "save it as UTF-8, as text editors can");
  }
}

TEST(TextScan, TakesNoLineOfDecimalCommasForAHeading) {
  const std::string lines = "1,5;2,5;3,5\n4,5;5,5;6,5\n";
  const ScanContent scan("a.txt", lines);
  EXPECT_TRUE(Refuses(scan, result::kScanContradictory, "\"1,5\" in column \"x\" is no number",
                      "a.txt, line 1"));
  EXPECT_EQ(scan.GetOutcome().remedy, "write decimals with a point, no comma");
  EXPECT_TRUE(Refuses(ScanContent("a.txt", "x;y;z\n" + lines), result::kScanContradictory,
                      "\"1,5\" in column \"x\" is no number", "a.txt, line 2"));
}

TEST(TextScan, NamesLineAndColumnOfWhatIsNoNumber) {
  EXPECT_TRUE(Refuses(ScanContent("a.csv", "x,y,z,tree\n1,2,3,4\n1,oak,3,4\n"),
                      result::kScanContradictory, "\"oak\" in column \"y\" is no number",
                      "a.csv, line 3"));
  EXPECT_TRUE(Refuses(ScanContent("a.csv", "x,y,z,Intensity\n1,2,3,4\n1,2,3,12..5\n"),
                      result::kScanContradictory, "\"12..5\" in column \"Intensity\" is no number",
                      "a.csv, line 3"));
  EXPECT_TRUE(Refuses(ScanContent("a.csv", "x,y,z\n1,2,3\n1,2\n"), result::kScanContradictory,
                      "2 values, those before it 3", "line 3"));
  EXPECT_TRUE(Refuses(ScanContent("a.csv", "x,y,z\n1,2,3,4\n1,2,3\n"), result::kScanContradictory,
                      "3 values, those before it 4", "line 3"));
}

TEST(TextScan, TakesNoOtherWordForADecimalComma) {
  for (const std::string word : {"oak", "1.5.2", "a,5", ",", "1,2,3"}) {
    const ScanContent scan("a.txt", "x;y;z\n1;2;3\n" + word + ";5;6\n");
    EXPECT_TRUE(Refuses(scan, result::kScanContradictory, "is no number", "a.txt, line 3"));
    EXPECT_THAT(scan.GetOutcome().remedy, ::testing::StartsWith("correct it")) << word;
  }
  EXPECT_EQ(ScanContent("a.txt", "x;y;z\n-1,5e3;2;3\n").GetOutcome().remedy,
            "write decimals with a point, no comma");
}

TEST(TextScan, RefusesMoreOrFewerNamesThanColumns) {
  EXPECT_TRUE(Refuses(ScanContent("a.txt", "1 2 3 4\n", ScanOptions{{"x", "y", "z"}, 0}),
                      result::kScanContradictory, "4 columns, but 3 are named"));
  std::string line;
  for (int i = 0; i < 1025; ++i) line += "1 ";
  EXPECT_TRUE(
      Refuses(ScanContent("a.txt", line), result::kScanUnsupported, "more than 1024 columns"));
}

TEST(OpenScan, KnowsFormatsByTheirContentWhateverTheirNames) {
  const ScanContent ply("scan.txt",
                        "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n"
                        "property float y\nproperty float z\nend_header\n1 2 3\n");
  EXPECT_TRUE(ply.Ok());
  oocpctest::LasBuilder builder;
  const std::vector<std::uint8_t> las = builder.Build();
  const ScanContent named("scan.csv", {reinterpret_cast<const char*>(las.data()), las.size()});
  ASSERT_TRUE(named.Ok()) << named.GetOutcome().what;
  EXPECT_EQ(named.Scan().GetPointCount(), builder.pointCount);
  EXPECT_TRUE(Refuses(ScanContent("scan.dat", "1 2 3\n"), result::kScanNotRecognised, ""));
}

}  // namespace
