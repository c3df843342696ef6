// The walk over a tree's query leaves that the set-up steps share.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>
#include <OOCPointCloud/ResultCodes.h>

#include <vector>

namespace tarn {

enum class ChildOrder { kLeftFirst, kRightFirst };

/// The operand behind any number of negations; null when one of them has none.
[[nodiscard]] inline OOCPCBooleanAST* SkipNegations(OOCPCBooleanAST* node) {
  while (node != nullptr && !node->IsSimpleVal() && node->IsNot()) node = node->first;
  return node;
}

/// Calls `visit(leaf, query)` for each well-formed query leaf under `root` and combines its results
/// by bitwise or with what else there is: 1 for a constant, kFail for a null or malformed node.
/// Keeps its own stack, so that a tree may be as deep as its text is long.
template <typename Visit>
[[nodiscard]] HRESULT WalkLeaves(OOCPCBooleanAST* root, ChildOrder order, Visit&& visit) {
  HRESULT result = oocpc::result::kOk;
  std::vector<OOCPCBooleanAST*> open{root};
  while (!open.empty()) {
    OOCPCBooleanAST* const node = SkipNegations(open.back());
    open.pop_back();
    if (node == nullptr) {
      result |= oocpc::result::kFail;
    } else if (node->IsSimpleVal()) {
      result |= oocpc::result::kNothingDone;
    } else if (auto* const binary = dynamic_cast<OOCPCBooleanASTBinaryOp*>(node)) {
      OOCPCBooleanAST* left = nullptr;
      OOCPCBooleanAST* right = nullptr;
      binary->GetChildren(left, right);
      // What is pushed last is visited first.
      open.push_back(order == ChildOrder::kLeftFirst ? right : left);
      open.push_back(order == ChildOrder::kLeftFirst ? left : right);
    } else {
      auto* const leaf = dynamic_cast<OOCPCBooleanASTQueryVal*>(node);
      OOCPCIQuery* const query = leaf == nullptr ? nullptr : leaf->GetQuery();
      result |= query == nullptr ? oocpc::result::kFail : visit(*leaf, *query);
    }
  }
  return result;
}

}  // namespace tarn
