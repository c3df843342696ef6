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
  Planner(const SamplingGrid& grid, ExistingTree* existing) : grid_(grid), existing_(existing) {}

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
    if (existing_ != nullptr) node.existing = existing_->FindInner(level, index);
    const bool isKept = node.existing != ExistingTree::kNone ||
                        (existing_ != nullptr && existing_->LeadsToRoot(level, index));
    if (existing_ != nullptr && points.empty() && !isKept) return PlannedNode::kNoChild;
    std::vector<std::uint64_t> own;
    std::vector<std::uint32_t> parts;
    // What nodes above took counts, too: so it does not matter to the shape of the tree.
    if (isKept) {
      DivideInner(points, std::move(above), node, own);
      if (own.empty() && IsBare(node)) return PlannedNode::kNoChild;
    } else if (points.size() + above.size() <= OctreePlan::kNodeCapacity) {
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
    if (existing_ != nullptr) {
      if (node.existing != ExistingTree::kNone) {
        sampler.Keep(existing_->ReadOwn(node.existing), cellLevel);
        points = HoldPoints(points, node, own);
      }
      sampler.Limit(ListCells(points, cellLevel), cellLevel, OctreePlan::kNodeCapacity);
    } else if (points.size() > OctreePlan::kMostSamples) {
      sampler.Limit(ListCells(points, cellLevel), cellLevel, OctreePlan::kMostSamples);
    }
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
      const bool changes =
          existing_ != nullptr && Changes(node, octant, node.indexInLevel * 8 + octant);
      if (count > 0 || changes) {
        node.children[octant] = Build(points.first(count), node.level + 1,
                                      node.indexInLevel * 8 + octant, std::move(taken[octant]));
      }
      points = points.subspan(count);
    }
  }

  /// Keeps the points that the node holds on to; gives the others, still in order.
  std::span<CodedPoint> HoldPoints(std::span<CodedPoint> points, const PlannedNode& node,
                                   std::vector<std::uint64_t>& own) const {
    if (node.level != existing_->GetGrowth()) return points;
    HeldPoints held(*existing_, node.level, node.indexInLevel);
    std::size_t left = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      const CodedPoint point = points[i];
      if (held.Holds(point.code)) {
        own.push_back(point.point);
      } else {
        points[left++] = point;
      }
    }
    return points.first(left);
  }

  /// Whether something of the existing tree changes in a child, new points or not.
  [[nodiscard]] bool Changes(const PlannedNode& node, unsigned octant, std::uint64_t child) const {
    if (node.existing != ExistingTree::kNone) {
      return existing_->HasChangingChild(node.existing, octant);
    }
    return existing_->LeadsToRoot(node.level + 1, child);
  }

  /// Whether a kept node has no points of its own and no children any more.
  [[nodiscard]] bool IsBare(const PlannedNode& node) const {
    const bool isThere = node.existing != ExistingTree::kNone;
    if (isThere && existing_->CountOwn(node.existing) > 0) return false;
    for (unsigned octant = 0; octant < 8; ++octant) {
      if (node.children[octant] != PlannedNode::kNoChild) return false;
      if (isThere && existing_->FindKeptChild(node.existing, octant) != ExistingTree::kNone) {
        return false;
      }
    }
    return true;
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
  ExistingTree* existing_;
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

OctreePlan PlanSubtree(std::span<CodedPoint> points, SubtreeRoot root, const SamplingGrid& grid,
                       ExistingTree* existing) {
  return Planner(grid, existing).Run(points, std::move(root));
}

OctreePlan PlanOctree(std::vector<CodedPoint> points) {
  const SamplingGrid grid = SamplingGrid::Choose(CountCells(points));
  return PlanSubtree(points, {}, grid);
}

}  // namespace tarnhost
