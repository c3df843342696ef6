// The payload of a positions chunk.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <cmath>

#include "OOCPointCloud/containers/ChunkCompetition.h"
#include "OOCPointCloud/containers/ContainerName.h"

namespace {

bool IsUsable(double scale, double offset) {
  return std::isfinite(scale) && scale != 0 && std::isfinite(offset);
}

}  // namespace

std::vector<std::uint8_t> OOCPCPositionsDescription::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, kVersion);
  oocpc::AppendLittleEndian(out, std::uint16_t{0});
  oocpc::AppendLittleEndian(out, columnId);
  for (const double value : scale) oocpc::AppendLittleEndian(out, value);
  for (const double value : offset) oocpc::AppendLittleEndian(out, value);
  oocpc::AppendText(out, name);
  oocpc::AppendChecksum(out);
  return out;
}

HRESULT OOCPCPositionsDescription::DecodeChunk(const std::uint8_t* payload, std::uint32_t size) {
  oocpc::ByteReader reader({});
  const HRESULT code = oocpc::OpenVersionedPayload(payload, size, kVersion, reader);
  if (oocpc::Failed(code)) return code;
  OOCPCPositionsDescription read;
  std::uint16_t reserved = 0;
  bool good = reader.Read(reserved) && reserved == 0 && reader.Read(read.columnId);
  for (double& value : read.scale) good = good && reader.Read(value);
  for (double& value : read.offset) good = good && reader.Read(value);
  good = good && reader.ReadText(read.name) && reader.GetRemaining() == 0 &&
         oocpc::IsContainerName(read.name);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    good = good && IsUsable(read.scale[axis], read.offset[axis]);
  }
  if (!good) return oocpc::result::kBadRecord;
  *this = std::move(read);
  return oocpc::result::kOk;
}
