// What a repository keeps of a source file besides its points.
#include "host/cloud/SourceRecord.h"

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Bytes of the head besides the file name: version, lengths and checksums, and its own seal.
constexpr std::size_t kFixedHeadBytes = 2 + 4 + 3 * 8 + 3 * 4;

}  // namespace

HRESULT DecodeSourceRecord(std::span<const std::uint8_t>& rest, SourceRecord& record) {
  if (rest.size() < kFixedHeadBytes) return result::kBadRecord;
  const auto nameBytes = oocpc::LoadLittleEndian<std::uint32_t>(rest.data() + 2);
  if (nameBytes > rest.size() - kFixedHeadBytes) return result::kBadRecord;
  const std::size_t headBytes = kFixedHeadBytes + nameBytes;
  std::span<const std::uint8_t> head;
  const HRESULT code =
      oocpc::CheckSealedPayload(rest.data(), static_cast<std::uint32_t>(headBytes), head);
  if (oocpc::Failed(code)) return code;

  oocpc::ByteReader reader(head);
  std::uint16_t version = 0;
  std::uint64_t leading = 0;
  std::uint64_t trailing = 0;
  std::uint32_t leadingChecksum = 0;
  std::uint32_t trailingChecksum = 0;
  if (!reader.Read(version) || !reader.ReadText(record.fileName) ||
      !reader.Read(record.pointCount) || !reader.Read(leading) || !reader.Read(trailing) ||
      !reader.Read(leadingChecksum) || !reader.Read(trailingChecksum)) {
    return result::kBadRecord;
  }
  if (version > SourceRecord::kVersion) return result::kUnknownVersion;
  if (version == 0) return result::kBadRecord;
  rest = rest.subspan(headBytes);
  if (leading > rest.size() || trailing > rest.size() - leading) return result::kBadRecord;
  record.leadingBytes = rest.first(static_cast<std::size_t>(leading));
  record.trailingBytes =
      rest.subspan(static_cast<std::size_t>(leading), static_cast<std::size_t>(trailing));
  if (oocpc::Crc32c(record.leadingBytes) != leadingChecksum ||
      oocpc::Crc32c(record.trailingBytes) != trailingChecksum) {
    return result::kChecksumMismatch;
  }
  rest = rest.subspan(static_cast<std::size_t>(leading + trailing));
  return result::kOk;
}

std::vector<std::uint8_t> SourceRecord::EncodeHead() const {
  std::vector<std::uint8_t> head;
  oocpc::AppendLittleEndian(head, kVersion);
  oocpc::AppendText(head, fileName);
  oocpc::AppendLittleEndian(head, pointCount);
  oocpc::AppendLittleEndian(head, std::uint64_t{leadingBytes.size()});
  oocpc::AppendLittleEndian(head, std::uint64_t{trailingBytes.size()});
  oocpc::AppendLittleEndian(head, oocpc::Crc32c(leadingBytes));
  oocpc::AppendLittleEndian(head, oocpc::Crc32c(trailingBytes));
  oocpc::AppendChecksum(head);
  return head;
}

HRESULT DecodeSourceRecords(std::span<const std::uint8_t> stream,
                            std::vector<SourceRecord>& records) {
  std::vector<SourceRecord> decoded;
  while (!stream.empty()) {
    SourceRecord record;
    const HRESULT code = DecodeSourceRecord(stream, record);
    if (oocpc::Failed(code)) return code;
    decoded.push_back(std::move(record));
  }
  records = std::move(decoded);
  return result::kOk;
}

}  // namespace tarnhost
