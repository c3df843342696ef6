// How the memory that an import may take is shared out between what is worked on at once.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnhost {

struct MemoryPlan {
  std::size_t threads = 0;             ///< that work at the same time
  std::uint64_t rowPoints = 0;         ///< points that a thread reads at once
  std::uint64_t mostPiecePoints = 0;   ///< see PieceTree
  std::size_t piecesAtOnce = 0;        ///< pieces that are sampled or built at the same time
  std::uint64_t leastMemoryBytes = 0;  ///< with less than that, this plan takes too much

  /// Half of the memory goes to pieces, three eighths to the threads that build blocks of them, and
  /// before that an eighth to rows that are read; the rest is for tables that say where everything
  /// is. `threads` is how many there are.
  [[nodiscard]] static MemoryPlan Make(std::uint64_t memoryBytes, std::size_t recordBytes,
                                       std::size_t threads);
};

}  // namespace tarnhost
