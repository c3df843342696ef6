// Which queries of a tree are asked, and in which order, where comparisons of numbers, which nobody
// sees being made, stand among queries that write down that they were asked.
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"
#include "tests/support/AnyPointCloud.h"
#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::AnyPointCloud;
using oocpctest::kAnd;
using oocpctest::kNot;
using oocpctest::kOr;
using oocpctest::kXor;
using oocpctest::ProbeQuery;

constexpr std::int32_t kNumber = 5;

/// Makes trees, and answers them by the rules alone.
class AskedQueries : public testing::Test {
 protected:
  OOCPCBooleanAST* Probe(bool answer) {
    return new OOCPCBooleanASTQueryVal(new ProbeQuery(letter_++, answer, &asked_));
  }
  static OOCPCBooleanAST* Number(bool answer) {
    return new OOCPCBooleanASTQueryVal(
        new Int32EqualQuery("n", answer ? kNumber : kNumber + 1, kAnd));
  }
  std::uint64_t Below(std::uint64_t bound) { return random_() % bound; }

  OOCPCBooleanAST* AnyTree(std::uint64_t depth) {
    if (depth == 0 || Below(6) == 0) return AnyLeaf();
    if (Below(6) == 0) return new OOCPCBooleanASTNot(AnyTree(depth - 1));
    const OOCPCIQuery::BitwiseOperator operators[] = {kAnd, kOr, kXor};
    const auto op = Below(40) == 0 ? kNot : operators[Below(3)];
    // Chains, as texts make them, more often than bushes.
    OOCPCBooleanAST* const left = AnyTree(depth - 1);
    OOCPCBooleanAST* const right = Below(3) == 0 ? AnyTree(depth - 1) : AnyLeaf();
    auto* const node = new OOCPCBooleanASTBinaryOp(op, left, right);
    if (Below(2) == 0) node->weight = static_cast<std::int32_t>(Below(9));
    return node;
  }
  OOCPCBooleanAST* AnyLeaf() {
    OOCPCBooleanAST* leaf = nullptr;
    const bool answer = Below(2) == 0;
    const std::uint64_t kind = Below(20);
    if (kind == 0) return nullptr;
    if (kind == 1) {
      leaf = new OOCPCBooleanASTSimpleVal(answer ? OOCPCBooleanValue::kTrue
                                                 : OOCPCBooleanValue::kFalse);
    } else if (kind == 2) {
      leaf = new OOCPCBooleanASTQueryVal(static_cast<OOCPCIQuery*>(nullptr));
    } else {
      leaf = kind < 13 ? Number(answer) : Probe(answer);
    }
    if (Below(2) == 0) leaf->weight = static_cast<std::int32_t>(Below(9));
    return leaf;
  }

  static bool Plain(const OOCPCBooleanAST* node) {
    if (node == nullptr) return false;
    if (node->IsSimpleVal()) {
      return static_cast<const OOCPCBooleanASTSimpleVal*>(node)->GetValue() ==
             OOCPCBooleanValue::kTrue;
    }
    if (node->IsQueryVal()) {
      const OOCPCIQuery* query = static_cast<const OOCPCBooleanASTQueryVal*>(node)->GetQuery();
      const std::string record = oocpctest::BytesOfValues(kNumber);
      return query != nullptr && oocpctest::SatisfiesRecord(*query, record);
    }
    if (node->IsNot()) return !Plain(node->first);
    const auto op = static_cast<const OOCPCBooleanASTBinaryOp*>(node)->GetOperator();
    if (op == kNot) return false;
    const bool isLeftFirst = node->first != nullptr && node->second != nullptr &&
                             node->first->weight < node->second->weight;
    const OOCPCBooleanAST* const second = isLeftFirst ? node->second : node->first;
    const bool answer = Plain(isLeftFirst ? node->first : node->second);
    if (op == kAnd) return answer && Plain(second);
    if (op == kOr) return answer || Plain(second);
    return Plain(second) != answer;
  }

  void Compare(OOCPCBooleanAST* root) {
    const std::unique_ptr<OOCPCBooleanAST> tree(root);
    TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), root);
    evaluator.CompleteBufferMetaDatas({"n"}, {4}, {0});
    evaluator.InitializeQueries();
    asked_.clear();
    const bool expected = Plain(root);
    const std::string askedByRules = asked_;
    asked_.clear();
    const std::string record = oocpctest::BytesOfValues(kNumber);
    ASSERT_EQ(evaluator.EvaluateExpression(record.data(), 0, 0), expected);
    ASSERT_EQ(asked_, askedByRules);
    countOfAsked_ += asked_.size();
    letter_ = 'A';
  }

  std::mt19937_64 random_{7};
  std::string asked_;
  char letter_ = 'A';
  std::size_t countOfAsked_ = 0;
};

TEST_F(AskedQueries, AreThoseOfTheRulesWhateverNumbersStandAmongThem) {
  for (int round = 0; round < 20000; ++round) {
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(Compare(AnyTree(1 + Below(12))));
  }
  EXPECT_GT(countOfAsked_, 10000u);
}

TEST_F(AskedQueries, AreNoneBehindManyNumbersThatDecide) {
  for (const auto op : {kAnd, kOr}) {
    for (int numbers = 1; numbers < 40; ++numbers) {
      OOCPCBooleanAST* tree = Probe(true);
      tree->weight = 100;
      for (int i = 0; i < numbers; ++i) {
        const bool isLast = i == numbers / 2;
        tree = new OOCPCBooleanASTBinaryOp(op, tree, Number((op == kOr) == isLast));
      }
      ASSERT_NO_FATAL_FAILURE(Compare(tree));
      ASSERT_EQ(asked_, "");
    }
  }
}

TEST_F(AskedQueries, AreAskedBehindManyNumbersThatDoNotDecide) {
  for (int numbers = 1; numbers < 40; ++numbers) {
    OOCPCBooleanAST* tree = Probe(true);
    tree->weight = 100;
    for (int i = 0; i < numbers; ++i) tree = new OOCPCBooleanASTBinaryOp(kAnd, tree, Number(true));
    ASSERT_NO_FATAL_FAILURE(Compare(tree));
    ASSERT_EQ(asked_, "A");
  }
}

}  // namespace
