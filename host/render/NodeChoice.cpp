// Which level-of-detail nodes a picture needs.
#include "host/render/NodeChoice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <queue>

namespace tarnhost {

using oocpc::Box3d;

namespace {

/// Points that lie closer together than this many pixels show nothing more.
constexpr double kFinestPixels = 0.7;
/// A leaf may be sparser than its level: up to this many times.
constexpr double kSparsest = 3;

struct Candidate {
  double pixels;  ///< distance between the points that are there already, as it shows
  std::uint64_t order;
  std::int32_t parent;
  LodNode node;

  friend bool operator<(const Candidate& a, const Candidate& b) {
    return a.pixels != b.pixels ? a.pixels < b.pixels : a.order > b.order;
  }
};

class Chooser {
 public:
  Chooser(const LodTree& tree, const Camera& camera, std::vector<ChosenNode>& chosen)
      : tree_(tree), camera_(camera), chosen_(chosen) {}

  Outcome Run(std::uint64_t budget) {
    LodNode root;
    if (Outcome outcome = tree_.ReadRoot(root); !outcome.Ok()) return outcome;
    Offer(root, -1);
    std::vector<LodNode> children;
    while (!waiting_.empty()) {
      const Candidate next = waiting_.top();
      waiting_.pop();
      // The coarsest level is drawn in any case: a picture of nothing would help nobody.
      if (!chosen_.empty() && next.node.points.count > budget) break;
      budget -= std::min<std::uint64_t>(budget, next.node.points.count);
      const auto place = static_cast<std::int32_t>(chosen_.size());
      chosen_.push_back(Choose(next));
      if (Outcome outcome = tree_.ReadChildren(next.node, children); !outcome.Ok()) return outcome;
      for (const LodNode& child : children) Offer(child, place);
    }
    return Outcome::Success();
  }

 private:
  void Offer(const LodNode& node, std::int32_t parent) {
    double depth = 0;
    if (!camera_.Sees({node.octreeNode.corner1, node.octreeNode.corner2}, depth)) return;
    const double above = tree_.GetSpacing(node.level) * 2;
    const double pixels = above / camera_.UnitsPerPixel(depth);
    if (parent >= 0 && pixels < kFinestPixels) return;
    waiting_.push({pixels, offered_++, parent, node});
  }

  [[nodiscard]] static ChosenNode Choose(const Candidate& candidate) {
    ChosenNode chosen;
    chosen.node = candidate.node;
    chosen.box = {candidate.node.octreeNode.corner1, candidate.node.octreeNode.corner2};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double edge = chosen.box.max[axis] - chosen.box.min[axis];
      chosen.cellsPerUnit[axis] = edge > 0 ? ChosenNode::kCells / edge : 0;
    }
    chosen.parent = candidate.parent;
    return chosen;
  }

  const LodTree& tree_;
  const Camera& camera_;
  std::vector<ChosenNode>& chosen_;
  std::priority_queue<Candidate> waiting_;
  std::uint64_t offered_ = 0;
};

/// Tells a node that a part of its box is drawn at least as densely as this.
void LowerSpacing(ChosenNode& node, const Box3d& part, float spacing) {
  const auto first = [&](std::size_t axis) { return node.CellAlong(axis, part.min[axis]); };
  const auto last = [&](std::size_t axis) { return node.CellAlong(axis, part.max[axis]); };
  for (unsigned z = first(2); z <= last(2); ++z) {
    for (unsigned y = first(1); y <= last(1); ++y) {
      for (unsigned x = first(0); x <= last(0); ++x) {
        float& cell = node.spacings[(z * ChosenNode::kCells + y) * ChosenNode::kCells + x];
        cell = std::min(cell, spacing);
      }
    }
  }
}

/// How far apart the points of a node and of those above it are.
double SpacingOf(const LodTree& tree, const LodNode& node) {
  const double ofLevel = tree.GetSpacing(node.level);
  const OOCPCOctreeAcceleratorNode& octreeNode = node.octreeNode;
  if (!octreeNode.IsLeaf() || octreeNode.ownPointCount == 0) return ofLevel;
  // Scans are surfaces: a leaf's points lie in about the two longest edges of its box.
  std::array<double, 3> edges;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    edges[axis] = octreeNode.corner2[axis] - octreeNode.corner1[axis];
  }
  std::sort(edges.begin(), edges.end());
  const double area = edges[2] * std::max(edges[1], edges[2] / octreeNode.ownPointCount);
  return std::clamp(std::sqrt(area / octreeNode.ownPointCount), ofLevel, kSparsest * ofLevel);
}

void FindSpacings(const LodTree& tree, std::vector<ChosenNode>& chosen) {
  constexpr std::size_t kAllCells =
      std::size_t{ChosenNode::kCells} * ChosenNode::kCells * ChosenNode::kCells;
  for (ChosenNode& node : chosen) {
    const auto spacing = static_cast<float>(SpacingOf(tree, node.node));
    node.spacings.assign(kAllCells, spacing);
    for (std::int32_t above = node.parent; above >= 0;) {
      ChosenNode& ancestor = chosen[static_cast<std::size_t>(above)];
      LowerSpacing(ancestor, node.box, spacing);
      above = ancestor.parent;
    }
  }
}

}  // namespace

Outcome ChooseNodes(const LodTree& tree, const Camera& camera, std::uint64_t budget,
                    std::vector<ChosenNode>& chosen) {
  chosen.clear();
  if (Outcome outcome = Chooser(tree, camera, chosen).Run(budget); !outcome.Ok()) return outcome;
  FindSpacings(tree, chosen);
  return Outcome::Success();
}

}  // namespace tarnhost
