// The levels of detail of one iteration, walked node by node.
#pragma once

#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// One node of a level. A leaf of the octree may have several, one above the other: see
/// OOCPCLODNodeRecord.
struct LodNode {
  OOCPCOctreeAcceleratorNode octreeNode;
  std::uint64_t nodeIndex = 0;  ///< of the octree node
  std::uint32_t level = 0;
  PointRange points;
};

/// Finds the nodes of an iteration's levels through its node cache and the octree. Const operations
/// are safe from several threads at once; the cloud must outlive it.
class LodTree {
 public:
  /// kNoLodStream for a repository that was made without levels of detail; codes of loading.
  static Outcome Open(Cloud& cloud, std::uint64_t iteration, std::unique_ptr<LodTree>& tree);

  /// Level 0.
  Outcome ReadRoot(LodNode& node) const;
  /// The nodes of the next level below a node; none at the finest.
  Outcome ReadChildren(const LodNode& node, std::vector<LodNode>& children) const;

  /// Distance between neighbouring points of a level, local units.
  [[nodiscard]] double GetSpacing(std::uint32_t level) const;
  /// The coarsest level whose points are no further apart than `spacing`, which is above 0.
  [[nodiscard]] std::uint32_t FindLevel(double spacing) const;
  [[nodiscard]] std::uint64_t GetIteration() const { return iteration_; }

 private:
  LodTree(Cloud& cloud, std::uint64_t iteration) : cloud_(cloud), iteration_(iteration) {}
  Outcome FindPoints(LodNode& node, bool& found) const;

  Cloud& cloud_;
  std::uint64_t iteration_;
  std::shared_ptr<OOCPCLODNodeCache> cache_;
};

}  // namespace tarnhost
