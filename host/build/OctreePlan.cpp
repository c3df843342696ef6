// Which point goes into which node of the additive octree.
#include "host/build/OctreePlan.h"

#include <algorithm>
#include <array>

namespace tarnhost {

namespace {

constexpr unsigned kFinestGridBits = 7;    // 128 cells along an edge
constexpr unsigned kCoarsestGridBits = 3;  // 8 cells
/// What is left of a leaf's points makes no level of its own below this share of them, or when it
/// is no more than a few points.
constexpr std::size_t kLastShare = 16;
constexpr std::size_t kFewPoints = 64;

using Codes = std::vector<std::uint64_t>;

class Planner {
 public:
  explicit Planner(const SamplingGrid& grid) : grid_(grid) {}

  OctreePlan Run(std::span<CodedPoint> points, SubtreeRoot root) {
    plan_.order.reserve(points.size());
    Build(points, root.level, root.indexInLevel, std::move(root.above));
    return std::move(plan_);
  }

 private:
  std::uint64_t Build(std::span<CodedPoint> points, unsigned level, std::uint64_t index,
                      Codes above) {
    PlannedNode node;
    node.level = level;
    node.indexInLevel = index;
    node.subtreePointCount = points.size();
    std::vector<std::uint64_t> own;
    std::vector<std::uint32_t> parts;
    // What nodes above took counts, too: so it does not matter to the shape of the tree.
    if (points.size() + above.size() <= OctreePlan::kNodeCapacity) {
      DivideLeaf(points, std::move(above), level, own, parts);
    } else if (level < kMortonBits) {
      DivideInner(points, std::move(above), node, own);
    } else {
      const auto kept = std::min<std::size_t>(points.size(), OctreePlan::kNodeCapacity);
      Keep(points.first(kept), own);
      DealToChildren(points.subspan(kept), node);
    }
    if (parts.empty()) parts.push_back(static_cast<std::uint32_t>(own.size()));
    Finish(node, own, parts);
    return plan_.nodes.size() - 1;
  }

  void Finish(PlannedNode& node, const std::vector<std::uint64_t>& own,
              const std::vector<std::uint32_t>& parts) {
    node.firstPoint = plan_.order.size();
    node.ownPointCount = static_cast<std::uint32_t>(own.size());
    node.firstPart = plan_.parts.size();
    node.partCount = static_cast<std::uint32_t>(parts.size());
    plan_.order.insert(plan_.order.end(), own.begin(), own.end());
    plan_.parts.insert(plan_.parts.end(), parts.begin(), parts.end());
    plan_.nodes.push_back(node);
  }

  static void Keep(std::span<const CodedPoint> points, std::vector<std::uint64_t>& own) {
    for (const CodedPoint& point : points) own.push_back(point.point);
  }

  void DivideLeaf(std::span<CodedPoint> points, Codes above, unsigned level,
                  std::vector<std::uint64_t>& own, std::vector<std::uint32_t>& parts) const {
    own.reserve(points.size());
    NodeSampler sampler(std::move(above));
    const std::size_t last = std::max(points.size() / kLastShare, kFewPoints);
    for (; !points.empty(); ++level) {
      const std::size_t before = own.size();
      const unsigned cellLevel = grid_.CellLevel(level);
      if (cellLevel < kMortonBits) points = sampler.TakeAll(points, cellLevel, own);
      if (cellLevel == kMortonBits || points.size() <= last) {
        Keep(points, own);
        points = {};
      }
      parts.push_back(static_cast<std::uint32_t>(own.size() - before));
    }
  }

  void DivideInner(std::span<CodedPoint> points, Codes above, PlannedNode& node,
                   std::vector<std::uint64_t>& own) {
    NodeSampler sampler(std::move(above));
    // On the finest cells there is nothing to keep apart.
    const unsigned cellLevel = std::min(grid_.CellLevel(node.level), kMortonBits - 1);
    points = sampler.TakeAll(points, cellLevel, own);
    std::array<Codes, 8> taken;
    for (const std::uint64_t code : sampler.GetTaken()) {
      taken[OctantOf(code, node.level)].push_back(code);
    }
    for (unsigned octant = 0; octant < 8; ++octant) {
      const auto end = std::partition_point(
          points.begin(), points.end(),
          [&](const CodedPoint& point) { return OctantOf(point.code, node.level) <= octant; });
      const auto count = static_cast<std::size_t>(end - points.begin());
      if (count > 0) {
        node.children[octant] = Build(points.first(count), node.level + 1,
                                      node.indexInLevel * 8 + octant, std::move(taken[octant]));
      }
      points = points.subspan(count);
    }
  }

  void DealToChildren(std::span<CodedPoint> points, PlannedNode& node) {
    for (unsigned octant = 0; octant < 8 && !points.empty(); ++octant) {
      const std::size_t share = (points.size() + (7 - octant)) / (8 - octant);
      node.children[octant] =
          Build(points.first(share), node.level + 1, node.indexInLevel * 8 + octant, {});
      points = points.subspan(share);
    }
  }

  SamplingGrid grid_;
  OctreePlan plan_;
};

}  // namespace

SamplingGrid SamplingGrid::Choose(std::span<const std::uint64_t> cells) {
  SamplingGrid grid{kFinestGridBits};
  while (grid.gridBits > kCoarsestGridBits && cells[grid.gridBits] > OctreePlan::kNodeCapacity) {
    --grid.gridBits;
  }
  return grid;
}

unsigned SamplingGrid::CellLevel(unsigned level) const {
  return std::min(level + gridBits, kMortonBits);
}

OctreePlan PlanSubtree(std::span<CodedPoint> points, SubtreeRoot root, const SamplingGrid& grid) {
  return Planner(grid).Run(points, std::move(root));
}

OctreePlan PlanOctree(std::vector<CodedPoint> points) {
  const SamplingGrid grid = SamplingGrid::Choose(CountCells(points));
  return PlanSubtree(points, {}, grid);
}

}  // namespace tarnhost
