// A node cache on its own: over a point cloud with two containers that only log, and streams whose
// bytes and behaviour a test sets.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/FakeMetaDataContainer.h"
#include "tests/support/FrameworkAccess.h"
#include "tests/support/HookedRepository.h"
#include "tests/support/LodCacheAccess.h"
#include "tests/support/LodStreams.h"

namespace oocpctest {

/// What a test gets from FindNode.
struct FoundNode {
  HRESULT code = oocpc::result::kOk;
  std::uint64_t value = 0x7777;
  std::uint32_t word = 0x777;

  bool operator==(const FoundNode&) const = default;
};
/// What FindNode answers for the sample node `number`.
inline FoundNode SampleNode(std::uint64_t number) {
  return {oocpc::result::kOk, SampleNodeValue(number), SampleNodeWord(number)};
}
inline constexpr FoundNode kNoNode{oocpc::result::kLodNodeNotFound, 0, 0};

inline FoundNode Find(OOCPCLODNodeCache& cache, std::uint32_t indexInLevel,
                      std::uint32_t level = 5) {
  FoundNode found;
  found.code = cache.FindNode(indexInLevel, level, found.value, found.word);
  return found;
}

class LodRig {
 public:
  LodRig() {
    access.Lend(repository);
    AddContainer(chunk_type::kStaticPositions, "DEF_POSITION");
    AddContainer(chunk_type::kStaticMetaData, "DEF_COLOR");
  }

  void AddContainer(oocpc::ContainerChunkType type, const std::string& name,
                    const FakeContainerBehaviour& behaviour = {}) {
    const HRESULT code = access.AddContainer(new FakeMetaDataContainer(
        type, name, events, std::make_shared<FakeContainerBehaviour>(behaviour)));
    if (oocpc::Failed(code)) throw std::runtime_error("not added: " + name);
  }
  /// Makes `block` the level-of-detail stream, behind `before` other bytes, and what is loaded.
  void Put(const LodBlock& block, std::uint64_t before = 0) {
    Bytes bytes(before, 0xBE);
    const Bytes whole = block.Whole();
    bytes.insert(bytes.end(), whole.begin(), whole.end());
    payload = {before, bytes.size()};
    Streams().Add(OOCPCLODContainer::kStreamName, std::move(bytes));
  }
  /// The same, and the sample nodes that the block states.
  void PutWithNodes(const LodBlock& block) {
    Put(block);
    Streams().Add(NodeStreamName(block.nodeStreamId), SampleNodeRecords(block.recordCount));
  }
  [[nodiscard]] HRESULT Load(bool background = false) {
    return cache->LoadLODPayload(payload, background);
  }

  [[nodiscard]] FakeRepository& Streams() { return repository.GetInner(); }
  [[nodiscard]] StreamHooks& Hooks() { return *repository.GetHooks(); }
  [[nodiscard]] bool AllStreamsDestroyed() { return Streams().GetLog()->AllStreamsDestroyed(); }
  [[nodiscard]] TarnLodCacheAccess Inside() { return TarnLodCacheAccess(*cache); }

  std::shared_ptr<EventLog> events = std::make_shared<EventLog>();
  HookedRepository repository{std::make_unique<FakeRepository>(Bytes{})};
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access{cloud};
  OOCPCLODContainer lodContainer{&repository, chunk_type::kLevelOfDetail, ""};
  OOCPCUpdItrLODPayload payload;
  std::unique_ptr<TarnOOCLODNodeCache> cache =
      std::make_unique<TarnOOCLODNodeCache>(&cloud, &lodContainer);
};

/// Base of test fixtures.
class LodCaches : public testing::Test {
 protected:
  LodRig rig;
};

}  // namespace oocpctest
