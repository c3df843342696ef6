// Takes even samples out of points along the Morton curve.
#include "host/build/NodeSampler.h"

#include <bit>

namespace tarnhost {

namespace {

/// The first level at which two different codes part.
unsigned PartingLevel(std::uint64_t a, std::uint64_t b) {
  const unsigned highestBit = 63u - static_cast<unsigned>(std::countl_zero(a ^ b));
  return kMortonBits - 1 - highestBit / 3;
}

}  // namespace

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

bool NodeSampler::Take(std::uint64_t code) {
  if (thins_ && spacing_.IsTooClose(code)) return false;
  taken_.push_back(code);
  if (thins_) spacing_.Add(code);
  return true;
}

std::span<CodedPoint> NodeSampler::TakeAll(std::span<CodedPoint> points, unsigned cellLevel,
                                           std::vector<std::uint64_t>& own) {
  Start(cellLevel, CountCells(points)[cellLevel], points.size());
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
