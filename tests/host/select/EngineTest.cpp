// What the engine plans, reads and reports.
#include <OOCPointCloud/ResultCodes.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <map>

#include "host/select/CheckSelection.h"
#include "host/select/Sinks.h"
#include "host/select/StatsSink.h"
#include "tests/host/select/HandMadeCloud.h"

namespace {

using oocpc::ValueType;
using oocpctest::ByteVector;
using oocpctest::HandMadeCloud;
using oocpctest::HandMadeRecipe;
using oocpctest::MarkingSink;
using oocpctest::Query;
using oocpctest::Succeeded;
using tarnhost::PlanReport;
using tarnhost::SelectReport;
using ::testing::HasSubstr;

template <typename T>
ByteVector Bytes(const std::vector<T>& numbers) {
  ByteVector bytes;
  for (const T number : numbers) oocpc::AppendLittleEndian(bytes, number);
  return bytes;
}

/// Three nodes of 100 points on the x axis; "class" is 1 in the first, 2 in the second and both in
/// the third; "height" is 0.5 times the point's number.
HandMadeRecipe Line() {
  HandMadeRecipe recipe;
  recipe.scale = {1, 1, 1};
  recipe.nodes = {100, 100, 100};
  std::vector<std::uint8_t> classes;
  std::vector<double> heights;
  for (int i = 0; i < 300; ++i) {
    recipe.xyz.insert(recipe.xyz.end(), {i, 0, 0});
    classes.push_back(static_cast<std::uint8_t>(i < 100 ? 1 : i < 200 ? 2 : 1 + i % 2));
    heights.push_back(0.5 * i);
  }
  recipe.columns.push_back({"class", {ValueType::kUInt8, 1}, classes});
  recipe.columns.push_back({"height", {ValueType::kDouble, 1}, Bytes(heights)});
  return recipe;
}

class Engine : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(line_.cloud, nullptr); }

  SelectReport Run(const std::string& text, tarnhost::SelectionSink* sink = nullptr) {
    tarnhost::SelectOptions options = Query(text);
    options.explain = true;
    SelectReport report;
    EXPECT_TRUE(Succeeded(tarnhost::Select(*line_.cloud, options, sink, report))) << text;
    return report;
  }
  std::string Plan(const std::string& text) { return Run(text).plan.value_or(PlanReport{}).text; }

  HandMadeCloud line_{Line()};
};

TEST_F(Engine, FoldsConstants) {
  const std::string leaf = "#num{type=int}(\"class\", ==, 2)";
  EXPECT_EQ(Plan("#and(#true(), " + leaf + ")"), "class = 2\n");
  EXPECT_EQ(Plan("#and(#false(), " + leaf + ")"), "no point\n");
  EXPECT_EQ(Plan("#or(#true(), " + leaf + ")"), "every point\n");
  EXPECT_EQ(Plan("#xor(#true(), " + leaf + ", #true())"), "class = 2\n");
  EXPECT_EQ(Plan("#not(#not(" + leaf + "))"), "class = 2\n");
  EXPECT_EQ(Plan("#num{type=int}(\"class\", >, 255)"), "no point\n");
  EXPECT_EQ(Plan("#num{type=int}(\"class\", <, 1000)"), "every point\n");
  EXPECT_EQ(Plan("#num{type=double}(\"height\", !=, nan)"), "every point\n");
  EXPECT_EQ(Plan("#distance(0, 0, 0, -1)"), "no point\n");
  EXPECT_EQ(Plan("#not(#distance(nan, 0, 0, 1))"), "every point\n");
}

TEST_F(Engine, IntersectsIntervalsOfOneColumnAndBoxes) {
  EXPECT_EQ(Plan("#num{type=int}(\"class\", <=>, 2, 6)"), "class in 2 ... 6\n");
  EXPECT_EQ(Plan("#num{type=int}(\"class\", >=, 2)"), "class at least 2\n");
  EXPECT_EQ(Plan("#num{type=double}(\"z\", <, 2)"), "z at most 1\n");
  EXPECT_EQ(Plan("#num{type=double}(\"height\", <=, inf)"), "height is a number\n");
  EXPECT_EQ(Plan("#and(#num{type=int}(\"class\", >, 4), #num{type=int}(\"class\", <, 5))"),
            "no point\n");
  EXPECT_EQ(Plan("#and(#within{type=2dbox}(0, 0, 50, 9), #num{type=double}(\"x\", >, 10.5))"),
            "x in 11 ... 50, y in 0 ... 9\n");
  EXPECT_EQ(Plan("#or(#num{type=int}(\"class\", !=, 1), #num{type=int}(\"class\", !=, 2))"),
            "every point\n");
}

