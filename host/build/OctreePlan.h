// Which point goes into which node of the additive octree.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "host/build/ExistingTree.h"
#include "host/build/NodeSampler.h"

namespace tarnhost {

/// One node of the plan. Children stand before their parents.
struct PlannedNode {
  static constexpr std::uint64_t kNoChild = std::numeric_limits<std::uint64_t>::max();

  std::uint64_t children[8] = {kNoChild, kNoChild, kNoChild, kNoChild,
                               kNoChild, kNoChild, kNoChild, kNoChild};
  std::uint64_t firstPoint = 0;  ///< position of the own points in OctreePlan::order
  std::uint64_t subtreePointCount = 0;
  std::uint64_t indexInLevel = 0;
  std::uint32_t level = 0;
  std::uint32_t ownPointCount = 0;
  std::uint64_t firstPart = 0;  ///< position of the parts in OctreePlan::parts
  std::uint32_t partCount = 0;
  /// The node of the existing tree whose points it keeps besides its own ones, which are new.
  std::uint32_t existing = ExistingTree::kNone;
};

/// The nodes of an octree, or of a subtree, and the order in which they store the points.
struct OctreePlan {
  /// A node in whose cell are no more points than this, those that nodes above it keep included,
  /// has no children.
  static constexpr std::uint32_t kNodeCapacity = 24576;
  /// A node with children has about this many samples at most: where a small part of a cloud fills
  /// space as the whole does not, the grid that suits the whole gives its nodes millions of cells.
  static constexpr std::uint32_t kMostSamples = 4 * kNodeCapacity;

  std::vector<PlannedNode> nodes;  ///< the root last
  /// Numbers of all points, node after node.
  std::vector<std::uint64_t> order;
  /// Points of each level of detail among a node's own points, which lie in this order: the node's
  /// own level, and for a leaf the finer ones. Together they are the node's own points.
  std::vector<std::uint32_t> parts;

  [[nodiscard]] std::span<const std::uint32_t> PartsOf(const PlannedNode& node) const {
    return std::span(parts).subspan(node.firstPart, node.partCount);
  }
};

/// How finely the levels of an octree are sampled: the samples of level 0 have one point in each
/// cell of a grid with 2^gridBits cells along the edge of the cube; each level halves the cells.
struct SamplingGrid {
  unsigned gridBits = 7;

  /// The finest grid, of 8 to 128 cells along an edge, of which no more than a node's capacity of
  /// cells are occupied. `cells` counts them up to level 7 at least.
  [[nodiscard]] static SamplingGrid Choose(std::span<const std::uint64_t> cells);
  /// The level of the cells that a node of `level` has its sample from.
  [[nodiscard]] unsigned CellLevel(unsigned level) const;
};

/// A node of the octree as the place where a subtree begins.
struct SubtreeRoot {
  unsigned level = 0;
  std::uint64_t indexInLevel = 0;
  /// Codes of the points in the root's cell that nodes above it have taken.
  std::vector<std::uint64_t> above;
};

/// Plans the subtree of points sorted along the Morton curve, which are used up.
///
/// The samples of all nodes of a level are taken on one grid, so that a level is evenly dense (see
/// NodeSampler); a node that would have more than kMostSamples has them on a coarser one. A node
/// with more than kNodeCapacity points in its cell keeps its sample; the rest goes to its children.
/// A node with fewer keeps them all, but divides them into the samples of its level and of the
/// finer ones; a last sixteenth, or 64 points, join the level before. Points that no Morton bit
/// tells apart are dealt to the children by count. No points at all give a root without points.
///
/// Where points come to an existing tree, its inner nodes keep their samples and take only what
/// these leave room for; children of theirs in which nothing changes are no part of the plan. Then
/// a plan may have no nodes at all: of what is to be dissolved, everything may have been taken
/// above.
[[nodiscard]] OctreePlan PlanSubtree(std::span<CodedPoint> points, SubtreeRoot root,
                                     const SamplingGrid& grid, ExistingTree* existing = nullptr);

/// Plans a whole octree.
[[nodiscard]] OctreePlan PlanOctree(std::vector<CodedPoint> points);

}  // namespace tarnhost
