// Decodes and encodes whole chunks of points. Chunks know nothing of each other.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/formats/laz/LazLayout.h"

namespace tarnhost::laz {

/// Parts of a point that a reader of layered chunks may leave out. X and Y are always read.
enum Part : std::uint32_t {
  kPartZ = 1u << 0,
  kPartClassification = 1u << 1,
  kPartFlags = 1u << 2,
  kPartIntensity = 1u << 3,
  kPartScanAngle = 1u << 4,
  kPartUserData = 1u << 5,
  kPartPointSource = 1u << 6,
  kPartGpsTime = 1u << 7,
  kPartColor = 1u << 8,
  kPartNir = 1u << 9,
  kPartWavePacket = 1u << 10,
  kPartExtraBytes = 1u << 11,
  kAllParts = (1u << 12) - 1,
};

/// The compressed bytes of a chunk.
struct ChunkBytes {
  std::span<const std::uint8_t> bytes;  ///< from the chunk's first byte on; may go on behind it
  std::size_t chunkBytes = 0;           ///< of them, those of the chunk
};

/// True when a chunk of so many bytes can hold so many points at all: a symbol of a model that is
/// as sure as a model can be takes 1/361 bit, and a point takes a few.
[[nodiscard]] bool CanHold(const LazLayout& layout, std::uint64_t chunkBytes, std::uint64_t points);

/// How many points a run has that is decoded by itself: about a mebibyte of records, so that
/// memory does not grow with the chunks that a file states.
[[nodiscard]] std::uint32_t CountRunPoints(const LazLayout& layout);

/// Keeps the memory of its models from chunk to chunk. One thread at a time.
class ChunkDecoder {
 public:
  explicit ChunkDecoder(const LazLayout& layout);
  ChunkDecoder(ChunkDecoder&&) noexcept;
  ~ChunkDecoder();

  /// Writes the records of all points of a chunk to `records`; at least one. Parts that are left
  /// out, which only layered chunks can, are as in the chunk's first point. False when the chunk is
  /// damaged, which leaves any bytes in the records.
  [[nodiscard]] bool Decode(const ChunkBytes& chunk, std::uint32_t points, std::uint8_t* records,
                            std::uint32_t parts = kAllParts);

  // The same in runs: Begin(), DecodeRun() until all points are there, IsComplete(). Once one of
  // them is false, the chunk is damaged and must not be gone on with.

  /// Begins a chunk of so many points, at least one. Its bytes must stay until its last run.
  [[nodiscard]] bool Begin(const ChunkBytes& chunk, std::uint32_t points,
                           std::uint32_t parts = kAllParts);
  /// Writes the records of the next `count` points, which must be there, to `records`.
  [[nodiscard]] bool DecodeRun(std::uint32_t count, std::uint8_t* records);
  /// Whether the points decoded take all bytes of the chunk.
  [[nodiscard]] bool IsComplete() const;

  /// How many of `bytes` a pointwise chunk of so many points takes, which only decoding it tells.
  /// Takes memory for a run of points, and ends with the first run that is damaged.
  [[nodiscard]] bool MeasurePointwise(std::span<const std::uint8_t> bytes, std::uint32_t points,
                                      std::uint64_t& chunkBytes);

 private:
  struct State;
  LazLayout layout_;
  std::unique_ptr<State> state_;
};

/// Where a layered chunk ends, and how many points it has, without decoding it. False when the
/// bytes end before.
[[nodiscard]] bool MeasureLayeredChunk(const LazLayout& layout, std::span<const std::uint8_t> bytes,
                                       std::uint32_t& points, std::uint64_t& chunkBytes);

/// Keeps the memory of its models from chunk to chunk. One thread at a time.
class ChunkEncoder {
 public:
  explicit ChunkEncoder(const LazLayout& layout);
  ChunkEncoder(ChunkEncoder&&) noexcept;
  ~ChunkEncoder();

  /// Replaces `chunk` by the compressed records, at least one, of the layout's size each.
  void Encode(std::span<const std::uint8_t> records, std::vector<std::uint8_t>& chunk);

 private:
  struct State;
  LazLayout layout_;
  std::unique_ptr<State> state_;
};

}  // namespace tarnhost::laz
