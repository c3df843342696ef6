// The payload of a static metadata chunk.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include "OOCPointCloud/containers/ChunkCompetition.h"
#include "OOCPointCloud/containers/ContainerName.h"

std::vector<std::uint8_t> OOCPCMetaDataDescription::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, kVersion);
  oocpc::AppendLittleEndian(out, type.value);
  oocpc::AppendLittleEndian(out, type.components);
  oocpc::AppendLittleEndian(out, columnId);
  oocpc::AppendText(out, name);
  oocpc::AppendText(out, description);
  oocpc::AppendChecksum(out);
  return out;
}

HRESULT OOCPCMetaDataDescription::DecodeChunk(const std::uint8_t* payload, std::uint32_t size) {
  oocpc::ByteReader reader({});
  const HRESULT code = oocpc::OpenVersionedPayload(payload, size, kVersion, reader);
  if (oocpc::Failed(code)) return code;
  OOCPCMetaDataDescription read;
  std::uint8_t valueType = 0;
  const bool complete = reader.Read(valueType) && reader.Read(read.type.components) &&
                        reader.Read(read.columnId) && reader.ReadText(read.name) &&
                        reader.ReadText(read.description) && reader.GetRemaining() == 0;
  if (!complete || !oocpc::IsValueType(valueType) || read.type.components < 1 ||
      read.type.components > 3 || !oocpc::IsContainerName(read.name)) {
    return oocpc::result::kBadRecord;
  }
  read.type.value = static_cast<oocpc::ValueType>(valueType);
  *this = std::move(read);
  return oocpc::result::kOk;
}
