// The boolean tree: kinds, weights, deep copies, ownership, and trees too deep for recursion.
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::kAnd;
using oocpctest::kOr;
using oocpctest::kXor;
using oocpctest::ProbeQuery;
using Tree = std::unique_ptr<OOCPCBooleanAST>;

OOCPCBooleanAST* Probe() { return new OOCPCBooleanASTQueryVal(new ProbeQuery('p', true, nullptr)); }

OOCPCBooleanAST* Constant(OOCPCBooleanValue value = OOCPCBooleanValue::kTrue) {
  return new OOCPCBooleanASTSimpleVal(value);
}

class CountedHolder final : public NodeAcceleratorHolder {
 public:
  explicit CountedHolder(int& living) : NodeAcceleratorHolder(nullptr), living_(living) {
    ++living_;
  }
  ~CountedHolder() override { --living_; }

 private:
  int& living_;
};

class CountedAccelerator final : public OOCPCIQuery::NodeAccelerator {
 public:
  explicit CountedAccelerator(int& living)
      : NodeAccelerator(OOCPCIQuery::ClassifyResult::kAll), living_(living) {
    ++living_;
  }
  ~CountedAccelerator() override { --living_; }

 private:
  int& living_;
};

TEST(TreeNode, AnswersOneOfTheFourPredicatesAndItsKind) {
  const Tree nodes[] = {Tree(Constant()), Tree(Probe()), Tree(new OOCPCBooleanASTNot(Probe())),
                        Tree(new OOCPCBooleanASTBinaryOp(kAnd, Probe(), Probe()))};
  for (std::uint32_t kind = 0; kind < 4; ++kind) {
    EXPECT_EQ(nodes[kind]->kind, kind);
    EXPECT_EQ(nodes[kind]->IsSimpleVal(), kind == OOCPCBooleanAST::kConstant);
    EXPECT_EQ(nodes[kind]->IsQueryVal(), kind == OOCPCBooleanAST::kQueryLeaf);
    EXPECT_EQ(nodes[kind]->IsNot(), kind == OOCPCBooleanAST::kNegation);
    EXPECT_EQ(nodes[kind]->IsBinaryOp(), kind == OOCPCBooleanAST::kBinaryOperator);
  }
}

TEST(TreeNode, WeighsConstantsNothingLeavesTheirCostAndOperatorsTheSum) {
  const float three[3] = {};
  EXPECT_EQ(Tree(Constant())->weight, 0);
  EXPECT_EQ(Tree(new OOCPCBooleanASTQueryVal(new OOCPCAllPointsQuery(kAnd)))->weight, 0);
  EXPECT_EQ(Tree(Probe())->weight, 8);
  EXPECT_EQ(Tree(new OOCPCBooleanASTQueryVal(static_cast<OOCPCIQuery*>(nullptr)))->weight, 0);
  EXPECT_EQ(Tree(new OOCPCBooleanASTNot(Probe()))->weight, 8);
  EXPECT_EQ(Tree(new OOCPCBooleanASTNot(nullptr))->weight, 0);
  auto* const sphere = new OOCPCBooleanASTQueryVal(new OOCPCInsideSphereQuery(kAnd, three, 1));
  EXPECT_EQ(Tree(new OOCPCBooleanASTBinaryOp(kOr, Probe(), sphere))->weight, 10);
  EXPECT_EQ(Tree(new OOCPCBooleanASTBinaryOp(kOr, nullptr, Probe()))->weight, 8);
}

TEST(TreeNode, WeightsDoNotWrap) {
  OOCPCBooleanAST* const heavy = Constant();
  heavy->weight = std::numeric_limits<std::int32_t>::max();
  const Tree tree(new OOCPCBooleanASTBinaryOp(kAnd, heavy, Probe()));
  EXPECT_EQ(tree->weight, std::numeric_limits<std::int32_t>::max());
}

TEST(TreeNode, GivesOperatorChildrenAndValue) {
  OOCPCBooleanAST* const left = Probe();
  OOCPCBooleanAST* const right = Constant(OOCPCBooleanValue::kFalse);
  const OOCPCBooleanASTBinaryOp tree(kXor, left, right);
  OOCPCBooleanAST* gotLeft = nullptr;
  OOCPCBooleanAST* gotRight = nullptr;
  tree.GetChildren(gotLeft, gotRight);
  EXPECT_EQ(gotLeft, left);
  EXPECT_EQ(gotRight, right);
  EXPECT_EQ(tree.GetOperator(), kXor);
  EXPECT_EQ(static_cast<OOCPCBooleanASTSimpleVal*>(right)->GetValue(), OOCPCBooleanValue::kFalse);
}

