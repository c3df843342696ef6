// Takes even samples out of points along the Morton curve.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "host/build/MortonCube.h"
#include "host/build/PointSpacing.h"
#include "host/build/Sorting.h"

namespace tarnhost {

/// What a code still tells below a level: the low bits of the finer levels.
[[nodiscard]] inline std::uint64_t BitsBelow(unsigned level) {
  return (std::uint64_t{1} << (3 * (kMortonBits - level))) - 1;
}

/// The octant, of a cell of `level`, in which a code lies.
[[nodiscard]] inline unsigned OctantOf(std::uint64_t code, unsigned level) {
  return static_cast<unsigned>(code >> (3 * (kMortonBits - 1 - level))) & 7u;
}

/// Squared distance of a point from the centre of its cell of `level`, in half finest cells.
[[nodiscard]] std::uint64_t DistanceFromCentre(std::uint64_t code, unsigned level);
/// The same of as many points as `distances` has room for; several at once where the processor can.
void DistancesFromCentre(std::span<const CodedPoint> points, unsigned level,
                         std::span<std::uint64_t> distances);

/// Numbers of occupied cells: entry l is that of level l.
using CellCounts = std::array<std::uint64_t, kMortonBits + 1>;

/// A code of each occupied cell of a level, in ascending order; of sorted points.
[[nodiscard]] std::vector<std::uint64_t> ListCells(std::span<const CodedPoint> points,
                                                   unsigned level);

/// Of sorted points.
[[nodiscard]] CellCounts CountCells(std::span<const CodedPoint> points);

/// Takes samples of one node's points, level after level, one point of each occupied cell: the one
/// nearest to the cell's centre, the first of several. Where a sample leaves at least as many
/// points as it takes, it leaves out points that are closer than two fifths of a cell to one taken
/// before, in the node's cell, in this level or above: surfaces that just touch a cell would give
/// points close to their neighbours' otherwise.
class NodeSampler {
 public:
  /// `above` are the codes of what coarser levels took in the node's cell.
  explicit NodeSampler(std::vector<std::uint64_t> above) : taken_(std::move(above)) {}

  /// Adds what the node has taken before, in ascending order: no more is taken of their cells, at
  /// the level of cells given.
  void Keep(std::vector<std::uint64_t> codes, unsigned cellLevel);
  /// Sees to it that a node has about `most` points at most, those kept included: where there are
  /// too many cells, one point is taken of several cells together, which are a coarser one. `cells`
  /// has a code of each occupied cell of the level, in ascending order.
  void Limit(std::vector<std::uint64_t> cells, unsigned cellLevel, std::size_t most);
  /// Whether the cell of a code has a point that was kept. To be asked in ascending order.
  [[nodiscard]] bool IsKept(std::uint64_t code);

  /// Goes over to the cells of a level, which is coarser than the finest.
  void Start(unsigned cellLevel, std::uint64_t cellCount, std::uint64_t pointCount);
  /// Takes the best candidate of a cell, or not.
  [[nodiscard]] bool Take(std::uint64_t code);

  /// Moves a sample of sorted points to the end of `own`; gives what is left, still in order.
  std::span<CodedPoint> TakeAll(std::span<CodedPoint> points, unsigned cellLevel,
                                std::vector<std::uint64_t>& own);

  /// Codes of everything taken in the node's cell, in this level and above.
  [[nodiscard]] const std::vector<std::uint64_t>& GetTaken() const { return taken_; }

 private:
  std::vector<std::uint64_t> taken_;
  std::vector<std::uint64_t> keptCells_;  ///< ascending
  std::size_t nextKept_ = 0;
  unsigned keptShift_ = 0;
  unsigned limitShift_ = 0;                      ///< of the coarser cells; 0: there is no limit
  std::uint64_t limitCell_ = ~std::uint64_t{0};  ///< the last one that was taken of
  PointSpacing spacing_;
  bool thins_ = false;
};

}  // namespace tarnhost
