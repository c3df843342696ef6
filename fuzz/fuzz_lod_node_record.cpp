// Feeds arbitrary bytes to the level-of-detail node record.
#include <OOCPointCloud/OOCPCLODRecords.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;
using Record = OOCPCLODNodeRecord;

namespace {

constexpr std::size_t kChecksumAt = 48;

Bytes WithChecksum(Bytes bytes) {
  const std::uint32_t sum = oocpc::Crc32c(std::span(bytes).subspan(kChecksumAt + 4),
                                          oocpc::Crc32c(std::span(bytes).first(kChecksumAt)));
  std::memcpy(bytes.data() + kChecksumAt, &sum, sizeof(sum));
  return bytes;
}

void DecodeAndEncode(const Bytes& bytes) {
  std::uint8_t stored[Record::kBytes];
  std::memcpy(stored, bytes.data(), sizeof(stored));
  Record record;
  const HRESULT code = Record::Decode(stored, record);
  Require(IsOneOf(
      code, {oocpc::result::kOk, oocpc::result::kBadRecord, oocpc::result::kChecksumMismatch}));
  if (code != oocpc::result::kOk) return;
  Bytes again;
  record.Encode(again);
  Require(again == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, data + size);
  bytes.resize(Record::kBytes);
  DecodeAndEncode(bytes);
  DecodeAndEncode(WithChecksum(bytes));
  return 0;
}
