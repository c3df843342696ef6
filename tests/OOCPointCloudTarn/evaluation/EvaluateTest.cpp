// One record against a tree: who is asked, in which order, and what counts as false.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <new>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"
#include "tests/support/AnyPointCloud.h"
#include "tests/support/QueryBuilders.h"

namespace {
std::size_t allocations = 0;
}  // namespace

// Counts every allocation of this program.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using oocpctest::AnyPointCloud;
using oocpctest::kAnd;
using oocpctest::kOr;
using oocpctest::kXor;
using oocpctest::ProbeQuery;
using Operator = OOCPCIQuery::BitwiseOperator;
using Tree = std::unique_ptr<OOCPCBooleanAST>;

/// Builds bound trees of probes that write who was asked.
class Evaluate : public testing::Test {
 protected:
  OOCPCBooleanAST* Leaf(char letter, bool answer, std::int32_t weight) {
    auto* const leaf = new OOCPCBooleanASTQueryVal(new ProbeQuery(letter, answer, &asked_));
    leaf->weight = weight;
    return leaf;
  }
  static OOCPCBooleanAST* Constant(std::uint32_t value) {
    return new OOCPCBooleanASTSimpleVal(static_cast<OOCPCBooleanValue>(value));
  }
  static OOCPCBooleanAST* Join(Operator op, OOCPCBooleanAST* left, OOCPCBooleanAST* right) {
    return new OOCPCBooleanASTBinaryOp(op, left, right);
  }
  bool Answer(OOCPCBooleanAST* root, TarnOOCPointCloud* cloud = AnyPointCloud()) {
    const Tree tree(root);
    TarnOOCBooleanExpressionEvaluator evaluator(cloud, root);
    evaluator.InitializeQueries();
    asked_.clear();
    return evaluator.EvaluateExpression("", 0, 0);
  }
  std::string asked_;
};

TEST_F(Evaluate, AndAsksTheLighterOperandFirst) {
  EXPECT_FALSE(Answer(Join(kAnd, Leaf('a', false, 5), Leaf('b', true, 1))));
  EXPECT_EQ(asked_, "ba");
  EXPECT_TRUE(Answer(Join(kAnd, Leaf('a', true, 1), Leaf('b', true, 5))));
  EXPECT_EQ(asked_, "ab");
}

TEST_F(Evaluate, AndStopsAtTheFirstFalse) {
  EXPECT_FALSE(Answer(Join(kAnd, Leaf('a', false, 1), Leaf('b', true, 5))));
  EXPECT_EQ(asked_, "a");
}

TEST_F(Evaluate, OrOfEqualWeightsAsksTheRightOperandAndStopsAtTheFirstTrue) {
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, 3), Leaf('b', true, 3))));
  EXPECT_EQ(asked_, "b");
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, 3), Leaf('b', false, 3))));
  EXPECT_EQ(asked_, "ba");
}

TEST_F(Evaluate, WeightsAreComparedSigned) {
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, -1), Leaf('b', true, 1))));
  EXPECT_EQ(asked_, "a");
}

TEST_F(Evaluate, XorAlwaysAsksBoth) {
  for (int bits = 0; bits < 4; ++bits) {
    const bool left = (bits & 1) != 0;
    const bool right = (bits & 2) != 0;
    EXPECT_EQ(Answer(Join(kXor, Leaf('a', left, 1), Leaf('b', right, 5))), left != right);
    EXPECT_EQ(asked_, "ab");
    EXPECT_EQ(Answer(Join(kXor, Leaf('a', left, 5), Leaf('b', right, 5))), left != right);
    EXPECT_EQ(asked_, "ba");
  }
}

TEST_F(Evaluate, NegationTurnsItsOperandRound) {
  EXPECT_FALSE(Answer(new OOCPCBooleanASTNot(Leaf('a', true, 1))));
  EXPECT_TRUE(Answer(new OOCPCBooleanASTNot(Leaf('a', false, 1))));
  EXPECT_TRUE(Answer(new OOCPCBooleanASTNot(new OOCPCBooleanASTNot(Leaf('a', true, 1)))));
}

