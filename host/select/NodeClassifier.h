// Classifies whole nodes for a boolean tree.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <cstdint>
#include <vector>

namespace tarnhost {

/// Answers for a node whether none, some or all of its points satisfy a tree, combining what the
/// leaves' queries answer through "and", "or", "exclusive or" and "not". One thread at a time.
class NodeClassifier {
 public:
  /// Borrows the queries of the tree.
  explicit NodeClassifier(const OOCPCBooleanAST& tree);

  [[nodiscard]] OOCPCIQuery::ClassifyResult Classify(const OOCPointCloudNode& node);

 private:
  using ClassifyResult = OOCPCIQuery::ClassifyResult;
  enum class StepKind : std::uint8_t { kConstant, kQuery, kNot, kAnd, kOr, kXor };
  struct Step {
    StepKind kind;
    const OOCPCIQuery* query = nullptr;
    ClassifyResult constant = ClassifyResult::kNone;
  };

  static Step StepOf(const OOCPCBooleanAST& node);
  static ClassifyResult Combine(StepKind kind, ClassifyResult a, ClassifyResult b);

  std::vector<Step> steps_;  ///< in reverse-polish order
  std::vector<ClassifyResult> stack_;
};

}  // namespace tarnhost
