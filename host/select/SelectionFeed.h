// Walks the octree for a selection: leaves out subtrees, takes others whole, gathers the rest.
#pragma once

#include <memory>
#include <vector>

#include "host/cloud/NodeWalk.h"
#include "host/select/LeafClassifier.h"
#include "host/select/Select.h"

namespace tarnhost {

/// A node whose own points are to be looked at.
struct SelectionItem {
  OOCPCOctreeAcceleratorNode node;
  bool isAccepted = false;            ///< all its points are selected
  std::uint64_t selected = 0;         ///< how many are
  std::vector<std::uint32_t> points;  ///< which ones, when a sink wants them
  std::unique_ptr<SinkPart> part;     ///< what the sink made of them
};

/// A run of nodes in the order of the walk.
struct SelectionBatch {
  std::vector<SelectionItem> items;
  std::uint64_t countedPoints =
      0;                           ///< of subtrees that are selected whole, when points are counted
  std::uint64_t passedPoints = 0;  ///< points that are done with once this batch is
  std::uint64_t nodesSkipped = 0;
  std::uint64_t nodesAccepted = 0;
  Outcome failure;  ///< the first one, in the order of the walk
};

/// Gives batch after batch. One thread at a time.
class SelectionFeed {
 public:
  /// `countOnly`: subtrees that are selected whole are counted and not entered.
  SelectionFeed(Cloud& cloud, const SelectionPlan& plan, bool countOnly);

  Outcome Start(std::uint64_t iteration) { return walk_.Start(iteration); }
  /// False when there is nothing more; a failure is in the batch, and is the last of it.
  [[nodiscard]] bool Next(SelectionBatch& batch);
  /// Adds what became of the leaves.
  void Report(std::vector<LeafReport>& leaves) const;

 private:
  struct LeafCounts {
    std::uint64_t skipped = 0;
    std::uint64_t accepted = 0;
    std::uint64_t tested = 0;
  };
  ClassifyResult Classify(const OOCPCOctreeAcceleratorNode& node);
  void Visit(const OOCPCOctreeAcceleratorNode& node, SelectionBatch& batch);

  const SelectionPlan& plan_;
  bool countOnly_;
  bool isAtEnd_ = false;
  NodeWalk walk_;
  std::vector<LeafCounts> counts_;
  std::vector<ClassifyResult> leafResults_;
  std::vector<ClassifyResult> nodeResults_;
};

}  // namespace tarnhost
