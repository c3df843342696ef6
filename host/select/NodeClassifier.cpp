// Classifies whole nodes for a boolean tree.
#include "host/select/NodeClassifier.h"

#include <algorithm>

namespace tarnhost {

NodeClassifier::NodeClassifier(const OOCPCBooleanAST& tree) {
  // Parents before their operands, right before left; reversed, that is reverse-polish order. No
  // recursion: trees of long calls are deep.
  std::vector<const OOCPCBooleanAST*> waiting{&tree};
  while (!waiting.empty()) {
    const OOCPCBooleanAST* node = waiting.back();
    waiting.pop_back();
    if (node == nullptr) {
      steps_.push_back({StepKind::kConstant});
      continue;
    }
    steps_.push_back(StepOf(*node));
    const StepKind kind = steps_.back().kind;
    if (kind == StepKind::kConstant || kind == StepKind::kQuery) continue;
    waiting.push_back(node->first);
    if (kind != StepKind::kNot) waiting.push_back(node->second);
  }
  std::ranges::reverse(steps_);
}

NodeClassifier::Step NodeClassifier::StepOf(const OOCPCBooleanAST& node) {
  if (node.IsSimpleVal()) {
    const auto& constant = static_cast<const OOCPCBooleanASTSimpleVal&>(node);
    return {StepKind::kConstant, nullptr,
            constant.GetValue() == OOCPCBooleanValue::kTrue ? ClassifyResult::kAll
                                                            : ClassifyResult::kNone};
  }
  if (node.IsQueryVal()) {
    return {StepKind::kQuery, static_cast<const OOCPCBooleanASTQueryVal&>(node).GetQuery()};
  }
  if (node.IsNot()) return {StepKind::kNot};
  switch (static_cast<const OOCPCBooleanASTBinaryOp&>(node).GetOperator()) {
    case OOCPCIQuery::BitwiseOperator::kAnd:
      return {StepKind::kAnd};
    case OOCPCIQuery::BitwiseOperator::kOr:
      return {StepKind::kOr};
    case OOCPCIQuery::BitwiseOperator::kXor:
      return {StepKind::kXor};
    case OOCPCIQuery::BitwiseOperator::kNot:
      break;
  }
  return {StepKind::kConstant};
}

NodeClassifier::ClassifyResult NodeClassifier::Combine(StepKind kind, ClassifyResult a,
                                                       ClassifyResult b) {
  constexpr ClassifyResult kNone = ClassifyResult::kNone;
  constexpr ClassifyResult kSome = ClassifyResult::kSome;
  constexpr ClassifyResult kAll = ClassifyResult::kAll;
  if (kind == StepKind::kAnd) return std::min(a, b);
  if (kind == StepKind::kOr) return std::max(a, b);
  if (a == kSome || b == kSome) return kSome;
  return a == b ? kNone : kAll;
}

OOCPCIQuery::ClassifyResult NodeClassifier::Classify(const OOCPointCloudNode& node) {
  stack_.clear();
  for (const Step& step : steps_) {
    if (step.kind == StepKind::kConstant) {
      stack_.push_back(step.constant);
    } else if (step.kind == StepKind::kQuery) {
      stack_.push_back(step.query == nullptr ? ClassifyResult::kNone
                                             : step.query->ClassifyNode(node));
    } else if (step.kind == StepKind::kNot) {
      stack_.back() = static_cast<ClassifyResult>(2u - static_cast<std::uint32_t>(stack_.back()));
    } else {
      const ClassifyResult right = stack_.back();
      stack_.pop_back();
      stack_.back() = Combine(step.kind, stack_.back(), right);
    }
  }
  return stack_.back();
}

}  // namespace tarnhost
