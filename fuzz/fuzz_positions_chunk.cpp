// Feeds arbitrary bytes to the positions chunk.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <cmath>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  oocpcfuzz::DecodeAndEncodeChunk<OOCPCPositionsDescription>(data, size);
  const oocpcfuzz::Bytes payload = oocpcfuzz::SealedAnew({data, data + size});
  OOCPCPositionsDescription description;
  if (description.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size())) != 0) {
    return 0;
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    oocpcfuzz::Require(std::isfinite(description.scale[axis]) && description.scale[axis] != 0);
    oocpcfuzz::Require(std::isfinite(description.offset[axis]));
  }
  oocpcfuzz::Require(!description.name.empty());
  return 0;
}
