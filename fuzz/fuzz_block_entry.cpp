// Feeds arbitrary bytes to the block table record.
#include <OOCPointCloud/ColumnBlocks.h>

#include "FuzzSupport.h"

using oocpc::BlockEntry;
using namespace oocpcfuzz;

namespace {

void DecodeAndEncode(const Bytes& bytes) {
  BlockEntry entry;
  const HRESULT code = BlockEntry::Decode(bytes, entry);
  Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kBadRecord,
                         oocpc::result::kChecksumMismatch, oocpc::result::kUnknownEncoding}));
  if (code != oocpc::result::kOk) return;
  Require(entry.valueCount <= oocpc::kMaximumBlockValues);
  Bytes again;
  entry.Encode(again);
  Require(again == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  DecodeAndEncode(bytes);
  DecodeAndEncode(SealedAnew(bytes));
  return 0;
}
