// Feeds arbitrary bytes to the level-of-detail chunk.
#include <OOCPointCloud/OOCPCLODContainer.h>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  oocpcfuzz::DecodeAndEncodeChunk<OOCPCLODDescription>(data, size);
  const oocpcfuzz::Bytes payload = oocpcfuzz::SealedAnew({data, data + size});
  const oocpc::ChunkDescriptor chunk{payload.data(), static_cast<std::uint32_t>(payload.size()),
                                     oocpc::chunk_type::kLevelOfDetail};
  OOCPCLODContainer container(nullptr, oocpc::chunk_type::kLevelOfDetail, "");
  const HRESULT loaded = container.LoadFromChunk(std::get<0>(chunk), std::get<1>(chunk));
  const HRESULT eligible = OOCPCLODContainer::IsEligibleChunk(chunk);
  oocpcfuzz::Require(eligible == (loaded == oocpc::result::kUnknownVersion ? 1 : loaded));
  oocpcfuzz::Require(OOCPCLODContainer::CompareChunks(chunk, chunk));
  return 0;
}
