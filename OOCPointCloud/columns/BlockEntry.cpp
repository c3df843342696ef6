// The 96-byte record of a column's block table.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>

#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {
namespace {

constexpr std::size_t kEncodingAt = 16;
constexpr std::size_t kFlagsAt = 17;
constexpr std::size_t kPaddingAt = 18;
constexpr std::size_t kDataChecksumAt = 20;
constexpr std::size_t kMinimumAt = 24;
constexpr std::size_t kMaximumAt = 48;
constexpr std::size_t kFirstValueAt = 72;
constexpr std::size_t kReservedAt = 80;
constexpr std::size_t kChecksumAt = 92;
static_assert(kChecksumAt + sizeof(std::uint32_t) == BlockEntry::kBytes);

constexpr std::uint8_t kHasNanFlag = 1;

bool IsZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

void BlockEntry::Encode(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  AppendLittleEndian(out, offsetBytes);
  AppendLittleEndian(out, storedBytes);
  AppendLittleEndian(out, valueCount);
  AppendLittleEndian(out, encoding);
  AppendLittleEndian(out, hasNan ? kHasNanFlag : std::uint8_t{0});
  AppendLittleEndian(out, std::uint16_t{0});
  AppendLittleEndian(out, dataChecksum);
  for (const std::uint64_t bits : minimumBits) AppendLittleEndian(out, bits);
  for (const std::uint64_t bits : maximumBits) AppendLittleEndian(out, bits);
  AppendLittleEndian(out, firstValue);
  out.resize(begin + kChecksumAt);  // Reserved bytes, zero.
  AppendChecksum(out, begin);
}

HRESULT BlockEntry::Decode(const std::uint8_t (&bytes)[kBytes], BlockEntry& out) {
  const std::span<const std::uint8_t> record(bytes);
  if (Crc32c(record.first(kChecksumAt)) != LoadLittleEndian<std::uint32_t>(bytes + kChecksumAt)) {
    return result::kChecksumMismatch;
  }
  const std::uint8_t encodingNumber = bytes[kEncodingAt];
  if (encodingNumber > static_cast<std::uint8_t>(BlockEncoding::kResiduals)) {
    return result::kUnknownEncoding;
  }
  if (bytes[kFlagsAt] > kHasNanFlag ||
      !IsZero(record.subspan(kPaddingAt, kDataChecksumAt - kPaddingAt)) ||
      !IsZero(record.subspan(kReservedAt, kChecksumAt - kReservedAt))) {
    return result::kBadRecord;
  }
  BlockEntry entry;
  entry.offsetBytes = LoadLittleEndian<std::uint64_t>(bytes);
  entry.storedBytes = LoadLittleEndian<std::uint32_t>(bytes + 8);
  entry.valueCount = LoadLittleEndian<std::uint32_t>(bytes + 12);
  if (entry.valueCount > kMaximumBlockValues) return result::kBadRecord;
  entry.encoding = static_cast<BlockEncoding>(encodingNumber);
  entry.hasNan = bytes[kFlagsAt] == kHasNanFlag;
  entry.dataChecksum = LoadLittleEndian<std::uint32_t>(bytes + kDataChecksumAt);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const std::size_t at = axis * sizeof(std::uint64_t);
    entry.minimumBits[axis] = LoadLittleEndian<std::uint64_t>(bytes + kMinimumAt + at);
    entry.maximumBits[axis] = LoadLittleEndian<std::uint64_t>(bytes + kMaximumAt + at);
  }
  entry.firstValue = LoadLittleEndian<std::uint64_t>(bytes + kFirstValueAt);
  if (entry.firstValue > ~std::uint64_t{0} - entry.valueCount) return result::kBadRecord;
  out = entry;
  return result::kOk;
}

}  // namespace oocpc
