// Loads level-of-detail nodes from arbitrary bytes, finds nodes and walks the update iterations:
// nothing may crash, leak or allocate more than the streams account for.
//
// The input: two bytes with the length of the level-of-detail stream, that stream, and the bytes of
// every node stream. The repository around them is sound, with two iterations: the first has the
// stream's first bytes, as long as their header states, the second the whole stream.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <map>
#include <string>

#include "FuzzSupport.h"

using namespace oocpcfuzz;

namespace {

class StreamsRepository final : public OOCPCIDataRepository {
 public:
  StreamsRepository(Bytes main, std::map<std::string, Bytes, std::less<>> streams, Bytes nodes)
      : main_(std::move(main)), streams_(std::move(streams)), nodes_(std::move(nodes)) {}
  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override { return new OneStream(main_); }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view name) override {
    if (name.starts_with("DEF_OCTREE_LOD_NODES_")) return new OneStream(nodes_);
    const auto found = streams_.find(name);
    return found == streams_.end() ? nullptr : new OneStream(found->second);
  }
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* information) override {
    information_ = *information;
    return oocpc::result::kOk;
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return information_;
  }

 private:
  Bytes main_;
  std::map<std::string, Bytes, std::less<>> streams_;
  Bytes nodes_;
  OOCPCRepositoryInformation information_;
};

constexpr std::uint64_t kIterations = 2;

Bytes MainStream() {
  Bytes main{'V', 'q', 'P', 'C', 1};
  main.resize(OOCPointCloudFileHeader::kBytes);
  const auto add = [&](std::uint32_t type, const Bytes& payload) {
    oocpc::AppendLittleEndian(main, type);
    oocpc::AppendLittleEndian(main, static_cast<std::uint32_t>(payload.size()));
    main.insert(main.end(), payload.begin(), payload.end());
  };
  OOCPCPositionsDescription positions;
  positions.name = "DEF_POSITION";
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = kIterations;
  OOCPCLODDescription lod;
  lod.blockCount = kIterations;
  OOCPCMetaDataDescription colors{"DEF_COLOR", {oocpc::ValueType::kUInt16, 3}, 1, ""};
  add(oocpc::chunk_type::kStaticPositions, positions.EncodeChunk());
  add(oocpc::chunk_type::kStaticMetaData, colors.EncodeChunk());
  add(oocpc::chunk_type::kAccelerator1, OOCPCAcceleratorDescription().EncodeChunk());
  add(oocpc::chunk_type::kUpdateIterations, iterations.EncodeChunk());
  add(oocpc::chunk_type::kLevelOfDetail, lod.EncodeChunk());
  add(oocpc::chunk_type::kRepositoryInformation, OOCPCRepositoryInformation().EncodeChunk());
  return main;
}

/// Bytes of the block that the stream begins with, as its header states.
std::uint64_t StatedBytes(const Bytes& lod) {
  if (lod.size() < OOCPCLODHeader::kBytes) return lod.size();
  std::uint8_t head[OOCPCLODHeader::kBytes];
  std::memcpy(head, lod.data(), sizeof(head));
  return OOCPCLODHeader::Decode(head).GetBlockBytes();
}

void Ask(OOCPCLODNodeCache& cache, const Bytes& nodes) {
  constexpr std::size_t kBytes = OOCPCLODNodeRecord::kBytes;
  for (std::size_t at = 0; at + kBytes <= std::min(nodes.size(), 3 * kBytes); at += kBytes) {
    std::uint64_t first = 1;
    std::uint32_t count = 1;
    const auto index = oocpc::LoadLittleEndian<std::uint32_t>(nodes.data() + at);
    const auto level = oocpc::LoadLittleEndian<std::uint32_t>(nodes.data() + at + 4);
    const HRESULT code = cache.FindNode(index, level, first, count);
    Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kLodNodeNotFound}));
    if (code == oocpc::result::kLodNodeNotFound) Require(first == 0 && count == 0);
    static_cast<void>(cache.FindNode(~index, level, first, count));
  }
  for (const char* name : {"DEF_POSITION", "DEF_COLOR", "no such name"}) {
    static_cast<void>(cache.WalkUpdateIterations(name, 7));
    OOCPCMetaDataContainer* container = nullptr;
    static_cast<void>(cache.GetLevelContainer(name, container));
  }
}

void Load(const Bytes& lod, const Bytes& nodes) {
  Bytes iterations;
  for (const std::uint64_t bytes : {StatedBytes(lod), std::uint64_t{lod.size()}}) {
    OOCPCUpdateIteration iteration;
    iteration.lodPayload = {0, bytes};
    iteration.Stream(iterations);
  }
  TarnOOCPointCloud cloud;
  const HRESULT attached = cloud.AttachDataRepository(
      new StreamsRepository(MainStream(),
                            {{OOCPCLODContainer::kStreamName, lod},
                             {OOCPCUpdateIterationContainer::kStreamName, iterations}},
                            nodes));
  Require(attached == oocpc::result::kOk);
  for (std::uint64_t i = 0; i < kIterations; ++i) {
    std::shared_ptr<OOCPCLODNodeCache> cache;
    const HRESULT code = cloud.GetLODNodeCache(i, cache);
    if (code != oocpc::result::kOk) continue;
    Ask(*cache, nodes);
    static_cast<void>(cache->Reset());
    if (cache->LoadLODPayload({0, StatedBytes(lod)}, true) == oocpc::result::kOk) {
      static_cast<void>(cache->WaitForNodeLoading());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t length = std::min<std::size_t>(data[0] + data[1] * 256u, size - 2);
  const Bytes lod(data + 2, data + 2 + length);
  Load(lod, Bytes(data + 2 + length, data + size));
  return 0;
}
