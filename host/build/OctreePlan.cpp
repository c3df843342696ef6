// Which point goes into which node of the additive octree.
#include "host/build/OctreePlan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>

#include "host/build/MortonCube.h"

namespace tarnhost {

namespace {

constexpr unsigned kFinestGridBits = 7;    // 128 cells along an edge
constexpr unsigned kCoarsestGridBits = 3;  // 8 cells, 512 in all
/// What is left of a leaf's points makes no level of its own below this share of them.
constexpr std::size_t kLastShare = 16;

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

/// Numbers of occupied cells: entry l is that of level l.
using CellCounts = std::array<std::uint64_t, kMortonBits + 1>;

CellCounts CountCells(std::span<const CodedPoint> points) {
  CellCounts cells{};
  if (points.empty()) return cells;
  for (std::size_t i = 1; i < points.size(); ++i) {
    if (points[i].code != points[i - 1].code) {
      ++cells[PartingLevel(points[i - 1].code, points[i].code) + 1];
    }
  }
  cells[0] = 1;
  for (unsigned level = 1; level <= kMortonBits; ++level) cells[level] += cells[level - 1];
  return cells;
}

/// True when nodes of every level keep few enough points on average on a grid of so many bits.
bool IsCoarseEnough(const CellCounts& cells, std::size_t pointCount, unsigned gridBits) {
  for (unsigned level = 0; level + gridBits <= kMortonBits; ++level) {
    const std::uint64_t capacity = cells[level] * OctreePlan::kNodeCapacity;
    if (pointCount <= capacity) return true;  // levels from here on are leaves
    if (cells[level + gridBits] > capacity) return false;
  }
  return true;
}

unsigned ChooseGridBits(std::span<const CodedPoint> points) {
  const CellCounts cells = CountCells(points);
  unsigned bits = kFinestGridBits;
  while (bits > kCoarsestGridBits && !IsCoarseEnough(cells, points.size(), bits)) --bits;
  return bits;
}

/// Takes a sample out of `points`, one in each cell of a level, and appends it to `own`. Gives what
/// is left, still in order.
std::span<CodedPoint> TakeSample(std::span<CodedPoint> points, unsigned cellLevel,
                                 std::vector<std::uint64_t>& own) {
  const std::uint64_t cellMask = ~BitsBelow(cellLevel);
  std::size_t left = 0;
  for (std::size_t begin = 0; begin < points.size();) {
    const std::uint64_t cell = points[begin].code & cellMask;
    std::size_t end = begin;
    std::size_t best = begin;
    std::uint64_t bestDistance = ~std::uint64_t{0};
    for (; end < points.size() && (points[end].code & cellMask) == cell; ++end) {
      const std::uint64_t distance = DistanceFromCentre(points[end].code, cellLevel);
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

class Planner {
 public:
  explicit Planner(std::vector<CodedPoint> points) : points_(std::move(points)) {
    plan_.order.reserve(points_.size());
    plan_.gridBits = ChooseGridBits(points_);
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
    std::vector<std::uint32_t> parts;
    if (points.size() <= OctreePlan::kNodeCapacity) {
      DivideLeaf(points, level, own, parts);
    } else if (level < kMortonBits) {
      BuildChildren(TakeSample(points, SampleLevel(points, level), own), level, node);
    } else {
      const std::size_t kept = OctreePlan::kNodeCapacity;
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

  /// The level of the cells that a node of `level` has its sample from.
  [[nodiscard]] unsigned CellLevel(unsigned level) const {
    return std::min(level + plan_.gridBits, kMortonBits);
  }

  /// The same for a node with so many occupied cells that its sample has to be coarser.
  [[nodiscard]] unsigned SampleLevel(std::span<const CodedPoint> points, unsigned level) const {
    unsigned cellLevel = CellLevel(level);
    if (points.size() <= OctreePlan::kSampleLimit) return cellLevel;
    const CellCounts cells = CountCells(points);
    while (cells[cellLevel] > OctreePlan::kSampleLimit) --cellLevel;
    return cellLevel;
  }

  void DivideLeaf(std::span<CodedPoint> points, unsigned level, std::vector<std::uint64_t>& own,
                  std::vector<std::uint32_t>& parts) const {
    own.reserve(points.size());
    const std::size_t last = points.size() / kLastShare;
    for (; !points.empty(); ++level) {
      const std::size_t before = own.size();
      const unsigned cellLevel = CellLevel(level);
      if (cellLevel < kMortonBits) points = TakeSample(points, cellLevel, own);
      if (cellLevel == kMortonBits || points.size() <= last) {
        Keep(points, own);
        points = {};
      }
      parts.push_back(static_cast<std::uint32_t>(own.size() - before));
    }
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
