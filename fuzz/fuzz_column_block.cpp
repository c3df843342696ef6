// Decodes arbitrary stored bytes under an arbitrary entry, and encodes arbitrary values.
// Input: value type, components, encoding, hasNan, number of values (16 bits), three minima and
// three maxima (64 bits each), then the stored bytes.
#include <OOCPointCloud/ColumnBlocks.h>

#include "FuzzSupport.h"

using namespace oocpc;
using namespace oocpcfuzz;

namespace {

void RequireRoundTrip(ColumnType type, const Bytes& values) {
  const EncodedBlock block = EncodeBlock(type, values);
  Bytes back;
  Require(DecodeBlock(block.entry, block.bytes, back) == result::kOk);
  Require(back == values);
}

void DecodeStored(ColumnType type, const BlockEntry& entry, const Bytes& stored) {
  Bytes values;
  const HRESULT code = DecodeBlock(entry, stored, values);
  Require(IsOneOf(code, {result::kOk, result::kBadRecord, result::kChecksumMismatch,
                         result::kUnknownEncoding}));
  if (code != result::kOk) return;
  Require(values.size() == std::size_t{entry.valueCount} * ValueBytes(type));
  RequireRoundTrip(type, values);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader reader({data, size});
  std::uint8_t head[4];
  std::uint16_t count = 0;
  BlockEntry entry;
  bool complete = true;
  for (std::uint8_t& byte : head) complete = complete && reader.Read(byte);
  complete = complete && reader.Read(count);
  for (std::uint64_t& bits : entry.minimumBits) complete = complete && reader.Read(bits);
  for (std::uint64_t& bits : entry.maximumBits) complete = complete && reader.Read(bits);
  if (!complete) return 0;
  const ColumnType type{static_cast<ValueType>(1 + head[0] % 11),
                        static_cast<std::uint8_t>(1 + head[1] % 3)};
  Bytes stored(data + (size - reader.GetRemaining()), data + size);
  entry.type = type;
  entry.encoding = static_cast<BlockEncoding>(head[2]);
  entry.hasNan = head[3] != 0;
  entry.valueCount = count;
  entry.storedBytes = static_cast<std::uint32_t>(stored.size());
  DecodeStored(type, entry, stored);
  entry.dataChecksum = Crc32c(stored);
  DecodeStored(type, entry, stored);
  stored.resize(stored.size() / ValueBytes(type) * ValueBytes(type));
  RequireRoundTrip(type, stored);
  return 0;
}
