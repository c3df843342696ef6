// Collecting metadata names, stating the layout, binding the leaves.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <gtest/gtest.h>

#include "OOCPointCloudTarn/evaluation/MetaDataBinding.h"
#include "tests/support/AnyPointCloud.h"
#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::AnyPointCloud;
using oocpctest::kAnd;
using oocpctest::kOr;
using oocpctest::ProbeQuery;
using Names = std::vector<std::string>;
using Tree = std::unique_ptr<OOCPCBooleanAST>;
namespace result = oocpc::result;

OOCPCBooleanASTQueryVal* Leaf(std::vector<QelUnicodeString> names) {
  return new OOCPCBooleanASTQueryVal(new ProbeQuery('p', true, nullptr, std::move(names)));
}

OOCPCBooleanAST* Constant() { return new OOCPCBooleanASTSimpleVal(OOCPCBooleanValue::kTrue); }

OOCPCBooleanAST* Both(OOCPCBooleanAST* left, OOCPCBooleanAST* right) {
  return new OOCPCBooleanASTBinaryOp(kAnd, left, right);
}

/// A node that is none of the four kinds.
class StrangeNode final : public OOCPCBooleanAST {
 public:
  StrangeNode() : OOCPCBooleanAST(17, 0) {}
  [[nodiscard]] OOCPCBooleanAST* Clone() const override { return new StrangeNode; }
};

struct Prepared {
  explicit Prepared(OOCPCBooleanAST* root, TarnOOCPointCloud* cloud = AnyPointCloud())
      : tree(root), evaluator(cloud, root) {}
  [[nodiscard]] Names Collected() const {
    Names names{"left from before"};
    evaluator.GetMetaDatas(names);
    return names;
  }
  Tree tree;
  TarnOOCBooleanExpressionEvaluator evaluator;
};

MetaDataBinding& BindingOf(OOCPCBooleanAST* leaf) {
  return dynamic_cast<MetaDataBinding&>(*leaf->binding);
}

TEST(CompleteMetaDatas, ListsEachNameOnceAtItsFirstPlaceFromLeftToRight) {
  Prepared prepared(Both(Both(Leaf({"b"}), Leaf({"a", "b"})),
                         new OOCPCBooleanASTNot(new OOCPCBooleanASTNot(Leaf({"c", "a", "A"})))));
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kOk);
  EXPECT_EQ(prepared.Collected(), (Names{"b", "a", "c", "A"}));
}

TEST(CompleteMetaDatas, AddsToWhatWasCollectedBefore) {
  Prepared prepared(Leaf({"a", "b"}));
  const Tree other(Leaf({"c", "a"}));
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kOk);
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kOk);
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(other.get()), result::kOk);
  EXPECT_EQ(prepared.Collected(), (Names{"a", "b", "c"}));
}

TEST(CompleteMetaDatas, SucceedsOnALeafWithoutMetadata) {
  Prepared prepared(Leaf({}));
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kOk);
  EXPECT_TRUE(prepared.Collected().empty());
}

TEST(SetUpWalks, GiveOneForASingleConstantAndBindNothing) {
  Prepared prepared(Constant());
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kNothingDone);
  EXPECT_EQ(prepared.evaluator.InitializeQueries(), result::kNothingDone);
  EXPECT_TRUE(prepared.Collected().empty());
  EXPECT_EQ(prepared.tree->binding, nullptr);
}

TEST(SetUpWalks, GiveOneForAConstantAnywhereAndStillDoTheRest) {
  for (const bool left : {false, true}) {
    auto* const leaf = Leaf({"a"});
    Prepared prepared(left ? Both(Constant(), leaf)
                           : Both(leaf, new OOCPCBooleanASTNot(Constant())));
    EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), result::kNothingDone);
    EXPECT_EQ(prepared.evaluator.InitializeQueries(), result::kNothingDone);
    EXPECT_EQ(prepared.Collected(), Names{"a"});
    EXPECT_NE(leaf->binding, nullptr);
  }
}

TEST(SetUpWalks, FailOnMalformedTrees) {
  OOCPCBooleanAST* const malformed[] = {
      nullptr, new OOCPCBooleanASTNot(nullptr), new StrangeNode,
      new OOCPCBooleanASTQueryVal(static_cast<OOCPCIQuery*>(nullptr)),
      new OOCPCBooleanASTNot(new OOCPCBooleanASTNot(nullptr))};
  for (OOCPCBooleanAST* const root : malformed) {
    Prepared prepared(root);
    EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(root), result::kFail);
    EXPECT_EQ(prepared.evaluator.InitializeQueries(), result::kFail);
  }
}

TEST(SetUpWalks, GoOnBehindAFailureAndCombineTheCodes) {
  auto* const first = Leaf({"a"});
  auto* const last = Leaf({"b"});
  Prepared prepared(Both(Both(first, nullptr), Both(new StrangeNode, Both(Constant(), last))));
  const HRESULT both = result::kFail | result::kNothingDone;
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(prepared.tree.get()), both);
  EXPECT_EQ(prepared.evaluator.InitializeQueries(), both);
  EXPECT_EQ(prepared.Collected(), (Names{"a", "b"}));
  EXPECT_NE(first->binding, nullptr);
  EXPECT_NE(last->binding, nullptr);
}

