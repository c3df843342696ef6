// The dictionary of the string columns: its chunk, its stream, its entries in memory.
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include "OOCPointCloud/containers/ChunkCompetition.h"
#include "OOCPointCloud/streams/StreamAccess.h"

namespace {

// Length and checksum around a string's bytes.
constexpr std::size_t kStringOverheadBytes = 8;

HRESULT ReadCount(const std::uint8_t* payload, std::uint32_t size, std::uint64_t& count) {
  oocpc::ByteReader reader({});
  const HRESULT code =
      oocpc::OpenVersionedPayload(payload, size, OOCPCStringRepositoryContainer::kVersion, reader);
  if (oocpc::Failed(code)) return code;
  std::uint16_t reserved = 0;
  const bool good =
      reader.Read(reserved) && reserved == 0 && reader.Read(count) && reader.GetRemaining() == 0;
  return good ? oocpc::result::kOk : oocpc::result::kBadRecord;
}

HRESULT ReadString(oocpc::ByteReader& reader, std::string& text) {
  std::uint32_t length = 0;
  std::span<const std::uint8_t> bytes;
  std::uint32_t checksum = 0;
  if (!reader.Read(length) || !reader.ReadBytes(length, bytes) || !reader.Read(checksum)) {
    return oocpc::result::kStreamShort;
  }
  std::uint8_t head[sizeof(length)];
  std::memcpy(head, &length, sizeof(length));
  if (oocpc::Crc32c(bytes, oocpc::Crc32c(head)) != checksum) {
    return oocpc::result::kChecksumMismatch;
  }
  text.assign(bytes.begin(), bytes.end());
  return oocpc::result::kOk;
}

HRESULT ReadStrings(std::span<const std::uint8_t> bytes, std::uint64_t count,
                    std::vector<std::string>& strings) {
  if (count > bytes.size() / kStringOverheadBytes) return oocpc::result::kStreamShort;
  oocpc::ByteReader reader(bytes);
  strings.reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const HRESULT code = ReadString(reader, strings.emplace_back());
    if (oocpc::Failed(code)) return code;
  }
  return reader.GetRemaining() == 0 ? oocpc::result::kOk : oocpc::result::kBadRecord;
}

}  // namespace

OOCPCStringRepositoryContainer::OOCPCStringRepositoryContainer(OOCPCIDataRepository* repository)
    : OOCPCContainer(repository, oocpc::chunk_type::kStringRepository, kStreamName) {}

OOCPCStringRepositoryContainer::~OOCPCStringRepositoryContainer() = default;

std::vector<std::uint8_t> OOCPCStringRepositoryContainer::EncodeChunk(std::uint64_t count) {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, kVersion);
  oocpc::AppendLittleEndian(out, std::uint16_t{0});
  oocpc::AppendLittleEndian(out, count);
  oocpc::AppendChecksum(out);
  return out;
}

void OOCPCStringRepositoryContainer::EncodeString(std::string_view text,
                                                  std::vector<std::uint8_t>& out) {
  const std::size_t begin = out.size();
  oocpc::AppendText(out, text);
  oocpc::AppendChecksum(out, begin);
}

HRESULT OOCPCStringRepositoryContainer::LoadFromChunk(const std::uint8_t* payload,
                                                      std::uint32_t size) {
  std::uint64_t count = 0;
  HRESULT code = ReadCount(payload, size, count);
  if (oocpc::Failed(code)) return code;
  std::unique_ptr<OOCPCIInputStream> stream;
  code = oocpc::OpenNamedStream(GetRepository(), kStreamName, stream);
  // An empty dictionary needs no stream.
  if (code == oocpc::result::kStreamMissing && count == 0) code = oocpc::result::kOk;
  if (oocpc::Failed(code)) return code;
  std::vector<std::uint8_t> scratch;
  std::span<const std::uint8_t> bytes;
  if (stream != nullptr) {
    code = oocpc::ViewOrRead(*stream, 0, stream->GetLength(), scratch, bytes);
    if (oocpc::Failed(code)) return code;
  }
  std::vector<std::string> strings;
  code = ReadStrings(bytes, count, strings);
  if (!oocpc::Failed(code)) strings_ = std::move(strings);
  return code;
}

HRESULT OOCPCStringRepositoryContainer::GetString(std::uint64_t index, std::string& text) const {
  if (index >= strings_.size()) return oocpc::result::kStringNotFound;
  text = strings_[index];
  return oocpc::result::kOk;
}

OOCPCStringRepositoryContainer* OOCPCStringRepositoryContainer::Clone() const {
  auto clone = std::make_unique<OOCPCStringRepositoryContainer>(GetRepository());
  clone->strings_ = strings_;
  return clone.release();
}
