// Which point goes into which node of the additive octree.
#include "host/build/OctreePlan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <utility>

#include "host/build/MortonCube.h"
#include "host/build/PointSpacing.h"

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

/// Takes a sample out of `points`, one in each cell of a level, and appends it to `own`; with
/// `spacing` only points that are not too close to others, which they then join. Gives what is
/// left, still in order.
std::span<CodedPoint> TakeSample(std::span<CodedPoint> points, unsigned cellLevel,
                                 PointSpacing* spacing, std::vector<std::uint64_t>& own) {
  const std::uint64_t cellMask = ~BitsBelow(cellLevel);
  std::size_t left = 0;
  for (std::size_t begin = 0; begin < points.size();) {
    const std::uint64_t cell = points[begin].code & cellMask;
    std::size_t end = begin;
    std::size_t best = points.size();
    std::uint64_t bestDistance = ~std::uint64_t{0};
    for (; end < points.size() && (points[end].code & cellMask) == cell; ++end) {
      const std::uint64_t code = points[end].code;
      const std::uint64_t distance = DistanceFromCentre(code, cellLevel);
      if (distance >= bestDistance || (spacing != nullptr && spacing->IsTooClose(code))) continue;
      bestDistance = distance;
      best = end;
    }
    if (best < end) {
      own.push_back(points[best].point);
      if (spacing != nullptr) spacing->Add(points[best].code);
    }
    for (std::size_t i = begin; i < end; ++i) {
      if (i != best) points[left++] = points[i];
    }
    begin = end;
  }
  return points.first(left);
}

/// Samples the points level by level, so that a sample knows all coarser ones, and then puts the
/// nodes into their order.
class Planner {
 public:
  explicit Planner(std::vector<CodedPoint> points) : points_(std::move(points)) {
    plan_.gridBits = ChooseGridBits(points_);
  }

  OctreePlan Run() {
    plan_.order.reserve(points_.size());
    Open(points_, 0, 0);
    for (unsigned level = 0; !open_.empty(); ++level) SampleLevel(level);
    points_ = {};
    Finish(0);
    return std::move(plan_);
  }

 private:
  /// A node whose children, still to be numbered, are drafts.
  struct Draft {
    PlannedNode node;
    std::vector<std::uint64_t> own;
    std::vector<std::uint32_t> parts;
  };
  /// Points of a draft that no level has yet.
  struct OpenDraft {
    std::size_t draft;
    std::span<CodedPoint> points;
  };

  std::uint64_t Open(std::span<CodedPoint> points, unsigned level, std::uint64_t index) {
    Draft draft{};
    std::fill(std::begin(draft.node.children), std::end(draft.node.children),
              PlannedNode::kNoChild);
    draft.node.level = level;
    draft.node.indexInLevel = index;
    draft.node.subtreePointCount = points.size();
    drafts_.push_back(std::move(draft));
    open_.push_back({drafts_.size() - 1, points});
    return drafts_.size() - 1;
  }

  void SampleLevel(unsigned level) {
    const std::vector<OpenDraft> drafts = std::exchange(open_, {});
    PointSpacing* const spacing = IsThinned(drafts, level) ? &spacing_ : nullptr;
    if (spacing != nullptr) spacing->SetCellLevel(CellLevel(level));
    for (const OpenDraft& open : drafts) {
      if (drafts_[open.draft].node.subtreePointCount <= OctreePlan::kNodeCapacity) {
        DivideLeaf(open, level, spacing);
      } else {
        DivideInner(open, level, spacing);
      }
    }
  }

  /// True when the level's cells leave at least half of the points to finer levels. Where they do
  /// not, cells are about as large as the points' own distances, which then are kept anyway.
  [[nodiscard]] bool IsThinned(std::span<const OpenDraft> drafts, unsigned level) const {
    const unsigned cellLevel = CellLevel(level);
    if (cellLevel == kMortonBits) return false;
    const std::uint64_t cellMask = ~BitsBelow(cellLevel);
    std::uint64_t cells = 0;
    std::uint64_t points = 0;
    for (const OpenDraft& open : drafts) {
      points += open.points.size();
      std::uint64_t before = ~std::uint64_t{0};
      for (const CodedPoint& point : open.points) {
        const std::uint64_t cell = point.code & cellMask;
        if (cell != before) ++cells;
        before = cell;
      }
    }
    return cells <= points / 2;
  }

