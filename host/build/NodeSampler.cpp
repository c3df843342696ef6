// Takes even samples out of points along the Morton curve.
#include "host/build/NodeSampler.h"

#include <bit>

#include "OOCPointCloud/support/TargetClones.h"

namespace tarnhost {

namespace {

/// The first level at which two different codes part.
unsigned PartingLevel(std::uint64_t a, std::uint64_t b) {
  const unsigned highestBit = 63u - static_cast<unsigned>(std::countl_zero(a ^ b));
  return kMortonBits - 1 - highestBit / 3;
}

std::uint64_t CodeOf(const CodedPoint& point) { return point.code; }
std::uint64_t CodeOf(std::uint64_t code) { return code; }

/// Occupied cells, whose codes differ from this bit on; of sorted points.
template <typename Points>
std::uint64_t CountCellsOf(const Points& points, unsigned shift) {
  std::uint64_t cells = points.empty() ? 0 : 1;
  for (std::size_t i = 1; i < points.size(); ++i) {
    cells += (CodeOf(points[i]) ^ CodeOf(points[i - 1])) >> shift != 0 ? 1 : 0;
  }
  return cells;
}

/// The distances of points, which are asked for in their order. Those before may change meanwhile.
class CentreDistances {
 public:
  CentreDistances(std::span<const CodedPoint> points, unsigned level)
      : points_(points), level_(level) {}

  [[nodiscard]] std::uint64_t Get(std::size_t i) {
    if (i >= end_) {
      begin_ = i;
      end_ = std::min(points_.size(), i + distances_.size());
      DistancesFromCentre(points_.subspan(begin_), level_,
                          std::span(distances_).first(end_ - begin_));
    }
    return distances_[i - begin_];
  }

 private:
  std::span<const CodedPoint> points_;
  unsigned level_;
  std::array<std::uint64_t, 1024> distances_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace

std::uint64_t DistanceFromCentre(std::uint64_t code, unsigned level) {
  const std::uint64_t inside = code & BitsBelow(level);
  const std::uint64_t edge = std::uint64_t{1} << (kMortonBits - level);
  std::uint64_t sum = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    // Below 2^22 on either side of zero: the square of the difference modulo 2^64 is that of it.
    const std::uint64_t difference = 2 * CollectBits(inside >> axis) + 1 - edge;
    sum += difference * difference;
  }
  return sum;
}

OOCPC_TARGET_CLONES void DistancesFromCentre(std::span<const CodedPoint> points, unsigned level,
                                             std::span<std::uint64_t> distances) {
  const std::uint64_t below = BitsBelow(level);
  const std::uint64_t edge = std::uint64_t{1} << (kMortonBits - level);
  const CodedPoint* const from = points.data();
  std::uint64_t* const to = distances.data();
  for (std::size_t i = 0; i < distances.size(); ++i) {
    const std::uint64_t inside = from[i].code & below;
    const std::uint64_t x = 2 * CollectBits(inside) + 1 - edge;
    const std::uint64_t y = 2 * CollectBits(inside >> 1) + 1 - edge;
    const std::uint64_t z = 2 * CollectBits(inside >> 2) + 1 - edge;
    to[i] = x * x + y * y + z * z;
  }
}

std::vector<std::uint64_t> ListCells(std::span<const CodedPoint> points, unsigned level) {
  const unsigned shift = 3 * (kMortonBits - level);
  std::vector<std::uint64_t> cells;
  for (const CodedPoint& point : points) {
    if (cells.empty() || (cells.back() ^ point.code) >> shift != 0) cells.push_back(point.code);
  }
  return cells;
}

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

void NodeSampler::Start(unsigned cellLevel, std::uint64_t cellCount, std::uint64_t pointCount) {
  thins_ = 2 * cellCount <= pointCount;
  if (!thins_) return;
  spacing_.Start(cellLevel, taken_.size());
  for (const std::uint64_t code : taken_) spacing_.Add(code);
}

void NodeSampler::Limit(std::vector<std::uint64_t> cells, unsigned cellLevel, std::size_t most) {
  const std::size_t left = most - std::min(most, keptCells_.size());
  std::erase_if(cells, [&](std::uint64_t code) { return IsKept(code); });
  nextKept_ = 0;
  limitShift_ = 0;
  unsigned shift = 3 * (kMortonBits - cellLevel);
  for (std::uint64_t count = cells.size(); count > left && count > 1;) {
    limitShift_ = shift += 3;
    count = CountCellsOf(cells, shift);
  }
}

void NodeSampler::Keep(std::vector<std::uint64_t> codes, unsigned cellLevel) {
  keptShift_ = 3 * (kMortonBits - cellLevel);
  taken_.insert(taken_.end(), codes.begin(), codes.end());
  keptCells_ = std::move(codes);
  for (std::uint64_t& code : keptCells_) code >>= keptShift_;
  nextKept_ = 0;
}

bool NodeSampler::IsKept(std::uint64_t code) {
  const std::uint64_t cell = code >> keptShift_;
  while (nextKept_ < keptCells_.size() && keptCells_[nextKept_] < cell) ++nextKept_;
  return nextKept_ < keptCells_.size() && keptCells_[nextKept_] == cell;
}

bool NodeSampler::Take(std::uint64_t code) {
  if (IsKept(code) || (limitShift_ > 0 && code >> limitShift_ == limitCell_)) return false;
  if (thins_ && spacing_.IsTooClose(code)) return false;
  if (limitShift_ > 0) limitCell_ = code >> limitShift_;
  taken_.push_back(code);
  if (thins_) spacing_.Add(code);
  return true;
}

std::span<CodedPoint> NodeSampler::TakeAll(std::span<CodedPoint> points, unsigned cellLevel,
                                           std::vector<std::uint64_t>& own) {
  const unsigned shift = 3 * (kMortonBits - cellLevel);
  Start(cellLevel, CountCellsOf(points, shift), points.size());
  CentreDistances distances(points, cellLevel);
  std::size_t left = 0;
  for (std::size_t begin = 0; begin < points.size();) {
    const std::uint64_t cell = points[begin].code >> shift;
    std::size_t best = begin;
    std::uint64_t bestDistance = distances.Get(begin);
    std::size_t end = begin + 1;
    for (; end < points.size() && points[end].code >> shift == cell; ++end) {
      const std::uint64_t distance = distances.Get(end);
      if (distance < bestDistance) {
        bestDistance = distance;
        best = end;
      }
    }
    if (Take(points[best].code)) {
      own.push_back(points[best].point);
    } else {
      best = end;
    }
    for (std::size_t i = begin; i < end; ++i) {
      if (i != best) points[left++] = points[i];
    }
    begin = end;
  }
  return points.first(left);
}

}  // namespace tarnhost
