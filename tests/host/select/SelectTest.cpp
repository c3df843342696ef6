// Selecting: what is counted, in which order it comes, and how it fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/select/NodeClassifier.h"
#include "host/select/Select.h"
#include "tests/host/select/SelectFixture.h"
#include "tests/support/QueryBuilders.h"

namespace {

namespace result = oocpc::result;
using oocpctest::DigestSink;
using oocpctest::ImportedCloud;
using oocpctest::LasPoints;
using oocpctest::LasRecipe;
using oocpctest::Query;
using oocpctest::Selected;
using oocpctest::Succeeded;
using tarnhost::Outcome;
using tarnhost::SelectReport;
using ::testing::HasSubstr;
using ClassifyResult = OOCPCIQuery::ClassifyResult;

LasRecipe Recipe(std::uint32_t pointCount) {
  LasRecipe recipe;
  recipe.format = 1;
  recipe.pointCount = pointCount;
  return recipe;
}

TEST(Select, CountsAllAndNoneFromTheRootAlone) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(60000)));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query("#true()"), nullptr, report)));
  EXPECT_EQ(report.selected, 60000u);
  EXPECT_EQ(report.pointCount, 60000u);
  EXPECT_EQ(report.nodesAccepted, 1u);
  EXPECT_EQ(report.nodesTested, 0u);
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query("#false()"), nullptr, report)));
  EXPECT_EQ(report.selected, 0u);
  EXPECT_EQ(report.nodesSkipped, 1u);
  EXPECT_EQ(report.nodesAccepted, 0u);
}

TEST(Select, HandsEveryPointOnceToTheSink) {
  const LasPoints points(oocpctest::MakeLas(Recipe(60000)));
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(60000)));
  ASSERT_NE(imported.cloud, nullptr);
  oocpctest::Digest all;
  for (std::uint64_t i = 0; i < points.GetCount(); ++i) {
    ++all.count;
    for (std::size_t axis = 0; axis < 3; ++axis) all.sums[axis] += points.GetStored(i, axis);
  }
  EXPECT_EQ(Selected(*imported.cloud, "#true()"), all);
  EXPECT_EQ(Selected(*imported.cloud, "#false()"), oocpctest::Digest{});
}

/// Remembers the order in which points came.
class OrderSink final : public tarnhost::SelectionSink {
 public:
  Outcome Begin(tarnhost::Cloud&) override { return Outcome::Success(); }
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  tarnhost::SinkPart* /*part*/) override {
    for (const std::uint32_t point : points) order.push_back(node.firstPoint + point);
    return Outcome::Success();
  }
  Outcome End(const SelectReport&) override { return Outcome::Success(); }
  std::vector<std::uint64_t> order;
};

TEST(Select, AlwaysGivesTheSameOrderAndASubsetInTheOrderOfTheWhole) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(60000)));
  ASSERT_NE(imported.cloud, nullptr);
  OrderSink all;
  OrderSink some;
  OrderSink again;
  SelectReport report;
  const std::string text = "#num{type=int}(\"user_data\", <, 100)";
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query("#true()"), &all, report)));
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query(text), &some, report)));
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query(text), &again, report)));
  EXPECT_EQ(some.order, again.order);
  EXPECT_GT(some.order.size(), 10000u);
  std::size_t at = 0;
  for (const std::uint64_t point : all.order) {
    if (at < some.order.size() && some.order[at] == point) ++at;
  }
  EXPECT_EQ(at, some.order.size());
}

TEST(Select, TakesConstantsOfTheSourceOrWithLocalThoseOfTheFrame) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(3000)));
  ASSERT_NE(imported.cloud, nullptr);
  const oocpc::Vector3d& offset = imported.cloud->GetFrameOffset();
  ASSERT_NE(offset[0], 0);
  const auto box = [](double x, double y) {
    return "#within{type=2dbox}(" + std::to_string(x) + "," + std::to_string(y) + "," +
           std::to_string(x + 500) + "," + std::to_string(y + 500) + ")";
  };
  SelectReport source;
  SelectReport local;
  ASSERT_TRUE(
      Succeeded(tarnhost::Select(*imported.cloud, Query(box(637500, 849500)), nullptr, source)));
  tarnhost::SelectOptions options = Query(box(637500 - offset[0], 849500 - offset[1]));
  options.local = true;
  ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, options, nullptr, local)));
  EXPECT_GT(source.selected, 0u);
  EXPECT_LT(source.selected, 3000u);
  EXPECT_EQ(local.selected, source.selected);
}

