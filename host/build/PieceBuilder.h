// Builds the subtree of one piece: from its records to encoded blocks.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/OctreePlan.h"
#include "host/build/PieceStore.h"
#include "host/build/PieceTree.h"
#include "host/build/TopLevels.h"

namespace tarnhost {

/// What a piece contributes.
struct BuiltPiece {
  OctreePlan plan;                 ///< of its subtree; no nodes when all points were taken
  std::vector<BuiltBlock> blocks;  ///< of the plan's nodes; empty for nodes without points
  /// Records that the nodes above took, by their level, along the Morton curve within a level.
  std::vector<std::vector<std::uint8_t>> takenRecords;
};

/// Const operations are safe from several threads at once.
class PieceBuilder {
 public:
  PieceBuilder(const BlockBuilder& blocks, const SamplingGrid& grid)
      : blocks_(blocks), grid_(grid) {}

  /// `taken` are the points that nodes above took. Uses up the points of `loaded`.
  [[nodiscard]] BuiltPiece Build(const Piece& piece, LoadedPiece& loaded,
                                 std::span<const TakenPoint> taken) const;

 private:
  const BlockBuilder& blocks_;
  SamplingGrid grid_;
};

}  // namespace tarnhost
