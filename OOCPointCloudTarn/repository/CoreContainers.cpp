// Makes the accelerator, update-iteration, level-of-detail and positions containers out of the
// chunks that the parse selected.
#include <OOCPointCloud/ResultCodes.h>

#include <new>

#include "OOCPointCloudTarn/repository/ChunkSelection.h"

namespace {

constexpr std::size_t kCoreContainers = 4;
constexpr std::uint32_t kAcceleratorBits = 0xFF0000;

// Makes one container and loads it; `slot` must be free.
template <typename Container, typename... Arguments>
HRESULT Create(std::unique_ptr<Container>& slot, HRESULT takenCode, const OOCIndexChunk& chunk,
               Arguments... arguments) {
  if (slot != nullptr) return takenCode;
  slot.reset(new (std::nothrow) Container(arguments...));
  if (slot == nullptr) return oocpc::result::kContainerNotAllocated;
  return slot->LoadFromChunk(chunk.payload.data(), chunk.size);
}

}  // namespace

HRESULT TarnOOCPointCloud::CreateCoreContainers(ChunkSelection& selection) const {
  if (dataRepository == nullptr) return oocpc::result::kNoRepository;
  if (selection.acceleratorContainer != nullptr || selection.updateIterationContainer != nullptr ||
      selection.lodContainer != nullptr || selection.positionsContainer != nullptr) {
    return oocpc::result::kContainerSlotTaken;
  }
  std::vector<OOCIndexChunk>& chunks = selection.selectedChunks;
  std::size_t at = 0;
  for (std::size_t created = 0; created < kCoreContainers && at < chunks.size();) {
    const OOCIndexChunk& chunk = chunks[at];
    HRESULT code = oocpc::result::kOk;
    if ((chunk.type & kAcceleratorBits) != 0) {
      code = Create(selection.acceleratorContainer, oocpc::result::kSecondAccelerator, chunk,
                    chunk.type, dataRepository);
    } else if (chunk.type == oocpc::chunk_type::kUpdateIterations) {
      code = Create(selection.updateIterationContainer, oocpc::result::kSecondUpdateIterations,
                    chunk, dataRepository, chunk.type);
    } else if (chunk.type == oocpc::chunk_type::kLevelOfDetail) {
      code = Create(selection.lodContainer, oocpc::result::kSecondLod, chunk, dataRepository,
                    chunk.type, "");
    } else if (chunk.type == oocpc::chunk_type::kStaticPositions) {
      code = Create(selection.positionsContainer, oocpc::result::kSecondPositions, chunk,
                    dataRepository);
    } else {
      ++at;
      continue;
    }
    if (oocpc::Failed(code)) return code;
    ++created;
    // The last chunk takes the place of the one that was consumed, and is looked at next.
    std::swap(chunks[at], chunks.back());
    chunks.pop_back();
  }
  return oocpc::result::kOk;
}
