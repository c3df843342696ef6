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
        Insert({points[i].code, distances[i], index + static_cast<std::uint32_t>(i), 0});
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

/// The candidates for the levels [begin, end).
std::vector<LevelCandidates> FindCandidates(std::span<const CodedPoint> points, unsigned begin,
                                            unsigned end, const SamplingGrid& grid) {
  std::vector<LevelCollector> levels;
  for (unsigned level = begin; level < end; ++level) {
    levels.emplace_back(CellLevelOf(grid, level), level + 1);
  }
  for (std::size_t at = 0; at < points.size(); at += LevelCollector::kBatch) {
    const auto batch = points.subspan(at, std::min(LevelCollector::kBatch, points.size() - at));
    for (LevelCollector& level : levels) level.Add(batch, static_cast<std::uint32_t>(at));
  }
  std::vector<LevelCandidates> candidates(levels.size());
  std::ranges::transform(levels, candidates.begin(),
                         [](LevelCollector& level) { return level.Take(); });
  return candidates;
}

/// Points without the first ones of each code, which a former root holds on to.
struct UnheldPoints {
  std::vector<CodedPoint> points;
  std::vector<std::uint32_t> places;  ///< of each among all
};

UnheldPoints FindUnheld(const Piece& piece, std::span<const CodedPoint> points,
                        const ExistingTree& existing) {
  UnheldPoints unheld;
  HeldPoints held(existing, piece.level, piece.indexInLevel);
  for (std::uint32_t i = 0; i < points.size(); ++i) {
    if (held.Holds(points[i].code)) continue;
    unheld.points.push_back(points[i]);
    unheld.places.push_back(i);
  }
  return unheld;
}

}  // namespace

std::vector<LevelCandidates> FindCandidates(const Piece& piece, std::span<const CodedPoint> points,
                                            const SamplingGrid& grid,
                                            const ExistingTree* existing) {
  if (existing == nullptr || existing->CountHeldIn(piece.level, piece.indexInLevel) == 0) {
    std::vector<LevelCandidates> candidates = FindCandidates(points, 0, piece.level, grid);
    for (LevelCandidates& level : candidates) {
      for (Candidate& candidate : level) candidate.unheld = Candidate::kAll;
    }
    return candidates;
  }
  const unsigned growth = existing->GetGrowth();
  const UnheldPoints unheld = FindUnheld(piece, points, *existing);
  std::vector<LevelCandidates> candidates = FindCandidates(points, 0, growth, grid);
  for (LevelCandidates& level : candidates) {
    for (Candidate& candidate : level) {
      const auto first =
          std::ranges::lower_bound(unheld.points, candidate.code, {}, &CodedPoint::code);
      const auto last = std::find_if(first, unheld.points.end(), [&](const CodedPoint& point) {
        return point.code != candidate.code;
      });
      candidate.unheld = static_cast<std::uint32_t>(last - first);
    }
  }
  for (LevelCandidates& level : FindCandidates(unheld.points, growth, piece.level, grid)) {
    for (Candidate& candidate : level) {
      candidate.index = unheld.places[candidate.index];
      candidate.unheld = Candidate::kAll;
    }
    candidates.push_back(std::move(level));
  }
  return candidates;
}

