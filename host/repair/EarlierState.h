// The main stream that a repository had, or would have had, after an earlier update iteration.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tarnhost {

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
  /// The main stream with `last` as its last iteration; false when what says so is lost.
  [[nodiscard]] bool EncodeMain(std::uint64_t last, std::vector<std::uint8_t>& main);

 private:
  using Lengths = std::map<std::string, std::uint64_t>;

  /// What there is of a stream's committed bytes.
  [[nodiscard]] std::span<const std::uint8_t> GetBytes(const std::string& name);
  [[nodiscard]] bool CutColumns(std::uint64_t blockCount, Lengths& lengths);
  [[nodiscard]] std::uint64_t CutDictionary(Lengths& lengths);
  void CutSources(std::uint64_t pointCount, Lengths& lengths);

  std::filesystem::path folder_;
  const OOCPCCatalogue& catalogue_;
  std::map<std::string, std::shared_ptr<const OOCPCByteSource>> sources_;
};

}  // namespace tarnhost