TEST_F(Evaluate, OnlyTheConstantOneIsTrue) {
  EXPECT_TRUE(Answer(Constant(1)));
  for (const std::uint32_t value : {0u, 2u, 0xFFFFFFFFu}) EXPECT_FALSE(Answer(Constant(value)));
}

TEST_F(Evaluate, WithoutAPointCloudEverythingIsFalse) {
  EXPECT_FALSE(Answer(Constant(1), nullptr));
  EXPECT_FALSE(Answer(new OOCPCBooleanASTNot(Constant(0)), nullptr));
  EXPECT_FALSE(Answer(Leaf('a', true, 1), nullptr));
  EXPECT_EQ(asked_, "");
}

TEST_F(Evaluate, MissingNodesAreFalse) {
  EXPECT_FALSE(Answer(nullptr));
  EXPECT_TRUE(Answer(new OOCPCBooleanASTNot(nullptr)));
  EXPECT_FALSE(Answer(Join(kAnd, nullptr, Leaf('a', true, 1))));
  EXPECT_FALSE(Answer(Join(kAnd, Leaf('a', true, 1), nullptr)));
  EXPECT_TRUE(Answer(Join(kOr, nullptr, Leaf('a', true, 1))));
  EXPECT_TRUE(Answer(Join(kXor, Leaf('a', true, 1), nullptr)));
  EXPECT_FALSE(Answer(Join(kXor, nullptr, nullptr)));
}

TEST_F(Evaluate, LeavesWithoutQueryAreFalseAndTheWalkGoesOn) {
  auto* const empty = new OOCPCBooleanASTQueryVal(static_cast<OOCPCIQuery*>(nullptr));
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, 1), empty)));
  EXPECT_EQ(asked_, "a");
}

TEST_F(Evaluate, UnboundLeavesAreFalse) {
  const Tree tree(Leaf('a', true, 1));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree.get());
  EXPECT_FALSE(evaluator.EvaluateExpression("", 0, 0));
  EXPECT_EQ(asked_, "");
}

TEST_F(Evaluate, UnknownKindsAndOperatorsAreFalse) {
  OOCPCBooleanAST* const strange = Constant(1);
  strange->kind = 4;
  EXPECT_FALSE(Answer(strange));
  EXPECT_FALSE(Answer(Join(oocpctest::kNot, Leaf('a', true, 1), Leaf('b', true, 1))));
  EXPECT_FALSE(Answer(Join(static_cast<Operator>(9), Leaf('a', true, 1), Leaf('b', true, 1))));
  EXPECT_EQ(asked_, "");
}

TEST_F(Evaluate, UnknownKindsAndOperatorsUnderANegationCountAsFalse) {
  OOCPCBooleanAST* const strange = Constant(1);
  strange->kind = 0xFFFFFFFFu;
  EXPECT_TRUE(Answer(new OOCPCBooleanASTNot(strange)));
  EXPECT_TRUE(Answer(new OOCPCBooleanASTNot(
      Join(static_cast<Operator>(9), Leaf('a', true, 1), Leaf('b', true, 1)))));
  OOCPCBooleanAST* const other = Constant(1);
  other->kind = 4;
  EXPECT_FALSE(Answer(new OOCPCBooleanASTNot(new OOCPCBooleanASTNot(other))));
  EXPECT_EQ(asked_, "");
}

TEST_F(Evaluate, UnknownKindsAndOperatorsAsOperandsCountAsFalse) {
  OOCPCBooleanAST* const strange = Constant(1);
  strange->kind = 4;
  strange->weight = 9;
  EXPECT_TRUE(Answer(Join(kXor, Leaf('a', true, 1), strange)));
  EXPECT_EQ(asked_, "a");
  EXPECT_TRUE(Answer(
      Join(kOr, Leaf('a', true, 5), Join(static_cast<Operator>(9), Constant(1), Constant(1)))));
  EXPECT_EQ(asked_, "a");
}