TEST_F(Engine, AsksTheCheapOperandFirst) {
  EXPECT_EQ(Plan("#and(#distance(0, 0, 0, 5), #num{type=double}(\"height\", >, 1),"
                 " #num{type=int}(\"class\", ==, 2))"),
            "all of\n  class = 2\n  height at least 1.0000000000000002\n"
            "  within 5 of 0, 0, 0\n");
}

TEST_F(Engine, PushesNegationsIntoTheLeaves) {
  EXPECT_EQ(Plan("#not((#and(#num{type=int}(\"class\", ==, 2), #distance(0, 0, 0, 5))))"),
            "any of\n  not (class = 2)\n  not (within 5 of 0, 0, 0)\n");
}

TEST_F(Engine, ReadsNothingOfBlocksThatTheirLeastAndGreatestValuesDecide) {
  const SelectReport report = Run("#num{type=int}(\"class\", ==, 2)");
  EXPECT_EQ(report.selected, 150u);
  EXPECT_EQ(report.blocksSkipped, 1u);
  EXPECT_EQ(report.blocksAccepted, 1u);
  EXPECT_EQ(report.nodesTested, 1u);
  ASSERT_TRUE(report.plan);
  ASSERT_EQ(report.plan->leaves.size(), 1u);
  EXPECT_EQ(report.plan->leaves[0].blocksTested, 1u);
  EXPECT_EQ(report.plan->columns[0].blocksCompared + report.plan->columns[0].blocksDecoded, 1u);
}

TEST_F(Engine, CountsWithoutReadingAPointWhereNodesDecide) {
  const SelectReport report = Run("#within{type=box}(-1, -1, -1, 1000, 1, 1)");
  EXPECT_EQ(report.selected, 300u);
  EXPECT_EQ(report.nodesAccepted, 1u);
  ASSERT_EQ(report.plan->columns.size(), 1u);
  EXPECT_EQ(report.plan->columns[0].bytesRead, 0u);
}

TEST_F(Engine, DoesNotReadAColumnThatIsDecidedByAnother) {
  const SelectReport report =
      Run("#and(#num{type=int}(\"class\", ==, 7), #num{type=double}(\"height\", <, 100.25))");
  EXPECT_EQ(report.selected, 0u);
  EXPECT_EQ(report.blocksSkipped, 3u);
  for (const tarnhost::ColumnReport& column : report.plan->columns) {
    EXPECT_EQ(column.bytesRead, 0u) << column.name;
  }
}

TEST_F(Engine, TellsOfEachTestWhichColumnItReadAndHowManyBytes) {
  const SelectReport report =
      Run("#and(#num{type=int}(\"class\", ==, 2), #num{type=double}(\"height\", <, 120.25),"
          " #num{type=double}(\"height\", !=, 110))");
  ASSERT_EQ(report.plan->leaves.size(), 3u);
  std::map<std::string, std::vector<tarnhost::ColumnReport>> byColumn;
  for (const tarnhost::LeafReport& leaf : report.plan->leaves) {
    EXPECT_EQ(leaf.blocksTested, 1u) << leaf.text;
    EXPECT_THAT(leaf.text, HasSubstr(leaf.reading.name));
    byColumn[leaf.reading.name].push_back(leaf.reading);
  }
  ASSERT_EQ(byColumn["class"].size(), 1u);
  EXPECT_GT(byColumn["class"][0].bytesRead, 0u);
  // The second test of the heights finds them decoded.
  ASSERT_EQ(byColumn["height"].size(), 2u);
  EXPECT_EQ(byColumn["height"][0].bytesDecoded, 800u);
  EXPECT_GT(byColumn["height"][0].bytesRead, 0u);
  EXPECT_EQ(byColumn["height"][1].bytesDecoded, 0u);
  EXPECT_EQ(byColumn["height"][1].bytesRead, 0u);
  ASSERT_EQ(report.plan->columns.size(), 2u);
  for (const tarnhost::ColumnReport& column : report.plan->columns) {
    EXPECT_EQ(column.bytesRead, byColumn[column.name][0].bytesRead);
    EXPECT_EQ(column.bytesDecoded, byColumn[column.name][0].bytesDecoded);
    EXPECT_EQ(column.blocksDecoded, byColumn[column.name][0].blocksDecoded);
  }
}

TEST_F(Engine, TakesTwoTypesForOneName) {
  const SelectReport report =
      Run("#and(#num{type=int}(\"class\", >, 1), #num{type=uint8_t}(\"class\", <, 3))");
  EXPECT_EQ(report.selected, 150u);
  tarnhost::SelectOptions options =
      Query("#and(#num{type=int}(\"class\", >, 1), #num{type=uint8_t}(\"class\", <, 3))");
  SelectReport unused;
  EXPECT_EQ(tarnhost::SelectByRecords(*line_.cloud, options, nullptr, unused).code,
            oocpc::result::kQueryRejected);
}