TEST(TreeOwnership, DeletesChildrenQueriesAndBindings) {
  ASSERT_EQ(ProbeQuery::Living(), 0);
  int holders = 0;
  int accelerators = 0;
  {
    auto* const leaf = new OOCPCBooleanASTQueryVal(new ProbeQuery('p', true, nullptr));
    const OOCPCBooleanASTBinaryOp tree(kAnd, new OOCPCBooleanASTNot(leaf), Probe());
    leaf->SetBinding(std::make_unique<CountedHolder>(holders));
    leaf->SetBinding(std::make_unique<CountedHolder>(holders));
    leaf->SetBinding(std::make_unique<NodeAcceleratorHolder>(new CountedAccelerator(accelerators)));
    EXPECT_EQ(holders, 2);
    EXPECT_EQ(accelerators, 1);
    EXPECT_EQ(ProbeQuery::Living(), 2);
  }
  EXPECT_EQ(holders, 0);
  EXPECT_EQ(accelerators, 0);
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

TEST(TreeOwnership, ReplacedBindingStaysAlive) {
  int holders = 0;
  OOCPCBooleanASTQueryVal leaf(new ProbeQuery('p', true, nullptr));
  EXPECT_EQ(leaf.binding, nullptr);
  leaf.SetBinding(std::make_unique<CountedHolder>(holders));
  NodeAcceleratorHolder* const earlier = leaf.binding;
  leaf.SetBinding(std::make_unique<CountedHolder>(holders));
  EXPECT_NE(leaf.binding, earlier);
  EXPECT_EQ(holders, 2);
  EXPECT_EQ(earlier->m_accelerator, nullptr);
}

TEST(TreeCopy, IsDeepSharesQueriesAndLeavesBindingsBehind) {
  int holders = 0;
  auto* const leaf = new OOCPCBooleanASTQueryVal(new ProbeQuery('p', true, nullptr));
  leaf->SetBinding(std::make_unique<CountedHolder>(holders));
  auto tree =
      std::make_unique<OOCPCBooleanASTBinaryOp>(kXor, new OOCPCBooleanASTNot(leaf), Constant());
  tree->weight = 77;
  const Tree copy(tree->Clone());
  tree.reset();
  ASSERT_TRUE(copy->IsBinaryOp());
  EXPECT_EQ(copy->weight, 77);
  EXPECT_EQ(static_cast<OOCPCBooleanASTBinaryOp&>(*copy).GetOperator(), kXor);
  ASSERT_TRUE(copy->first->IsNot());
  EXPECT_TRUE(copy->second->IsSimpleVal());
  auto* const leafCopy = dynamic_cast<OOCPCBooleanASTQueryVal*>(copy->first->first);
  ASSERT_NE(leafCopy, nullptr);
  EXPECT_EQ(leafCopy->binding, nullptr);
  EXPECT_EQ(holders, 0);
  EXPECT_NE(dynamic_cast<ProbeQuery*>(leafCopy->GetQuery()), nullptr);
  EXPECT_EQ(ProbeQuery::Living(), 1);
}

TEST(TreeCopy, KeepsMissingChildrenMissing) {
  const OOCPCBooleanASTBinaryOp tree(kAnd, nullptr, new OOCPCBooleanASTNot(nullptr));
  const Tree copy(tree.Clone());
  EXPECT_EQ(copy->first, nullptr);
  ASSERT_NE(copy->second, nullptr);
  EXPECT_EQ(copy->second->first, nullptr);
}

constexpr int kDeep = 300000;

TEST(DeepTree, LeansLeftIsCopiedAndDeletedWithoutRecursion) {
  OOCPCBooleanAST* root = Probe();
  for (int i = 0; i < kDeep; ++i) root = new OOCPCBooleanASTBinaryOp(kAnd, root, Probe());
  Tree tree(root);
  Tree copy(tree->Clone());
  tree.reset();
  EXPECT_EQ(ProbeQuery::Living(), kDeep + 1);
  copy.reset();
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

TEST(DeepTree, LeansRightIsCopiedAndDeletedWithoutRecursion) {
  OOCPCBooleanAST* root = Probe();
  for (int i = 0; i < kDeep; ++i) root = new OOCPCBooleanASTBinaryOp(kOr, Probe(), root);
  Tree tree(root);
  Tree copy(tree->Clone());
  tree.reset();
  copy.reset();
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

TEST(DeepTree, OfNegationsAndMixedOperatorsIsCopiedAndDeletedWithoutRecursion) {
  OOCPCBooleanAST* root = Probe();
  for (int i = 0; i < kDeep; ++i) {
    root = new OOCPCBooleanASTNot(root);
    if (i % 3 == 0) root = new OOCPCBooleanASTBinaryOp(kXor, root, Probe());
    if (i % 5 == 0) root = new OOCPCBooleanASTBinaryOp(kXor, Constant(), root);
  }
  Tree tree(root);
  Tree copy(tree->Clone());
  tree.reset();
  copy.reset();
  EXPECT_EQ(ProbeQuery::Living(), 0);
}

}  // namespace