TEST_F(Evaluate, UnboundLeavesUnderAnOperatorAreFalseAndTheWalkGoesOn) {
  const auto answer = [this](OOCPCBooleanAST* root) {
    const Tree tree(root);
    asked_.clear();
    return TarnOOCBooleanExpressionEvaluator(AnyPointCloud(), root).EvaluateExpression("", 0, 0);
  };
  EXPECT_TRUE(answer(new OOCPCBooleanASTNot(Leaf('a', true, 1))));
  EXPECT_TRUE(answer(Join(kOr, Constant(1), Leaf('a', true, 1))));
  EXPECT_TRUE(answer(Join(kXor, Leaf('a', true, 1), Constant(1))));
  EXPECT_FALSE(answer(Join(kOr, Leaf('a', true, 1), Leaf('b', true, 1))));
  EXPECT_FALSE(answer(Join(kAnd, Leaf('a', true, 1), Constant(1))));
  EXPECT_EQ(asked_, "");
}

TEST_F(Evaluate, ConstantsAreOperandsLikeAnyOther) {
  for (const std::uint32_t value : {0u, 1u, 2u}) {
    for (const bool leaf : {false, true}) {
      const bool constant = value == 1;
      EXPECT_EQ(Answer(Join(kAnd, Constant(value), Leaf('a', leaf, 1))), constant && leaf);
      EXPECT_EQ(asked_, constant ? "a" : "") << "the constant weighs nothing";
      EXPECT_EQ(Answer(Join(kAnd, Leaf('a', leaf, 1), Constant(value))), constant && leaf);
      EXPECT_EQ(Answer(Join(kOr, Leaf('a', leaf, 1), Constant(value))), constant || leaf);
      EXPECT_EQ(asked_, constant ? "" : "a");
      EXPECT_EQ(Answer(Join(kXor, Constant(value), Leaf('a', leaf, 1))), constant != leaf);
      EXPECT_EQ(asked_, "a");
      EXPECT_EQ(Answer(Join(kXor, Leaf('a', leaf, 1), Constant(value))), constant != leaf);
      EXPECT_EQ(asked_, "a");
    }
  }
}

TEST_F(Evaluate, WeightsAreComparedAcrossTheirWholeRange) {
  const std::int32_t lightest = std::numeric_limits<std::int32_t>::min();
  const std::int32_t heaviest = std::numeric_limits<std::int32_t>::max();
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, lightest), Leaf('b', true, heaviest))));
  EXPECT_EQ(asked_, "a");
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, heaviest), Leaf('b', true, lightest))));
  EXPECT_EQ(asked_, "b");
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, lightest), Leaf('b', true, 0))));
  EXPECT_EQ(asked_, "a");
  EXPECT_TRUE(Answer(Join(kOr, Leaf('a', true, lightest), Leaf('b', true, lightest))));
  EXPECT_EQ(asked_, "b");
}

TEST_F(Evaluate, FallsBackToTheFirstMetadataAlone) {
  const Tree tree(new OOCPCBooleanASTQueryVal(new ProbeQuery('a', false, &asked_, {"n"}, true)));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree.get());
  evaluator.InitializeQueries();
  EXPECT_TRUE(evaluator.EvaluateExpression("", 0, 0));
  EXPECT_EQ(asked_, "a");
}

TEST_F(Evaluate, ALeafWithoutMetadataHasNoFallback) {
  const Tree tree(new OOCPCBooleanASTQueryVal(new ProbeQuery('a', false, &asked_, {}, true)));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree.get());
  evaluator.InitializeQueries();
  EXPECT_FALSE(evaluator.EvaluateExpression("", 0, 0));
}

TEST_F(Evaluate, NoRecordsAreNoMatchForALeafThatReads) {
  const Tree tree(new OOCPCBooleanASTQueryVal(new UInt8EqualQuery("n", 0, kAnd)));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree.get());
  evaluator.InitializeQueries();
  EXPECT_FALSE(evaluator.EvaluateExpression(nullptr, 0, 0));
}

/// A tree of one comparison with a byte at the given offset.
struct ByteReading {
  explicit ByteReading(std::uint8_t value, unsigned offset)
      : tree(new OOCPCBooleanASTQueryVal(new UInt8EqualQuery("n", value, kAnd))),
        evaluator(AnyPointCloud(), tree.get()) {
    EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"n"}, {1}, {offset}), oocpc::result::kOk);
    EXPECT_EQ(evaluator.InitializeQueries(), oocpc::result::kOk);
  }
  Tree tree;
  TarnOOCBooleanExpressionEvaluator evaluator;
};