  void DivideInner(const OpenDraft& open, unsigned level, PointSpacing* spacing) {
    std::vector<std::uint64_t>& own = drafts_[open.draft].own;
    std::span<CodedPoint> left;
    if (level < kMortonBits) {
      left = TakeSample(open.points, SampleLevelOf(open.points, level), spacing, own);
    } else {
      Keep(open.points.first(OctreePlan::kNodeCapacity), own);
      left = open.points.subspan(OctreePlan::kNodeCapacity);
    }
    drafts_[open.draft].parts.push_back(static_cast<std::uint32_t>(own.size()));
    if (level < kMortonBits) {
      OpenChildren(left, level, open.draft);
    } else {
      DealToChildren(left, level, open.draft);
    }
  }

  void DivideLeaf(const OpenDraft& open, unsigned level, PointSpacing* spacing) {
    Draft& draft = drafts_[open.draft];
    const std::size_t before = draft.own.size();
    const unsigned cellLevel = CellLevel(level);
    std::span<CodedPoint> left = open.points;
    if (cellLevel < kMortonBits) left = TakeSample(left, cellLevel, spacing, draft.own);
    if (cellLevel == kMortonBits || left.size() <= draft.node.subtreePointCount / kLastShare) {
      Keep(left, draft.own);
      left = {};
    }
    draft.parts.push_back(static_cast<std::uint32_t>(draft.own.size() - before));
    if (!left.empty()) open_.push_back({open.draft, left});
  }

  static void Keep(std::span<const CodedPoint> points, std::vector<std::uint64_t>& own) {
    for (const CodedPoint& point : points) own.push_back(point.point);
  }

  /// The level of the cells that a node of `level` has its sample from.
  [[nodiscard]] unsigned CellLevel(unsigned level) const {
    return std::min(level + plan_.gridBits, kMortonBits);
  }

  /// The same for an inner node, where so many cells may be occupied that they have to be coarser.
  [[nodiscard]] unsigned SampleLevelOf(std::span<const CodedPoint> points, unsigned level) const {
    unsigned cellLevel = CellLevel(level);
    if (points.size() <= OctreePlan::kSampleLimit) return cellLevel;
    const CellCounts cells = CountCells(points);
    while (cells[cellLevel] > OctreePlan::kSampleLimit) --cellLevel;
    return cellLevel;
  }

  void OpenChildren(std::span<CodedPoint> points, unsigned level, std::size_t parent) {
    const unsigned shift = 3 * (kMortonBits - 1 - level);
    for (unsigned octant = 0; octant < 8; ++octant) {
      const auto end = std::partition_point(
          points.begin(), points.end(),
          [&](const CodedPoint& point) { return ((point.code >> shift) & 7u) <= octant; });
      const auto count = static_cast<std::size_t>(end - points.begin());
      if (count > 0) OpenChild(points.first(count), level, parent, octant);
      points = points.subspan(count);
    }
  }

  void DealToChildren(std::span<CodedPoint> points, unsigned level, std::size_t parent) {
    for (unsigned octant = 0; octant < 8 && !points.empty(); ++octant) {
      const std::size_t share = (points.size() + (7 - octant)) / (8 - octant);
      OpenChild(points.first(share), level, parent, octant);
      points = points.subspan(share);
    }
  }

  void OpenChild(std::span<CodedPoint> points, unsigned level, std::size_t parent,
                 unsigned octant) {
    const std::uint64_t index = drafts_[parent].node.indexInLevel * 8 + octant;
    const std::uint64_t child = Open(points, level + 1, index);
    drafts_[parent].node.children[octant] = child;
  }

  /// Puts a draft behind its children; gives its number among the nodes. The depth of the recursion
  /// is that of the tree.
  std::uint64_t Finish(std::size_t index) {
    Draft draft = std::exchange(drafts_[index], {});
    PlannedNode& node = draft.node;
    for (std::uint64_t& child : node.children) {
      if (child != PlannedNode::kNoChild) child = Finish(static_cast<std::size_t>(child));
    }
    if (draft.parts.empty()) draft.parts.push_back(0);
    node.firstPoint = plan_.order.size();
    node.ownPointCount = static_cast<std::uint32_t>(draft.own.size());
    node.firstPart = plan_.parts.size();
    node.partCount = static_cast<std::uint32_t>(draft.parts.size());
    plan_.order.insert(plan_.order.end(), draft.own.begin(), draft.own.end());
    plan_.parts.insert(plan_.parts.end(), draft.parts.begin(), draft.parts.end());
    plan_.nodes.push_back(node);
    return plan_.nodes.size() - 1;
  }

  std::vector<CodedPoint> points_;
  std::vector<Draft> drafts_;
  std::vector<OpenDraft> open_;
  PointSpacing spacing_;
  OctreePlan plan_;
};

}  // namespace

OctreePlan PlanOctree(std::vector<CodedPoint> points) { return Planner(std::move(points)).Run(); }

}  // namespace tarnhost
