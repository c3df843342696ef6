// Compiles a boolean tree into a plan.
#include "host/select/PlanCompiler.h"

#include <algorithm>
#include <map>

#include "host/select/LeafCompiler.h"

namespace tarnhost {

namespace {

using Ast = OOCPCBooleanAST;

/// The node behind negations; `negated` is turned round by each.
const Ast* SkipNegations(const Ast* node, bool& negated) {
  while (node != nullptr && node->kind == Ast::kNegation) {
    negated = !negated;
    node = node->first;
  }
  return node;
}

/// What an operator is once negations above it have been pushed into its operands; kConstant for a
/// node that is no operator.
PlanNodeKind OperatorOf(const Ast* node, bool negated) {
  if (node == nullptr || node->kind != Ast::kBinaryOperator) return PlanNodeKind::kConstant;
  switch (static_cast<const OOCPCBooleanASTBinaryOp*>(node)->GetOperator()) {
    case OOCPCIQuery::BitwiseOperator::kAnd:
      return negated ? PlanNodeKind::kOr : PlanNodeKind::kAnd;
    case OOCPCIQuery::BitwiseOperator::kOr:
      return negated ? PlanNodeKind::kAnd : PlanNodeKind::kOr;
    case OOCPCIQuery::BitwiseOperator::kXor:
      return PlanNodeKind::kXor;
    case OOCPCIQuery::BitwiseOperator::kNot:
      break;
  }
  return PlanNodeKind::kConstant;
}

struct Operand {
  const Ast* node;
  bool negated;
};

/// The operands of a node and of all nested calls of the same operator, in their order. Of an
/// exclusive or, negations go into `parity` instead.
std::vector<Operand> GatherOperands(const Operand& top, PlanNodeKind kind, bool& parity) {
  const bool isXor = kind == PlanNodeKind::kXor;
  std::vector<Operand> operands;
  std::vector<Operand> waiting{top};
  while (!waiting.empty()) {
    Operand operand = waiting.back();
    waiting.pop_back();
    operand.node = SkipNegations(operand.node, operand.negated);
    if (isXor) {
      parity ^= operand.negated;
      operand.negated = false;
    }
    if (OperatorOf(operand.node, operand.negated) != kind) {
      operands.push_back(operand);
      continue;
    }
    waiting.push_back({operand.node->second, operand.negated});
    waiting.push_back({operand.node->first, operand.negated});
  }
  return operands;
}

class Compiler {
 public:
  Compiler(LeafCompiler& leaves, SelectionPlan& plan) : leaves_(leaves), plan_(plan) {}

  /// Texts nest to a depth that recursion stands; calls with many operands are flat here.
  Outcome Compile(Operand operand, std::uint32_t& node) {
    operand.node = SkipNegations(operand.node, operand.negated);
    const PlanNodeKind kind = OperatorOf(operand.node, operand.negated);
    if (kind != PlanNodeKind::kConstant) return CompileCall(operand, kind, node);
    if (operand.node != nullptr && operand.node->kind == Ast::kQueryLeaf) {
      return CompileLeaf(operand, node);
    }
    bool value = false;
    if (operand.node != nullptr && operand.node->kind == Ast::kConstant) {
      value = static_cast<const OOCPCBooleanASTSimpleVal*>(operand.node)->GetValue() ==
              OOCPCBooleanValue::kTrue;
    }
    node = AddConstant(value != operand.negated);
    return Outcome::Success();
  }

 private:
  /// Leaves that can be intersected: same kind, column and component.
  using Mergeable = std::map<std::array<std::size_t, 3>, std::uint32_t>;

  std::uint32_t Add(PlanNode node) {
    plan_.nodes.push_back(std::move(node));
    return static_cast<std::uint32_t>(plan_.nodes.size() - 1);
  }
  std::uint32_t AddConstant(bool value) { return Add({PlanNodeKind::kConstant, value, 0, 0, {}}); }
  std::uint32_t AddLeaf(PlanLeaf leaf) {
    const std::uint32_t cost = CostOf(plan_, leaf);
    plan_.leaves.push_back(std::move(leaf));
    return Add({PlanNodeKind::kLeaf,
                false,
                static_cast<std::uint32_t>(plan_.leaves.size() - 1),
                cost,
                {}});
  }

  Outcome CompileLeaf(const Operand& operand, std::uint32_t& node) {
    const OOCPCIQuery* query =
        static_cast<const OOCPCBooleanASTQueryVal*>(operand.node)->GetQuery();
    CompiledLeaf compiled;
    if (Outcome outcome = leaves_.Compile(query, compiled); !outcome.Ok()) return outcome;
    if (compiled.isConstant) {
      node = AddConstant(compiled.value != operand.negated);
      return Outcome::Success();
    }
    compiled.leaf.negated ^= operand.negated;
    node = AddLeaf(std::move(compiled.leaf));
    return Outcome::Success();
  }

