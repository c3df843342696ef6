// The payload of an accelerator chunk.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>

#include <cmath>

#include "OOCPointCloud/containers/ChunkCompetition.h"

std::vector<std::uint8_t> OOCPCAcceleratorDescription::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, version);
  oocpc::AppendLittleEndian(out, std::uint16_t{OOCPCOctreeAcceleratorNode::kBytes});
  oocpc::AppendLittleEndian(out, std::uint32_t{0});
  for (const double coordinate : cubeMin) oocpc::AppendLittleEndian(out, coordinate);
  oocpc::AppendLittleEndian(out, cubeEdge);
  oocpc::AppendChecksum(out);
  return out;
}

HRESULT OOCPCAcceleratorDescription::DecodeChunk(const std::uint8_t* payload, std::uint32_t size) {
  oocpc::ByteReader reader({});
  const HRESULT code = oocpc::OpenVersionedPayload(payload, size, kVersion, reader);
  if (oocpc::Failed(code)) return code;
  OOCPCAcceleratorDescription read;
  std::uint16_t nodeBytes = 0;
  std::uint32_t reserved = 0;
  bool good = reader.Read(nodeBytes) && nodeBytes == OOCPCOctreeAcceleratorNode::kBytes &&
              reader.Read(reserved) && reserved == 0;
  for (double& coordinate : read.cubeMin) {
    good = good && reader.Read(coordinate) && std::isfinite(coordinate);
  }
  good = good && reader.Read(read.cubeEdge) && std::isfinite(read.cubeEdge) && read.cubeEdge > 0 &&
         reader.GetRemaining() == 0;
  if (!good) return oocpc::result::kBadRecord;
  *this = read;
  return oocpc::result::kOk;
}
