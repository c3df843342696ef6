// Which point goes into which node of the additive octree.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace tarnhost {

/// A point's place along the Morton curve, and its number in the point set.
struct CodedPoint {
  std::uint64_t code;
  std::uint64_t point;

  friend bool operator<(const CodedPoint& a, const CodedPoint& b) {
    return a.code != b.code ? a.code < b.code : a.point < b.point;
  }
};

/// One node of the plan. Children stand before their parents, the root last.
struct PlannedNode {
  static constexpr std::uint64_t kNoChild = std::numeric_limits<std::uint64_t>::max();

  std::uint64_t children[8];
  std::uint64_t firstPoint = 0;  ///< position of the own points in OctreePlan::order
  std::uint64_t subtreePointCount = 0;
  std::uint64_t indexInLevel = 0;
  std::uint32_t level = 0;
  std::uint32_t ownPointCount = 0;
  std::uint64_t firstPart = 0;  ///< position of the parts in OctreePlan::parts
  std::uint32_t partCount = 0;
};

/// The nodes of an octree and the order in which they store the points.
struct OctreePlan {
  /// A node with no more points than this has no children.
  static constexpr std::uint32_t kNodeCapacity = 24576;
  /// No sample of a node is larger than this.
  static constexpr std::uint32_t kSampleLimit = 65536;

  std::vector<PlannedNode> nodes;
  /// Numbers of all points, node after node.
  std::vector<std::uint64_t> order;
  /// Points of each level of detail among a node's own points, which lie in this order: the node's
  /// own level, and for a leaf the finer ones. Together they are the node's own points.
  std::vector<std::uint32_t> parts;
  /// The samples of level 0 have one point in each cell of a grid with 2^this cells along the edge
  /// of the cube; each level halves the cells.
  unsigned gridBits = 0;

  [[nodiscard]] std::span<const std::uint32_t> PartsOf(const PlannedNode& node) const {
    return std::span(parts).subspan(node.firstPart, node.partCount);
  }
};

/// Plans the octree of points sorted along the Morton curve; uses `points` up.
///
/// The samples of all nodes of a level are taken on one grid, so that a level is evenly dense: one
/// point in each occupied cell, the one nearest to the cell's centre, the first of several. Cells
/// that a surface only touches would give points close to those of their neighbours, and finer
/// levels would give points close to those of coarser ones. So while a level leaves half of the
/// points or more to finer ones, no point is sampled that is closer than five eighths of a cell to
/// one sampled before, in this level or above (see PointSpacing); another one of its cell is taken
/// instead, or none. A node may thus have no point of its own level.
///
/// A node with more than kNodeCapacity points keeps such a sample; the rest goes to its children. A
/// node with fewer keeps them all, but divides them into the same samples, level after level; a
/// last sixteenth joins the level before. The grid is the finest, of at most 128 cells along a
/// node's edge, for which the nodes of a level keep no more than kNodeCapacity points on average; a
/// node whose own sample would be larger than kSampleLimit takes it from coarser cells. Points that
/// no Morton bit tells apart are dealt to the children by count. No points at all give a root
/// without points.
[[nodiscard]] OctreePlan PlanOctree(std::vector<CodedPoint> points);

}  // namespace tarnhost
