// Keeps the points of pieces until they are built: in memory, or in a temporary file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "host/build/PieceTree.h"
#include "host/build/PointCoder.h"
#include "host/build/PointSet.h"
#include "host/build/RecordView.h"
#include "host/build/Sorting.h"
#include "host/common/Outcome.h"
#include "host/common/TemporaryFile.h"

namespace tarnhost {

/// A piece while it is worked on.
struct LoadedPiece {
  /// Along the Morton curve; equal codes in the order of the scans. Their numbers are rows of
  /// `records`. May be changed.
  std::span<CodedPoint> points;
  RecordView records;

  // Memory that the two above may lie in.
  std::unique_ptr<CodedPoint[]> ownPoints;
  std::unique_ptr<std::uint8_t[]> ownRecords;
};

/// Pieces may be loaded from several threads at once, each by one.
class PieceStore {
 public:
  PieceStore() = default;
  PieceStore(const PieceStore&) = delete;
  PieceStore& operator=(const PieceStore&) = delete;
  virtual ~PieceStore() = default;

  /// The points of a piece. Valid until the piece is loaded again or the store goes.
  virtual Outcome Load(std::uint32_t piece, LoadedPiece& loaded) = 0;
};

/// Points by pieces in memory, over records that lie there already.
class MemoryPieceStore final : public PieceStore {
 public:
  /// Deals the points: `codes` has one for each. The records have to outlive the store.
  MemoryPieceStore(std::span<const std::uint64_t> codes, const PieceTree& pieces,
                   RecordView records);

  Outcome Load(std::uint32_t piece, LoadedPiece& loaded) override;

 private:
  RecordView records_;
  std::unique_ptr<CodedPoint[]> points_;
  std::vector<std::uint64_t> begins_;   ///< of each piece in points_, and the end of the last
  std::vector<std::uint8_t> isSorted_;  ///< of each piece
};

/// Points in one temporary file, which is written from start to end: chunks of records of one
/// piece, without the bytes that those of a chunk share.
class FilePieceStore final : public PieceStore {
 public:
  /// Each piece gathers up to `bufferBytes` in memory before they are written.
  FilePieceStore(std::unique_ptr<TemporaryFile> file, std::size_t pieceCount,
                 std::size_t recordBytes, std::size_t bufferBytes, const PointCoder& coder);

  /// Records of a piece, from one thread at a time.
  Outcome Append(std::uint32_t piece, std::span<const std::uint8_t> records);
  /// After the last Append.
  Outcome Finish();

  Outcome Load(std::uint32_t piece, LoadedPiece& loaded) override;
  /// Reads records of a piece, as many as `out` has room for, in the order in which they came.
  Outcome ReadRecords(std::uint32_t piece, std::uint64_t first, std::span<std::uint8_t> out) const;

 private:
  struct Chunk {
    std::uint64_t offset;   ///< in the file
    std::uint32_t bytes;    ///< in the file: as many as the records have, or less when packed
    std::uint32_t records;  ///< that are in it
  };

  Outcome Flush(std::uint32_t piece);
  void ReadAhead(std::uint32_t piece) const;
  /// Reads the records [first, first + ...) of a chunk, as many as `out` has room for.
  Outcome ReadChunk(const Chunk& chunk, std::uint64_t first, std::span<std::uint8_t> out) const;

  std::unique_ptr<TemporaryFile> file_;
  std::size_t recordBytes_;
  std::size_t bufferBytes_;
  PointCoder coder_;
  std::vector<std::vector<std::uint8_t>> buffers_;
  std::vector<std::uint8_t> packed_;  ///< scratch of Flush
  std::vector<std::vector<Chunk>> chunks_;
};

/// Deals all points of a set to the pieces of a store in a file, `rowPoints` at once. `report` is
/// told how many are dealt; false stops (kStopped).
Outcome DealIntoFile(const PointSet& points, const PieceTree& pieces, const PointCoder& coder,
                     std::uint64_t rowPoints, const std::function<bool(std::uint64_t)>& report,
                     FilePieceStore& store);

}  // namespace tarnhost
