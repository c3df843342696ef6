// A point cloud's level-of-detail node caches, one per update iteration, each loaded once.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"

HRESULT TarnOOCPointCloud::GetLODNodeCache(std::uint64_t iterationIndex,
                                           std::shared_ptr<OOCPCLODNodeCache>& cache) {
  const auto known = lodNodeCacheMap.find(iterationIndex);
  if (known != lodNodeCacheMap.end()) {
    cache = known->second;
    return oocpc::result::kOk;
  }
  auto made = std::make_shared<TarnOOCLODNodeCache>(this, lodContainer);
  OOCPCUpdateIteration iteration;
  HRESULT code = ReadIteration(iterationIndex, iteration);
  if (oocpc::Failed(code)) return code;
  OOCPCUpdItrLODPayload payload;
  iteration.GetLODPayload(payload);
  code = made->LoadLODPayload(payload, false);
  if (oocpc::Failed(code)) return code;
  const auto [place, added] = lodNodeCacheMap.insert({iterationIndex, made});
  // Where another thread was faster, this caller gets the cache that it loaded itself.
  cache = added ? place->second : std::move(made);
  return added ? code : oocpc::result::kNothingDone;
}

HRESULT TarnOOCPointCloud::CloneLODContainer(std::uint64_t iterationIndex, const std::string& name,
                                             OOCPCMetaDataContainer*& container) {
  std::shared_ptr<OOCPCLODNodeCache> cache;
  HRESULT code = GetLODNodeCache(iterationIndex, cache);
  if (oocpc::Failed(code) || cache == nullptr) return code;
  OOCPCMetaDataContainer* found = nullptr;
  code = cache->GetMetaDataContainer(name, found);
  if (oocpc::Failed(code)) return code;
  if (found != nullptr) container = found->Clone();
  return code;
}

void TarnOOCPointCloud::LeaveNodeCaches() {
  for (const auto& [iterationIndex, cache] : lodNodeCacheMap) {
    auto* const own = dynamic_cast<TarnOOCLODNodeCache*>(cache.get());
    if (own != nullptr) own->ForgetOwner(this);
  }
}
