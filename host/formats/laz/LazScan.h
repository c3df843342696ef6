// A LAZ file opened as a scan; COPC files are LAZ files.
#pragma once

#include <memory>
#include <vector>

#include "host/common/ScratchBytes.h"
#include "host/formats/LasBasedScan.h"
#include "host/formats/laz/ChunkCoder.h"
#include "host/formats/laz/ChunkTable.h"

namespace tarnhost {

/// A memory-mapped, checked LAZ file. It shows itself as the LAS file that it would be without
/// compression: so its leading and trailing bytes and its header say. Const operations are safe
/// from several threads at once.
///
/// Points are read chunk by chunk with DecodeChunk, or, after Prepare(), in any order.
class LazScan final : public LasBasedScan {
 public:
  static Outcome Open(const std::filesystem::path& path, std::unique_ptr<LazScan>& scan);
  /// The same of a file that is mapped already.
  static Outcome Open(const std::filesystem::path& path,
                      std::shared_ptr<const OOCPCByteSource> bytes, std::unique_ptr<LazScan>& scan);
  /// True for a LAS file whose point format says that its points are compressed.
  [[nodiscard]] static bool IsCompressed(std::span<const std::uint8_t> file);

  [[nodiscard]] const laz::LazLayout& GetLazLayout() const { return lazLayout_; }
  [[nodiscard]] const std::vector<laz::Chunk>& GetChunks() const { return table_.chunks; }

  /// Writes the records of all points of a chunk, GetRecordBytes() bytes each, to `records`. Of
  /// point formats 6 to 10, parts may be left out: see ChunkDecoder. kScanContradictory for a
  /// damaged chunk.
  Outcome DecodeChunk(std::size_t chunk, laz::ChunkDecoder& decoder, std::uint8_t* records,
                      std::uint32_t parts = laz::kAllParts) const;

  /// Decodes all chunks, on all cores, into memory or into a temporary file; beside these, it takes
  /// memory for a run of points on each core. DecodeChunk's failure for the first chunk that is
  /// damaged, and those of ScratchBytes; kStopped.
  Outcome Prepare(ScanWorkspace& workspace) override;
  [[nodiscard]] std::uint64_t GetScratchBytes() const override {
    return GetPointCount() * GetRecordBytes();
  }
  void Release() override { records_.reset(); }
  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override;
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override;
  /// Those that Prepare() made.
  [[nodiscard]] std::span<const std::uint8_t> GetMappedRecords() const override;
  [[nodiscard]] std::span<const std::uint8_t> GetLeadingBytes() const override { return leading_; }
  [[nodiscard]] std::span<const std::uint8_t> GetTrailingBytes() const override {
    return trailing_;
  }

 private:
  LazScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes)
      : LasBasedScan(std::move(path), std::move(bytes)) {}
  Outcome Load();
  Outcome LoadLayout(const LasHeader& compressed);
  void Uncompress(const LasHeader& compressed);
  void TakeTrailing();
  [[nodiscard]] laz::ChunkBytes GetBytesOf(const laz::Chunk& chunk) const;
  Outcome EndChunk(std::size_t chunk, bool sound) const;
  /// By way of `run`, of a few points of the chunk at a time, where the scratch is a file.
  Outcome DecodeIntoScratch(std::size_t chunk, laz::ChunkDecoder& decoder,
                            std::vector<std::uint8_t>& run);

  laz::LazLayout lazLayout_;
  laz::ChunkTable table_;
  std::vector<std::uint8_t> leading_;
  std::span<const std::uint8_t> trailing_;
  std::vector<std::uint8_t> ownTrailing_;  ///< when it is not one run of bytes of the file
  std::unique_ptr<ScratchBytes> records_;
};

}  // namespace tarnhost
