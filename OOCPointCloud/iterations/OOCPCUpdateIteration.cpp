// The 80-byte record of an update iteration.
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloud/support/Bytes.h"

namespace {

constexpr std::size_t kChecksumAt = 76;
static_assert(kChecksumAt + sizeof(std::uint32_t) == OOCPCUpdateIteration::kRecordBytes);

bool IsConsistent(const OOCPCUpdateIteration& iteration) {
  return iteration.acceleratorPayload.beginBytes <= iteration.acceleratorPayload.sizeBytes &&
         iteration.lodPayload.beginBytes <= iteration.lodPayload.endBytes;
}

}  // namespace

void OOCPCUpdateIteration::Stream(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  oocpc::AppendLittleEndian(out, timePoint);
  oocpc::AppendLittleEndian(out, acceleratorPayload.beginBytes);
  oocpc::AppendLittleEndian(out, acceleratorPayload.sizeBytes);
  oocpc::AppendLittleEndian(out, lodPayload.beginBytes);
  oocpc::AppendLittleEndian(out, lodPayload.endBytes);
  oocpc::AppendLittleEndian(out, pointCount);
  oocpc::AppendLittleEndian(out, addedPointCount);
  oocpc::AppendLittleEndian(out, blockCount);
  oocpc::AppendLittleEndian(out, addedBytes);
  oocpc::AppendLittleEndian(out, std::uint32_t{0});
  oocpc::AppendChecksum(out, begin);
}

HRESULT OOCPCUpdateIteration::Unstream(std::uint32_t version, const std::uint8_t* record,
                                       std::uint16_t recordBytes) {
  if (version > kStreamVersion) return oocpc::result::kUnknownVersion;
  if (version == 0 || recordBytes != kRecordBytes || record == nullptr) {
    return oocpc::result::kBadRecord;
  }
  std::span<const std::uint8_t> content;
  const HRESULT code = oocpc::CheckSealedPayload(record, recordBytes, content);
  if (oocpc::Failed(code)) return code;
  oocpc::ByteReader reader(content);
  OOCPCUpdateIteration read;
  std::uint32_t reserved = 0;
  const bool complete =
      reader.Read(read.timePoint) && reader.Read(read.acceleratorPayload.beginBytes) &&
      reader.Read(read.acceleratorPayload.sizeBytes) && reader.Read(read.lodPayload.beginBytes) &&
      reader.Read(read.lodPayload.endBytes) && reader.Read(read.pointCount) &&
      reader.Read(read.addedPointCount) && reader.Read(read.blockCount) &&
      reader.Read(read.addedBytes) && reader.Read(reserved);
  if (!complete || reserved != 0 || !IsConsistent(read)) return oocpc::result::kBadRecord;
  *this = read;
  return oocpc::result::kOk;
}