  Outcome CompileCall(const Operand& call, PlanNodeKind kind, std::uint32_t& node) {
    PlanNode joined{kind, false, 0, 0, {}};
    Mergeable mergeable;
    bool decided = false;
    for (const Operand& operand : GatherOperands(call, kind, joined.value)) {
      std::uint32_t child = 0;
      if (Outcome outcome = Compile(operand, child); !outcome.Ok()) return outcome;
      if (!decided) decided = Join(child, joined, mergeable);
    }
    node = decided ? AddConstant(kind == PlanNodeKind::kOr) : Finish(std::move(joined));
    return Outcome::Success();
  }

  /// Adds an operand; true when it decides the call.
  bool Join(std::uint32_t child, PlanNode& joined, Mergeable& mergeable) {
    const PlanNode& node = plan_.nodes[child];
    if (node.kind == PlanNodeKind::kConstant) {
      if (joined.kind == PlanNodeKind::kXor) {
        joined.value ^= node.value;
        return false;
      }
      return node.value == (joined.kind == PlanNodeKind::kOr);
    }
    if (node.kind == PlanNodeKind::kLeaf && joined.kind != PlanNodeKind::kXor) {
      PlanLeaf& leaf = plan_.leaves[node.leaf];
      // Not a or not b is not (a and b), so there the negated ones go together.
      const bool fits = leaf.negated == (joined.kind == PlanNodeKind::kOr);
      if (fits && (leaf.kind == LeafKind::kInterval || leaf.kind == LeafKind::kBox)) {
        const auto [place, added] = mergeable.try_emplace(
            {static_cast<std::size_t>(leaf.kind), leaf.column, leaf.component}, node.leaf);
        if (!added) return !IntersectLeaves(plan_, plan_.leaves[place->second], leaf);
      }
    }
    joined.children.push_back(child);
    return false;
  }

  std::uint32_t Finish(PlanNode joined) {
    if (joined.children.empty()) {
      const bool value =
          joined.kind == PlanNodeKind::kXor ? joined.value : joined.kind == PlanNodeKind::kAnd;
      return AddConstant(value);
    }
    if (joined.children.size() == 1 && !(joined.kind == PlanNodeKind::kXor && joined.value)) {
      return joined.children.front();
    }
    std::ranges::stable_sort(joined.children, {},
                             [&](std::uint32_t child) { return plan_.nodes[child].cost; });
    for (const std::uint32_t child : joined.children) joined.cost += plan_.nodes[child].cost;
    return Add(std::move(joined));
  }

  LeafCompiler& leaves_;
  SelectionPlan& plan_;
};

/// Drops what folding left behind: nodes and leaves that the root does not reach, and columns that
/// no leaf reads.
void DropUnreached(SelectionPlan& plan) {
  std::vector<bool> reached(plan.nodes.size(), false);
  reached[plan.root] = true;
  for (std::size_t i = plan.nodes.size(); i-- > 0;) {
    if (!reached[i]) continue;
    for (const std::uint32_t child : plan.nodes[i].children) reached[child] = true;
  }
  SelectionPlan kept;
  std::vector<std::uint32_t> newNode(plan.nodes.size());
  std::vector<std::size_t> newColumn(plan.columns.size(), plan.columns.size());
  for (std::size_t i = 0; i < plan.nodes.size(); ++i) {
    if (!reached[i]) continue;
    PlanNode node = std::move(plan.nodes[i]);
    for (std::uint32_t& child : node.children) child = newNode[child];
    if (node.kind == PlanNodeKind::kLeaf) {
      PlanLeaf leaf = std::move(plan.leaves[node.leaf]);
      std::size_t& column = newColumn[leaf.column];
      if (column == plan.columns.size()) {
        column = kept.columns.size();
        kept.columns.push_back(plan.columns[leaf.column]);
      }
      leaf.column = column;
      plan.hasBoxes |= leaf.kind == LeafKind::kBox;
      node.leaf = static_cast<std::uint32_t>(kept.leaves.size());
      kept.leaves.push_back(std::move(leaf));
    }
    newNode[i] = static_cast<std::uint32_t>(kept.nodes.size());
    kept.nodes.push_back(std::move(node));
  }
  plan.root = newNode[plan.root];
  plan.columns = std::move(kept.columns);
  plan.leaves = std::move(kept.leaves);
  plan.nodes = std::move(kept.nodes);
}

}  // namespace

Outcome CompilePlan(Cloud& cloud, const OOCPCBooleanAST& tree,
                    const std::vector<RecordField>& fields, SelectionPlan& plan) {
  plan = {};
  plan.positions = {cloud.GetTransform(), cloud.GetFrameOffset()};
  LeafCompiler leaves(cloud, fields, plan);
  Compiler compiler(leaves, plan);
  if (Outcome outcome = compiler.Compile({&tree, false}, plan.root); !outcome.Ok()) {
    return outcome;
  }
  DropUnreached(plan);
  return Outcome::Success();
}

}  // namespace tarnhost
