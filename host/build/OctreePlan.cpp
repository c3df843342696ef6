// Which point goes into which node of the additive octree.
#include "host/build/OctreePlan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <span>

#include "host/build/MortonCube.h"

namespace tarnhost {

namespace {

constexpr unsigned kGridBits = 7;  // 128 cells along an edge

/// What a code still tells below a level: the low bits of the finer levels.
std::uint64_t BitsBelow(unsigned level) {
  return (std::uint64_t{1} << (3 * (kMortonBits - level))) - 1;
}

/// The first level at which two different codes part.
unsigned PartingLevel(std::uint64_t a, std::uint64_t b) {
  const unsigned highestBit = 63u - static_cast<unsigned>(std::countl_zero(a ^ b));
  return kMortonBits - 1 - highestBit / 3;
}

/// Squared distance of a point from the centre of its cell of `level`, in finest cells, doubled.
std::uint64_t DistanceFromCentre(std::uint64_t code, unsigned level) {
  const std::uint64_t inside = code & BitsBelow(level);
  const auto edge = static_cast<std::int64_t>(std::uint64_t{1} << (kMortonBits - level));
  std::uint64_t sum = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const std::int64_t twice = 2 * static_cast<std::int64_t>(CollectBits(inside >> axis)) + 1;
    sum += static_cast<std::uint64_t>((twice - edge) * (twice - edge));
  }
  return sum;
}

class Planner {
 public:
  explicit Planner(std::vector<CodedPoint> points) : points_(std::move(points)) {
    plan_.order.reserve(points_.size());
  }

  OctreePlan Run() {
    Build(points_, 0, 0);
    return std::move(plan_);
  }

 private:
  std::uint64_t Build(std::span<CodedPoint> points, unsigned level, std::uint64_t index) {
    PlannedNode node{};
    std::fill(std::begin(node.children), std::end(node.children), PlannedNode::kNoChild);
    node.level = level;
    node.indexInLevel = index;
    node.subtreePointCount = points.size();
    std::vector<std::uint64_t> own;
    if (points.size() <= OctreePlan::kNodeCapacity) {
      Keep(points, own);
    } else if (level < kMortonBits) {
      BuildChildren(Sample(points, level, own), level, node);
    } else {
      const std::size_t kept = OctreePlan::kNodeCapacity;
      Keep(points.first(kept), own);
      DealToChildren(points.subspan(kept), node);
    }
    node.firstPoint = plan_.order.size();
    node.ownPointCount = static_cast<std::uint32_t>(own.size());
    plan_.order.insert(plan_.order.end(), own.begin(), own.end());
    plan_.nodes.push_back(node);
    return plan_.nodes.size() - 1;
  }

  static void Keep(std::span<const CodedPoint> points, std::vector<std::uint64_t>& own) {
    own.reserve(points.size());
    for (const CodedPoint& point : points) own.push_back(point.point);
  }

  /// The level of the finest sampling grid that has few enough occupied cells.
  static unsigned SamplingLevel(std::span<const CodedPoint> points, unsigned level) {
    std::array<std::uint64_t, kMortonBits> partings{};
    for (std::size_t i = 1; i < points.size(); ++i) {
      if (points[i].code != points[i - 1].code) {
        ++partings[PartingLevel(points[i - 1].code, points[i].code)];
      }
    }
    unsigned sampling = level;
    std::uint64_t cells = 1;
    while (sampling < kMortonBits && sampling < level + kGridBits &&
           cells + partings[sampling] <= OctreePlan::kNodeCapacity) {
      cells += partings[sampling++];
    }
    return sampling;
  }

  /// Takes the sample out of `points` and gives what is left, still in order.
  static std::span<CodedPoint> Sample(std::span<CodedPoint> points, unsigned level,
                                      std::vector<std::uint64_t>& own) {
    const unsigned sampling = SamplingLevel(points, level);
    const std::uint64_t cellMask = ~BitsBelow(sampling);
    std::size_t left = 0;
    for (std::size_t begin = 0; begin < points.size();) {
      const std::uint64_t cell = points[begin].code & cellMask;
      std::size_t end = begin;
      std::size_t best = begin;
      std::uint64_t bestDistance = ~std::uint64_t{0};
      for (; end < points.size() && (points[end].code & cellMask) == cell; ++end) {
        const std::uint64_t distance = DistanceFromCentre(points[end].code, sampling);
        if (distance < bestDistance) {
          bestDistance = distance;
          best = end;
        }
      }
      own.push_back(points[best].point);
      for (std::size_t i = begin; i < end; ++i) {
        if (i != best) points[left++] = points[i];
      }
      begin = end;
    }
    return points.first(left);
  }

  void BuildChildren(std::span<CodedPoint> points, unsigned level, PlannedNode& node) {
    const unsigned shift = 3 * (kMortonBits - 1 - level);
    for (unsigned octant = 0; octant < 8; ++octant) {
      const auto end = std::partition_point(
          points.begin(), points.end(),
          [&](const CodedPoint& point) { return ((point.code >> shift) & 7u) <= octant; });
      const auto count = static_cast<std::size_t>(end - points.begin());
      if (count > 0) {
        node.children[octant] =
            Build(points.first(count), level + 1, node.indexInLevel * 8 + octant);
      }
      points = points.subspan(count);
    }
  }

  void DealToChildren(std::span<CodedPoint> points, PlannedNode& node) {
    for (unsigned octant = 0; octant < 8 && !points.empty(); ++octant) {
      const std::size_t share = (points.size() + (7 - octant)) / (8 - octant);
      node.children[octant] =
          Build(points.first(share), node.level + 1, node.indexInLevel * 8 + octant);
      points = points.subspan(share);
    }
  }

  std::vector<CodedPoint> points_;
  OctreePlan plan_;
};

}  // namespace

OctreePlan PlanOctree(std::vector<CodedPoint> points) { return Planner(std::move(points)).Run(); }

}  // namespace tarnhost
