// Builds the subtree of one piece: from its records to encoded blocks.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/OctreePlan.h"
#include "host/build/PieceTree.h"
#include "host/build/TopLevels.h"

namespace tarnhost {

/// The points of a piece by their Morton codes, rows as numbers; equal codes in the order of rows.
[[nodiscard]] std::vector<CodedPoint> SortRecords(std::span<const std::uint8_t> records,
                                                  std::size_t recordBytes,
                                                  const PositionTransform& transform,
                                                  const oocpc::Vector3d& frameOffset,
                                                  const MortonCube& cube);

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
  PieceBuilder(const BlockBuilder& blocks, const SamplingGrid& grid, std::size_t recordBytes)
      : blocks_(blocks), grid_(grid), recordBytes_(recordBytes) {}

  /// `points` are the sorted points of the piece, `taken` those that nodes above took.
  [[nodiscard]] BuiltPiece Build(const Piece& piece, std::span<const std::uint8_t> records,
                                 std::vector<CodedPoint> points,
                                 std::span<const TakenPoint> taken) const;

 private:
  const BlockBuilder& blocks_;
  SamplingGrid grid_;
  std::size_t recordBytes_;
};

}  // namespace tarnhost
