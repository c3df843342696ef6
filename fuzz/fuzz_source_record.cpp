// Feeds arbitrary bytes to the records of source files, as they are and with the first head sealed
// anew.
#include <algorithm>

#include "FuzzSupport.h"
#include "host/cloud/SourceRecord.h"

using namespace oocpcfuzz;
using tarnhost::SourceRecord;

namespace {

/// Only documented codes, and what is accepted encodes to the same bytes.
void DecodeAndEncode(const Bytes& stream) {
  std::vector<SourceRecord> records;
  const HRESULT code = tarnhost::DecodeSourceRecords(stream, records);
  Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kBadRecord,
                         oocpc::result::kChecksumMismatch, oocpc::result::kUnknownVersion}));
  if (code != oocpc::result::kOk) return Require(records.empty());
  Bytes again;
  for (const SourceRecord& record : records) {
    const Bytes head = record.EncodeHead();
    again.insert(again.end(), head.begin(), head.end());
    again.insert(again.end(), record.leadingBytes.begin(), record.leadingBytes.end());
    again.insert(again.end(), record.trailingBytes.begin(), record.trailingBytes.end());
  }
  Require(again == stream);
}

/// The stream with the checksum of its first head put right, where it has a whole one.
Bytes WithSealedHead(Bytes stream) {
  constexpr std::size_t kFixedBytes = 2 + 4 + 3 * 8 + 2 * 4;
  if (stream.size() < kFixedBytes + 4) return stream;
  const auto nameBytes = oocpc::LoadLittleEndian<std::uint32_t>(stream.data() + 2);
  if (nameBytes > stream.size() - kFixedBytes - 4) return stream;
  const auto contentEnd = stream.begin() + static_cast<std::ptrdiff_t>(kFixedBytes + nameBytes);
  Bytes head(stream.begin(), contentEnd);
  oocpc::AppendChecksum(head);
  std::copy(head.begin(), head.end(), stream.begin());
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes stream(data, data + size);
  DecodeAndEncode(stream);
  DecodeAndEncode(WithSealedHead(stream));
  return 0;
}