TEST_F(Engine, StopsAtTheLimitWithTheFirstPointsOfTheWhole) {
  for (const std::uint64_t limit : {0u, 1u, 99u, 100u, 101u, 150u, 299u, 300u, 301u}) {
    tarnhost::SelectOptions options = Query("#num{type=double}(\"height\", >=, 0)");
    options.limit = limit;
    for (const auto select : {&tarnhost::Select, &tarnhost::SelectByRecords}) {
      MarkingSink sink;
      SelectReport report;
      ASSERT_TRUE(Succeeded(select(*line_.cloud, options, &sink, report)));
      EXPECT_EQ(report.selected, std::min<std::uint64_t>(limit, 300)) << limit;
      std::vector<bool> expected(300, false);
      std::fill_n(expected.begin(), std::min<std::uint64_t>(limit, 300), true);
      EXPECT_EQ(sink.Get(300), expected) << limit;
    }
    SelectReport counted;
    ASSERT_TRUE(Succeeded(tarnhost::Select(*line_.cloud, options, nullptr, counted)));
    EXPECT_EQ(counted.selected, std::min<std::uint64_t>(limit, 300));
  }
}

TEST_F(Engine, AnswersCallsOfManyThousandOperands) {
  std::string text = "#or(#num{type=double}(\"height\", ==, 0)";
  for (int i = 1; i < 5000; ++i) {
    text += ", #num{type=double}(\"height\", ==, " + std::to_string(i) + ")";
  }
  EXPECT_EQ(Run(text + ")").selected, 150u);
}

TEST_F(Engine, AnswersDeeplyNestedCalls) {
  std::string text = "#num{type=double}(\"height\", >, 10)";
  for (int i = 0; i < 300; ++i) {
    text = (i % 2 == 0 ? "#and((" : "#xor((") + text + "), #num{type=double}(\"height\", <, 140))";
  }
  tarnhost::SelectReport records;
  ASSERT_TRUE(Succeeded(tarnhost::SelectByRecords(*line_.cloud, Query(text), nullptr, records)));
  EXPECT_EQ(Run(text).selected, records.selected);
}

TEST_F(Engine, DescribesTheSelectedPoints) {
  tarnhost::StatsSink stats;
  Run("#num{type=int}(\"class\", ==, 2)", &stats);
  ASSERT_EQ(stats.GetStats().size(), 5u);
  const tarnhost::DimensionStats& x = stats.GetStats()[0];
  EXPECT_EQ(x.name, "x");
  EXPECT_EQ(x.least, "100");
  EXPECT_EQ(x.greatest, "299");
  EXPECT_EQ(x.count, 150u);
  EXPECT_DOUBLE_EQ(x.mean, (149.5 * 100 + 250 * 50) / 150);
  const tarnhost::DimensionStats& height = stats.GetStats()[4];
  EXPECT_EQ(height.name, "height");
  EXPECT_EQ(height.greatest, "149.5");
}

TEST_F(Engine, DescribesNoPointsWithoutValues) {
  tarnhost::StatsSink stats;
  Run("#false()", &stats);
  EXPECT_EQ(stats.GetStats()[0].count, 0u);
  EXPECT_EQ(stats.GetStats()[0].least, "");
}

TEST(Stats, LeaveNaNsOutAndCountThem) {
  HandMadeRecipe recipe = Line();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  recipe.columns[1].values = Bytes(std::vector<double>(300, nan));
  const double one = 1;
  std::memcpy(recipe.columns[1].values.data(), &one, sizeof(one));
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  tarnhost::StatsSink stats;
  SelectReport report;
  ASSERT_TRUE(Succeeded(tarnhost::Select(*made.cloud, Query("#true()"), &stats, report)));
  const tarnhost::DimensionStats& height = stats.GetStats()[4];
  EXPECT_EQ(height.count, 1u);
  EXPECT_EQ(height.nanCount, 299u);
  EXPECT_EQ(height.least, "1");
  EXPECT_EQ(height.mean, 1);
}

TEST_F(Engine, WritesPlyThatReadsBack) {
  const oocpctest::TemporaryFolder folder;
  tarnhost::PlySink sink(folder / "out.ply");
  Run("#num{type=int}(\"class\", ==, 2)", &sink);
  const ByteVector file = oocpctest::ReadFile(folder / "out.ply");
  const std::string text(file.begin(), file.end());
  const std::string end = "end_header\n";
  const std::size_t at = text.find(end);
  ASSERT_NE(at, std::string::npos);
  EXPECT_THAT(text.substr(0, at),
              HasSubstr("\nelement vertex 150\nproperty double x\nproperty double y\nproperty "
                        "double z\nproperty uchar class\nproperty double height\n"));
  const std::uint8_t* record = file.data() + at + end.size();
  constexpr std::size_t kStride = 24 + 1 + 8;
  ASSERT_EQ(file.size() - at - end.size(), 150 * kStride);
  double heights = 0;
  for (int i = 0; i < 150; ++i, record += kStride) {
    const double x = oocpc::LoadLittleEndian<double>(record);
    EXPECT_EQ(record[24], 2);
    EXPECT_EQ(oocpc::LoadLittleEndian<double>(record + 25), 0.5 * x);
    heights += 0.5 * x;
  }
  EXPECT_EQ(heights, 0.5 * (149.5 * 100 + 250 * 50));
}

