// Makes the level-of-detail block and the node records of an iteration out of its octree.
#pragma once

#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <span>
#include <vector>

#include "host/build/MortonCube.h"
#include "host/build/OctreePlan.h"
#include "host/common/Outcome.h"

namespace tarnhost {

/// What an iteration puts into the level-of-detail streams.
struct BuiltLod {
  OOCPCLODBlock block;
  std::vector<std::uint8_t> records;  ///< of the node stream
};

/// A node of the octree with its levels of detail.
struct LodTreeNode {
  std::uint64_t index = 0;  ///< in the stream
  OOCPCOctreeAcceleratorNode node;
  std::vector<std::uint32_t> parts;  ///< points of each level, which divide the node's own ones
};

/// Describes all levels of the nodes of a tree, which may come in any order. Records stand level
/// after level, along the Morton curve within a level, so that whoever reads only the
/// first ones knows the coarse nodes. kOutOfMemory when the nodes are too many to be numbered in 32
/// bits.
Outcome BuildLod(std::span<const LodTreeNode> tree, const MortonCube& cube,
                 const SamplingGrid& grid, std::uint64_t nodeStreamId, BuiltLod& lod);

}  // namespace tarnhost