TEST(SetUpWalks, ManageTreesTooDeepForRecursion) {
  OOCPCBooleanAST* root = Leaf({"a"});
  for (int i = 0; i < 100000; ++i) {
    root = new OOCPCBooleanASTNot(Both(root, Leaf({"b"})));
  }
  for (int i = 0; i < 100000; ++i) root = Both(Leaf({"c"}), root);
  Prepared prepared(root);
  EXPECT_EQ(prepared.evaluator.CompleteMetaDatas(root), result::kOk);
  EXPECT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_EQ(prepared.Collected(), (Names{"c", "a", "b"}));
}

TEST(CompleteBufferMetaDatas, RefusesListsOfDifferentLengthAndKeepsTheLayout) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf);
  auto& evaluator = prepared.evaluator;
  ASSERT_EQ(evaluator.CompleteBufferMetaDatas({"a", "b"}, {4, 8}, {16, 20}), result::kOk);
  EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"a", "b"}, {1, 1, 1}, {0, 0}), result::kFail);
  EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"a", "b"}, {1, 1}, {0}), result::kFail);
  EXPECT_EQ(evaluator.CompleteBufferMetaDatas({"a"}, {1, 1}, {0, 0}), result::kFail);
  ASSERT_EQ(evaluator.InitializeQueries(), result::kOk);
  EXPECT_EQ(BindingOf(leaf).m_sizes, std::vector<unsigned>{4});
  EXPECT_EQ(BindingOf(leaf).m_offsets, std::vector<unsigned>{16});
}

TEST(CompleteBufferMetaDatas, AcceptsEmptyListsAndClearsTheLayout) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a"}, {4}, {16}), result::kOk);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({}, {}, {}), result::kOk);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_EQ(BindingOf(leaf).m_offsets, std::vector<unsigned>{0});
}

TEST(CompleteBufferMetaDatas, TakesEffectWithTheNextInitialization) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a"}, {4}, {16}), result::kOk);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  NodeAcceleratorHolder* const earlier = leaf->binding;
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a"}, {4}, {32}), result::kOk);
  EXPECT_EQ(BindingOf(leaf).m_offsets[0], 16u);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_NE(leaf->binding, earlier);
  EXPECT_EQ(BindingOf(leaf).m_offsets[0], 32u);
  EXPECT_EQ(static_cast<MetaDataBinding*>(earlier)->m_offsets[0], 16u);
}

TEST(InitializeQueries, TranslatesTheQuerysOrderIntoTheLayouts) {
  auto* const leaf = Leaf({"c", "missing", "a"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a", "b", "c"}, {1, 2, 3}, {10, 20, 30}),
            result::kOk);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  const MetaDataBinding& binding = BindingOf(leaf);
  EXPECT_EQ(binding.m_sizes, (std::vector<unsigned>{3, 0, 1}));
  EXPECT_EQ(binding.m_offsets, (std::vector<unsigned>{30, 0, 10}));
  EXPECT_EQ(binding.m_recordPointers, (std::vector<const char*>{nullptr, nullptr, nullptr}));
  EXPECT_EQ(binding.m_accelerator, nullptr);
}

TEST(InitializeQueries, OfANameGivenTwiceTheFirstCounts) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"b", "a", "a"}, {1, 2, 3}, {10, 20, 30}),
            result::kOk);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_EQ(BindingOf(leaf).m_sizes[0], 2u);
  EXPECT_EQ(BindingOf(leaf).m_offsets[0], 20u);
}

TEST(InitializeQueries, ComparesNamesByteForByte) {
  auto* const leaf = Leaf({"\xff", "é"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"\xfe", "\xff", "é"}, {1, 2, 3}, {1, 2, 3}),
            result::kOk);
  ASSERT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_EQ(BindingOf(leaf).m_offsets, (std::vector<unsigned>{2, 3}));
}

TEST(InitializeQueries, WithoutAPointCloudLeavesTheBindingsEmpty) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf, nullptr);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a"}, {4}, {16}), result::kOk);
  EXPECT_EQ(prepared.evaluator.InitializeQueries(), result::kOk);
  EXPECT_TRUE(BindingOf(leaf).m_recordPointers.empty());
  EXPECT_TRUE(BindingOf(leaf).m_sizes.empty());
  EXPECT_TRUE(BindingOf(leaf).m_offsets.empty());
}

TEST(MetaDataBindingOfNothing, IsEmpty) {
  const MetaDataBinding binding(AnyPointCloud(), nullptr, nullptr, {{"a"}, {1}, {2}});
  EXPECT_TRUE(binding.m_recordPointers.empty());
}

TEST(EvaluatorCopy, SharesTheTreeAndCopiesTheLists) {
  auto* const leaf = Leaf({"a"});
  Prepared prepared(leaf);
  ASSERT_EQ(prepared.evaluator.CompleteMetaDatas(leaf), result::kOk);
  ASSERT_EQ(prepared.evaluator.CompleteBufferMetaDatas({"a"}, {4}, {16}), result::kOk);
  TarnOOCBooleanExpressionEvaluator copy(prepared.evaluator);
  TarnOOCBooleanExpressionEvaluator assigned(nullptr, nullptr);
  assigned = copy;
  const TarnOOCBooleanExpressionEvaluator& itself = assigned;
  assigned = itself;
  for (TarnOOCBooleanExpressionEvaluator* const each : {&copy, &assigned}) {
    Names names;
    each->GetMetaDatas(names);
    EXPECT_EQ(names, Names{"a"});
    EXPECT_EQ(each->InitializeQueries(), result::kOk);
    EXPECT_EQ(BindingOf(leaf).m_offsets[0], 16u);
    EXPECT_TRUE(each->EvaluateExpression("", 0, 0));
  }
}

}  // namespace