TEST(Select, OfACloudWithoutPointsGivesNothingAndStillEnds) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(0)));
  ASSERT_NE(imported.cloud, nullptr);
  for (const char* const text : {"#true()", "#false()", "#distance(0,0,0,1)",
                                 "#num{type=int}(\"intensity\",>,1)", "#not(#distance(0,0,0,1))"}) {
    DigestSink sink;
    SelectReport report;
    ASSERT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query(text), &sink, report))) << text;
    EXPECT_TRUE(sink.ended);
    EXPECT_EQ(report.selected, 0u) << text;
    EXPECT_EQ(report.pointCount, 0u);
  }
}

TEST(Select, RefusesATextThatIsNoQueryWithTheCaretAndTheHint) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(10)));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  const Outcome outcome = tarnhost::Select(
      *imported.cloud, Query("#and(#or(#true(),#false()),#true())"), nullptr, report);
  EXPECT_EQ(outcome.code, result::kQueryRejected);
  EXPECT_EQ(outcome.where, "#and(#or(#true(),#false()),#true())\n     ^");
  EXPECT_THAT(outcome.remedy, HasSubstr("#and((#or(#true(),#false())),#true())"));
}

TEST(Select, RefusesMetaDataThatTheCloudDoesNotHave) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(10)));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  const Outcome outcome =
      tarnhost::Select(*imported.cloud, Query("#num{type=int}(\"intensty\",>,1)"), nullptr, report);
  EXPECT_EQ(outcome.code, result::kQueryRejected);
  EXPECT_THAT(outcome.remedy, HasSubstr("\"intensity\""));
}

TEST(Select, RefusesAnIterationThatIsNotThere) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(10)));
  ASSERT_NE(imported.cloud, nullptr);
  tarnhost::SelectOptions options = Query("#true()");
  options.iteration = 1;
  SelectReport report;
  EXPECT_EQ(tarnhost::Select(*imported.cloud, options, nullptr, report).code,
            result::kIndexOutOfRange);
  options.iteration = 0;
  EXPECT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, options, nullptr, report)));
  EXPECT_EQ(report.selected, 10u);
}

TEST(Select, ReportsProgressAndStopsWhenAskedTo) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(60000)));
  ASSERT_NE(imported.cloud, nullptr);
  tarnhost::SelectOptions options = Query("#num{type=int}(\"user_data\", <, 100)");
  std::uint64_t done = 0;
  options.progress = [&](const tarnhost::ProgressReport& progress) {
    EXPECT_GE(progress.done, done);
    EXPECT_EQ(progress.total, 60000u);
    done = progress.done;
    return true;
  };
  SelectReport report;
  EXPECT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, options, nullptr, report)));
  EXPECT_EQ(done, 60000u);
  options.progress = [](const tarnhost::ProgressReport&) { return false; };
  DigestSink sink;
  EXPECT_EQ(tarnhost::Select(*imported.cloud, options, &sink, report).code, result::kStopped);
  EXPECT_FALSE(sink.ended);
}

/// Fails where it is told to.
class FailingSink final : public tarnhost::SelectionSink {
 public:
  explicit FailingSink(int at) : at_(at) {}
  Outcome Begin(tarnhost::Cloud&) override { return At(0); }
  Outcome Consume(const OOCPCOctreeAcceleratorNode&, std::span<const std::uint32_t>,
                  tarnhost::SinkPart* /*part*/) override {
    return At(1);
  }
  Outcome End(const SelectReport&) override { return At(2); }

 private:
  [[nodiscard]] Outcome At(int place) const {
    return place == at_ ? Outcome::FromCode(result::kNoSpace) : Outcome::Success();
  }
  int at_;
};

TEST(Select, PassesOnWhatTheSinkReports) {
  const ImportedCloud imported(oocpctest::MakeLas(Recipe(10)));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  for (int at = 0; at < 3; ++at) {
    FailingSink sink(at);
    EXPECT_EQ(tarnhost::Select(*imported.cloud, Query("#true()"), &sink, report).code,
              result::kNoSpace)
        << at;
  }
  FailingSink sink(3);
  EXPECT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, Query("#true()"), &sink, report)));
}

/// A query that classifies every node alike.
class FixedQuery final : public OOCPCIQuery {
 public:
  explicit FixedQuery(ClassifyResult answer) : OOCPCIQuery({}, oocpctest::kAnd), answer_(answer) {}
  [[nodiscard]] ClassifyResult ClassifyNode(const double*, const double*) const override {
    return answer_;
  }
  [[nodiscard]] ClassifyResult ClassifyNode(const OOCPointCloudNode&) const override {
    return answer_;
  }

