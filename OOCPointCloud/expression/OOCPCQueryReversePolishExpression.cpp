// Operands and operators in reverse-polish order, and the tree that they make.
#include <OOCPointCloud/OOCPCQueryExpression.h>
#include <OOCPointCloud/ResultCodes.h>

#include <utility>

namespace {

using Trees = std::vector<std::unique_ptr<OOCPCBooleanAST>>;
using Operator = OOCPCIQuery::BitwiseOperator;

/// Each of the following takes one step of the form and answers false where it cannot be taken.
bool Apply(const std::shared_ptr<OOCPCIQuery>& operand, Trees& trees) {
  if (operand == nullptr) return false;
  trees.push_back(std::make_unique<OOCPCBooleanASTQueryVal>(operand));
  return true;
}

bool ApplyNot(Trees& trees) {
  if (trees.empty()) return false;
  trees.back() = std::make_unique<OOCPCBooleanASTNot>(trees.back().release());
  return true;
}

bool Apply(Operator op, Trees& trees) {
  if (op == Operator::kNot) return ApplyNot(trees);
  if (op != Operator::kAnd && op != Operator::kOr && op != Operator::kXor) return false;
  if (trees.size() < 2) return false;
  OOCPCBooleanAST* const right = trees.back().release();
  trees.pop_back();
  OOCPCBooleanAST* const left = trees.back().release();
  trees.back() = std::make_unique<OOCPCBooleanASTBinaryOp>(op, left, right);
  return true;
}

}  // namespace

OOCPCQueryReversePolishExpression::OOCPCQueryReversePolishExpression() = default;
OOCPCQueryReversePolishExpression::~OOCPCQueryReversePolishExpression() = default;

void OOCPCQueryReversePolishExpression::PushBackOperand(OOCPCIQuery* query) {
  elements_.emplace_back(std::shared_ptr<OOCPCIQuery>(query));
}

void OOCPCQueryReversePolishExpression::PushBackOperator(OOCPCIQuery::BitwiseOperator op) {
  elements_.emplace_back(op);
}

void OOCPCQueryReversePolishExpression::ReleaseOperands() { elements_.clear(); }

HRESULT OOCPCQueryReversePolishExpression::ComputeBooleanAST() {
  tree_.reset();
  Trees trees;
  for (const Element& element : elements_) {
    const auto apply = [&trees](const auto& step) { return Apply(step, trees); };
    if (!std::visit(apply, element)) return oocpc::result::kFail;
  }
  if (trees.size() != 1) return oocpc::result::kFail;
  tree_ = std::move(trees.front());
  return oocpc::result::kOk;
}
