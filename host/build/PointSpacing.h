// Remembers which points were sampled, to keep further ones away from them.
#pragma once

#include <cstdint>
#include <vector>

namespace tarnhost {

/// Sampled points by the cells of a grid, and whether another point is too close to one of them:
/// closer than five eighths of a cell. For one thread.
class PointSpacing {
 public:
  /// Goes over to the cells of a level, which is finer than the one before and coarser than the
  /// finest; what was added stays.
  void SetCellLevel(unsigned cellLevel);
  void Add(std::uint64_t code);
  /// Distances are between the finest cells that the codes name.
  [[nodiscard]] bool IsTooClose(std::uint64_t code) const;

 private:
  static constexpr std::uint64_t kFree = ~std::uint64_t{0};  // codes have 63 bits

  [[nodiscard]] bool HasNear(std::uint64_t cell, std::uint64_t code, std::uint64_t reach) const;
  void Put(std::uint64_t code);
  void Rebuild(std::size_t slotCount);
  [[nodiscard]] std::size_t SlotOf(std::uint64_t cell) const;

  std::vector<std::uint64_t> slots_;  // a hash table with open addresses, a power of two of them
  std::size_t count_ = 0;
  unsigned cellLevel_ = 0;
};

}  // namespace tarnhost
