// What an evaluated leaf hands to its query: pointers, sizes, and the accelerator of its binding.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"
#include "tests/support/AnyPointCloud.h"
#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::AnyPointCloud;
using oocpctest::kAnd;
using Addresses = std::vector<std::uintptr_t>;
using Sizes = std::vector<unsigned>;
using ClassifyResult = OOCPCIQuery::ClassifyResult;
namespace result = oocpc::result;

std::uintptr_t AddressOf(const char* byte) { return reinterpret_cast<std::uintptr_t>(byte); }

/// What a query was asked, and what it is to answer.
struct Calls {
  bool answer = false;
  bool singleAnswer = false;
  int count = 0;
  int singleCount = 0;
  bool hadNoArrays = false;
  Addresses records;
  Sizes sizes;
  std::uintptr_t singleRecord = 0;
  unsigned singleSize = 0;
};

/// Writes down what it is asked; follows no pointer into a record.
class RecordingQuery final : public OOCPCIQuery {
 public:
  using OOCPCIQuery::Satisfy;
  RecordingQuery(std::vector<QelUnicodeString> names, Calls& calls)
      : OOCPCIQuery(std::move(names), kAnd), calls_(calls) {}

  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes) const override {
    ++calls_.count;
    calls_.hadNoArrays = records == nullptr && sizes == nullptr;
    calls_.records.clear();
    calls_.sizes.clear();
    if (records == nullptr || sizes == nullptr) return calls_.answer;
    for (std::uint64_t i = 0; i < GetNumberOfMetadata(); ++i) {
      calls_.records.push_back(AddressOf(records[i]));
      calls_.sizes.push_back(sizes[i]);
    }
    return calls_.answer;
  }
  [[nodiscard]] bool Satisfy(const char* record, unsigned size) const override {
    ++calls_.singleCount;
    calls_.singleRecord = AddressOf(record);
    calls_.singleSize = size;
    return calls_.singleAnswer;
  }

 private:
  Calls& calls_;
};

/// A leaf of a recording query, bound to a layout of "a", "b" and "c".
class LeafCalls : public testing::Test {
 protected:
  bool Evaluate(std::vector<QelUnicodeString> names, unsigned a, unsigned b) {
    leaf_ = std::make_unique<OOCPCBooleanASTQueryVal>(new RecordingQuery(std::move(names), calls_));
    TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), leaf_.get());
    EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"a", "b", "c"}, {1, 2, 4}, offsets_), result::kOk);
    EXPECT_EQ(evaluator.InitializeQueries(), result::kOk);
    if (accelerator_) {
      leaf_->binding->m_accelerator = new OOCPCIQuery::NodeAccelerator(*accelerator_);
    }
    return evaluator.EvaluateExpression(records_, a, b);
  }
  [[nodiscard]] std::uintptr_t Start() const { return AddressOf(records_); }

  char records_[64] = {};
  Sizes offsets_{10, 11, 13};
  std::optional<ClassifyResult> accelerator_;
  Calls calls_;
  std::unique_ptr<OOCPCBooleanASTQueryVal> leaf_;
};

TEST_F(LeafCalls, HandOverPointersAndSizesInTheOrderOfTheQuery) {
  EXPECT_FALSE(Evaluate({"c", "missing", "a", "b"}, 3, 5));
  EXPECT_EQ(calls_.count, 1);
  EXPECT_EQ(calls_.records,
            (Addresses{Start() + 15 + 13, Start() + 15, Start() + 15 + 10, Start() + 15 + 11}));
  EXPECT_EQ(calls_.sizes, (Sizes{4, 0, 1, 2}));
}

TEST_F(LeafCalls, AskTheFallbackForTheFirstMetadataOfSeveral) {
  calls_.singleAnswer = true;
  EXPECT_TRUE(Evaluate({"c", "a"}, 2, 7));
  EXPECT_EQ(calls_.count, 1);
  EXPECT_EQ(calls_.singleCount, 1);
  EXPECT_EQ(calls_.singleRecord, Start() + 14 + 13);
  EXPECT_EQ(calls_.singleSize, 4u);
}

TEST_F(LeafCalls, DoNotAskTheFallbackWhereTheFirstCallHolds) {
  calls_.answer = true;
  EXPECT_TRUE(Evaluate({"c", "a"}, 0, 0));
  EXPECT_EQ(calls_.singleCount, 0);
}

