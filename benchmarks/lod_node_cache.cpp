// How fast a level-of-detail node cache is opened and asked, and octree nodes are read: a full
// octree of about a million nodes in memory.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t kNodes = 1000000;

/// The level and index of the n-th node of a full octree, level after level.
struct Key {
  std::uint32_t level = 0;
  std::uint32_t index = 0;
  static Key Of(std::uint32_t node) {
    Key key;
    std::uint32_t inLevel = 1;
    while (node >= inLevel) {
      node -= inLevel;
      inLevel *= 8;
      ++key.level;
    }
    key.index = node;
    return key;
  }
};

void Require(HRESULT code) {
  if (oocpc::Failed(code)) std::abort();
}

std::vector<std::uint8_t> NodeRecords() {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(std::size_t{kNodes} * OOCPCLODNodeRecord::kBytes);
  for (std::uint32_t i = 0; i < kNodes; ++i) {
    OOCPCLODNodeRecord record;
    record.indexInLevel = Key::Of(i).index;
    record.level = Key::Of(i).level;
    record.pointCount = 1;
    record.firstPoint = i;
    record.Encode(bytes);
  }
  return bytes;
}

std::vector<std::uint8_t> OctreeNodes() {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(std::size_t{kNodes} * OOCPCOctreeAcceleratorNode::kBytes);
  for (std::uint32_t i = 0; i < kNodes; ++i) {
    OOCPCOctreeAcceleratorNode node;
    node.firstPoint = i;
    node.Encode(bytes);
  }
  return bytes;
}

std::shared_ptr<OOCPCMemoryStreams> MakeStreams() {
  auto streams = std::make_shared<OOCPCMemoryStreams>();
  OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
  std::uint64_t position = 0;
  OOCPCLODBlock block;
  block.scale = 1;
  block.entries.resize(kNodes);
  std::vector<std::uint8_t> lod;
  block.Encode(lod);
  Require(writer.Append(OOCPCLODContainer::kStreamName, lod, position));
  Require(writer.Append(OOCPCLODNodeStreamName(0), NodeRecords(), position));
  const std::vector<std::uint8_t> nodes = OctreeNodes();
  Require(writer.Append(OOCPCAcceleratorContainer::kStreamName, nodes, position));
  for (const std::string& name :
       {oocpc::ColumnDataStreamName(0), oocpc::ColumnTableStreamName(0)}) {
    Require(writer.Append(name, {}, position));
  }
  OOCPCUpdateIteration iteration;
  iteration.acceleratorPayload = {0, nodes.size()};
  iteration.lodPayload = {0, lod.size()};
  std::vector<std::uint8_t> record;
  iteration.Stream(record);
  Require(writer.Append(OOCPCUpdateIterationContainer::kStreamName, record, position));
  OOCPCCatalogue catalogue;
  catalogue.chunks.emplace_back(oocpc::chunk_type::kAccelerator1,
                                OOCPCAcceleratorDescription{}.EncodeChunk());
  catalogue.chunks.emplace_back(oocpc::chunk_type::kStaticPositions,
                                OOCPCPositionsDescription{}.EncodeChunk());
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = 1;
  catalogue.chunks.emplace_back(oocpc::chunk_type::kUpdateIterations, iterations.EncodeChunk());
  OOCPCLODDescription levels;
  levels.blockCount = 1;
  catalogue.chunks.emplace_back(oocpc::chunk_type::kLevelOfDetail, levels.EncodeChunk());
  Require(writer.Commit(catalogue));
  return streams;
}

std::unique_ptr<TarnOOCPointCloud> Attach() {
  static const std::shared_ptr<OOCPCMemoryStreams> streams = MakeStreams();
  auto cloud = std::make_unique<TarnOOCPointCloud>();
  Require(cloud->AttachDataRepository(std::make_unique<OOCPCMemoryRepository>(streams).release()));
  return cloud;
}

void OpenNodeCache(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<TarnOOCPointCloud> cloud = Attach();
    std::shared_ptr<OOCPCLODNodeCache> cache;
    state.ResumeTiming();
    Require(cloud->GetLODNodeCache(0, cache));
    state.PauseTiming();
    cache.reset();
    cloud.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}
BENCHMARK(OpenNodeCache)->Unit(benchmark::kMillisecond)->Iterations(20);

/// Keys of existing nodes: in the order of a walk (0), or at random (1).
std::vector<Key> Keys(bool atRandom) {
  std::vector<Key> keys(1u << 20);
  std::mt19937 random(1);
  for (std::uint32_t i = 0; i < keys.size(); ++i) {
    keys[i] = Key::Of(atRandom ? static_cast<std::uint32_t>(random() % kNodes) : i % kNodes);
  }
  return keys;
}

void FindNode(benchmark::State& state) {
  const std::unique_ptr<TarnOOCPointCloud> cloud = Attach();
  std::shared_ptr<OOCPCLODNodeCache> cache;
  Require(cloud->GetLODNodeCache(0, cache));
  const std::vector<Key> keys = Keys(state.range(0) != 0);
  std::size_t at = 0;
  std::uint64_t first = 0;
  std::uint32_t count = 0;
  for (auto _ : state) {
    const Key& key = keys[at++ % keys.size()];
    Require(cache->FindNode(key.index, key.level, first, count));
    benchmark::DoNotOptimize(first);
  }
}
BENCHMARK(FindNode)->Arg(0)->Arg(1)->ArgName("random");

void GetOctreeNode(benchmark::State& state) {
  const std::unique_ptr<TarnOOCPointCloud> cloud = Attach();
  OOCPCOctreeAcceleratorNode node;
  std::uint64_t index = 0;
  for (auto _ : state) {
    Require(cloud->GetOOCNode(index++ % kNodes, node));
    benchmark::DoNotOptimize(node);
  }
}
BENCHMARK(GetOctreeNode);

}  // namespace

BENCHMARK_MAIN();
