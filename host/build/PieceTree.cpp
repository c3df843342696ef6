// Cuts a cloud into pieces that fit into memory: cells of the octree, along the Morton curve.
#include "host/build/PieceTree.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tarnhost {

PieceTree::PieceTree(std::uint64_t most) : most_(most) { AddTable(0, 0, kFirstLevels); }

void PieceTree::AddTable(unsigned level, std::uint64_t indexInLevel, unsigned depth) {
  Table table;
  table.level = level;
  table.depth = depth;
  table.indexInLevel = indexInLevel;
  table.counts.resize(std::size_t{1} << (3 * depth));
  table.targets.assign(table.counts.size(), kNoPiece);
  tables_.push_back(std::move(table));
}

std::size_t PieceTree::CellIn(const Table& table, std::uint64_t code) {
  const unsigned below = 3 * (kMortonBits - table.level - table.depth);
  return static_cast<std::size_t>(code >> below) & (table.counts.size() - 1);
}

void PieceTree::Count(std::uint64_t code) {
  std::size_t at = 0;
  while (tables_[at].cut) {
    const std::uint32_t target = tables_[at].targets[CellIn(tables_[at], code)];
    if ((target & kIsTable) == 0) return;  // its cell was small enough in an earlier round
    at = target & ~kIsTable;
  }
  std::atomic_ref<std::uint64_t>(tables_[at].counts[CellIn(tables_[at], code)])
      .fetch_add(1, std::memory_order_relaxed);
}

void PieceTree::Count(std::span<const std::uint64_t> codes) {
  if (tables_.size() > 1 || codes.empty()) {
    for (const std::uint64_t code : codes) Count(code);
    return;
  }
  // In the first round neighbours mostly lie in the same cell: one addition for all of them.
  std::vector<std::uint64_t>& counts = tables_[0].counts;
  const auto add = [&](std::size_t cell, std::uint64_t points) {
    std::atomic_ref<std::uint64_t>(counts[cell]).fetch_add(points, std::memory_order_relaxed);
  };
  std::size_t cell = CellIn(tables_[0], codes[0]);
  std::uint64_t points = 0;
  for (const std::uint64_t code : codes) {
    const std::size_t here = CellIn(tables_[0], code);
    if (here != cell) {
      add(cell, std::exchange(points, 0));
      cell = here;
    }
    ++points;
  }
  add(cell, points);
}

void PieceTree::Reset() {
  tables_.clear();
  AddTable(0, 0, kFirstLevels);
}

bool PieceTree::EndRound() {
  const std::size_t tables = tables_.size();
  for (std::size_t i = 0; i < tables; ++i) {
    if (!tables_[i].cut) Cut(i);
  }
  if (tables_.size() > tables) return true;
  NumberPieces(0);
  CountCells();
  return false;
}

/// Decides for each cell of a table: part of a larger piece, a piece, or a table of its own.
void PieceTree::Cut(std::size_t table) {
  tables_[table].cut = true;
  CutCell(table, 0, 0);
}

/// `level` and `cell` count from the table's own cell. Cells that become tables are marked at once;
/// pieces get their numbers when all tables are known, and are marked by their level until then.
void PieceTree::CutCell(std::size_t table, unsigned level, std::uint64_t cell) {
  const unsigned depth = tables_[table].depth;
  const std::size_t cells = std::size_t{1} << (3 * (depth - level));
  const auto begin = tables_[table].counts.begin() + static_cast<std::ptrdiff_t>(cell * cells);
  const std::uint64_t count =
      std::accumulate(begin, begin + static_cast<std::ptrdiff_t>(cells), std::uint64_t{0});
  if (count == 0) return;
  const unsigned levelInTree = tables_[table].level + level;
  if (count > most_ && levelInTree < kMortonBits) {
    if (level < depth) {
      for (std::uint64_t octant = 0; octant < 8; ++octant) {
        CutCell(table, level + 1, cell * 8 + octant);
      }
      return;
    }
    const std::uint64_t index = (tables_[table].indexInLevel << (3 * level)) + cell;
    tables_[table].targets[cell] = kIsTable | static_cast<std::uint32_t>(tables_.size());
    AddTable(levelInTree, index, std::min(kFurtherLevels, kMortonBits - levelInTree));
    return;
  }
  auto& targets = tables_[table].targets;
  std::fill_n(targets.begin() + static_cast<std::ptrdiff_t>(cell * cells), cells, level);
}

void PieceTree::NumberPieces(std::size_t at) {
  Table& table = tables_[at];
  for (std::size_t cell = 0; cell < table.targets.size();) {
    const std::uint32_t target = table.targets[cell];
    if (target == kNoPiece) {
      ++cell;
    } else if ((target & kIsTable) != 0) {
      NumberPieces(target & ~kIsTable);
      ++cell;
    } else {
      const std::size_t cells = std::size_t{1} << (3 * (table.depth - target));
      Piece piece;
      piece.level = table.level + target;
      piece.indexInLevel = (table.indexInLevel << (3 * target)) + cell / cells;
      piece.pointCount = std::accumulate(
          table.counts.begin() + static_cast<std::ptrdiff_t>(cell),
          table.counts.begin() + static_cast<std::ptrdiff_t>(cell + cells), std::uint64_t{0});
      std::fill_n(table.targets.begin() + static_cast<std::ptrdiff_t>(cell), cells,
                  static_cast<std::uint32_t>(pieces_.size()));
      pieces_.push_back(piece);
      pointCount_ += piece.pointCount;
      cell += cells;
    }
  }
}

void PieceTree::CountCells() {
  std::vector<std::uint64_t> counts = tables_[0].counts;
  cellCounts_.assign(kFirstLevels + 1, 0);
  for (unsigned level = kFirstLevels + 1; level-- > 0;) {
    cellCounts_[level] = counts.size() - static_cast<std::size_t>(std::ranges::count(counts, 0u));
    for (std::size_t i = 0; i < counts.size() / 8; ++i) {
      counts[i] = std::accumulate(counts.begin() + static_cast<std::ptrdiff_t>(8 * i),
                                  counts.begin() + static_cast<std::ptrdiff_t>(8 * i + 8),
                                  std::uint64_t{0});
    }
    counts.resize(counts.size() / 8);
  }
}

std::uint32_t PieceTree::FindPiece(std::uint64_t code) const {
  std::size_t at = 0;
  while (true) {
    const std::uint32_t target = tables_[at].targets[CellIn(tables_[at], code)];
    if (target == kNoPiece) return 0;  // was not counted: what is read of a failed source
    if ((target & kIsTable) == 0) return target;
    at = target & ~kIsTable;
  }
}

}  // namespace tarnhost
