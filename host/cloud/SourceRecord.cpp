// What a repository keeps of a source file besides its points.
#include "host/cloud/SourceRecord.h"

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Bytes of the head besides the file name: version, lengths and checksums, and its own seal.
constexpr std::size_t kFixedHeadBytes = 2 + 4 + 3 * 8 + 3 * 4;

}  // namespace

std::string FindSourceStream(const OOCPCRepositoryInformation& information) {
  std::string name = SourceRecord::kStreamName;
  for (const OOCPCStreamLength& stream : information.streams) {
    if (stream.name.starts_with(name + "_")) return stream.name;
  }
  return name;
}

HRESULT DecodeSourceHead(std::span<const std::uint8_t> stream, SourceHead& head) {
  if (stream.size() < kFixedHeadBytes) return result::kBadRecord;
  const auto nameBytes = oocpc::LoadLittleEndian<std::uint32_t>(stream.data() + 2);
  if (nameBytes > stream.size() - kFixedHeadBytes) return result::kBadRecord;
  head.headBytes = kFixedHeadBytes + nameBytes;
  std::span<const std::uint8_t> content;
  const HRESULT code =
      oocpc::CheckSealedPayload(stream.data(), static_cast<std::uint32_t>(head.headBytes), content);
  if (oocpc::Failed(code)) return code;

  oocpc::ByteReader reader(content);
  std::uint16_t version = 0;
  if (!reader.Read(version) || !reader.ReadText(head.fileName) || !reader.Read(head.pointCount) ||
      !reader.Read(head.leadingBytes) || !reader.Read(head.trailingBytes) ||
      !reader.Read(head.leadingChecksum) || !reader.Read(head.trailingChecksum)) {
    return result::kBadRecord;
  }
  if (version > SourceRecord::kVersion) return result::kUnknownVersion;
  return version == 0 ? result::kBadRecord : result::kOk;
}

HRESULT DecodeSourceRecord(std::span<const std::uint8_t>& rest, SourceRecord& record) {
  SourceHead head;
  const HRESULT code = DecodeSourceHead(rest, head);
  if (oocpc::Failed(code)) return code;
  record.fileName = head.fileName;
  record.pointCount = head.pointCount;
  rest = rest.subspan(head.headBytes);
  if (head.leadingBytes > rest.size() || head.trailingBytes > rest.size() - head.leadingBytes) {
    return result::kBadRecord;
  }
  const auto leading = static_cast<std::size_t>(head.leadingBytes);
  const auto trailing = static_cast<std::size_t>(head.trailingBytes);
  record.leadingBytes = rest.first(leading);
  record.trailingBytes = rest.subspan(leading, trailing);
  if (oocpc::Crc32c(record.leadingBytes) != head.leadingChecksum ||
      oocpc::Crc32c(record.trailingBytes) != head.trailingChecksum) {
    return result::kChecksumMismatch;
  }
  rest = rest.subspan(leading + trailing);
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
