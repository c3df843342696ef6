// The update-iteration container: its chunk, and records by index.
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>

#include <limits>

#include "OOCPointCloud/containers/ChunkCompetition.h"
#include "OOCPointCloud/streams/StreamAccess.h"

namespace {

constexpr std::uint64_t kMaximumIterations =
    std::numeric_limits<std::uint64_t>::max() / OOCPCUpdateIteration::kRecordBytes;

}  // namespace

std::vector<std::uint8_t> OOCPCUpdateIterationDescription::EncodeChunk() const {
  std::vector<std::uint8_t> out;
  oocpc::AppendLittleEndian(out, version);
  oocpc::AppendLittleEndian(out, recordBytes);
  oocpc::AppendLittleEndian(out, streamVersion);
  oocpc::AppendLittleEndian(out, iterationCount);
  oocpc::AppendChecksum(out);
  return out;
}

HRESULT OOCPCUpdateIterationDescription::DecodeChunk(const std::uint8_t* payload,
                                                     std::uint32_t size) {
  oocpc::ByteReader reader({});
  const HRESULT code = oocpc::OpenVersionedPayload(payload, size, kVersion, reader);
  if (oocpc::Failed(code)) return code;
  OOCPCUpdateIterationDescription read;
  const bool complete = reader.Read(read.recordBytes) && reader.Read(read.streamVersion) &&
                        reader.Read(read.iterationCount) && reader.GetRemaining() == 0;
  if (!complete || read.streamVersion == 0) return oocpc::result::kBadRecord;
  if (read.streamVersion > OOCPCUpdateIteration::kStreamVersion) {
    return oocpc::result::kUnknownVersion;
  }
  if (read.recordBytes != OOCPCUpdateIteration::kRecordBytes ||
      read.iterationCount > kMaximumIterations) {
    return oocpc::result::kBadRecord;
  }
  *this = read;
  return oocpc::result::kOk;
}

OOCPCUpdateIterationContainer::OOCPCUpdateIterationContainer(OOCPCIDataRepository* repository,
                                                             oocpc::ContainerChunkType chunkType)
    : OOCPCContainer(repository, chunkType, kStreamName) {}

OOCPCUpdateIterationContainer::~OOCPCUpdateIterationContainer() = default;

HRESULT OOCPCUpdateIterationContainer::IsEligibleChunk(const oocpc::ChunkDescriptor& chunk) {
  return oocpc::CheckEligibility<OOCPCUpdateIterationDescription>(chunk);
}

bool OOCPCUpdateIterationContainer::CompareChunks(const oocpc::ChunkDescriptor& kept,
                                                  const oocpc::ChunkDescriptor& candidate) {
  return oocpc::PrefersLater(kept, candidate);
}

HRESULT OOCPCUpdateIterationContainer::LoadFromChunk(const std::uint8_t* payload,
                                                     std::uint32_t size) {
  return description_.DecodeChunk(payload, size);
}

HRESULT OOCPCUpdateIterationContainer::ReadUpdateIterations(std::uint64_t index,
                                                            std::uint64_t iterationCount,
                                                            std::uint8_t* record) const {
  if (record == nullptr) return oocpc::result::kFail;
  if (index >= iterationCount || index >= description_.iterationCount) {
    return oocpc::result::kIndexOutOfRange;
  }
  std::unique_ptr<OOCPCIInputStream> stream;
  HRESULT code = oocpc::OpenNamedStream(GetRepository(), kStreamName, stream);
  if (oocpc::Failed(code)) return code;
  const std::uint64_t recordBytes = description_.recordBytes;
  if (iterationCount > stream->GetLength() / recordBytes) return oocpc::result::kStreamShort;
  std::uint8_t read[OOCPCUpdateIteration::kRecordBytes];
  code = oocpc::ReadExactly(*stream, index * recordBytes, read);
  if (oocpc::Failed(code)) return code;
  std::span<const std::uint8_t> content;
  code = oocpc::CheckSealedPayload(read, sizeof(read), content);
  if (!oocpc::Failed(code)) std::memcpy(record, read, sizeof(read));
  return code;
}

OOCPCUpdateIterationContainer* OOCPCUpdateIterationContainer::Clone() const {
  auto clone = std::make_unique<OOCPCUpdateIterationContainer>(GetRepository(), GetChunkType());
  clone->description_ = description_;
  return clone.release();
}
