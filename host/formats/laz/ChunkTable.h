// Where the chunks of a LAZ file lie and how many points each has.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/formats/laz/LazLayout.h"

namespace tarnhost::laz {

struct Chunk {
  std::uint64_t offset = 0;  ///< bytes from the start of the file
  std::uint64_t bytes = 0;
  std::uint64_t firstPoint = 0;
  std::uint32_t points = 0;  ///< at least one
};

/// The chunks of a file, in the order of their points, which is that of their places. Chunks
/// without points are left out.
struct ChunkTable {
  std::vector<Chunk> chunks;
  // What the points take of the file; the table is [tableBegin, tableEnd) and may be empty.
  std::uint64_t pointsEnd = 0;
  std::uint64_t tableBegin = 0;
  std::uint64_t tableEnd = 0;
};

/// What a file says about its points.
struct ChunkedPoints {
  std::span<const std::uint8_t> file;
  std::uint64_t pointsOffset = 0;
  std::uint64_t pointCount = 0;
};

/// Reads and checks the chunk table. Where it is missing, because its writer was stopped, the
/// chunks are walked one after the other, which for pointwise ones means decoding them, a run of
/// points at a time. `where` names the file in messages. kScanTruncated, kScanContradictory.
Outcome ReadChunkTable(const LazLayout& layout, const ChunkedPoints& points,
                       const std::string& where, ChunkTable& table);

/// The chunk table as it is stored.
[[nodiscard]] std::vector<std::uint8_t> EncodeChunkTable(const LazLayout& layout,
                                                         std::span<const Chunk> chunks);

}  // namespace tarnhost::laz
