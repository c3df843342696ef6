// Keeps the records of pieces until they are built: in memory, or in a temporary file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// Records are appended piece by piece by one thread; when all are there, pieces may be loaded from
/// several threads at once.
class PieceStore {
 public:
  PieceStore() = default;
  PieceStore(const PieceStore&) = delete;
  PieceStore& operator=(const PieceStore&) = delete;
  virtual ~PieceStore() = default;

  virtual Outcome Append(std::uint32_t piece, std::span<const std::uint8_t> records) = 0;
  /// After the last Append.
  virtual Outcome Finish() = 0;
  /// The records of a piece in the order in which they were appended: the store's own, or read into
  /// `scratch`. Valid until either changes.
  virtual Outcome Load(std::uint32_t piece, std::vector<std::uint8_t>& scratch,
                       std::span<const std::uint8_t>& records) const = 0;
  /// Gives back what a piece takes; it is not loaded again.
  virtual void Drop(std::uint32_t piece) = 0;
};

/// In memory. `expectedBytes` are those that each piece is going to have.
[[nodiscard]] std::unique_ptr<PieceStore> MakeMemoryPieceStore(
    std::vector<std::size_t> expectedBytes);

/// In one temporary file below `folder`, which is written from start to end and goes with the
/// store. Each piece gathers up to `bufferBytes` in memory before they are written.
Outcome MakeFilePieceStore(const std::filesystem::path& folder, std::size_t pieceCount,
                           std::size_t bufferBytes, std::unique_ptr<PieceStore>& store);

}  // namespace tarnhost
