// Samples the nodes above the pieces, whose cells reach over several of them.
#include "host/build/TopLevels.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

namespace tarnhost {

namespace {

/// Of one piece: among equally near points the earlier one along the curve.
bool IsNearer(const Candidate& a, const Candidate& b) {
  return std::tie(a.distance, a.index) < std::tie(b.distance, b.index);
}

/// Collects the best candidates of one level, cell after cell.
class LevelCollector {
 public:
  /// At most `most` of a cell stay.
  LevelCollector(unsigned cellLevel, std::size_t most)
      : cellLevel_(cellLevel), shift_(3 * (kMortonBits - cellLevel)), most_(most) {}

  /// Points along the curve, the first of which is the one at `index` of all.
  void Add(std::span<const CodedPoint> points, std::uint32_t index) {
    std::array<std::uint64_t, kBatch> distances;
    DistancesFromCentre(points, cellLevel_, std::span(distances).first(points.size()));
    for (std::size_t i = 0; i < points.size(); ++i) {
      const std::uint64_t cell = points[i].code >> shift_;
      if (cell != cell_) {
        cell_ = cell;
        cellBegin_ = candidates_.size();
        enough_ = ~std::uint64_t{0};
      }
      // Among equally near points the earlier ones stay.
      if (distances[i] < enough_) {
        Insert({points[i].code, distances[i], index + static_cast<std::uint32_t>(i)});
      }
    }
  }
  [[nodiscard]] LevelCandidates Take() { return std::move(candidates_); }

  static constexpr std::size_t kBatch = 512;

 private:
  void Insert(const Candidate& candidate) {
    if (candidates_.size() - cellBegin_ == most_) candidates_.pop_back();
    const auto cell = candidates_.begin() + static_cast<std::ptrdiff_t>(cellBegin_);
    candidates_.insert(std::upper_bound(cell, candidates_.end(), candidate, IsNearer), candidate);
    if (candidates_.size() - cellBegin_ == most_) enough_ = candidates_.back().distance;
  }

  unsigned cellLevel_;
  unsigned shift_;
  std::size_t most_;
  LevelCandidates candidates_;
  std::uint64_t cell_ = ~std::uint64_t{0};
  std::size_t cellBegin_ = 0;
  std::uint64_t enough_ = 0;  ///< from this distance on a point is no candidate
};

unsigned CellLevelOf(const SamplingGrid& grid, unsigned level) {
  // On the finest cells there is nothing to keep apart.
  return std::min(grid.CellLevel(level), kMortonBits - 1);
}

}  // namespace

std::vector<LevelCandidates> FindCandidates(const Piece& piece, std::span<const CodedPoint> points,
                                            const SamplingGrid& grid) {
  std::vector<LevelCollector> levels;
  for (unsigned level = 0; level < piece.level; ++level) {
    levels.emplace_back(CellLevelOf(grid, level), level + 1);
  }
  for (std::size_t begin = 0; begin < points.size(); begin += LevelCollector::kBatch) {
    const auto batch =
        points.subspan(begin, std::min(LevelCollector::kBatch, points.size() - begin));
    for (LevelCollector& level : levels) level.Add(batch, static_cast<std::uint32_t>(begin));
  }
  std::vector<LevelCandidates> candidates(levels.size());
  std::ranges::transform(levels, candidates.begin(),
                         [](LevelCollector& level) { return level.Take(); });
  return candidates;
}

std::vector<LevelCandidates> CandidatesOfEqualPoints(const Piece& piece, const SamplingGrid& grid) {
  const std::uint64_t code = piece.indexInLevel << (3 * (kMortonBits - piece.level));
  std::vector<LevelCandidates> candidates(piece.level);
  for (unsigned level = 0; level < piece.level; ++level) {
    const std::uint64_t distance = DistanceFromCentre(code, CellLevelOf(grid, level));
    const std::uint64_t count = std::min<std::uint64_t>(level + 1, piece.pointCount);
    for (std::uint32_t index = 0; index < count; ++index) {
      candidates[level].push_back({code, distance, index});
    }
  }
  return candidates;
}

Outcome CandidateStore::Put(std::size_t piece, std::span<const LevelCandidates> candidates) {
  std::vector<Level>& levels = levels_[piece];
  for (const LevelCandidates& level : candidates) {
    Level kept;
    kept.count = level.size();
    if (file_) {
      const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(level.data()),
                                                level.size() * sizeof(Candidate));
      if (Outcome outcome = file_->Append(bytes, kept.offset); !outcome.Ok()) return outcome;
    } else {
      kept.candidates = level;
    }
    levels.push_back(std::move(kept));
  }
  return Outcome::Success();
}