TEST(EvaluateRecords, StartAtTheProductOfBothFactors) {
  ByteReading reading(7, 1);
  const char records[] = "\0\0\0\0\0\0\0\7\0\0";
  EXPECT_TRUE(reading.evaluator.EvaluateExpression(records, 3, 2));
  EXPECT_TRUE(reading.evaluator.EvaluateExpression(records, 2, 3));
  EXPECT_FALSE(reading.evaluator.EvaluateExpression(records, 2, 2));
}

TEST(EvaluateRecords, OffsetWrapsAtFourGiB) {
  ByteReading reading(7, 0);
  EXPECT_TRUE(reading.evaluator.EvaluateExpression("\7", 65536, 65536));
  EXPECT_TRUE(reading.evaluator.EvaluateExpression("\0\7", 0x80000001u, 0x80000001u));
}

TEST(EvaluateRecords, AMetadataThatTheLayoutLacksIsReadAtTheRecordsStart) {
  const Tree tree(new OOCPCBooleanASTQueryVal(new UInt8EqualQuery("other", 7, kAnd)));
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree.get());
  ASSERT_EQ(evaluator.CompleteBufferMetaDatas({"n"}, {1}, {1}), oocpc::result::kOk);
  ASSERT_EQ(evaluator.InitializeQueries(), oocpc::result::kOk);
  EXPECT_TRUE(evaluator.EvaluateExpression("\7\1", 0, 2));
}

TEST(EvaluateRecords, AllocatesNothing) {
  const float zero[3] = {0, 0, 0};
  OOCPCBooleanAST* root = new OOCPCBooleanASTQueryVal(new OOCPCInsideSphereQuery(kAnd, zero, 1));
  const std::string longText(200, 'x');
  for (const Operator op : {kAnd, kOr, kXor}) {
    auto* const text = new OOCPCBooleanASTQueryVal(new StringLessQuery("s", longText, kAnd));
    auto* const number = new OOCPCBooleanASTQueryVal(new DoubleLessQuery("d", 1, kAnd));
    root = new OOCPCBooleanASTBinaryOp(op, new OOCPCBooleanASTNot(root),
                                       new OOCPCBooleanASTBinaryOp(kXor, text, number));
  }
  const Tree tree(root);
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), root);
  ASSERT_EQ(
      evaluator.CompleteBufferMetaDatas({"DEF_POSITION", "d", "s"}, {24, 8, 300}, {0, 24, 32}),
      oocpc::result::kOk);
  ASSERT_EQ(evaluator.InitializeQueries(), oocpc::result::kOk);
  const std::string record = oocpctest::BytesOfValues(0.5, 0.5, 0.5, 0.5) + longText + '\0';
  const std::size_t before = allocations;
  bool answer = false;
  for (int i = 0; i < 1000; ++i) answer ^= evaluator.EvaluateExpression(record.data(), 0, 0);
  EXPECT_EQ(allocations, before);
  EXPECT_FALSE(answer);
}

TEST(EvaluateDeepTrees, OfAHundredThousandOperandsNeedNoDeepStack) {
  for (const Operator op : {kAnd, kOr, kXor}) {
    for (const bool leansLeft : {false, true}) {
      const bool answer = op != kOr;
      OOCPCBooleanAST* root = nullptr;
      for (int i = 0; i <= 100000; ++i) {
        auto* const leaf = new OOCPCBooleanASTQueryVal(new ProbeQuery('p', answer, nullptr));
        if (root == nullptr) {
          root = leaf;
        } else {
          root = leansLeft ? new OOCPCBooleanASTBinaryOp(op, root, leaf)
                           : new OOCPCBooleanASTBinaryOp(op, leaf, root);
        }
        if (i % 10 == 0) root = new OOCPCBooleanASTNot(new OOCPCBooleanASTNot(root));
      }
      const Tree tree(root);
      TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), root);
      ASSERT_EQ(evaluator.InitializeQueries(), oocpc::result::kOk);
      EXPECT_EQ(evaluator.EvaluateExpression("", 0, 0), op != kOr);
    }
  }
}

}  // namespace
