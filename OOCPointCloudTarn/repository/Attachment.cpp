// Attaching a repository to a point cloud, and detaching it.
#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloudTarn/repository/ChunkSelection.h"

HRESULT TarnOOCPointCloud::AttachDataRepository(OOCPCIDataRepository* repository) {
  // Held across the detachment: the same repository may be attached anew.
  SharedOwnership::Guard guard = ownership.GuardOf(repository);
  if (dataRepository != nullptr) {
    const HRESULT detached = DestroyDataRepository();
    if (oocpc::Failed(detached)) return detached;
  }
  dataRepository = repository;
  ownership.Own(repository, std::move(guard));
  if (repository == nullptr) return oocpc::result::kNothingDone;

  ChunkSelection selection;
  OOCPCRepositoryInformation information;
  HRESULT code = ParseHeader(&header, &information, &selection.value16, &selection.selectedChunks,
                             &selection.otherChunks, &selection.mortonSeed);
  if (oocpc::Failed(code) || code == oocpc::result::kNothingDone) return code;
  code = dataRepository->SetRepositoryInformation(&information);
  if (oocpc::Failed(code)) return code;
  code = CreateCoreContainers(selection);
  if (oocpc::Failed(code)) return code;
  code = LoadChunkSelection(std::move(selection));
  return oocpc::Failed(code) ? code : oocpc::result::kOk;
}

HRESULT TarnOOCPointCloud::DestroyDataRepository() {
  header = OOCPointCloudFileHeader();
  for (OOCPCContainer* const container : ownedContainers) ownership.Release(container);
  ownedContainers.clear();
  containersByName.clear();
  hasMortonSeed = false;
  seedPlacementIndex = 0;
  seedPlacementValue = -1;
  metaDataInfo.Clear();
  ownership.Release(dataRepository);
  dataRepository = nullptr;
  return oocpc::result::kOk;
}

bool TarnOOCPointCloud::IsReadable(const OOCPCContainer& container) const {
  return container.GetRepository() == nullptr || container.GetRepository() == dataRepository;
}
