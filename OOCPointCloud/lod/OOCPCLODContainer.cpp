// The level-of-detail container: its chunk, and the way to its stream.
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCLODContainer.h>

#include <memory>

#include "OOCPointCloud/containers/ChunkCompetition.h"

std::vector<std::uint8_t> OOCPCLODDescription::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, version);
  oocpc::AppendLittleEndian(out, std::uint16_t{0});
  oocpc::AppendLittleEndian(out, std::uint32_t{0});
  oocpc::AppendLittleEndian(out, blockCount);
  oocpc::AppendChecksum(out);
  return out;
}

HRESULT OOCPCLODDescription::DecodeChunk(const std::uint8_t* payload, std::uint32_t size) {
  oocpc::ByteReader reader({});
  const HRESULT code = oocpc::OpenVersionedPayload(payload, size, kVersion, reader);
  if (oocpc::Failed(code)) return code;
  OOCPCLODDescription read;
  std::uint16_t reserved16 = 0;
  std::uint32_t reserved32 = 0;
  const bool complete = reader.Read(reserved16) && reader.Read(reserved32) &&
                        reader.Read(read.blockCount) && reader.GetRemaining() == 0;
  if (!complete || reserved16 != 0 || reserved32 != 0) return oocpc::result::kBadRecord;
  *this = read;
  return oocpc::result::kOk;
}

OOCPCLODContainer::OOCPCLODContainer(OOCPCIDataRepository* repository,
                                     oocpc::ContainerChunkType chunkType, const char* name)
    : OOCPCContainer(repository, chunkType, name == nullptr ? "" : name) {}

OOCPCLODContainer::~OOCPCLODContainer() = default;

HRESULT OOCPCLODContainer::IsEligibleChunk(const oocpc::ChunkDescriptor& chunk) {
  return oocpc::CheckEligibility<OOCPCLODDescription>(chunk);
}

bool OOCPCLODContainer::CompareChunks(const oocpc::ChunkDescriptor& kept,
                                      const oocpc::ChunkDescriptor& candidate) {
  return oocpc::PrefersLater(kept, candidate);
}

HRESULT OOCPCLODContainer::LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) {
  return description_.DecodeChunk(payload, size);
}

OOCPCIInputStream* OOCPCLODContainer::CreateLODInputStream() const {
  OOCPCIDataRepository* const repository = GetRepository();
  return repository == nullptr ? nullptr : repository->CreateInputStream(kStreamName);
}

void OOCPCLODContainer::SetExtendedData(const std::uint8_t* data, std::uint16_t size) {
  if (data == nullptr) size = 0;
  const std::lock_guard<std::mutex> lock(extendedDataMutex_);
  extendedData_.assign(data, data + size);
}

std::vector<std::uint8_t> OOCPCLODContainer::GetExtendedData() const {
  const std::lock_guard<std::mutex> lock(extendedDataMutex_);
  return extendedData_;
}

OOCPCLODContainer* OOCPCLODContainer::Clone() const {
  auto clone = std::make_unique<OOCPCLODContainer>(GetRepository(), GetChunkType(), GetName());
  clone->description_ = description_;
  clone->extendedData_ = GetExtendedData();
  return clone.release();
}