Outcome CandidateStore::Get(std::size_t piece, unsigned level, LevelCandidates& candidates) const {
  const Level& kept = levels_[piece][level];
  if (!file_) {
    candidates = kept.candidates;
    return Outcome::Success();
  }
  candidates.resize(kept.count);
  return file_->Read(kept.offset, {reinterpret_cast<std::uint8_t*>(candidates.data()),
                                   kept.count * sizeof(Candidate)});
}

Outcome TopLevels::Next(std::vector<TakenPoint>& taken, std::vector<std::uint64_t>& above) {
  const std::size_t piece = next_++;
  while (!open_.empty() && open_.back().end <= piece) open_.pop_back();
  if (open_.empty() && pieces_[piece].level > 0) {
    if (Outcome outcome = Open(0, 0, piece, pieces_.size(), {}); !outcome.Ok()) return outcome;
  }
  // Down to the node that the piece is a child of.
  while (!open_.empty() && open_.back().level + 1 < pieces_[piece].level) {
    Node& parent = open_.back();
    const unsigned level = parent.level + 1;
    const std::uint64_t child = pieces_[piece].CellOf(level);
    std::size_t end = piece;
    while (end < parent.end && pieces_[end].level >= level && pieces_[end].CellOf(level) == child) {
      ++end;
    }
    Outcome outcome = Open(level, child, piece, end, std::move(parent.taken[child & 7u]));
    if (!outcome.Ok()) return outcome;
  }
  taken = std::move(taken_[piece]);
  taken_[piece] = {};
  above.clear();
  if (!open_.empty()) above = std::move(open_.back().taken[pieces_[piece].indexInLevel & 7u]);
  return Outcome::Success();
}

/// Samples a node above the pieces [begin, end).
Outcome TopLevels::Open(unsigned level, std::uint64_t index, std::size_t begin, std::size_t end,
                        std::vector<std::uint64_t> above) {
  std::uint64_t points = 0;
  for (std::size_t i = begin; i < end; ++i) points += pieces_[i].pointCount - taken_[i].size();
  std::vector<CellCandidate> best;
  if (Outcome outcome = FindBest(level, begin, end, best); !outcome.Ok()) return outcome;
  NodeSampler sampler(std::move(above));
  const unsigned cellLevel = CellLevelOf(grid_, level);
  if (existing_ != nullptr) {
    const std::uint32_t kept = existing_->FindInner(level, index);
    if (kept != ExistingTree::kNone) {
      sampler.Keep(existing_->ReadOwn(kept), cellLevel);
    }
    std::vector<CodedPoint> cells(best.size());
    std::ranges::transform(best, cells.begin(), [](const CellCandidate& cell) {
      return CodedPoint{cell.candidate.code, 0};
    });
    sampler.Limit(cells, cellLevel, OctreePlan::kNodeCapacity);
  }
  sampler.Start(cellLevel, best.size(), points);
  for (const auto& [candidate, piece] : best) {
    if (sampler.Take(candidate.code)) {
      taken_[piece].push_back({level, candidate.code, candidate.index});
    }
  }
  Node node{level, index, begin, end, {}};
  for (const std::uint64_t code : sampler.GetTaken()) {
    node.taken[OctantOf(code, level)].push_back(code);
  }
  open_.push_back(std::move(node));
  return Outcome::Success();
}

/// The best point that is left in each cell of a node's level, along the Morton curve. Small cells
/// lie in one piece; larger ones may reach over several, one behind the other.
Outcome TopLevels::FindBest(unsigned level, std::size_t begin, std::size_t end,
                            std::vector<CellCandidate>& best) const {
  const unsigned shift = 3 * (kMortonBits - CellLevelOf(grid_, level));
  LevelCandidates candidates;
  for (std::size_t piece = begin; piece < end; ++piece) {
    Outcome outcome = candidates_.Get(piece, level, candidates);
    if (!outcome.Ok()) return outcome;
    std::vector<bool> isTaken(candidates.empty() ? 0 : pieces_[piece].pointCount);
    for (const TakenPoint& point : taken_[piece]) isTaken[point.index] = true;
    for (std::size_t i = 0; i < candidates.size();) {
      const std::uint64_t cell = candidates[i].code >> shift;
      bool found = false;
      for (; i < candidates.size() && candidates[i].code >> shift == cell; ++i) {
        if (found || isTaken[candidates[i].index]) continue;
        found = true;
        if (best.empty() || best.back().candidate.code >> shift != cell) {
          best.push_back({candidates[i], static_cast<std::uint32_t>(piece)});
        } else if (std::tie(candidates[i].distance, candidates[i].code) <
                   std::tie(best.back().candidate.distance, best.back().candidate.code)) {
          best.back() = {candidates[i], static_cast<std::uint32_t>(piece)};
        }
      }
    }
  }
  return Outcome::Success();
}

}  // namespace tarnhost
