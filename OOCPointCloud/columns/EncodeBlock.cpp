// Encodes a block of values and picks the encoding.
#include <OOCPointCloud/ColumnBlocks.h>

#include <algorithm>
#include <cassert>
#include <utility>

#include "OOCPointCloud/columns/BitPacking.h"
#include "OOCPointCloud/columns/BlockRange.h"
#include "OOCPointCloud/columns/ByteTransforms.h"
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

std::pair<BlockEncoding, Bytes> EncodeHeavily(ColumnType type, Values values) {
  Bytes scratch;
  Bytes shuffled = CompressShuffled(type, values, scratch);
  Bytes deltas = CompressDeltas(type, values, scratch);
  if (!deltas.empty() && (shuffled.empty() || deltas.size() < shuffled.size())) {
    return {BlockEncoding::kDeltaShuffleZstd, std::move(deltas)};
  }
  return {BlockEncoding::kShuffleZstd, std::move(shuffled)};
}

// A heavy encoding costs much more to read, so it has to save at least a quarter.
bool IsWorthIt(std::uint64_t heavyBytes, std::uint64_t lightBytes) {
  return heavyBytes != 0 && heavyBytes * 4 <= lightBytes * 3;
}

void ChooseEncoding(ColumnType type, Values values, EncodedBlock& block) {
  BlockEntry& entry = block.entry;
  const std::size_t valueBytes = ValueBytes(type);
  if (!values.empty() && AreAllEqual(values, valueBytes)) {
    entry.encoding = BlockEncoding::kConstant;
    block.bytes.assign(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(valueBytes));
    return;
  }
  const bool packable = !IsFloatingPoint(type.value) && BitPackedBytes(type, entry) < values.size();
  const std::uint64_t lightBytes = packable ? BitPackedBytes(type, entry) : values.size();
  if (!values.empty()) {
    auto [encoding, bytes] = EncodeHeavily(type, values);
    if (IsWorthIt(bytes.size(), lightBytes)) {
      entry.encoding = encoding;
      block.bytes = std::move(bytes);
      return;
    }
  }
  entry.encoding = packable ? BlockEncoding::kBitPacked : BlockEncoding::kRaw;
  block.bytes = packable ? PackBits(type, values, entry) : Bytes(values.begin(), values.end());
}

}  // namespace

EncodedBlock EncodeBlock(ColumnType type, std::span<const std::uint8_t> values) {
  const std::size_t valueBytes = ValueBytes(type);
  assert(values.size() % valueBytes == 0);
  assert(values.size() / valueBytes <= kMaximumBlockValues);
  EncodedBlock block;
  block.entry.valueCount = static_cast<std::uint32_t>(values.size() / valueBytes);
  DescribeRange(type, values, block.entry);
  ChooseEncoding(type, values, block);
  block.entry.storedBytes = static_cast<std::uint32_t>(block.bytes.size());
  block.entry.dataChecksum = Crc32c(block.bytes);
  return block;
}

}  // namespace oocpc
