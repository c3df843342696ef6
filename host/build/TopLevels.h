// Samples the nodes above the pieces, whose cells reach over several of them.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "host/build/OctreePlan.h"
#include "host/build/PieceTree.h"

namespace tarnhost {

/// A point of a piece that a node above may take for one of its cells.
struct Candidate {
  std::uint64_t cell;      ///< of the level that the node samples
  std::uint64_t distance;  ///< from the cell's centre
  std::uint64_t code;
  std::uint32_t row;  ///< among the piece's points
};

/// What the levels above one piece may take of it, level after level: for each cell, along the
/// Morton curve, the points nearest to its centre, the nearest first. There are enough of them for
/// what coarser levels may take before.
using PieceCandidates = std::vector<std::vector<Candidate>>;

/// The candidates of a piece, whose sorted points are given.
[[nodiscard]] PieceCandidates FindCandidates(const Piece& piece, std::span<const CodedPoint> points,
                                             const SamplingGrid& grid);

/// A point that a node above a piece has taken.
struct TakenPoint {
  unsigned level = 0;  ///< of the node
  std::uint64_t code = 0;
  std::uint32_t row = 0;  ///< among the piece's points
};

/// Decides, as PlanSubtree does for nodes within one piece, which points the nodes above the pieces
/// take.
class TopLevels {
 public:
  /// `candidates` are those of each piece. Gives, for each piece, what was taken of it: level after
  /// level, along the Morton curve within a level.
  [[nodiscard]] static std::vector<std::vector<TakenPoint>> Take(
      std::span<const Piece> pieces, std::span<const PieceCandidates> candidates,
      const SamplingGrid& grid);
};

}  // namespace tarnhost
