// Decodes a stored block; nothing it reads is believed before it is checked.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>

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
using Stored = std::span<const std::uint8_t>;

// At most 2^24 values of 24 bytes, so products below stay far from wrapping.
std::uint64_t DecodedBytes(const BlockEntry& entry) {
  return std::uint64_t{entry.valueCount} * ValueBytes(entry.type);
}

HRESULT DecodeRaw(const BlockEntry& entry, Stored stored, Bytes& values) {
  if (stored.size() != DecodedBytes(entry)) return result::kBadRecord;
  values.assign(stored.begin(), stored.end());
  return result::kOk;
}

HRESULT DecodeConstant(const BlockEntry& entry, Stored stored, Bytes& values) {
  const std::size_t valueBytes = ValueBytes(entry.type);
  if (entry.valueCount == 0 || stored.size() != valueBytes) return result::kBadRecord;
  values.resize(DecodedBytes(entry));
  for (std::size_t at = 0; at < values.size(); at += valueBytes) {
    std::memcpy(values.data() + at, stored.data(), valueBytes);
  }
  return result::kOk;
}

HRESULT DecodeBitPacked(const BlockEntry& entry, Stored stored, Bytes& values) {
  if (IsFloatingPoint(entry.type.value)) return result::kBadRecord;
  std::array<std::uint64_t, 3> planeBytes{};
  std::array<unsigned, 3> bits{};
  std::uint64_t expected = 0;
  for (std::size_t i = 0; i < entry.type.components; ++i) {
    bits[i] = OffsetBits(entry.minimumBits[i], entry.maximumBits[i]);
    planeBytes[i] = PackedBytes(entry.valueCount, bits[i]);
    expected += planeBytes[i];
  }
  if (stored.size() != expected) return result::kBadRecord;
  values.resize(DecodedBytes(entry));
  if (values.empty()) return result::kOk;
  VisitComponentType(entry.type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t i = 0; i < entry.type.components; ++i) {
      UnpackOffsets<T>(stored.first(planeBytes[i]), entry.valueCount, ValueBytes(entry.type),
                       entry.minimumBits[i], bits[i], values.data() + i * sizeof(T));
      stored = stored.subspan(planeBytes[i]);
    }
  });
  return result::kOk;
}

// A thread's buffer between zstd and the unshuffling. Unusually large ones are not kept.
class ShuffleBuffer {
 public:
  explicit ShuffleBuffer(std::size_t bytes) { Storage().resize(bytes); }
  ShuffleBuffer(const ShuffleBuffer&) = delete;
  ShuffleBuffer& operator=(const ShuffleBuffer&) = delete;
  ~ShuffleBuffer() {
    if (Storage().size() > kKeptBytes) Bytes().swap(Storage());
  }
  [[nodiscard]] std::span<std::uint8_t> Get() const { return Storage(); }

 private:
  static constexpr std::size_t kKeptBytes = std::size_t{4} << 20;
  static Bytes& Storage() {
    thread_local Bytes storage;
    return storage;
  }
};

HRESULT DecodeShuffled(const BlockEntry& entry, Stored stored, Bytes& values) {
  const std::uint64_t bytes = DecodedBytes(entry);
  if (bytes == 0 || !IsFrameOf(stored, bytes)) return result::kBadRecord;
  const ShuffleBuffer shuffled(bytes);
  if (!DecompressFrame(stored, shuffled.Get())) return result::kBadRecord;
  values.resize(bytes);
  UnshuffleBytes(shuffled.Get(), ValueBytes(entry.type), values);
  return result::kOk;
}

HRESULT DecodeDeltaShuffled(const BlockEntry& entry, Stored stored, Bytes& values) {
  const HRESULT code = DecodeShuffled(entry, stored, values);
  if (!Failed(code)) DecodeDeltas(entry.type, values);
  return code;
}

HRESULT DecodeRuns(const BlockEntry& entry, Stored stored, Bytes& values) {
  // Each run takes a head, so stored bytes bound what is made of them.
  if (entry.valueCount == 0 || stored.size() < LeastRunBytes(entry.type, entry.valueCount)) {
    return result::kBadRecord;
  }
  values.resize(DecodedBytes(entry));
  return UnpackRuns(entry.type, stored, values) ? result::kOk : result::kBadRecord;
}

HRESULT DecodeResidualBlock(const BlockEntry& entry, Stored stored, Bytes& values) {
  values.resize(DecodedBytes(entry));
  return DecodeResiduals(entry.type, stored, values) ? result::kOk : result::kBadRecord;
}

// What holds of every block, however it is encoded.
HRESULT CheckSeal(const BlockEntry& entry, Stored stored) {
  if (entry.valueCount > kMaximumBlockValues || stored.size() != entry.storedBytes ||
      !IsPossibleRange(entry)) {
    return result::kBadRecord;
  }
  return Crc32c(stored) == entry.dataChecksum ? result::kOk : result::kChecksumMismatch;
}

}  // namespace

HRESULT CheckStoredBlock(const BlockEntry& entry, std::span<const std::uint8_t> stored) {
  const HRESULT code = CheckSeal(entry, stored);
  if (Failed(code)) return code;
  std::uint64_t expected = stored.size();
  if (entry.encoding == BlockEncoding::kRaw) expected = DecodedBytes(entry);
  if (entry.encoding == BlockEncoding::kConstant) expected = ValueBytes(entry.type);
  if (entry.encoding == BlockEncoding::kBitPacked) {
    if (IsFloatingPoint(entry.type.value)) return result::kBadRecord;
    expected = 0;
    for (std::size_t i = 0; i < entry.type.components; ++i) {
      const unsigned bits = OffsetBits(entry.minimumBits[i], entry.maximumBits[i]);
      expected += PackedBytes(entry.valueCount, bits);
    }
  }
  return stored.size() == expected ? result::kOk : result::kBadRecord;
}

HRESULT DecodeBlock(const BlockEntry& entry, std::span<const std::uint8_t> stored,
                    std::vector<std::uint8_t>& values) {
  const HRESULT code = CheckSeal(entry, stored);
  if (Failed(code)) return code;
  switch (entry.encoding) {
    case BlockEncoding::kRaw:
      return DecodeRaw(entry, stored, values);
    case BlockEncoding::kConstant:
      return DecodeConstant(entry, stored, values);
    case BlockEncoding::kBitPacked:
      return DecodeBitPacked(entry, stored, values);
    case BlockEncoding::kShuffleZstd:
      return DecodeShuffled(entry, stored, values);
    case BlockEncoding::kDeltaShuffleZstd:
      return DecodeDeltaShuffled(entry, stored, values);
    case BlockEncoding::kRuns:
      return DecodeRuns(entry, stored, values);
    case BlockEncoding::kResiduals:
      return DecodeResidualBlock(entry, stored, values);
  }
  return result::kUnknownEncoding;
}

}  // namespace oocpc
