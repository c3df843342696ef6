// Sorts the chunks of a main stream by what becomes of them.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/OOCPointCloudFileHeader.h>

#include "OOCPointCloudTarn/repository/ChunkCompetition.h"

/// Where the sorted chunks go; any pointer may be null, then nothing is kept of that.
struct SortedChunks {
  OOCPCRepositoryInformation* information = nullptr;
  std::array<std::uint8_t, 16>* value16 = nullptr;
  std::vector<OOCIndexChunk>* selected = nullptr;
  std::vector<OOCIndexChunk>* other = nullptr;
  std::array<double, 6>* mortonSeed = nullptr;
};

/// Takes chunk after chunk. The running status is the result of the last eligibility test or of
/// loading the repository information; the caller stops when it turns negative.
class ChunkSorter {
 public:
  /// Zero-fills the two values of fixed size, which stay so unless their chunks turn up.
  explicit ChunkSorter(const SortedChunks& out);

  void Take(OOCIndexChunk&& chunk);
  /// Ends the sorting early.
  void Fail(HRESULT status) { status_ = status; }
  [[nodiscard]] bool HasFailed() const { return status_ < 0; }
  /// Appends the winners to the selected chunks and gives the final status.
  [[nodiscard]] HRESULT Finish();

 private:
  void TakeRepositoryInformation(const OOCIndexChunk& chunk);

  SortedChunks out_;
  HRESULT status_ = 0;
  ChunkCompetition accelerator_;
  ChunkCompetition firstWins_;
  ChunkCompetition updateIterations_;
  ChunkCompetition levelOfDetail_;
  bool value16Seen_ = false;
  bool mortonSeedSeen_ = false;
  bool informationSeen_ = false;
};
