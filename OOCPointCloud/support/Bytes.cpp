// Texts, checksums and sealed payloads on top of the plain numbers of Bytes.h.
#include "OOCPointCloud/support/Bytes.h"

#include <OOCPointCloud/ResultCodes.h>

namespace oocpc {

void AppendText(std::vector<std::uint8_t>& out, std::string_view text) {
  AppendLittleEndian(out, static_cast<std::uint32_t>(text.size()));
  out.insert(out.end(), text.begin(), text.end());
}

void AppendChecksum(std::vector<std::uint8_t>& out, std::size_t begin) {
  AppendLittleEndian(out, Crc32c(std::span(out).subspan(begin)));
}

bool ByteReader::ReadText(std::string& text) {
  std::uint32_t length = 0;
  std::span<const std::uint8_t> bytes;
  if (!Read(length) || !ReadBytes(length, bytes)) return false;
  text.assign(bytes.begin(), bytes.end());
  return true;
}

bool ByteReader::ReadBytes(std::size_t length, std::span<const std::uint8_t>& bytes) {
  if (!Has(length)) return false;
  bytes = bytes_.subspan(at_, length);
  at_ += length;
  return true;
}

HRESULT CheckSealedPayload(const std::uint8_t* payload, std::uint32_t size,
                           std::span<const std::uint8_t>& content) {
  constexpr std::size_t kSealBytes = sizeof(std::uint32_t);
  if (payload == nullptr || size < kSealBytes) return result::kBadRecord;
  const std::span sealed(payload, size - kSealBytes);
  const auto stated = LoadLittleEndian<std::uint32_t>(payload + sealed.size());
  if (Crc32c(sealed) != stated) return result::kChecksumMismatch;
  content = sealed;
  return result::kOk;
}

}  // namespace oocpc
