// Chunks of one kind compete: one is kept, the others lose.
#pragma once

#include <OOCPointCloud/OOCPointCloudFileHeader.h>

#include <utility>
#include <vector>

/// The chunk of one competing kind that is kept so far; empty at the start and after an empty
/// winner.
class ChunkCompetition {
 public:
  [[nodiscard]] const OOCIndexChunk& GetKept() const { return kept_; }
  [[nodiscard]] OOCIndexChunk TakeKept() { return std::move(kept_); }

  /// Lets a candidate compete by the rules of `Kind`: its IsEligibleChunk decides whether the
  /// candidate takes part (0), and that result is returned; the higher type wins; CompareChunks
  /// settles everything else. The loser goes to `losers` unless that is null or the loser is empty.
  template <typename Kind>
  [[nodiscard]] HRESULT Enter(OOCIndexChunk&& candidate, std::vector<OOCIndexChunk>* losers) {
    const HRESULT eligible = Kind::IsEligibleChunk(candidate.Describe());
    if (eligible == 0 && IsPreferred<Kind>(candidate)) std::swap(kept_, candidate);
    AppendLoser(std::move(candidate), losers);
    return eligible;
  }

  /// Lets a candidate compete where the first chunk wins.
  void EnterFirstWins(OOCIndexChunk&& candidate, std::vector<OOCIndexChunk>* losers) {
    if (kept_.IsEmpty() || kept_.type < oocpc::chunk_type::kStringRepository) {
      std::swap(kept_, candidate);
    }
    AppendLoser(std::move(candidate), losers);
  }

 private:
  template <typename Kind>
  [[nodiscard]] bool IsPreferred(const OOCIndexChunk& candidate) const {
    return kept_.IsEmpty() || kept_.type < candidate.type ||
           Kind::CompareChunks(kept_.Describe(), candidate.Describe());
  }

  static void AppendLoser(OOCIndexChunk&& loser, std::vector<OOCIndexChunk>* losers) {
    if (losers != nullptr && !loser.IsEmpty()) losers->push_back(std::move(loser));
  }

  OOCIndexChunk kept_;
};
