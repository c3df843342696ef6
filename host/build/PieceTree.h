// Cuts a cloud into pieces that fit into memory: cells of the octree, along the Morton curve.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/build/MortonCube.h"

namespace tarnhost {

/// A cell of the octree whose points are handled at once.
struct Piece {
  unsigned level = 0;
  std::uint64_t indexInLevel = 0;
  std::uint64_t pointCount = 0;

  /// The cell of `coarser` or equal level in which the piece lies.
  [[nodiscard]] std::uint64_t CellOf(unsigned coarser) const {
    return indexInLevel >> (3 * (level - coarser));
  }
};

/// Counts points per cell, round after round, until all cells that are left whole hold few enough.
///
///     PieceTree tree(most);
///     do { count every point } while (tree.EndRound());
///
/// Count may be called from several threads at once; so may FindPiece after the last round.
class PieceTree {
 public:
  /// Levels that are counted in the first round.
  static constexpr unsigned kFirstLevels = 7;

  /// No piece has more than `most` points, unless no Morton bit tells them apart.
  explicit PieceTree(std::uint64_t most);
  PieceTree(const PieceTree&) = delete;
  PieceTree& operator=(const PieceTree&) = delete;

  void Count(std::uint64_t code);
  /// The same for many codes.
  void Count(std::span<const std::uint64_t> codes);
  /// Forgets what was counted.
  void Reset();
  /// True when another round of counting is needed.
  [[nodiscard]] bool EndRound();

  /// Pieces that have points, along the Morton curve.
  [[nodiscard]] const std::vector<Piece>& GetPieces() const { return pieces_; }
  /// The number of the piece in which a code lies, which was counted.
  [[nodiscard]] std::uint32_t FindPiece(std::uint64_t code) const;
  /// Gives back the memory that finding pieces takes; what was found stays. No piece can be found
  /// any more.
  void EndFinding() { std::vector<Table>().swap(tables_); }
  /// Occupied cells of the levels 0 to kFirstLevels.
  [[nodiscard]] std::span<const std::uint64_t> GetCellCounts() const { return cellCounts_; }
  [[nodiscard]] std::uint64_t GetPointCount() const { return pointCount_; }

 private:
  static constexpr unsigned kFurtherLevels = 3;
  static constexpr std::uint32_t kNoPiece = ~std::uint32_t{0};

  /// The cells of one cell some levels further down.
  struct Table {
    unsigned level = 0;              ///< of the cell
    unsigned depth = 0;              ///< levels between it and its cells
    std::uint64_t indexInLevel = 0;  ///< of the cell
    std::vector<std::uint64_t> counts;
    /// Of each cell: the number of its piece, or of its table when that bit is set.
    std::vector<std::uint32_t> targets;
    bool cut = false;
  };
  static constexpr std::uint32_t kIsTable = std::uint32_t{1} << 31;

  void AddTable(unsigned level, std::uint64_t indexInLevel, unsigned depth);
  [[nodiscard]] static std::size_t CellIn(const Table& table, std::uint64_t code);
  void Cut(std::size_t table);
  void CutCell(std::size_t table, unsigned level, std::uint64_t cell);
  void NumberPieces(std::size_t table);
  void CountCells();

  std::uint64_t most_;
  std::vector<Table> tables_;
  /// By table and cell: level of the piece that begins there, and how many points it has.
  std::vector<Piece> pieces_;
  std::vector<std::uint64_t> cellCounts_;
  std::uint64_t pointCount_ = 0;
};

}  // namespace tarnhost
