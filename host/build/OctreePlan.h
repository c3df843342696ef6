// Which point goes into which node of the additive octree.
#pragma once

#include <cstdint>
#include <limits>
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
};

/// The nodes of an octree and the order in which they store the points.
struct OctreePlan {
  /// No node keeps more points than this.
  static constexpr std::uint32_t kNodeCapacity = 24576;

  std::vector<PlannedNode> nodes;
  /// Numbers of all points, node after node.
  std::vector<std::uint64_t> order;
};

/// Plans the octree of points sorted along the Morton curve; uses `points` up.
///
/// A node with at most kNodeCapacity points keeps them all. A larger one keeps a sample, one point
/// in each occupied cell of the finest grid of its cube (at most 128 cells along an edge) that has
/// no more than kNodeCapacity occupied cells: the point nearest to the cell's centre, the first of
/// several. Points that no Morton bit tells apart are dealt to the children by count. No points at
/// all give a root without points.
[[nodiscard]] OctreePlan PlanOctree(std::vector<CodedPoint> points);

}  // namespace tarnhost
