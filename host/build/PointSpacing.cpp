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
  reach_ = (std::uint64_t{1} << bitsBelow_) / 2;
  count_ = 0;
  slots_.assign(std::max(kFewestSlots, std::bit_ceil(3 * expected)), kFree);
}

void PointSpacing::Add(std::uint64_t code) {
  if (2 * (count_ + 1) > slots_.size()) Grow();
  Put(code);
  ++count_;
}

void PointSpacing::Grow() {
  const std::vector<std::uint64_t> old =
      std::exchange(slots_, std::vector<std::uint64_t>(2 * slots_.size(), kFree));
  for (const std::uint64_t code : old) {
    if (code != kFree) Put(code);
  }
}

std::size_t PointSpacing::SlotOf(std::uint64_t cell) const {
  // Multiplicative hashing by the golden ratio of 2^64.
  const std::uint64_t mixed = cell * 0x9E3779B97F4A7C15u;
  return static_cast<std::size_t>(mixed ^ mixed >> 32) & (slots_.size() - 1);
}

void PointSpacing::Put(std::uint64_t code) {
  std::size_t slot = SlotOf(code >> (3 * bitsBelow_));
  while (slots_[slot] != kFree) slot = (slot + 1) & (slots_.size() - 1);
  slots_[slot] = code;
}

bool PointSpacing::IsTooClose(std::uint64_t code) const {
  constexpr std::uint64_t kLast = (std::uint64_t{1} << kMortonBits) - 1;
  // The cells within reach along each axis: half a cell reaches into one neighbour.
  std::array<std::uint64_t, 3> low;
  std::array<std::uint64_t, 3> high;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const std::uint64_t place = CollectBits(code >> axis);
    low[axis] = (place - std::min(place, reach_)) >> bitsBelow_;
    high[axis] = std::min(place + reach_, kLast) >> bitsBelow_;
  }
  for (std::uint64_t z = low[2]; z <= high[2]; ++z) {
    for (std::uint64_t y = low[1]; y <= high[1]; ++y) {
      for (std::uint64_t x = low[0]; x <= high[0]; ++x) {
        const std::uint64_t cell = SpreadBits(x) | SpreadBits(y) << 1 | SpreadBits(z) << 2;
        if (HasNear(cell, code)) return true;
      }
    }
  }
  return false;
}

bool PointSpacing::HasNear(std::uint64_t cell, std::uint64_t code) const {
  for (std::size_t slot = SlotOf(cell); slots_[slot] != kFree;
       slot = (slot + 1) & (slots_.size() - 1)) {
    if (slots_[slot] >> (3 * bitsBelow_) != cell) continue;
    if (SquaredDistance(slots_[slot], code) < reach_ * reach_) return true;
  }
  return false;
}

}  // namespace tarnhost
