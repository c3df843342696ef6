// Feeds arbitrary bytes to the static metadata chunk.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  oocpcfuzz::DecodeAndEncodeChunk<OOCPCMetaDataDescription>(data, size);
  const oocpcfuzz::Bytes payload = oocpcfuzz::SealedAnew({data, data + size});
  OOCPCStaticMetaDataContainer container(nullptr);
  const HRESULT code =
      container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
  if (code != oocpc::result::kOk) return 0;
  oocpcfuzz::Require(container.GetName() == container.GetDescription().name);
  oocpcfuzz::Require(container.GetDataSize() >= 1 && container.GetDataSize() <= 24);
  return 0;
}