TEST(PlyOfWideIntegers, HoldsThemAsDoubles) {
  HandMadeRecipe recipe = Line();
  recipe.columns[1] = {"count", {ValueType::kInt64, 1}, Bytes(std::vector<std::int64_t>(300, -7))};
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  const oocpctest::TemporaryFolder folder;
  tarnhost::PlySink sink(folder / "out.ply");
  SelectReport report;
  ASSERT_TRUE(Succeeded(tarnhost::Select(*made.cloud, Query("#true()"), &sink, report)));
  const ByteVector file = oocpctest::ReadFile(folder / "out.ply");
  EXPECT_EQ(oocpc::LoadLittleEndian<double>(file.data() + file.size() - 8), -7);
  const std::string text(file.begin(), file.end());
  EXPECT_THAT(text, HasSubstr("property double count\n"));
}

TEST_F(Engine, HandsPointsToSeveralSinksAtOnce) {
  MarkingSink marks;
  tarnhost::StatsSink stats;
  tarnhost::TeeSink tee({&marks, &stats});
  Run("#num{type=int}(\"class\", ==, 2)", &tee);
  EXPECT_EQ(std::count(marks.marks.begin(), marks.marks.end(), true), 150);
  EXPECT_EQ(stats.GetStats()[0].count, 150u);
}

TEST_F(Engine, IsCheckedPointByPoint) {
  tarnhost::CheckReport report;
  ASSERT_TRUE(Succeeded(
      tarnhost::CheckSelection(*line_.cloud, Query("#num{type=int}(\"class\", ==, 2)"), report)));
  EXPECT_TRUE(report.IsSound());
  EXPECT_EQ(report.comparedPoints, 300u);
  EXPECT_EQ(report.selected, 150u);
}

/// A block table that lies about its least and greatest values leads the engine, and the engine
/// alone, astray.
TEST(CheckOfAnAlteredCloud, FindsTheFirstPointOfWhichTheTwoDiffer) {
  HandMadeRecipe recipe = Line();
  recipe.alter = [](std::uint32_t column, oocpc::EncodedBlock& block) {
    if (column != 2 || block.entry.firstValue != 0) return;
    if (std::bit_cast<double>(block.entry.maximumBits[0]) != 99.5) return;
    block.entry.maximumBits[0] = std::bit_cast<std::uint64_t>(60.0);
  };
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  tarnhost::CheckReport report;
  ASSERT_TRUE(Succeeded(tarnhost::CheckSelection(
      *made.cloud, Query("#num{type=double}(\"height\", >, 70.75)"), report)));
  ASSERT_FALSE(report.IsSound());
  ASSERT_TRUE(report.difference);
  EXPECT_EQ(report.difference->point, 142u);
  EXPECT_FALSE(report.difference->byEngine);
  EXPECT_EQ(report.difference->coordinates[0], 142);
}

TEST(EngineOfAnAlteredCloud, ReportsABlockWhoseChecksumDoesNotFit) {
  HandMadeRecipe recipe = Line();
  recipe.alter = [](std::uint32_t column, oocpc::EncodedBlock& block) {
    if (column == 1) block.entry.dataChecksum ^= 1;
  };
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  SelectReport report;
  const tarnhost::Outcome outcome =
      tarnhost::Select(*made.cloud, Query("#num{type=int}(\"class\", ==, 2)"), nullptr, report);
  EXPECT_EQ(outcome.code, oocpc::result::kChecksumMismatch);
  EXPECT_THAT(outcome.where, HasSubstr("column class, block 2"));
}

TEST(EngineOfAnAlteredCloud, ReportsABlockThatHasNotTheNodesPoints) {
  HandMadeRecipe recipe = Line();
  recipe.alter = [](std::uint32_t column, oocpc::EncodedBlock& block) {
    if (column == 1) block.entry.valueCount = 99;
  };
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  SelectReport report;
  EXPECT_EQ(
      tarnhost::Select(*made.cloud, Query("#num{type=int}(\"class\", ==, 2)"), nullptr, report)
          .code,
      oocpc::result::kBadRecord);
}

}  // namespace
