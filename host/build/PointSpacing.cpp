// Remembers which points were sampled, to keep further ones away from them.
#include "host/build/PointSpacing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "host/build/MortonCube.h"

namespace tarnhost {

namespace {

constexpr std::size_t kFewestSlots = 1024;
/// Bits of the filter for each slot, and their number as a power of two.
constexpr unsigned kFilterDepth = 2;
constexpr std::size_t kFilterBits = std::size_t{1} << kFilterDepth;
constexpr std::uint64_t kAxisMask = (std::uint64_t{1} << kMortonBits) - 1;

/// The coordinates of a code one beside the other, x lowest.
std::uint64_t PlaceOf(std::uint64_t code) {
  return CollectBits(code) | CollectBits(code >> 1) << kMortonBits |
         CollectBits(code >> 2) << (2 * kMortonBits);
}

std::uint64_t CoordinateOf(std::uint64_t place, unsigned axis) {
  return place >> (axis * kMortonBits) & kAxisMask;
}

/// Squared distance in finest cells.
std::uint64_t SquaredDistance(std::uint64_t a, std::uint64_t b) {
  std::uint64_t sum = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    // The square of the difference modulo 2^64 is that of it.
    const std::uint64_t difference = CoordinateOf(a, axis) - CoordinateOf(b, axis);
    sum += difference * difference;
  }
  return sum;
}

}  // namespace

void PointSpacing::Start(unsigned cellLevel, std::size_t expected) {
  cellEdge_ = std::uint64_t{1} << (kMortonBits - cellLevel);
  const std::uint64_t axisBits = kAxisMask & ~(cellEdge_ - 1);
  cellMask_ = axisBits | axisBits << kMortonBits | axisBits << (2 * kMortonBits);
  const std::uint64_t reach = cellEdge_ * 2 / 5;
  squaredReach_ = reach * reach;
  count_ = 0;
  slots_.assign(std::max(kFewestSlots, std::bit_ceil(3 * expected)), kFree);
  ClearFilter();
}

void PointSpacing::Add(std::uint64_t code) {
  if (2 * (count_ + 1) > slots_.size()) Grow();
  Put(PlaceOf(code));
  ++count_;
}

void PointSpacing::Grow() {
  const std::vector<std::uint64_t> old =
      std::exchange(slots_, std::vector<std::uint64_t>(2 * slots_.size(), kFree));
  ClearFilter();
  for (const std::uint64_t place : old) {
    if (place != kFree) Put(place);
  }
}

void PointSpacing::ClearFilter() {
  const std::size_t bits = kFilterBits * slots_.size();
  filter_.assign(bits / 64, 0);
  filterShift_ = 64 - static_cast<unsigned>(std::countr_zero(bits));
}

std::uint64_t PointSpacing::HashOf(std::uint64_t cell) {
  // Multiplicative hashing by the golden ratio of 2^64: the high bits are the mixed ones.
  return cell * 0x9E3779B97F4A7C15u;
}

std::size_t PointSpacing::SlotOf(std::uint64_t hash) const {
  return static_cast<std::size_t>(hash >> (filterShift_ + kFilterDepth));
}

void PointSpacing::Put(std::uint64_t place) {
  const std::uint64_t hash = HashOf(place & cellMask_);
  const std::uint64_t bit = hash >> filterShift_;
  filter_[bit >> 6] |= std::uint64_t{1} << (bit & 63u);
  std::size_t slot = SlotOf(hash);
  while (slots_[slot] != kFree) slot = (slot + 1) & (slots_.size() - 1);
  slots_[slot] = place;
}

bool PointSpacing::IsTooClose(std::uint64_t code) const {
  const std::uint64_t place = PlaceOf(code);
  // Less than half a cell reaches into one neighbour along each axis: the one on the side on which
  // the point lies. How far it is to the neighbour tells whether anything there can be too close.
  std::array<std::uint64_t, 3> steps;
  std::array<std::uint64_t, 3> squares;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const std::uint64_t coordinate = CoordinateOf(place, axis);
    const std::uint64_t inside = coordinate & (cellEdge_ - 1);
    const bool above = 2 * inside >= cellEdge_;
    const std::uint64_t way = above ? cellEdge_ - inside : inside + 1;
    const bool leavesCube = above ? coordinate + way > kAxisMask : coordinate < way;
    steps[axis] = (above ? cellEdge_ : 0 - cellEdge_) << (axis * kMortonBits);
    squares[axis] = leavesCube ? squaredReach_ : way * way;
  }
  for (unsigned corner = 0; corner < 8; ++corner) {
    std::uint64_t cell = place & cellMask_;
    std::uint64_t square = 0;
    for (unsigned axis = 0; axis < 3; ++axis) {
      if ((corner >> axis & 1u) == 0) continue;
      cell += steps[axis];
      square += squares[axis];
    }
    if (square < squaredReach_ && HasNear(cell, place)) return true;
  }
  return false;
}

bool PointSpacing::HasNear(std::uint64_t cell, std::uint64_t place) const {
  const std::uint64_t hash = HashOf(cell);
  if (!MayHold(hash)) return false;
  for (std::size_t slot = SlotOf(hash); slots_[slot] != kFree;
       slot = (slot + 1) & (slots_.size() - 1)) {
    if ((slots_[slot] & cellMask_) != cell) continue;
    if (SquaredDistance(slots_[slot], place) < squaredReach_) return true;
  }
  return false;
}

}  // namespace tarnhost
