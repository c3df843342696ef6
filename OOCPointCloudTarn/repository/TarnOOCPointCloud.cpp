// Construction, copying and destruction of point clouds, and their plain accessors.
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

namespace {

constexpr std::size_t kInitialBuckets = 8;
constexpr float kMaximumLoadFactor = 4.0F;

}  // namespace

TarnOOCPointCloud::TarnOOCPointCloud()
    : lodNodeCacheMap(kInitialBuckets),
      iterationCache(kInitialBuckets),
      originCache(kInitialBuckets) {
  lodNodeCacheMap.max_load_factor(kMaximumLoadFactor);
  iterationCache.max_load_factor(kMaximumLoadFactor);
  originCache.max_load_factor(kMaximumLoadFactor);
}

TarnOOCPointCloud::TarnOOCPointCloud(const TarnOOCPointCloud& other) = default;

TarnOOCPointCloud& TarnOOCPointCloud::operator=(const TarnOOCPointCloud& other) {
  if (this == &other) return *this;
  lodNodeCacheMap = other.lodNodeCacheMap;
  iterationCache = other.iterationCache;
  originCache = other.originCache;
  acceleratorContainer = other.acceleratorContainer;
  updateIterationContainer = other.updateIterationContainer;
  lodContainer = other.lodContainer;
  header = other.header;
  dataRepository = other.dataRepository;
  settings = other.settings;
  metaDataInfo = other.metaDataInfo;
  ownedContainers = other.ownedContainers;
  containersByName = other.containersByName;
  hasMortonSeed = other.hasMortonSeed;
  mortonSeed = other.mortonSeed;
  seedPlacementValue = other.seedPlacementValue;
  seedPlacementIndex = other.seedPlacementIndex;
  ownership.ShareWith(other.ownership);
  return *this;
}

TarnOOCPointCloud::~TarnOOCPointCloud() {
  LeaveNodeCaches();
  DestroyDataRepository();
  ownership.Release(acceleratorContainer);
  ownership.Release(updateIterationContainer);
  ownership.Release(lodContainer);
}

OOCPCIDataRepository* TarnOOCPointCloud::GetDataRepository() const { return dataRepository; }

OOCPointCloudSettings& TarnOOCPointCloud::GetSettings() { return settings; }

const OOCPointCloudSettings& TarnOOCPointCloud::GetSettings() const { return settings; }

void TarnOOCPointCloud::SetMortonSeed(const double (&seed)[6]) {
  std::copy(std::begin(seed), std::end(seed), mortonSeed.begin());
  hasMortonSeed = true;
}

void TarnOOCPointCloud::UnsetMortonSeed() { hasMortonSeed = false; }

void TarnOOCPointCloud::SetSeedPlacement(std::uint64_t index, std::int32_t value) {
  seedPlacementIndex = index;
  seedPlacementValue = value;
}

void TarnOOCPointCloud::GetSeedPlacement(std::uint64_t& index, std::int32_t& value) const {
  index = seedPlacementIndex;
  value = seedPlacementValue;
}