 private:
  ClassifyResult answer_;
};

OOCPCBooleanAST* LeafOf(ClassifyResult answer) {
  return new OOCPCBooleanASTQueryVal(new FixedQuery(answer));
}

ClassifyResult Classified(std::unique_ptr<OOCPCBooleanAST> tree) {
  return tarnhost::NodeClassifier(*tree).Classify({});
}

/// What is left when each operand takes the values that its answer leaves open.
ClassifyResult ByTruthTable(OOCPCIQuery::BitwiseOperator op, ClassifyResult a, ClassifyResult b) {
  bool canBeTrue = false;
  bool canBeFalse = false;
  const auto allows = [](ClassifyResult answer, bool value) {
    return answer == ClassifyResult::kSome || (answer == ClassifyResult::kAll) == value;
  };
  for (const bool x : {false, true}) {
    for (const bool y : {false, true}) {
      if (!allows(a, x) || !allows(b, y)) continue;
      const bool value = op == oocpctest::kAnd ? x && y : op == oocpctest::kOr ? x || y : x != y;
      (value ? canBeTrue : canBeFalse) = true;
    }
  }
  return !canBeTrue   ? ClassifyResult::kNone
         : canBeFalse ? ClassifyResult::kSome
                      : ClassifyResult::kAll;
}

TEST(NodeClassifier, CombinesThreeValuedAsTheTruthTablesSay) {
  const std::array answers{ClassifyResult::kNone, ClassifyResult::kSome, ClassifyResult::kAll};
  for (const ClassifyResult a : answers) {
    for (const ClassifyResult b : answers) {
      for (const auto op : {oocpctest::kAnd, oocpctest::kOr, oocpctest::kXor}) {
        EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTBinaryOp>(op, LeafOf(a), LeafOf(b))),
                  ByTruthTable(op, a, b));
      }
    }
  }
  EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTNot>(LeafOf(ClassifyResult::kNone))),
            ClassifyResult::kAll);
  EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTNot>(LeafOf(ClassifyResult::kSome))),
            ClassifyResult::kSome);
  EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTNot>(LeafOf(ClassifyResult::kAll))),
            ClassifyResult::kNone);
}

TEST(NodeClassifier, KnowsConstantsAndCountsWhatEvaluatesToFalseAsNone) {
  EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTSimpleVal>(OOCPCBooleanValue::kTrue)),
            ClassifyResult::kAll);
  EXPECT_EQ(Classified(std::make_unique<OOCPCBooleanASTSimpleVal>(OOCPCBooleanValue::kFalse)),
            ClassifyResult::kNone);
  EXPECT_EQ(
      Classified(std::make_unique<OOCPCBooleanASTQueryVal>(static_cast<OOCPCIQuery*>(nullptr))),
      ClassifyResult::kNone);
}

TEST(NodeClassifier, KeepsLeftAndRightApartInNestedOperators) {
  // (all and not(none)) xor (none or some) is some; with "none" for "some" it is all.
  const auto tree = [](ClassifyResult last) {
    return std::make_unique<OOCPCBooleanASTBinaryOp>(
        oocpctest::kXor,
        new OOCPCBooleanASTBinaryOp(oocpctest::kAnd, LeafOf(ClassifyResult::kAll),
                                    new OOCPCBooleanASTNot(LeafOf(ClassifyResult::kNone))),
        new OOCPCBooleanASTBinaryOp(oocpctest::kOr, LeafOf(ClassifyResult::kNone), LeafOf(last)));
  };
  EXPECT_EQ(Classified(tree(ClassifyResult::kSome)), ClassifyResult::kSome);
  EXPECT_EQ(Classified(tree(ClassifyResult::kNone)), ClassifyResult::kAll);
  EXPECT_EQ(Classified(tree(ClassifyResult::kAll)), ClassifyResult::kNone);
}

TEST(NodeClassifier, WalksTreesOfVeryLongCalls) {
  OOCPCBooleanAST* tree = LeafOf(ClassifyResult::kNone);
  for (int i = 0; i < 200000; ++i) {
    tree = new OOCPCBooleanASTBinaryOp(oocpctest::kOr, tree, LeafOf(ClassifyResult::kNone));
  }
  EXPECT_EQ(Classified(std::unique_ptr<OOCPCBooleanAST>(tree)), ClassifyResult::kNone);
}

}  // namespace
