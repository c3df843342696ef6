// LAZ files out of LAS files, chunk by chunk as a test wants them, in memory.
#pragma once

#include <cstdint>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/LasFrame.h"
#include "host/formats/laz/ChunkCoder.h"
#include "host/formats/laz/ChunkTable.h"
#include "tests/support/LasBuilder.h"

namespace oocpctest {

/// How a file is compressed.
struct LazOptions {
  /// Points of each chunk; the last one goes on to the end. With `variable`, any sizes.
  std::vector<std::uint32_t> chunks{50000};
  bool variable = false;
  unsigned version = 0;  ///< of layered items; 0: the usual one
  enum Table { kUsual, kAtTheEnd, kMissing } table = kUsual;
};

/// A LAZ file, and where its parts are.
struct LazFile {
  std::vector<std::uint8_t> bytes;
  std::size_t pointsOffset = 0;
  std::vector<tarnhost::laz::Chunk> chunks;
  std::size_t tableAt = 0;
};

/// A scan whose points differ little from one to the next, with jumps, in several channels.
inline std::vector<std::uint8_t> SmoothScan(unsigned format, std::uint32_t count,
                                            std::size_t extraBytes = 0) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = count;
  builder.extraBytes = extraBytes;
  builder.records.push_back({"someone", 7, std::vector<std::uint8_t>(33, 1)});
  builder.extendedRecords.push_back({"someone else", 9, std::vector<std::uint8_t>(70, 2)});
  std::vector<std::uint8_t> file = builder.Build();
  const auto at = LasBuilder::Get<std::uint32_t>(file, 96);
  const std::size_t stride = builder.PointBytes();
  std::mt19937 random(format);
  for (std::uint32_t i = 1; i < count; ++i) {
    std::uint8_t* record = file.data() + at + i * stride;
    if (random() % 50 == 0) continue;  // stays random
    std::memcpy(record, record - stride, stride);
    for (std::size_t axis = 0; axis < 3; ++axis) record[4 * axis] ^= random() % 256;
    record[12 + random() % (stride - 12)] ^= static_cast<std::uint8_t>(1u << random() % 8);
  }
  return file;
}

/// Compresses a LAS file that is sound.
inline LazFile CompressLas(const std::vector<std::uint8_t>& las, const LazOptions& options = {}) {
  namespace laz = tarnhost::laz;
  tarnhost::LasHeader header;
  LazFile file;
  if (!tarnhost::ParseLasHeader(las, "test", header).Ok()) return file;
  laz::LazLayout layout =
      laz::LazLayoutFor(header.pointFormat, header.pointBytes,
                        options.variable ? laz::kVariableChunks : options.chunks.front());
  if (options.version != 0) layout.version = options.version;
  file.bytes = tarnhost::CompressLeadingBytes(las, header, layout);
  file.pointsOffset = file.bytes.size();
  oocpc::AppendLittleEndian(file.bytes, std::uint64_t{file.pointsOffset});
  laz::ChunkEncoder encoder(layout);
  std::vector<std::uint8_t> chunk;
  for (std::uint64_t first = 0; first < header.pointCount;) {
    const std::size_t index = std::min(file.chunks.size(), options.chunks.size() - 1);
    const auto points = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(options.chunks[index], header.pointCount - first));
    const std::span<const std::uint8_t> records(
        las.data() + header.pointsOffset + first * header.pointBytes,
        std::size_t{points} * header.pointBytes);
    encoder.Encode(records, chunk);
    file.chunks.push_back({file.bytes.size(), chunk.size(), first, points});
    file.bytes.insert(file.bytes.end(), chunk.begin(), chunk.end());
    first += points;
  }
  file.tableAt = file.bytes.size();
  if (options.table != LazOptions::kMissing) {
    const auto table = laz::EncodeChunkTable(layout, file.chunks);
    file.bytes.insert(file.bytes.end(), table.begin(), table.end());
    LasBuilder::Put(
        file.bytes, file.pointsOffset,
        options.table == LazOptions::kAtTheEnd ? ~std::uint64_t{0} : std::uint64_t{file.tableAt});
    if (options.table == LazOptions::kAtTheEnd) {
      oocpc::AppendLittleEndian(file.bytes, std::uint64_t{file.tableAt});
    }
  }
  const std::uint64_t pointsEnd =
      header.pointsOffset + header.pointCount * std::uint64_t{header.pointBytes};
  if (header.extendedCount != 0) {
    LasBuilder::Put(file.bytes, 235,
                    header.extendedOffset - pointsEnd + std::uint64_t{file.bytes.size()});
  }
  file.bytes.insert(file.bytes.end(), las.begin() + static_cast<std::ptrdiff_t>(pointsEnd),
                    las.end());
  return file;
}

}  // namespace oocpctest