TEST_F(LeafCalls, AddAMetadatasOffsetBehindTheWrappedProductWithoutWrappingAgain) {
  offsets_ = {2, 0xFFFFFFFFu, 0};
  EXPECT_FALSE(Evaluate({"a", "b", "c"}, 0xFFFFFFFFu, 1));
  EXPECT_EQ(calls_.records,
            (Addresses{Start() + 0x100000001u, Start() + 0x1FFFFFFFEu, Start() + 0xFFFFFFFFu}));
  EXPECT_EQ(calls_.singleRecord, Start() + 0x100000001u);
  EXPECT_FALSE(Evaluate({"a", "b"}, 0x10001, 0xFFFFFFFF)) << "the product is 0xFFFEFFFF";
  EXPECT_EQ(calls_.records, (Addresses{Start() + 0xFFFF0001u, Start() + 0x1FFFEFFFEu}));
}

TEST_F(LeafCalls, AskTheQueryWhereTheAcceleratorLeavesItOpen) {
  accelerator_ = ClassifyResult::kSome;
  calls_.singleAnswer = true;
  EXPECT_TRUE(Evaluate({"a", "b"}, 0, 0));
  EXPECT_EQ(calls_.count, 1);
  EXPECT_EQ(calls_.singleCount, 1);
}

TEST_F(LeafCalls, TakeTheAcceleratorsWordThatAllPointsAreInside) {
  accelerator_ = ClassifyResult::kAll;
  EXPECT_TRUE(Evaluate({"a", "b"}, 0, 0));
  EXPECT_EQ(calls_.count, 0);
  EXPECT_EQ(calls_.singleCount, 0);
}

// Both calls get the accelerator: without it, either would have asked the query, which says yes.
TEST_F(LeafCalls, TakeTheAcceleratorsWordThatAllPointsAreOutsideInBothCalls) {
  accelerator_ = ClassifyResult::kNone;
  calls_.answer = true;
  calls_.singleAnswer = true;
  EXPECT_FALSE(Evaluate({"a", "b"}, 0, 0));
  EXPECT_EQ(calls_.count, 0);
  EXPECT_EQ(calls_.singleCount, 0);
}

/// Binds a tree without a point cloud, evaluates it with one.
bool EvaluateBoundWithoutACloud(OOCPCBooleanAST* tree, const char* records) {
  TarnOOCBooleanExpressionEvaluator binder(nullptr, tree);
  EXPECT_EQ(binder.CompleteBufferMetaDatas({"a"}, {1}, {0}), result::kOk);
  EXPECT_EQ(binder.InitializeQueries(), result::kOk);
  return TarnOOCBooleanExpressionEvaluator(AnyPointCloud(), tree).EvaluateExpression(records, 0, 0);
}

TEST(TreeBoundWithoutAPointCloud, HandsNothingToItsQueriesAndHasNoFallback) {
  Calls calls;
  calls.singleAnswer = true;
  OOCPCBooleanASTQueryVal leaf(new RecordingQuery({"a", "b"}, calls));
  EXPECT_FALSE(EvaluateBoundWithoutACloud(&leaf, ""));
  EXPECT_EQ(calls.count, 1);
  EXPECT_TRUE(calls.hadNoArrays);
  EXPECT_EQ(calls.singleCount, 0);
}

TEST(TreeBoundWithoutAPointCloud, IsFalseWhereItComparesAndAnswersWhereItReadsNothing) {
  OOCPCBooleanASTQueryVal comparison(new UInt8EqualQuery("a", 7, kAnd));
  EXPECT_FALSE(EvaluateBoundWithoutACloud(&comparison, "\7"));
  OOCPCBooleanASTNot negation(new OOCPCBooleanASTQueryVal(new UInt8EqualQuery("a", 7, kAnd)));
  EXPECT_TRUE(EvaluateBoundWithoutACloud(&negation, "\7"));
  OOCPCBooleanASTQueryVal all(new OOCPCAllPointsQuery(kAnd));
  EXPECT_TRUE(EvaluateBoundWithoutACloud(&all, "\7"));
}

TEST(TreeBoundWithoutAPointCloud, AnswersOnceItIsBoundWithOne) {
  OOCPCBooleanASTQueryVal comparison(new UInt8EqualQuery("a", 7, kAnd));
  EXPECT_FALSE(EvaluateBoundWithoutACloud(&comparison, "\7"));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), &comparison);
  EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"a"}, {1}, {0}), result::kOk);
  EXPECT_EQ(evaluator.InitializeQueries(), result::kOk);
  EXPECT_TRUE(evaluator.EvaluateExpression("\7", 0, 0));
}

}  // namespace
