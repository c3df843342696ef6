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
/// How close is too close, in eighths of a cell.
constexpr std::uint64_t kEighths = 5;

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

void PointSpacing::SetCellLevel(unsigned cellLevel) {
  cellLevel_ = cellLevel;
  Rebuild(std::max(kFewestSlots, std::bit_ceil(2 * count_)));
}

void PointSpacing::Add(std::uint64_t code) {
  if (2 * (count_ + 1) > slots_.size()) Rebuild(std::max(kFewestSlots, 2 * slots_.size()));
  Put(code);
  ++count_;
}

void PointSpacing::Rebuild(std::size_t slotCount) {
  const std::vector<std::uint64_t> old =
      std::exchange(slots_, std::vector<std::uint64_t>(slotCount, kFree));
  for (const std::uint64_t code : old) {
    if (code != kFree) Put(code);
  }
}

std::size_t PointSpacing::SlotOf(std::uint64_t cell) const {
  const std::uint64_t mixed = cell * 0x9E3779B97F4A7C15u;
  return static_cast<std::size_t>(mixed ^ mixed >> 32) & (slots_.size() - 1);
}

void PointSpacing::Put(std::uint64_t code) {
  std::size_t slot = SlotOf(code >> (3 * (kMortonBits - cellLevel_)));
  while (slots_[slot] != kFree) slot = (slot + 1) & (slots_.size() - 1);
  slots_[slot] = code;
}

bool PointSpacing::IsTooClose(std::uint64_t code) const {
  const unsigned bitsBelow = kMortonBits - cellLevel_;
  const std::uint64_t edge = std::uint64_t{1} << bitsBelow;
  const std::uint64_t reach = edge * kEighths / 8;
  const std::uint64_t last = (std::uint64_t{1} << kMortonBits) - 1;
  // The cells within reach along each axis.
  std::array<std::uint64_t, 3> low;
  std::array<std::uint64_t, 3> high;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const std::uint64_t place = CollectBits(code >> axis);
    low[axis] = (place - std::min(place, reach)) >> bitsBelow;
    high[axis] = std::min(place + reach, last) >> bitsBelow;
  }
  for (std::uint64_t z = low[2]; z <= high[2]; ++z) {
    for (std::uint64_t y = low[1]; y <= high[1]; ++y) {
      for (std::uint64_t x = low[0]; x <= high[0]; ++x) {
        const std::uint64_t cell = SpreadBits(x) | SpreadBits(y) << 1 | SpreadBits(z) << 2;
        if (HasNear(cell, code, reach)) return true;
      }
    }
  }
  return false;
}

bool PointSpacing::HasNear(std::uint64_t cell, std::uint64_t code, std::uint64_t reach) const {
  const unsigned shift = 3 * (kMortonBits - cellLevel_);
  std::size_t slot = SlotOf(cell);
  for (; slots_[slot] != kFree; slot = (slot + 1) & (slots_.size() - 1)) {
    if (slots_[slot] >> shift == cell && SquaredDistance(slots_[slot], code) < reach * reach) {
      return true;
    }
  }
  return false;
}

}  // namespace tarnhost
