// A level-of-detail node cache: its tables, and what is asked of them.
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstring>

#include "OOCPointCloudTarn/repository/LodBusyLock.h"
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeWorker.h"

namespace {

constexpr std::size_t kInitialBuckets = 8;
constexpr float kMaximumLoadFactor = 4.0F;
constexpr std::uint32_t kCapabilities = 0x50000000;

}  // namespace

TarnOOCLODNodeEntry TarnOOCLODNodeEntry::FromRecord(const std::uint8_t* record) {
  static_assert(sizeof(words) + sizeof(values) == OOCPCLODNodeRecord::kBytes);
  TarnOOCLODNodeEntry entry;
  std::memcpy(entry.words.data(), record, sizeof(entry.words));
  std::memcpy(entry.values.data(), record + sizeof(entry.words), sizeof(entry.values));
  return entry;
}

std::size_t TarnOOCLODNodeCache::NodeKeyHash::operator()(const NodeKey& key) const noexcept {
  // 2 to the power of 64 and more leaves nothing in 64 bits.
  constexpr std::uint32_t kLevels = 22;
  const std::uint64_t ofLevel = key.level < kLevels ? std::uint64_t{1} << (3 * key.level) : 0;
  return static_cast<std::size_t>(ofLevel + key.indexInLevel);
}

std::size_t TarnOOCLODNodeCache::NameHash::operator()(const std::string& name) const noexcept {
  std::size_t hash = 0;
  for (const char character : name) {
    const auto number = static_cast<signed char>(character);
    hash = hash * std::size_t{0x9E3779B97F4A7C15u} ^ static_cast<std::size_t>(number);
  }
  return hash;
}

TarnOOCLODNodeCache::TarnOOCLODNodeCache(TarnOOCPointCloud* owner, OOCPCLODContainer* lodContainer)
    : owner(owner), lodContainer(lodContainer), containerMap(kInitialBuckets) {
  containerMap.max_load_factor(kMaximumLoadFactor);
  ClearNodes();
}

TarnOOCLODNodeCache::~TarnOOCLODNodeCache() = default;

HRESULT TarnOOCLODNodeCache::Reset() {
  worker.reset();
  ClearNodes();
  containerMap.clear();
  header = {};
  isSealed = false;
  scale = 0;
  centre = {};
  return oocpc::result::kOk;
}

void TarnOOCLODNodeCache::ClearNodes() {
  nodeIndex.reset();
  nodeIndexMemory.release();
  nodeIndex.emplace(kInitialBuckets, NodeKeyHash(), std::equal_to<NodeKey>(), &nodeIndexMemory);
  nodeEntries = {};
}

bool TarnOOCLODNodeCache::HasLODContainer() const { return lodContainer != nullptr; }

HRESULT TarnOOCLODNodeCache::SetLODContainer(OOCPCLODContainer* container) {
  if (lodContainer != nullptr) DetachLODContainer();
  lodContainer = container;
  return oocpc::result::kOk;
}

void TarnOOCLODNodeCache::DetachLODContainer() { lodContainer = nullptr; }

void TarnOOCLODNodeCache::ForgetOwner(const TarnOOCPointCloud* gone) {
  if (owner != gone) return;
  if (owner->ownership.Owns(lodContainer)) DetachLODContainer();
  owner = nullptr;
}

double TarnOOCLODNodeCache::GetScale() const { return scale; }

bool TarnOOCLODNodeCache::GetCentre(double (&centreOut)[3]) const {
  std::copy(centre.begin(), centre.end(), centreOut);
  return true;
}

std::uint32_t TarnOOCLODNodeCache::GetCapabilities() const { return kCapabilities; }

bool TarnOOCLODNodeCache::ReleaseFinishedWorker() {
  if (worker == nullptr) return true;
  if (worker->GetStatus() != TarnOOCLODNodeWorker::kFinished) return false;
  worker.reset();
  return true;
}

HRESULT TarnOOCLODNodeCache::ReservedSlot10() { return oocpc::result::kFail; }
HRESULT TarnOOCLODNodeCache::ReservedSlot15() { return oocpc::result::kFail; }
HRESULT TarnOOCLODNodeCache::ReservedSlot16() { return oocpc::result::kFail; }
void TarnOOCLODNodeCache::ReservedSlot18() {}

HRESULT TarnOOCLODNodeCache::WaitForNodeLoading() {
  const BusyLock lock(busy, mutex);
  if (worker == nullptr) return oocpc::result::kFail;
  worker->Join();
  const HRESULT status = worker->GetStatus();
  // Also a load that ended well is answered with a failure: whoever waits asks the nodes.
  return oocpc::Failed(status) ? status : oocpc::result::kFail;
}

OOCPCMetaDataContainer* TarnOOCLODNodeCache::FindLevelContainer(const std::string& name) {
  if (busy != 0) {
    const std::lock_guard<std::mutex> untilLoaded(mutex);
  }
  const auto found = containerMap.find(name);
  return found == containerMap.end() ? nullptr : found->second.get();
}

HRESULT TarnOOCLODNodeCache::GetLevelContainer(const char* name,
                                               OOCPCMetaDataContainer*& container) {
  container = name == nullptr ? nullptr : FindLevelContainer(name);
  return container == nullptr ? oocpc::result::kLodNoLevelContainer : oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::GetMetaDataContainer(std::string_view name,
                                                  OOCPCMetaDataContainer*& container) {
  container = FindLevelContainer(std::string(name));
  return container == nullptr ? oocpc::result::kNothingDone : oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::FindNode(std::uint32_t indexInLevel, std::uint32_t level,
                                      std::uint64_t& firstPoint, std::uint32_t& pointCount) {
  std::unique_lock<std::mutex> whileLoading;
  if (worker != nullptr) {
    const HRESULT status = worker->GetStatus();
    if (oocpc::Failed(status)) return status;
    if (status == TarnOOCLODNodeWorker::kRunning) {
      whileLoading = std::unique_lock<std::mutex>(worker->GetMutex());
    }
  }
  const auto found = nodeIndex->find(NodeKey{level, indexInLevel});
  if (found == nodeIndex->end()) {
    firstPoint = 0;
    pointCount = 0;
    return oocpc::result::kLodNodeNotFound;
  }
  const TarnOOCLODNodeEntry& entry = nodeEntries[found->second];
  firstPoint = entry.GetFirstPoint();
  pointCount = entry.GetPointCount();
  return oocpc::result::kOk;
}
