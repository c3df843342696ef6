// Asks a plan of the points of one node after the other.
#pragma once

#include <deque>
#include <span>
#include <vector>

#include "host/select/BlockColumn.h"
#include "host/select/LeafClassifier.h"

namespace tarnhost {

/// Counts of what became of a leaf.
struct LeafCounts {
  std::uint64_t blocksSkipped = 0;   ///< no point satisfies it, by least and greatest value
  std::uint64_t blocksAccepted = 0;  ///< every point does
  std::uint64_t blocksTested = 0;    ///< points were tested
  std::uint64_t nanoseconds = 0;     ///< of testing, decoding included; only when timed
  ColumnCounts reading;              ///< what its tests read; what was read before is not counted
};

/// Evaluates whole blocks into bit masks. One thread at a time; threads have evaluators of their
/// own. Borrows the plan and the cloud.
class BlockEvaluator {
 public:
  BlockEvaluator(Cloud& cloud, const SelectionPlan& plan, bool timed);

  /// Classifies a node's own points (at least one); where that does not decide, tests them.
  Outcome Evaluate(const OOCPCOctreeAcceleratorNode& node, ClassifyResult& result);
  /// The mask of the last node whose result was kSome; bits behind its last point are 0.
  [[nodiscard]] std::span<const std::uint64_t> GetMask() const { return mask_; }
  [[nodiscard]] const std::vector<LeafCounts>& GetLeafCounts() const { return leafCounts_; }
  [[nodiscard]] const ColumnCounts& GetColumnCounts(std::size_t column) const {
    return columns_[column].GetCounts();
  }

 private:
  using Mask = std::span<std::uint64_t>;

  ClassifyResult Classify();
  Outcome Fill(std::uint32_t node, Mask mask, std::size_t depth);
  Outcome FillCall(const PlanNode& node, Mask mask, std::size_t depth);
  Outcome FillLeaf(std::uint32_t leaf, Mask mask);
  Outcome TestLeaf(const PlanLeaf& leaf, Mask mask);
  Outcome TestPositions(const PlanLeaf& leaf, Mask mask);
  Mask ScratchMask(std::size_t depth);

  const SelectionPlan& plan_;
  bool timed_;
  std::deque<BlockColumn> columns_;  // its elements cannot be moved
  std::vector<LeafCounts> leafCounts_;
  std::vector<ClassifyResult> leafResults_;
  std::vector<ClassifyResult> nodeResults_;
  std::size_t count_ = 0;
  std::vector<std::uint64_t> mask_;
  std::vector<std::vector<std::uint64_t>> scratchMasks_;
  std::vector<std::uint8_t> scratch_;
  std::vector<std::uint64_t> stringScratch_;
};

}  // namespace tarnhost
