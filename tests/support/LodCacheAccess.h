// Looks at the tables and the worker of a level-of-detail node cache.
#pragma once

#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeWorker.h"

class TarnLodCacheAccess {
 public:
  explicit TarnLodCacheAccess(TarnOOCLODNodeCache& cache) : cache_(cache) {}

  [[nodiscard]] const OOCPCLODHeader& Header() const { return cache_.header; }
  [[nodiscard]] std::uint64_t NodeStreamId() const { return cache_.nodeStreamId; }
  [[nodiscard]] const std::vector<TarnOOCLODNodeEntry>& NodeEntries() const {
    return cache_.nodeEntries;
  }
  [[nodiscard]] const auto& NodeIndex() const { return *cache_.nodeIndex; }
  [[nodiscard]] auto& ContainerMap() { return cache_.containerMap; }
  [[nodiscard]] TarnOOCLODNodeWorker* Worker() const { return cache_.worker.get(); }
  [[nodiscard]] bool IsBusy() const { return cache_.busy != 0; }

  [[nodiscard]] static std::size_t HashOfNode(std::uint32_t level, std::uint32_t indexInLevel) {
    return TarnOOCLODNodeCache::NodeKeyHash()({level, indexInLevel});
  }
  [[nodiscard]] static std::size_t HashOfName(const std::string& name) {
    return TarnOOCLODNodeCache::NameHash()(name);
  }
  /// Safe from any thread while the worker lives, also while it is being destroyed.
  [[nodiscard]] static bool IsStopRequested(const TarnOOCLODNodeWorker& worker) {
    return worker.stopRequested;
  }

 private:
  TarnOOCLODNodeCache& cache_;
};
