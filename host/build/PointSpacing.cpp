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
/// Of the first axis; those of the others are one and two bits higher.
constexpr std::uint64_t kAxisBits = SpreadBits((std::uint64_t{1} << kMortonBits) - 1);

/// Squared distance in finest cells.
std::uint64_t SquaredDistance(std::uint64_t a, std::uint64_t b) {
  std::uint64_t sum = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const auto difference = static_cast<std::int64_t>(CollectBits(a >> axis)) -
                            static_cast<std::int64_t>(CollectBits(b >> axis));
    sum += static_cast<std::uint64_t>(difference * difference);
  }
  return sum;
}

}  // namespace

void PointSpacing::Start(unsigned cellLevel, std::size_t expected) {
  bitsBelow_ = kMortonBits - cellLevel;
  cellBits_ = (std::uint64_t{1} << (3 * cellLevel)) - 1;
  reach_ = (std::uint64_t{1} << bitsBelow_) * 2 / 5;
  count_ = 0;
  slots_.assign(std::max(kFewestSlots, std::bit_ceil(3 * expected)), kFree);
  ClearFilter();
}

void PointSpacing::Add(std::uint64_t code) {
  if (2 * (count_ + 1) > slots_.size()) Grow();
  Put(code);
  ++count_;
}

void PointSpacing::Grow() {
  const std::vector<std::uint64_t> old =
      std::exchange(slots_, std::vector<std::uint64_t>(2 * slots_.size(), kFree));
  ClearFilter();
  for (const std::uint64_t code : old) {
    if (code != kFree) Put(code);
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

void PointSpacing::Put(std::uint64_t code) {
  const std::uint64_t hash = HashOf(code >> (3 * bitsBelow_));
  const std::uint64_t bit = hash >> filterShift_;
  filter_[bit >> 6] |= std::uint64_t{1} << (bit & 63u);
  std::size_t slot = SlotOf(hash);
  while (slots_[slot] != kFree) slot = (slot + 1) & (slots_.size() - 1);
  slots_[slot] = code;
}

bool PointSpacing::IsTooClose(std::uint64_t code) const {
  // Less than half a cell reaches into one neighbour along each axis: the one on the side on which
  // the point lies. Cells are counted on in place, among the bits of the other axes.
  const std::uint64_t cell = code >> (3 * bitsBelow_);
  const std::uint64_t sides = code >> (3 * (bitsBelow_ - 1));
  std::array<std::array<std::uint64_t, 2>, 3> places;
  std::array<unsigned, 3> counts;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const std::uint64_t mask = (kAxisBits << axis) & cellBits_;
    const std::uint64_t unit = std::uint64_t{1} << axis;
    const std::uint64_t place = cell & mask;
    const bool above = (sides >> axis & 1u) != 0;
    places[axis][0] = place;
    places[axis][1] = above ? ((place | ~mask) + unit) & mask : (place - unit) & mask;
    counts[axis] = place == (above ? mask : 0) ? 1 : 2;  // no cells beyond the cube
  }
  for (unsigned z = 0; z < counts[2]; ++z) {
    for (unsigned y = 0; y < counts[1]; ++y) {
      for (unsigned x = 0; x < counts[0]; ++x) {
        if (HasNear(places[0][x] | places[1][y] | places[2][z], code)) return true;
      }
    }
  }
  return false;
}

bool PointSpacing::HasNear(std::uint64_t cell, std::uint64_t code) const {
  const std::uint64_t hash = HashOf(cell);
  if (!MayHold(hash)) return false;
  for (std::size_t slot = SlotOf(hash); slots_[slot] != kFree;
       slot = (slot + 1) & (slots_.size() - 1)) {
    if (slots_[slot] >> (3 * bitsBelow_) != cell) continue;
    if (SquaredDistance(slots_[slot], code) < reach_ * reach_) return true;
  }
  return false;
}

}  // namespace tarnhost
