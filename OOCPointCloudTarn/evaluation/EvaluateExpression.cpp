// One point record against a bound tree: runs once per point and allocates nothing.
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>

#include <utility>

#include "OOCPointCloudTarn/evaluation/MetaDataBinding.h"

namespace {

using Operator = OOCPCIQuery::BitwiseOperator;

/// Asks the query itself. Kept out of line: the loop over the tree stays small.
[[gnu::noinline]] bool AskQuery(const OOCPCIQuery& query, MetaDataBinding& binding,
                                const char* records, std::size_t offset) {
  const std::size_t count = binding.m_recordPointers.size();
  const char** const pointers = binding.m_recordPointers.data();
  const unsigned* const sizes = binding.m_sizes.data();
  for (std::size_t i = 0; i < count; ++i) pointers[i] = records + offset + binding.m_offsets[i];
  if (query.Satisfy(pointers, sizes, binding.m_accelerator)) return true;
  return count != 0 && query.Satisfy(pointers[0], sizes[0], binding.m_accelerator);
}

[[gnu::always_inline]] inline bool EvaluateLeaf(const OOCPCBooleanASTQueryVal& leaf,
                                                const char* records, unsigned a, unsigned b) {
  const OOCPCIQuery* const query = leaf.GetQuery();
  if (query == nullptr || leaf.binding == nullptr) return false;
  auto& binding = static_cast<MetaDataBinding&>(*leaf.binding);
  const std::uint32_t offset = std::uint32_t{a} * std::uint32_t{b};
  if (binding.m_numberTest.IsOf(query) && binding.m_accelerator == nullptr) {
    return records != nullptr && binding.m_numberTest.Holds(records + offset);
  }
  if (records == nullptr && !binding.m_recordPointers.empty()) return false;
  return AskQuery(*query, binding, records, offset);
}

}  // namespace

bool TarnOOCBooleanExpressionEvaluator::EvaluateExpression(const char* records, unsigned a,
                                                           unsigned b) {
  return EvaluateExpression(m_ast, records, a, b);
}

// What is asked second, and the operand of a negation, continues the loop. `inverted` carries what
// the operators left behind make of the answer: an "exclusive or" whose first operand is true, like
// a negation, turns it round.
bool TarnOOCBooleanExpressionEvaluator::EvaluateExpression(OOCPCBooleanAST* node,
                                                           const char* records, unsigned a,
                                                           unsigned b) {
  bool inverted = false;
  while (node != nullptr) {
    if (m_pointCloud == nullptr) return false;
    if (node->kind == OOCPCBooleanAST::kConstant) {
      const auto* const constant = static_cast<const OOCPCBooleanASTSimpleVal*>(node);
      return inverted != (constant->GetValue() == OOCPCBooleanValue::kTrue);
    }
    if (node->kind == OOCPCBooleanAST::kQueryLeaf) {
      const auto& leaf = static_cast<const OOCPCBooleanASTQueryVal&>(*node);
      return inverted != EvaluateLeaf(leaf, records, a, b);
    }
    if (node->kind == OOCPCBooleanAST::kNegation) {
      inverted = !inverted;
      node = node->first;
      continue;
    }
    if (node->kind != OOCPCBooleanAST::kBinaryOperator) return inverted;

    OOCPCBooleanAST* firstAsked = node->second;
    OOCPCBooleanAST* secondAsked = node->first;
    if (firstAsked != nullptr && secondAsked != nullptr &&
        secondAsked->weight < firstAsked->weight) {
      std::swap(firstAsked, secondAsked);
    }
    const Operator op = static_cast<const OOCPCBooleanASTBinaryOp*>(node)->GetOperator();
    if (op != Operator::kAnd && op != Operator::kOr && op != Operator::kXor) return inverted;
    // Most operands are leaves; they need no call of their own.
    const bool answer =
        firstAsked != nullptr && firstAsked->kind == OOCPCBooleanAST::kQueryLeaf
            ? EvaluateLeaf(static_cast<const OOCPCBooleanASTQueryVal&>(*firstAsked), records, a, b)
            : EvaluateExpression(firstAsked, records, a, b);
    if (op == Operator::kAnd && !answer) return inverted;
    if (op == Operator::kOr && answer) return !inverted;
    if (op == Operator::kXor && answer) inverted = !inverted;
    node = secondAsked;
  }
  return inverted;
}
