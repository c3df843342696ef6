// The main stream that a repository had, or would have had, after an earlier update iteration.
#pragma once

#include <OOCPointCloud/ColumnType.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/build/LodBuilder.h"
#include "host/repair/MendSources.h"

namespace tarnhost {

/// Bytes that a stream has behind those that there are of it.
struct AddedBytes {
  std::uint64_t position = 0;
  std::vector<std::uint8_t> bytes;
};

/// A main stream, and what it names that is not in the folder yet.
struct RepositoryState {
  std::vector<std::uint8_t> main;
  std::map<std::string, AddedBytes> added;
  std::vector<LostSource> lostSources;
};

/// Works out from a catalogue and the streams themselves how long each stream was after an
/// iteration. What it gives is a guess until it was verified. One thread.
class EarlierState {
 public:
  /// Keeps a reference to the catalogue.
  EarlierState(std::filesystem::path folder, const OOCPCCatalogue& catalogue)
      : folder_(std::move(folder)), catalogue_(catalogue) {}

  /// Iterations that the catalogue states.
  [[nodiscard]] std::uint64_t CountIterations() const;
  /// False when the record is lost.
  [[nodiscard]] bool ReadIteration(std::uint64_t iteration, OOCPCUpdateIteration& record);
  /// The state with `last` as the last iteration; false when what says so is lost. Its main stream
  /// names of each stream what there is of it, and one that is gone and not empty not at all.
  [[nodiscard]] bool Find(std::uint64_t last, RepositoryState& state);
  /// Adds an iteration with the points of the last one and with other levels of detail. That one
  /// has to be the last of the catalogue, too, so that nothing committed is in the way. False when
  /// it cannot be read, or has no levels of detail.
  [[nodiscard]] bool AddLevels(const BuiltLod& lod, RepositoryState& state);

 private:
  using Lengths = std::map<std::string, std::uint64_t>;

  /// Maps a stream once.
  [[nodiscard]] HRESULT Open(const std::string& name,
                             std::shared_ptr<const OOCPCByteSource>& source);
  /// What there is of a stream's committed bytes.
  [[nodiscard]] std::span<const std::uint8_t> GetBytes(const std::string& name);
  [[nodiscard]] bool CutColumns(std::uint64_t blockCount, Lengths& lengths);
  [[nodiscard]] bool CutColumn(std::uint32_t id, oocpc::ColumnType type, std::uint64_t blockCount,
                               Lengths& lengths);
  [[nodiscard]] std::uint64_t CutDictionary(Lengths& lengths);
  void CutSources(std::uint64_t pointCount, Lengths& lengths, RepositoryState& state);
  void CutToWhatIsThere(Lengths& lengths, RepositoryState& state);

  std::filesystem::path folder_;
  const OOCPCCatalogue& catalogue_;
  std::map<std::string, std::shared_ptr<const OOCPCByteSource>> sources_;
};

}  // namespace tarnhost
