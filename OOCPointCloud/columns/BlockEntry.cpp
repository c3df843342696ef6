// The record of a column's block table.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

constexpr std::size_t kStoredBytesAt = 8;
constexpr std::size_t kValueCountAt = 12;
constexpr std::size_t kEncodingAt = 16;
constexpr std::size_t kFlagsAt = 17;
constexpr std::size_t kValueTypeAt = 18;
constexpr std::size_t kComponentsAt = 19;
constexpr std::size_t kDataChecksumAt = 20;
constexpr std::size_t kFirstValueAt = 24;
constexpr std::size_t kRangeAt = 32;
constexpr std::size_t kChecksumBytes = sizeof(std::uint32_t);
constexpr std::size_t kMostComponents = 3;
static_assert(kRangeAt + 2 * kMostComponents * sizeof(double) + kChecksumBytes ==
              BlockEntry::kMostBytes);

constexpr std::uint8_t kHasNanFlag = 1;

bool IsZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

std::size_t RangeEnd(ColumnType type) { return kRangeAt + std::size_t{2} * ValueBytes(type); }

bool HasRecordsOf(ColumnType type) {
  return IsValueType(static_cast<std::uint8_t>(type.value)) && type.components >= 1 &&
         type.components <= kMostComponents;
}

void AppendLimits(ColumnType type, const std::array<std::uint64_t, 3>& bits,
                  std::vector<std::uint8_t>& out) {
  VisitComponentType(type.value, [&](auto tag) {
    for (std::size_t i = 0; i < type.components; ++i) {
      AppendLittleEndian(out, NarrowBits<typename decltype(tag)::Type>(bits[i]));
    }
  });
}

/// False for NaNs, which are no limits.
bool LoadLimits(ColumnType type, const std::uint8_t* from, std::array<std::uint64_t, 3>& bits) {
  return VisitComponentType(type.value, [&](auto tag) {
    using T = typename decltype(tag)::Type;
    for (std::size_t i = 0; i < type.components; ++i) {
      const T limit = LoadLittleEndian<T>(from + i * sizeof(T));
      if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(limit)) return false;
      }
      bits[i] = WidenBits(limit);
    }
    return true;
  });
}

}  // namespace

std::size_t BlockEntry::RecordBytes(ColumnType type) {
  constexpr std::size_t kUnit = 4;
  return (RangeEnd(type) + kUnit - 1) / kUnit * kUnit + kChecksumBytes;
}

void BlockEntry::Encode(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  AppendLittleEndian(out, offsetBytes);
  AppendLittleEndian(out, storedBytes);
  AppendLittleEndian(out, valueCount);
  AppendLittleEndian(out, encoding);
  AppendLittleEndian(out, hasNan ? kHasNanFlag : std::uint8_t{0});
  AppendLittleEndian(out, type.value);
  AppendLittleEndian(out, type.components);
  AppendLittleEndian(out, dataChecksum);
  AppendLittleEndian(out, firstValue);
  AppendLimits(type, minimumBits, out);
  AppendLimits(type, maximumBits, out);
  out.resize(begin + RecordBytes(type) - kChecksumBytes);  // zeros up to the checksum
  AppendChecksum(out, begin);
}

HRESULT BlockEntry::Decode(std::span<const std::uint8_t> record, BlockEntry& out) {
  if (record.size() < kRangeAt + kChecksumBytes) return result::kBadRecord;
  const std::uint8_t* const bytes = record.data();
  const std::size_t checksumAt = record.size() - kChecksumBytes;
  if (Crc32c(record.first(checksumAt)) != LoadLittleEndian<std::uint32_t>(bytes + checksumAt)) {
    return result::kChecksumMismatch;
  }
  const std::uint8_t encodingNumber = bytes[kEncodingAt];
  if (encodingNumber > static_cast<std::uint8_t>(BlockEncoding::kResiduals)) {
    return result::kUnknownEncoding;
  }
  BlockEntry entry;
  entry.type = {static_cast<ValueType>(bytes[kValueTypeAt]), bytes[kComponentsAt]};
  if (bytes[kFlagsAt] > kHasNanFlag || !HasRecordsOf(entry.type) ||
      record.size() != RecordBytes(entry.type)) {
    return result::kBadRecord;
  }
  const std::size_t rangeEnd = RangeEnd(entry.type);
  if (!IsZero(record.subspan(rangeEnd, checksumAt - rangeEnd))) return result::kBadRecord;
  entry.offsetBytes = LoadLittleEndian<std::uint64_t>(bytes);
  entry.storedBytes = LoadLittleEndian<std::uint32_t>(bytes + kStoredBytesAt);
  entry.valueCount = LoadLittleEndian<std::uint32_t>(bytes + kValueCountAt);
  if (entry.valueCount > kMaximumBlockValues) return result::kBadRecord;
  entry.encoding = static_cast<BlockEncoding>(encodingNumber);
  entry.hasNan = bytes[kFlagsAt] == kHasNanFlag;
  entry.dataChecksum = LoadLittleEndian<std::uint32_t>(bytes + kDataChecksumAt);
  entry.firstValue = LoadLittleEndian<std::uint64_t>(bytes + kFirstValueAt);
  if (entry.firstValue > ~std::uint64_t{0} - entry.valueCount) return result::kBadRecord;
  const std::uint8_t* const range = bytes + kRangeAt;
  if (!LoadLimits(entry.type, range, entry.minimumBits) ||
      !LoadLimits(entry.type, range + ValueBytes(entry.type), entry.maximumBits)) {
    return result::kBadRecord;
  }
  out = entry;
  return result::kOk;
}

}  // namespace oocpc
