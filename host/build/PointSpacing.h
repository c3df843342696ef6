// Remembers which points were sampled, to keep further ones away from them.
#pragma once

#include <cstdint>
#include <vector>

namespace tarnhost {

/// Sampled points by the cells of a grid, and whether another point is too close to one of them:
/// closer than two fifths of a cell. For one thread.
class PointSpacing {
 public:
  /// Begins anew, with the cells of a level that is coarser than the finest. About `expected`
  /// points are going to be added; more are fine.
  void Start(unsigned cellLevel, std::size_t expected);
  void Add(std::uint64_t code);
  /// Distances are between the finest cells that the codes name.
  [[nodiscard]] bool IsTooClose(std::uint64_t code) const;

 private:
  static constexpr std::uint64_t kFree = ~std::uint64_t{0};  // places have 63 bits

  [[nodiscard]] bool HasNear(std::uint64_t cell, std::uint64_t place) const;
  void Put(std::uint64_t place);
  void Grow();
  void ClearFilter();
  [[nodiscard]] std::size_t SlotOf(std::uint64_t hash) const;
  [[nodiscard]] static std::uint64_t HashOf(std::uint64_t cell);
  [[nodiscard]] bool MayHold(std::uint64_t hash) const {
    return (filter_[hash >> filterShift_ >> 6] >> (hash >> filterShift_ & 63u) & 1u) != 0;
  }

  std::vector<std::uint64_t> slots_;  // a hash table with open addresses, a power of two of them
  /// Bits of hashes that are in the table. Most cells that are asked for hold nothing, which these
  /// tell without leaving the fast caches.
  std::vector<std::uint64_t> filter_;
  unsigned filterShift_ = 0;
  std::size_t count_ = 0;
  std::uint64_t cellEdge_ = 0;      // in finest cells
  std::uint64_t cellMask_ = 0;      // of a place: the bits that tell its cell
  std::uint64_t squaredReach_ = 0;  // in finest cells
};

}  // namespace tarnhost
