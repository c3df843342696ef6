// Samples the nodes above the pieces, whose cells reach over several of them.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/build/OctreePlan.h"
#include "host/build/PieceTree.h"
#include "host/common/TemporaryFile.h"

namespace tarnhost {

/// A point of a piece that a node above may take for one of its cells.
struct Candidate {
  std::uint64_t code;
  std::uint64_t distance;  ///< from the centre of its cell of the node's level
  std::uint32_t index;     ///< among the piece's points along the Morton curve
  /// How many of the piece's points of this code a former root does not hold on to; kAll where it
  /// holds none.
  std::uint32_t unheld;

  static constexpr std::uint32_t kAll = ~std::uint32_t{0};
};

/// What one level above a piece may take of it: for each cell, along the Morton curve, the points
/// nearest to its centre, the nearest first. There are enough of them for what coarser levels may
/// take before.
using LevelCandidates = std::vector<Candidate>;

/// The candidates of a piece, whose sorted points are given, for each level above it. From the
/// level of a former root on, what that holds on to is none: of each code, the first points.
[[nodiscard]] std::vector<LevelCandidates> FindCandidates(const Piece& piece,
                                                          std::span<const CodedPoint> points,
                                                          const SamplingGrid& grid,
                                                          const ExistingTree* existing = nullptr);

/// The same of a piece whose points all have the same code, without looking at them.
[[nodiscard]] std::vector<LevelCandidates> CandidatesOfEqualPoints(
    const Piece& piece, const SamplingGrid& grid, const ExistingTree* existing = nullptr);

/// Keeps the candidates of all pieces, in memory or in a temporary file. Put and Get are called by
/// one thread at a time.
class CandidateStore {
 public:
  /// In the file when there is one.
  explicit CandidateStore(std::size_t pieceCount, std::unique_ptr<TemporaryFile> file = nullptr)
      : file_(std::move(file)), levels_(pieceCount) {}

  Outcome Put(std::size_t piece, std::span<const LevelCandidates> candidates);
  Outcome Get(std::size_t piece, unsigned level, LevelCandidates& candidates) const;
  [[nodiscard]] std::size_t Count(std::size_t piece, unsigned level) const {
    return levels_[piece][level].count;
  }

 private:
  struct Level {
    LevelCandidates candidates;
    std::uint64_t offset = 0;  ///< in the file
    std::size_t count = 0;
  };

  std::unique_ptr<TemporaryFile> file_;
  std::vector<std::vector<Level>> levels_;  ///< by piece and level
};

/// A point that a node above a piece has taken.
struct TakenPoint {
  unsigned level = 0;  ///< of the node
  std::uint64_t code = 0;
  std::uint32_t index = 0;   ///< among the piece's points along the Morton curve
  std::uint32_t unheld = 0;  ///< as of a Candidate
};

/// Decides, as PlanSubtree does for nodes within one piece, which points the nodes above the pieces
/// take; piece after piece, so that no more is kept than the nodes above one piece need.
class TopLevels {
 public:
  /// The arguments have to outlive it.
  TopLevels(std::span<const Piece> pieces, const CandidateStore& candidates,
            const SamplingGrid& grid, ExistingTree* existing = nullptr)
      : pieces_(pieces),
        candidates_(candidates),
        grid_(grid),
        existing_(existing),
        taken_(pieces.size()) {}

  /// What was taken of the next piece, the first one at first: level after level, along the Morton
  /// curve within a level. `above` are the codes of everything that the nodes above it have in its
  /// cell.
  Outcome Next(std::vector<TakenPoint>& taken, std::vector<std::uint64_t>& above);

 private:
  /// A node above the pieces [begin, end).
  struct Node {
    unsigned level;
    std::uint64_t index;
    std::size_t begin;
    std::size_t end;
    /// Codes of what was taken in the cell of each child.
    std::array<std::vector<std::uint64_t>, 8> taken;
  };
  struct CellCandidate {
    Candidate candidate;
    std::uint32_t piece;
  };

  Outcome Open(unsigned level, std::uint64_t index, std::size_t begin, std::size_t end,
               std::vector<std::uint64_t> above);
  [[nodiscard]] bool IsBelowFormerRoot(unsigned level) const {
    return existing_ != nullptr && level >= existing_->GetGrowth();
  }
  [[nodiscard]] std::uint64_t CountLeft(std::size_t piece, unsigned level) const;
  [[nodiscard]] std::unordered_map<std::uint64_t, std::uint32_t> CountHeldInstead(
      std::size_t piece, unsigned level) const;
  [[nodiscard]] static std::vector<std::uint64_t> ListCells(std::span<const CellCandidate> best);
  void MakeRoom(unsigned level, std::size_t begin, std::size_t end,
                std::vector<CellCandidate>& best) const;
  Outcome FindBest(unsigned level, std::size_t begin, std::size_t end,
                   std::vector<CellCandidate>& best) const;

  std::span<const Piece> pieces_;
  const CandidateStore& candidates_;
  const SamplingGrid& grid_;
  ExistingTree* existing_;
  std::size_t next_ = 0;
  std::vector<Node> open_;  ///< from the root down to the next piece
  std::vector<std::vector<TakenPoint>> taken_;
};

}  // namespace tarnhost