std::vector<LevelCandidates> CandidatesOfEqualPoints(const Piece& piece, const SamplingGrid& grid,
                                                     const ExistingTree* existing) {
  const std::uint64_t code = piece.indexInLevel << (3 * (kMortonBits - piece.level));
  const std::uint64_t held =
      existing == nullptr ? 0 : existing->CountHeld(code, piece.level, piece.indexInLevel);
  const unsigned growth = existing == nullptr ? 0 : existing->GetGrowth();
  std::vector<LevelCandidates> candidates(piece.level);
  for (unsigned level = 0; level < piece.level; ++level) {
    const std::uint64_t distance = DistanceFromCentre(code, CellLevelOf(grid, level));
    const std::uint64_t first = level < growth ? 0 : held;
    const std::uint64_t end = std::min<std::uint64_t>(first + level + 1, piece.pointCount);
    const auto unheld = level < growth && held > 0
                            ? static_cast<std::uint32_t>(piece.pointCount - held)
                            : Candidate::kAll;
    for (std::uint64_t index = first; index < end; ++index) {
      candidates[level].push_back({code, distance, static_cast<std::uint32_t>(index), unheld});
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

/// A code of each cell.
std::vector<std::uint64_t> TopLevels::ListCells(std::span<const CellCandidate> best) {
  std::vector<std::uint64_t> cells(best.size());
  std::ranges::transform(best, cells.begin(),
                         [](const CellCandidate& cell) { return cell.candidate.code; });
  return cells;
}

/// Samples a node above the pieces [begin, end).
Outcome TopLevels::Open(unsigned level, std::uint64_t index, std::size_t begin, std::size_t end,
                        std::vector<std::uint64_t> above) {
  std::uint64_t points = 0;
  for (std::size_t i = begin; i < end; ++i) points += CountLeft(i, level);
  std::vector<CellCandidate> best;
  if (Outcome outcome = FindBest(level, begin, end, best); !outcome.Ok()) return outcome;
  NodeSampler sampler(std::move(above));
  const unsigned cellLevel = CellLevelOf(grid_, level);
  if (existing_ != nullptr) {
    const std::uint32_t kept = existing_->FindInner(level, index);
    if (kept != ExistingTree::kNone) {
      sampler.Keep(existing_->ReadOwn(kept), cellLevel);
    }
    sampler.Limit(ListCells(best), cellLevel, OctreePlan::kNodeCapacity);
  } else if (best.size() > OctreePlan::kMostSamples) {
    sampler.Limit(ListCells(best), cellLevel, OctreePlan::kMostSamples);
  }
  sampler.Start(cellLevel, best.size(), points);
  for (const auto& [candidate, piece] : best) {
    if (sampler.Take(candidate.code)) {
      taken_[piece].push_back({level, candidate.code, candidate.index, candidate.unheld});
    }
  }
  Node node{level, index, begin, end, {}};
  for (const std::uint64_t code : sampler.GetTaken()) {
    node.taken[OctantOf(code, level)].push_back(code);
  }
  open_.push_back(std::move(node));
  return Outcome::Success();
}

/// The points of a code that a former root holds on to are the first ones, of those that the nodes
/// above it have left: as many others of that code as these have taken. By code, for a node at a
/// level from that root's on.
std::unordered_map<std::uint64_t, std::uint32_t> TopLevels::CountHeldInstead(std::size_t piece,
                                                                             unsigned level) const {
  std::unordered_map<std::uint64_t, std::uint32_t> counts;
  if (!IsBelowFormerRoot(level)) return counts;
  for (const TakenPoint& point : taken_[piece]) {
    if (point.level >= existing_->GetGrowth() || point.unheld == Candidate::kAll) continue;
    std::uint32_t& count = counts[point.code];
    count = std::min(count + 1, point.unheld);
  }
  return counts;
}

/// The points of a piece that a node of a level may take.
std::uint64_t TopLevels::CountLeft(std::size_t piece, unsigned level) const {
  std::uint64_t left = pieces_[piece].pointCount;
  if (!IsBelowFormerRoot(level)) return left - taken_[piece].size();
  left -= existing_->CountHeldIn(pieces_[piece].level, pieces_[piece].indexInLevel);
  for (const TakenPoint& point : taken_[piece]) {
    const bool mayBeHeld = point.level < existing_->GetGrowth() && point.unheld != Candidate::kAll;
    if (!mayBeHeld) --left;
  }
  for (const auto& [code, count] : CountHeldInstead(piece, level)) left -= count;
  return left;
}

/// Room that is not used takes no memory, but a vector that grows is there twice.
void TopLevels::MakeRoom(unsigned level, std::size_t begin, std::size_t end,
                         std::vector<CellCandidate>& best) const {
  const std::size_t cells = std::size_t{1} << (3 * (CellLevelOf(grid_, level) - level));
  std::size_t candidates = 0;
  for (std::size_t piece = begin; piece < end; ++piece) {
    candidates += candidates_.Count(piece, level);
  }
  best.reserve(std::min(cells, candidates));
}

/// The best point that is left in each cell of a node's level, along the Morton curve. Small cells
/// lie in one piece; larger ones may reach over several, one behind the other.
Outcome TopLevels::FindBest(unsigned level, std::size_t begin, std::size_t end,
                            std::vector<CellCandidate>& best) const {
  const unsigned shift = 3 * (kMortonBits - CellLevelOf(grid_, level));
  MakeRoom(level, begin, end, best);
  LevelCandidates candidates;
  for (std::size_t piece = begin; piece < end; ++piece) {
    Outcome outcome = candidates_.Get(piece, level, candidates);
    if (!outcome.Ok()) return outcome;
    if (candidates.empty()) continue;
    std::vector<bool> isTaken(pieces_[piece].pointCount);
    for (const TakenPoint& point : taken_[piece]) isTaken[point.index] = true;
    std::unordered_map<std::uint64_t, std::uint32_t> held = CountHeldInstead(piece, level);
    for (std::size_t i = 0; i < candidates.size();) {
      const std::uint64_t cell = candidates[i].code >> shift;
      bool found = false;
      for (; i < candidates.size() && candidates[i].code >> shift == cell; ++i) {
        if (const auto instead = held.find(candidates[i].code);
            instead != held.end() && instead->second > 0) {
          --instead->second;
          continue;
        }
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
