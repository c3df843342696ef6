// Encodes a block of values and picks the encoding.
#include <OOCPointCloud/ColumnBlocks.h>

#include <algorithm>
#include <cassert>
#include <utility>

#include "OOCPointCloud/columns/BitPacking.h"
#include "OOCPointCloud/columns/BlockRange.h"
#include "OOCPointCloud/columns/ByteTransforms.h"
#include "OOCPointCloud/columns/ResidualCoding.h"
#include "OOCPointCloud/columns/RunPacking.h"
#include "OOCPointCloud/columns/ZstdFrames.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Values = std::span<const std::uint8_t>;

// Bit patterns are compared, so -0.0 is not 0.0 and a NaN equals only itself.
bool AreAllEqual(Values values, std::size_t valueBytes) {
  return std::equal(values.begin() + static_cast<std::ptrdiff_t>(valueBytes), values.end(),
                    values.begin());
}

std::uint64_t BitPackedBytes(ColumnType type, const BlockEntry& entry) {
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < type.components; ++i) {
    bytes += PackedBytes(entry.valueCount, OffsetBits(entry.minimumBits[i], entry.maximumBits[i]));
  }
  return bytes;
}

Bytes PackBits(ColumnType type, Values values, const BlockEntry& entry) {
  Bytes out;
  out.reserve(BitPackedBytes(type, entry));
  VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t i = 0; i < type.components; ++i) {
      PackOffsets<T>(values.data() + i * sizeof(T), entry.valueCount, ValueBytes(type),
                     entry.minimumBits[i], OffsetBits(entry.minimumBits[i], entry.maximumBits[i]),
                     out);
    }
  });
  return out;
}

// The two encodings through zstd; empty when there is no memory for it.
Bytes CompressShuffled(ColumnType type, Values values, Bytes& scratch) {
  scratch.resize(values.size());
  ShuffleBytes(values, ValueBytes(type), scratch);
  Bytes out;
  if (!CompressFrame(scratch, out)) out.clear();
  return out;
}

Bytes CompressDeltas(ColumnType type, Values values, Bytes& scratch) {
  Bytes deltas(values.begin(), values.end());
  EncodeDeltas(type, deltas);
  return CompressShuffled(type, deltas, scratch);
}

struct Encoded {
  BlockEncoding encoding = BlockEncoding::kRaw;
  Bytes bytes;  ///< empty when the values cannot be encoded so
};

Encoded EncodeWithZstd(ColumnType type, Values values) {
  Bytes scratch;
  Bytes shuffled = CompressShuffled(type, values, scratch);
  Bytes deltas = CompressDeltas(type, values, scratch);
  if (!deltas.empty() && (shuffled.empty() || deltas.size() < shuffled.size())) {
    return {BlockEncoding::kDeltaShuffleZstd, std::move(deltas)};
  }
  return {BlockEncoding::kShuffleZstd, std::move(shuffled)};
}

Encoded EncodeHeavily(ColumnType type, Values values) {
  Bytes residuals = EncodeResiduals(type, values);
  // Where residuals save little, values may still repeat in ways that only zstd sees.
  const bool small = !residuals.empty() && residuals.size() <= values.size() / 2;
  if (small || (!residuals.empty() && !IsFloatingPoint(type.value))) {
    return {BlockEncoding::kResiduals, std::move(residuals)};
  }
  Encoded zstd = EncodeWithZstd(type, values);
  if (!residuals.empty() && (zstd.bytes.empty() || residuals.size() <= zstd.bytes.size())) {
    return {BlockEncoding::kResiduals, std::move(residuals)};
  }
  return zstd;
}

/// The smallest heavy encoding, or nothing: it costs more to read, so it has to save something.
Encoded EncodeHeavilyIfWorthIt(ColumnType type, Values values, std::uint64_t lightBytes) {
  const std::uint64_t mostBytes = lightBytes - (lightBytes + 7) / 8;
  Encoded heavy = EncodeHeavily(type, values);
  if (heavy.bytes.size() > mostBytes) heavy.bytes.clear();
  return heavy;
}

/// The smallest light encoding, and what it takes.
std::pair<BlockEncoding, std::uint64_t> ChooseLightEncoding(ColumnType type, Values values,
                                                            const BlockEntry& entry) {
  std::pair<BlockEncoding, std::uint64_t> best{BlockEncoding::kRaw, values.size()};
  if (IsFloatingPoint(type.value) || values.empty()) return best;
  if (const std::uint64_t packed = BitPackedBytes(type, entry); packed < best.second) {
    best = {BlockEncoding::kBitPacked, packed};
  }
  if (const std::uint64_t runs = CountRunBytes(type, values); runs < best.second) {
    best = {BlockEncoding::kRuns, runs};
  }
  return best;
}

void ChooseEncoding(ColumnType type, Values values, BlockEncodings allowed, EncodedBlock& block) {
  BlockEntry& entry = block.entry;
  const std::size_t valueBytes = ValueBytes(type);
  if (!values.empty() && AreAllEqual(values, valueBytes)) {
    entry.encoding = BlockEncoding::kConstant;
    block.bytes.assign(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(valueBytes));
    return;
  }
  const auto [light, lightBytes] = ChooseLightEncoding(type, values, entry);
  if (!values.empty() && allowed == BlockEncodings::kAll) {
    Encoded heavy = EncodeHeavilyIfWorthIt(type, values, lightBytes);
    if (!heavy.bytes.empty()) {
      entry.encoding = heavy.encoding;
      block.bytes = std::move(heavy.bytes);
      return;
    }
  }
  entry.encoding = light;
  if (light == BlockEncoding::kBitPacked) {
    block.bytes = PackBits(type, values, entry);
  } else if (light == BlockEncoding::kRuns) {
    block.bytes = PackRuns(type, values);
  } else {
    block.bytes.assign(values.begin(), values.end());
  }
}

}  // namespace

EncodedBlock EncodeBlock(ColumnType type, std::span<const std::uint8_t> values,
                         BlockEncodings allowed) {
  const std::size_t valueBytes = ValueBytes(type);
  assert(values.size() % valueBytes == 0);
  assert(values.size() / valueBytes <= kMaximumBlockValues);
  EncodedBlock block;
  block.entry.type = type;
  block.entry.valueCount = static_cast<std::uint32_t>(values.size() / valueBytes);
  DescribeRange(type, values, block.entry);
  ChooseEncoding(type, values, allowed, block);
  block.entry.storedBytes = static_cast<std::uint32_t>(block.bytes.size());
  block.entry.dataChecksum = Crc32c(block.bytes);
  return block;
}

}  // namespace oocpc
