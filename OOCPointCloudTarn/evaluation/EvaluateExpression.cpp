// One point record against a bound tree: runs once per point and allocates nothing.
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>

#include "OOCPointCloudTarn/evaluation/MetaDataBinding.h"

namespace {

using Operator = OOCPCIQuery::BitwiseOperator;

/// What the operators left behind make of the answer of the node that is asked next. Joining an
/// answer takes no branch: which way points answer, no processor can foresee.
class PendingAnswer {
 public:
  /// The answer that is still to come does not matter any more.
  [[nodiscard]] bool IsDecided() const { return counts_ == 0; }
  /// The whole answer with the one that was still to come.
  [[nodiscard]] bool With(bool answer) const { return ((counts_ & Bit(answer)) ^ turned_) != 0; }

  void Negate() { turned_ ^= counts_; }
  /// Takes the first operand's answer in; what is to come is the second's.
  void Join(Operator op, bool answer) {
    const unsigned first = counts_ & Bit(answer);
    if (op == Operator::kAnd) {
      counts_ = first;
    } else {
      turned_ ^= first;
      if (op == Operator::kOr) counts_ ^= first;
    }
  }

 private:
  static unsigned Bit(bool answer) { return static_cast<unsigned>(answer); }

  unsigned counts_ = 1;  ///< 1 as long as the next answer counts
  unsigned turned_ = 0;  ///< 1 where it is turned round, and the whole answer where it does not
};

/// The operands of a binary operator in the order in which they are asked.
struct Operands {
  const OOCPCBooleanAST* first;
  const OOCPCBooleanAST* second;
};

[[gnu::always_inline]] inline Operands OrderOperands(const OOCPCBooleanAST& node) {
  const OOCPCBooleanAST* const left = node.first;
  const OOCPCBooleanAST* const right = node.second;
  const bool isLeftLighter = left != nullptr && right != nullptr && left->weight < right->weight;
  return isLeftLighter ? Operands{left, right} : Operands{right, left};
}

[[gnu::always_inline]] inline bool IsKnown(Operator op) {
  return op == Operator::kAnd || op == Operator::kOr || op == Operator::kXor;
}

/// The comparison of one number that asking the node comes to; null when it is more than that.
[[gnu::always_inline]] inline const tarn::NumberTest* FindNumberTest(const OOCPCBooleanAST* node) {
  if (node == nullptr || node->kind != OOCPCBooleanAST::kQueryLeaf || node->binding == nullptr) {
    return nullptr;
  }
  const auto& binding = static_cast<const MetaDataBinding&>(*node->binding);
  const auto* const query = static_cast<const OOCPCBooleanASTQueryVal*>(node)->GetQuery();
  const bool isAllThereIs = binding.m_numberTest.IsOf(query) && binding.m_accelerator == nullptr;
  return isAllThereIs ? &binding.m_numberTest : nullptr;
}

/// The record of a point. `offset` is the wrapped product of the caller's factors.
struct Record {
  const char* records;
  std::uint32_t offset;
};

bool AskLeaf(const OOCPCBooleanASTQueryVal& leaf, Record record) {
  if (const tarn::NumberTest* const test = FindNumberTest(&leaf)) {
    return record.records != nullptr && test->Holds(record.records + record.offset);
  }
  const OOCPCIQuery* const query = leaf.GetQuery();
  if (query == nullptr || leaf.binding == nullptr) return false;
  auto& binding = static_cast<MetaDataBinding&>(*leaf.binding);
  const std::size_t count = binding.m_recordPointers.size();
  if (record.records == nullptr && count != 0) return false;
  const char** const pointers = binding.m_recordPointers.data();
  const unsigned* const sizes = binding.m_sizes.data();
  for (std::size_t i = 0; i < count; ++i) {
    pointers[i] = record.records + record.offset + binding.m_offsets[i];
  }
  if (query->Satisfy(pointers, sizes, binding.m_accelerator)) return true;
  return count != 0 && query->Satisfy(pointers[0], sizes[0], binding.m_accelerator);
}

bool Evaluate(const OOCPCBooleanAST* node, Record record);

/// The answer of a first operand. Asks nothing that could be seen where it is decided already.
bool Ask(const OOCPCBooleanAST* node, Record record, PendingAnswer pending) {
  if (node == nullptr || pending.IsDecided()) return false;
  return node->kind == OOCPCBooleanAST::kQueryLeaf
             ? AskLeaf(static_cast<const OOCPCBooleanASTQueryVal&>(*node), record)
             : Evaluate(node, record);
}

/// How many numbers are compared at least before it is looked whether the answer is decided.
constexpr unsigned kNumbersAtOnce = 8;

/// Any tree. What is asked second, and the operand of a negation, continues the loop.
[[gnu::noinline]] bool EvaluateAny(const OOCPCBooleanAST* node, Record record,
                                   PendingAnswer pending) {
  while (node != nullptr && !pending.IsDecided()) {
    switch (node->kind) {
      case OOCPCBooleanAST::kConstant: {
        const auto* const constant = static_cast<const OOCPCBooleanASTSimpleVal*>(node);
        return pending.With(constant->GetValue() == OOCPCBooleanValue::kTrue);
      }
      case OOCPCBooleanAST::kQueryLeaf:
        return pending.With(AskLeaf(static_cast<const OOCPCBooleanASTQueryVal&>(*node), record));
      case OOCPCBooleanAST::kNegation:
        pending.Negate();
        node = node->first;
        break;
      case OOCPCBooleanAST::kBinaryOperator: {
        const Operator op = static_cast<const OOCPCBooleanASTBinaryOp*>(node)->GetOperator();
        if (!IsKnown(op)) return pending.With(false);
        const Operands operands = OrderOperands(*node);
        pending.Join(op, Ask(operands.first, record, pending));
        node = operands.second;
        break;
      }
      default:
        return pending.With(false);
    }
  }
  return pending.With(false);
}

/// The part of a tree that compares numbers and joins the answers, from its root on. Numbers are
/// compared, too, where they do not count any more: nobody can see that, and it costs less than a
/// branch on an answer. The only calls are the last acts, which leaves all registers to the loop.
bool Evaluate(const OOCPCBooleanAST* node, Record record) {
  PendingAnswer pending;
  if (record.records == nullptr) return EvaluateAny(node, record, pending);
  const char* const start = record.records + record.offset;
  for (unsigned count = 1; node != nullptr; ++count) {
    if (node->kind == OOCPCBooleanAST::kBinaryOperator) {
      const Operator op = static_cast<const OOCPCBooleanASTBinaryOp*>(node)->GetOperator();
      const Operands operands = OrderOperands(*node);
      const tarn::NumberTest* const test = FindNumberTest(operands.first);
      if (test == nullptr || !IsKnown(op)) return EvaluateAny(node, record, pending);
      pending.Join(op, test->Holds(start));
      if (count % kNumbersAtOnce == 0 && pending.IsDecided()) break;
      node = operands.second;
      continue;
    }
    if (node->kind == OOCPCBooleanAST::kNegation) {
      pending.Negate();
      node = node->first;
      continue;
    }
    const tarn::NumberTest* const test = FindNumberTest(node);
    return test != nullptr ? pending.With(test->Holds(start)) : EvaluateAny(node, record, pending);
  }
  return pending.With(false);
}

}  // namespace

bool TarnOOCBooleanExpressionEvaluator::EvaluateExpression(const char* records, unsigned a,
                                                           unsigned b) {
  if (m_pointCloud == nullptr) return false;
  return Evaluate(m_ast, {records, std::uint32_t{a} * std::uint32_t{b}});
}

bool TarnOOCBooleanExpressionEvaluator::EvaluateExpression(OOCPCBooleanAST* node,
                                                           const char* records, unsigned a,
                                                           unsigned b) {
  if (m_pointCloud == nullptr) return false;
  return Evaluate(node, {records, std::uint32_t{a} * std::uint32_t{b}});
}
