#include "OOCPointCloud/expression/TreeWalks.h"

#include <utility>

namespace oocpc {
namespace {

bool HasOperands(const OOCPCBooleanAST& node) { return node.IsNot() || node.IsBinaryOp(); }

/// A copy of one node; the copy of an operator has no operands yet.
std::unique_ptr<OOCPCBooleanAST> CloneNode(const OOCPCBooleanAST& node) {
  std::unique_ptr<OOCPCBooleanAST> copy;
  if (const auto* binary = dynamic_cast<const OOCPCBooleanASTBinaryOp*>(&node)) {
    copy = std::make_unique<OOCPCBooleanASTBinaryOp>(binary->GetOperator(), nullptr, nullptr);
  } else if (dynamic_cast<const OOCPCBooleanASTNot*>(&node) != nullptr) {
    copy = std::make_unique<OOCPCBooleanASTNot>(nullptr);
  } else {
    copy.reset(node.Clone());
  }
  copy->weight = node.weight;
  copy->kind = node.kind;
  return copy;
}

}  // namespace

// Turns the tree into a list along the second slots, one rotation at a time, and deletes the list's
// head whenever it has no first operand left. A negation has a free second slot, a leaf is deleted
// where it stands.
void DeleteTree(OOCPCBooleanAST* root) {
  while (root != nullptr && HasOperands(*root)) {
    OOCPCBooleanAST* const operand = root->first;
    if (operand == nullptr) {
      OOCPCBooleanAST* const next = std::exchange(root->second, nullptr);
      delete root;
      root = next;
    } else if (HasOperands(*operand)) {
      root->first = operand->second;
      operand->second = root;
      root = operand;
    } else {
      root->first = nullptr;
      delete operand;
    }
  }
  delete root;
}

OOCPCBooleanAST* CloneTree(const OOCPCBooleanAST& root) {
  std::unique_ptr<OOCPCBooleanAST> copy = CloneNode(root);
  std::vector<std::pair<const OOCPCBooleanAST*, OOCPCBooleanAST*>> open{{&root, copy.get()}};
  const auto cloneInto = [&open](const OOCPCBooleanAST* from, OOCPCBooleanAST*& slot) {
    if (from == nullptr) return;
    slot = CloneNode(*from).release();
    open.emplace_back(from, slot);
  };
  while (!open.empty()) {
    const auto [from, to] = open.back();
    open.pop_back();
    if (from->IsNot()) cloneInto(from->first, to->first);
    if (from->IsBinaryOp()) {
      cloneInto(from->first, to->first);
      cloneInto(from->second, to->second);
    }
  }
  return copy.release();
}

}  // namespace oocpc
