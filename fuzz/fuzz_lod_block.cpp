// Feeds arbitrary bytes to the level-of-detail block.
#include <OOCPointCloud/OOCPCLODRecords.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;

namespace {

constexpr std::size_t kExtensionEnd = OOCPCLODHeader::kBytes + OOCPCLODSeal::kBytes;

Bytes WithChecksum(Bytes bytes) {
  if (bytes.size() < kExtensionEnd) return bytes;
  const std::uint32_t sum =
      oocpc::Crc32c(std::span(bytes).subspan(kExtensionEnd),
                    oocpc::Crc32c(std::span(bytes).first(OOCPCLODHeader::kBytes)));
  std::memcpy(bytes.data() + OOCPCLODHeader::kBytes, &OOCPCLODSeal::kMark, sizeof(sum));
  std::memcpy(bytes.data() + OOCPCLODHeader::kBytes + sizeof(sum), &sum, sizeof(sum));
  return bytes;
}

void DecodeAndEncode(const Bytes& bytes) {
  OOCPCLODBlock block;
  block.levelCount = 123456;
  const HRESULT code = block.Decode(bytes);
  Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kLodShortRead,
                         oocpc::result::kLodBadVersion, oocpc::result::kLodLengthMismatch,
                         oocpc::result::kBadRecord, oocpc::result::kChecksumMismatch}));
  if (code != oocpc::result::kOk) {
    Require(block.levelCount == 123456 && block.entries.empty());
    return;
  }
  Bytes again;
  block.Encode(again);
  Require(again == bytes);
}

/// The same with as many nodes stated as there is room for.
Bytes WithFittingCount(Bytes bytes) {
  constexpr std::size_t kPlain = kExtensionEnd + OOCPCLODHeader::kTailBytes;
  if (bytes.size() < kPlain) return bytes;
  const auto count =
      static_cast<std::uint32_t>((bytes.size() - kPlain) / OOCPCLODHeader::kEntryBytes);
  bytes.resize(kPlain + count * OOCPCLODHeader::kEntryBytes);
  std::memcpy(bytes.data() + 2, &count, sizeof(count));
  std::memcpy(bytes.data() + 6, &count, sizeof(count));
  return WithChecksum(std::move(bytes));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  DecodeAndEncode(bytes);
  DecodeAndEncode(WithChecksum(bytes));
  DecodeAndEncode(WithFittingCount(bytes));
  return 0;
}
