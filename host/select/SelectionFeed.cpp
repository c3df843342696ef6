// Walks the octree for a selection.
#include "host/select/SelectionFeed.h"

namespace tarnhost {

namespace {

/// A batch is work enough to be worth handing over, and little enough to share well.
constexpr std::uint64_t kBatchPoints = 1u << 16;
constexpr std::size_t kBatchNodes = 64;
constexpr std::uint64_t kBatchVisits = 512;

}  // namespace

SelectionFeed::SelectionFeed(Cloud& cloud, const SelectionPlan& plan, bool countOnly)
    : plan_(plan),
      countOnly_(countOnly),
      walk_(cloud),
      counts_(plan.leaves.size()),
      leafResults_(plan.leaves.size()) {}

bool SelectionFeed::Next(SelectionBatch& batch) {
  std::uint64_t points = 0;
  for (std::uint64_t visits = 0; !isAtEnd_ && visits < kBatchVisits && points < kBatchPoints &&
                                 batch.items.size() < kBatchNodes;
       ++visits) {
    OOCPCOctreeAcceleratorNode node;
    bool hasNode = false;
    batch.failure = walk_.Next(node, hasNode);
    isAtEnd_ = !hasNode || !batch.failure.Ok();
    if (isAtEnd_) return !batch.failure.Ok() || visits > 0;
    const std::size_t before = batch.items.size();
    Visit(node, batch);
    if (batch.items.size() > before) points += node.ownPointCount;
  }
  return !isAtEnd_;
}

void SelectionFeed::Visit(const OOCPCOctreeAcceleratorNode& node, SelectionBatch& batch) {
  const ClassifyResult result = Classify(node);
  if (result == ClassifyResult::kNone) {
    ++batch.nodesSkipped;
    batch.passedPoints += node.subtreePointCount;
    walk_.SkipSubtree();
    return;
  }
  const bool isAccepted = result == ClassifyResult::kAll;
  batch.nodesAccepted += isAccepted ? 1 : 0;
  if (isAccepted && countOnly_) {
    batch.countedPoints += node.subtreePointCount;
    batch.passedPoints += node.subtreePointCount;
    walk_.SkipSubtree();
    return;
  }
  batch.passedPoints += node.ownPointCount;
  if (node.ownPointCount == 0) return;
  SelectionItem& item = batch.items.emplace_back();
  item.node = node;
  item.isAccepted = isAccepted;
}

ClassifyResult SelectionFeed::Classify(const OOCPCOctreeAcceleratorNode& node) {
  const OOCPointCloudNode described = node.Describe();
  std::array<StoredRange, 3> stored;
  if (plan_.hasBoxes) stored = StoredBoxOf(plan_.positions, described.box);
  for (std::size_t i = 0; i < plan_.leaves.size(); ++i) {
    leafResults_[i] = ClassifySubtree(plan_.leaves[i], described, stored);
    LeafCounts& counts = counts_[i];
    ++(leafResults_[i] == ClassifyResult::kNone  ? counts.skipped
       : leafResults_[i] == ClassifyResult::kAll ? counts.accepted
                                                 : counts.tested);
  }
  return CombineAnswers(plan_, leafResults_, nodeResults_);
}

void SelectionFeed::Report(std::vector<LeafReport>& leaves) const {
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    leaves[i].nodesSkipped += counts_[i].skipped;
    leaves[i].nodesAccepted += counts_[i].accepted;
    leaves[i].nodesTested += counts_[i].tested;
  }
}

}  // namespace tarnhost
