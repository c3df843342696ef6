// Makes the level-of-detail block and the node records of an iteration out of its octree.
#include "host/build/LodBuilder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace tarnhost {

namespace {

using Node = OOCPCOctreeAcceleratorNode;

/// One level of one node, before it becomes a record.
struct Level {
  std::uint32_t level;
  std::uint32_t part;
  std::uint64_t nodeIndex;
  std::uint32_t firstInBlock;
};

class LevelLister {
 public:
  LevelLister(const OctreePlan& plan, std::span<const Node> nodes) : plan_(plan), nodes_(nodes) {}

  std::vector<Level> List() const {
    std::vector<Level> levels;
    for (std::uint64_t i = 0; i < plan_.nodes.size(); ++i) Append(i, levels);
    std::ranges::sort(levels, {}, [&](const Level& level) {
      const Node& node = nodes_[level.nodeIndex];
      // Within a level the Morton code of the level's cell decides, as far as 64 bits tell.
      const unsigned shift = std::min(3 * level.part, 63u);
      return std::make_tuple(level.level, node.indexInLevel << shift, level.nodeIndex);
    });
    return levels;
  }

 private:
  void Append(std::uint64_t nodeIndex, std::vector<Level>& levels) const {
    const PlannedNode& planned = plan_.nodes[nodeIndex];
    std::uint32_t first = 0;
    std::uint32_t part = 0;
    for (const std::uint32_t count : plan_.PartsOf(planned)) {
      levels.push_back({planned.level + part, part, nodeIndex, first});
      first += count;
      ++part;
    }
  }

  const OctreePlan& plan_;
  std::span<const Node> nodes_;
};

std::vector<std::uint64_t> FindParents(std::span<const Node> nodes) {
  std::vector<std::uint64_t> parents(nodes.size(), Node::kNoChild);
  for (std::uint64_t i = 0; i < nodes.size(); ++i) {
    for (const std::uint64_t child : nodes[i].children) {
      if (child != Node::kNoChild) parents[child] = i;
    }
  }
  return parents;
}

std::uint8_t ChildMask(const Node& node, bool hasFinerPart) {
  if (hasFinerPart) return 1;
  unsigned mask = 0;
  for (unsigned octant = 0; octant < node.children.size(); ++octant) {
    if (node.children[octant] != Node::kNoChild) mask |= 1u << octant;
  }
  return static_cast<std::uint8_t>(mask);
}

}  // namespace

Outcome BuildLod(const OctreePlan& plan, std::span<const Node> nodes, const MortonCube& cube,
                 const SamplingGrid& grid, std::uint64_t nodeStreamId, BuiltLod& lod) {
  const std::vector<Level> levels = LevelLister(plan, nodes).List();
  if (levels.size() > std::numeric_limits<std::uint32_t>::max()) {
    return Outcome::Failure(oocpc::result::kOutOfMemory, "the cloud has more than 2^32 nodes", {},
                            "divide it into several repositories");
  }
  const std::vector<std::uint64_t> parents = FindParents(nodes);
  lod.block = {};
  lod.block.levelCount = levels.empty() ? 0 : levels.back().level + 1;
  lod.block.scale = std::ldexp(cube.edge, -static_cast<int>(grid.gridBits));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    lod.block.centre[axis] = cube.min[axis] + cube.edge * 0.5;
  }
  lod.block.nodeStreamId = nodeStreamId;
  lod.records.clear();
  lod.records.reserve(levels.size() * OOCPCLODNodeRecord::kBytes);
  for (const Level& level : levels) {
    const Node& node = nodes[level.nodeIndex];
    const auto parts = plan.PartsOf(plan.nodes[level.nodeIndex]);
    OOCPCLODNodeRecord record;
    record.indexInLevel = OOCPCLODNodeRecord::GetIndex(node, level.nodeIndex, level.level);
    record.level = level.level;
    record.childMask = ChildMask(node, level.part + 1 < parts.size());
    record.levelsInLeaf = level.part;
    record.firstInBlock = level.firstInBlock;
    const std::uint64_t above = level.part > 0 ? level.nodeIndex : parents[level.nodeIndex];
    if (above != Node::kNoChild) {
      record.parentIndex = OOCPCLODNodeRecord::GetIndex(nodes[above], above, level.level - 1);
    }
    record.nodeIndex = level.nodeIndex;
    record.pointCount = parts[level.part];
    record.corner1 = node.corner1;
    record.corner2 = node.corner2;
    record.firstPoint = node.firstPoint + level.firstInBlock;
    record.blockId = node.blockId;
    record.Encode(lod.records);
    lod.block.entries.push_back({record.childMask, record.nodeIndex});
  }
  return Outcome::Success();
}

}  // namespace tarnhost
