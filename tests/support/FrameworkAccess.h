// Reaches the private operations and fields of a point cloud, as the framework does.
#pragma once

#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <utility>

#include "OOCPointCloudTarn/repository/ChunkSelection.h"

class TarnFrameworkAccess {
 public:
  using ChunkSelection = TarnOOCPointCloud::ChunkSelection;

  explicit TarnFrameworkAccess(TarnOOCPointCloud& cloud) : cloud_(cloud) {}

  HRESULT ParseHeader(OOCPointCloudFileHeader* header, OOCPCRepositoryInformation* information,
                      std::array<std::uint8_t, 16>* value16, std::vector<OOCIndexChunk>* selected,
                      std::vector<OOCIndexChunk>* other, std::array<double, 6>* seed) {
    return cloud_.ParseHeader(header, information, value16, selected, other, seed);
  }
  HRESULT CreateCoreContainers(ChunkSelection& selection) {
    return cloud_.CreateCoreContainers(selection);
  }
  HRESULT LoadChunkSelection(ChunkSelection&& selection) {
    return cloud_.LoadChunkSelection(std::move(selection));
  }
  HRESULT DestroyDataRepository() { return cloud_.DestroyDataRepository(); }
  HRESULT AddContainer(OOCPCContainer* container) { return cloud_.AddContainer(container); }
  HRESULT GetIteration(std::uint64_t index, std::shared_ptr<OOCPCUpdateIteration>& iteration) {
    return cloud_.GetIteration(index, iteration);
  }
  HRESULT GetPayload(std::uint64_t index, OOCPCUpdItrAcceleratorPayload& payload) {
    return cloud_.GetPayload(index, payload);
  }
  HRESULT GetLODPayload(std::uint64_t index, OOCPCUpdItrLODPayload& payload) {
    return cloud_.GetLODPayload(index, payload);
  }
  void SetMortonSeed(const double (&seed)[6]) { cloud_.SetMortonSeed(seed); }
  void UnsetMortonSeed() { cloud_.UnsetMortonSeed(); }
  void SetSeedPlacement(std::uint64_t index, std::int32_t value) {
    cloud_.SetSeedPlacement(index, value);
  }
  void GetSeedPlacement(std::uint64_t& index, std::int32_t& value) const {
    cloud_.GetSeedPlacement(index, value);
  }

  /// Lets the cloud refer to a repository that stays the caller's and outlives the cloud.
  void Lend(OOCPCIDataRepository& repository) { cloud_.dataRepository = &repository; }

  [[nodiscard]] const OOCPointCloudFileHeader& Header() const { return cloud_.header; }
  [[nodiscard]] OOCPCMetaDataInfo& MetaDataInfo() { return cloud_.metaDataInfo; }
  [[nodiscard]] auto& OwnedContainers() { return cloud_.ownedContainers; }
  [[nodiscard]] auto& ContainersByName() { return cloud_.containersByName; }
  [[nodiscard]] auto& IterationCache() { return cloud_.iterationCache; }
  [[nodiscard]] auto& OriginCache() { return cloud_.originCache; }
  [[nodiscard]] auto& LodNodeCacheMap() { return cloud_.lodNodeCacheMap; }
  [[nodiscard]] OOCPCAcceleratorContainer* Accelerator() const {
    return cloud_.acceleratorContainer;
  }
  [[nodiscard]] OOCPCUpdateIterationContainer* UpdateIterations() const {
    return cloud_.updateIterationContainer;
  }
  [[nodiscard]] OOCPCLODContainer* Lod() const { return cloud_.lodContainer; }
  [[nodiscard]] bool HasMortonSeed() const { return cloud_.hasMortonSeed; }
  [[nodiscard]] const std::array<double, 6>& MortonSeed() const { return cloud_.mortonSeed; }

 private:
  TarnOOCPointCloud& cloud_;
};
