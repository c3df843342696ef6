// Installs in a point cloud what attachment picked out of the main stream.
#include <OOCPointCloud/ResultCodes.h>

#include <cstring>
#include <new>

#include "OOCPointCloudTarn/repository/ChunkSelection.h"

namespace {

// Bytes count, not values: a negative zero is a seed.
// NOLINTBEGIN(bugprone-suspicious-memory-comparison)
bool IsAllZeroBytes(const std::array<double, 6>& seed) {
  constexpr std::array<double, 6> kZeros{};
  return std::memcmp(seed.data(), kZeros.data(), sizeof(kZeros)) == 0;
}
// NOLINTEND(bugprone-suspicious-memory-comparison)

// Hands an object to an owner, which deletes it also when there is no memory to remember it by.
template <typename Object>
Object* TakeOver(std::unique_ptr<Object> object, SharedOwnership& ownership) {
  Object* const taken = object.release();
  ownership.Own(taken);
  return taken;
}

}  // namespace

HRESULT TarnOOCPointCloud::LoadChunkSelection(ChunkSelection&& selection) {
  if (!IsAllZeroBytes(selection.mortonSeed)) {
    mortonSeed = selection.mortonSeed;
    hasMortonSeed = true;
  }
  if (selection.acceleratorContainer == nullptr) return oocpc::result::kNoAccelerator;
  acceleratorContainer = TakeOver(std::move(selection.acceleratorContainer), ownership);
  HRESULT code = InstallPositions(selection);
  if (oocpc::Failed(code)) return code;
  if (selection.updateIterationContainer != nullptr) {
    updateIterationContainer = TakeOver(std::move(selection.updateIterationContainer), ownership);
  }
  if (selection.lodContainer != nullptr) {
    lodContainer = TakeOver(std::move(selection.lodContainer), ownership);
  }
  for (const OOCIndexChunk& chunk : selection.selectedChunks) {
    switch (chunk.type) {
      case oocpc::chunk_type::kStaticMetaData:
        code = LoadMetaDataChunk(chunk);
        break;
      case oocpc::chunk_type::kStringRepository:
        code = LoadStringRepositoryChunk(chunk);
        break;
      default:
        code = oocpc::result::kUnknownMetaDataChunk;
    }
    if (oocpc::Failed(code)) return code;
  }
  return oocpc::result::kOk;
}

HRESULT TarnOOCPointCloud::InstallPositions(ChunkSelection& selection) {
  if (selection.positionsContainer == nullptr) return oocpc::result::kNoPositions;
  if (IsRegistered(selection.positionsContainer->GetName())) return oocpc::result::kSecondPositions;
  RegisterMetaData(*selection.positionsContainer);
  return AddContainer(selection.positionsContainer.release());
}

HRESULT TarnOOCPointCloud::LoadMetaDataChunk(const OOCIndexChunk& chunk) {
  std::unique_ptr<OOCPCStaticMetaDataContainer> container(
      new (std::nothrow) OOCPCStaticMetaDataContainer(dataRepository));
  if (container == nullptr) return oocpc::result::kUnknownMetaDataChunk;
  const HRESULT code = container->LoadFromChunk(chunk.payload.data(), chunk.size);
  if (oocpc::Failed(code)) return code;
  if (IsRegistered(container->GetName())) return oocpc::result::kDuplicateContainer;
  RegisterMetaData(*container);
  return AddContainer(container.release());
}

// The dictionary is neither metadata nor registered; the repository keeps it for its string
// columns.
HRESULT TarnOOCPointCloud::LoadStringRepositoryChunk(const OOCIndexChunk& chunk) {
  std::unique_ptr<OOCPCStringRepositoryContainer> container(
      new (std::nothrow) OOCPCStringRepositoryContainer(dataRepository));
  if (container == nullptr) return oocpc::result::kUnknownMetaDataChunk;
  const HRESULT code = container->LoadFromChunk(chunk.payload.data(), chunk.size);
  if (!oocpc::Failed(code) && dataRepository != nullptr) {
    dataRepository->AdoptStringRepository(std::move(container));
  }
  return code;
}

void TarnOOCPointCloud::RegisterMetaData(const OOCPCMetaDataContainer& container) {
  metaDataInfo.RegisterMetaData(container.GetName(), metaDataInfo.GetTotalMetaDataSize(),
                                container.GetDataSize());
}
