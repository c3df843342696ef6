// Makes the level-of-detail block and the node records of an iteration out of its octree.
#include "host/build/LodBuilder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <unordered_map>

namespace tarnhost {

namespace {

using Node = OOCPCOctreeAcceleratorNode;

/// One level of one node, before it becomes a record.
struct Level {
  std::uint32_t level;
  std::uint32_t part;
  std::size_t place;  ///< of the node in the list
  std::uint32_t firstInBlock;
};

std::vector<Level> ListLevels(std::span<const LodTreeNode> tree) {
  std::vector<Level> levels;
  for (std::size_t place = 0; place < tree.size(); ++place) {
    std::uint32_t first = 0;
    std::uint32_t part = 0;
    for (const std::uint32_t count : tree[place].parts) {
      levels.push_back({tree[place].node.level + part, part, place, first});
      first += count;
      ++part;
    }
  }
  std::ranges::sort(levels, {}, [&](const Level& level) {
    const LodTreeNode& node = tree[level.place];
    // Within a level the Morton code of the level's cell decides, as far as 64 bits tell.
    const unsigned shift = std::min(3 * level.part, 63u);
    return std::make_tuple(level.level, node.node.indexInLevel << shift, node.index);
  });
  return levels;
}

/// The place of each node's parent in the list, by the node's number.
std::unordered_map<std::uint64_t, std::size_t> FindParents(std::span<const LodTreeNode> tree) {
  std::unordered_map<std::uint64_t, std::size_t> parents;
  parents.reserve(tree.size());
  for (std::size_t place = 0; place < tree.size(); ++place) {
    for (const std::uint64_t child : tree[place].node.children) {
      if (child != Node::kNoChild) parents.emplace(child, place);
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

Outcome BuildLod(std::span<const LodTreeNode> tree, const MortonCube& cube,
                 const SamplingGrid& grid, std::uint64_t nodeStreamId, BuiltLod& lod) {
  const std::vector<Level> levels = ListLevels(tree);
  if (levels.size() > std::numeric_limits<std::uint32_t>::max()) {
    return Outcome::Failure(oocpc::result::kOutOfMemory, "the cloud has more than 2^32 nodes", {},
                            "divide it into several repositories");
  }
  const auto parents = FindParents(tree);
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
    const auto& [index, node, parts] = tree[level.place];
    OOCPCLODNodeRecord record;
    record.indexInLevel = OOCPCLODNodeRecord::GetIndex(node, index, level.level);
    record.level = level.level;
    record.childMask = ChildMask(node, level.part + 1 < parts.size());
    record.levelsInLeaf = level.part;
    record.firstInBlock = level.firstInBlock;
    if (level.part > 0) {
      record.parentIndex = OOCPCLODNodeRecord::GetIndex(node, index, level.level - 1);
    } else if (const auto above = parents.find(index); above != parents.end()) {
      const LodTreeNode& parent = tree[above->second];
      record.parentIndex = OOCPCLODNodeRecord::GetIndex(parent.node, parent.index, level.level - 1);
    }
    record.nodeIndex = index;
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
