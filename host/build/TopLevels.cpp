// Samples the nodes above the pieces, whose cells reach over several of them.
#include "host/build/TopLevels.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <unordered_set>

namespace tarnhost {

namespace {

bool IsNearer(const Candidate& a, const Candidate& b) {
  return std::tie(a.distance, a.code, a.row) < std::tie(b.distance, b.code, b.row);
}

/// Adds a candidate to those of its cell, which are the last ones and in order; at most `most`
/// stay.
void AddToCell(std::vector<Candidate>& candidates, std::size_t cellBegin, std::size_t most,
               const Candidate& candidate) {
  if (candidates.size() - cellBegin == most) {
    if (!IsNearer(candidate, candidates.back())) return;
    candidates.pop_back();
  }
  const auto place = std::upper_bound(candidates.begin() + static_cast<std::ptrdiff_t>(cellBegin),
                                      candidates.end(), candidate, IsNearer);
  candidates.insert(place, candidate);
}

std::vector<Candidate> CandidatesOfLevel(std::span<const CodedPoint> points, unsigned cellLevel,
                                         std::size_t most) {
  std::vector<Candidate> candidates;
  const unsigned shift = 3 * (kMortonBits - cellLevel);
  std::size_t cellBegin = 0;
  for (const CodedPoint& point : points) {
    const Candidate candidate{point.code >> shift, DistanceFromCentre(point.code, cellLevel),
                              point.code, static_cast<std::uint32_t>(point.point)};
    if (candidates.size() > cellBegin && candidates.back().cell != candidate.cell) {
      cellBegin = candidates.size();
    }
    AddToCell(candidates, cellBegin, most, candidate);
  }
  return candidates;
}

/// The cells of a node's level that begin in several pieces, brought together.
struct CellCandidate {
  Candidate candidate;
  std::uint32_t piece;
};

class Taker {
 public:
  Taker(std::span<const Piece> pieces, std::span<const PieceCandidates> candidates,
        const SamplingGrid& grid)
      : pieces_(pieces),
        candidates_(candidates),
        grid_(grid),
        taken_(pieces.size()),
        takenRows_(pieces.size()) {}

  std::vector<std::vector<TakenPoint>> Run() {
    if (!pieces_.empty()) TakeNode(0, 0, 0, pieces_.size(), {});
    return std::move(taken_);
  }

 private:
  /// A node above the pieces [begin, end), or the piece itself.
  void TakeNode(unsigned level, std::uint64_t index, std::size_t begin, std::size_t end,
                std::vector<std::uint64_t> above) {
    if (pieces_[begin].level <= level) return;
    const unsigned cellLevel = std::min(grid_.CellLevel(level), kMortonBits - 1);
    std::uint64_t points = 0;
    for (std::size_t i = begin; i < end; ++i) points += pieces_[i].pointCount - taken_[i].size();
    const std::vector<CellCandidate> best = FindBest(level, begin, end);
    NodeSampler sampler(std::move(above));
    sampler.Start(cellLevel, best.size(), points);
    for (const auto& [candidate, piece] : best) {
      if (!sampler.Take(candidate.code)) continue;
      taken_[piece].push_back({level, candidate.code, candidate.row});
      takenRows_[piece].insert(candidate.row);
    }
    std::array<std::vector<std::uint64_t>, 8> taken;
    for (const std::uint64_t code : sampler.GetTaken()) {
      taken[OctantOf(code, level)].push_back(code);
    }
    for (std::uint64_t octant = 0; octant < 8; ++octant) {
      const std::uint64_t child = index * 8 + octant;
      std::size_t childEnd = begin;
      while (childEnd < end && pieces_[childEnd].CellOf(level + 1) == child) ++childEnd;
      if (childEnd > begin) TakeNode(level + 1, child, begin, childEnd, std::move(taken[octant]));
      begin = childEnd;
    }
  }

  /// The best point that is left in each cell of a node's level, along the Morton curve.
  [[nodiscard]] std::vector<CellCandidate> FindBest(unsigned level, std::size_t begin,
                                                    std::size_t end) const {
    std::vector<CellCandidate> best;
    for (std::size_t piece = begin; piece < end; ++piece) {
      const std::vector<Candidate>& candidates = candidates_[piece][level];
      for (std::size_t i = 0; i < candidates.size();) {
        const std::uint64_t cell = candidates[i].cell;
        bool found = false;
        for (; i < candidates.size() && candidates[i].cell == cell; ++i) {
          if (found || IsTaken(piece, candidates[i].row)) continue;
          found = true;
          AddBest({candidates[i], static_cast<std::uint32_t>(piece)}, best);
        }
      }
    }
    return best;
  }

  /// Small cells lie in one piece; larger ones may reach over several, one behind the other.
  static void AddBest(const CellCandidate& candidate, std::vector<CellCandidate>& best) {
    if (best.empty() || best.back().candidate.cell != candidate.candidate.cell) {
      best.push_back(candidate);
    } else if (IsNearer(candidate.candidate, best.back().candidate)) {
      best.back() = candidate;
    }
  }

  [[nodiscard]] bool IsTaken(std::size_t piece, std::uint32_t row) const {
    return takenRows_[piece].contains(row);
  }

  std::span<const Piece> pieces_;
  std::span<const PieceCandidates> candidates_;
  const SamplingGrid& grid_;
  std::vector<std::vector<TakenPoint>> taken_;
  std::vector<std::unordered_set<std::uint32_t>> takenRows_;
};

}  // namespace

PieceCandidates FindCandidates(const Piece& piece, std::span<const CodedPoint> points,
                               const SamplingGrid& grid) {
  PieceCandidates candidates;
  for (unsigned level = 0; level < piece.level; ++level) {
    const unsigned cellLevel = std::min(grid.CellLevel(level), kMortonBits - 1);
    candidates.push_back(CandidatesOfLevel(points, cellLevel, level + 1));
  }
  return candidates;
}

std::vector<std::vector<TakenPoint>> TopLevels::Take(std::span<const Piece> pieces,
                                                     std::span<const PieceCandidates> candidates,
                                                     const SamplingGrid& grid) {
  return Taker(pieces, candidates, grid).Run();
}

}  // namespace tarnhost
