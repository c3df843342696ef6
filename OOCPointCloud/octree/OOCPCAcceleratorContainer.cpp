// The accelerator container: octree nodes by index.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCIInputStream.h>

#include <algorithm>
#include <new>

#include "OOCPointCloud/containers/ChunkCompetition.h"
#include "OOCPointCloud/streams/StreamAccess.h"

namespace {

// Children stand before their parents; whoever descends through nodes read here comes to an end.
bool HasChildrenBefore(const OOCPCOctreeAcceleratorNode& node, std::uint64_t nodeIndex) {
  return std::all_of(node.children.begin(), node.children.end(), [&](std::uint64_t child) {
    return child == OOCPCOctreeAcceleratorNode::kNoChild || child < nodeIndex;
  });
}

}  // namespace

OOCPCAcceleratorContainer::OOCPCAcceleratorContainer(oocpc::ContainerChunkType chunkType,
                                                     OOCPCIDataRepository* repository)
    : OOCPCContainer(repository, chunkType, kStreamName) {}

OOCPCAcceleratorContainer::~OOCPCAcceleratorContainer() = default;

HRESULT OOCPCAcceleratorContainer::IsEligibleChunk(const oocpc::ChunkDescriptor& chunk) {
  return oocpc::CheckEligibility<OOCPCAcceleratorDescription>(chunk);
}

bool OOCPCAcceleratorContainer::CompareChunks(const oocpc::ChunkDescriptor& kept,
                                              const oocpc::ChunkDescriptor& candidate) {
  return oocpc::PrefersLater(kept, candidate);
}

HRESULT OOCPCAcceleratorContainer::LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) {
  return description_.DecodeChunk(payload, size);
}

HRESULT OOCPCAcceleratorContainer::ReadNode(std::uint64_t nodeIndex,
                                            OOCPCOctreeAcceleratorNode* node) {
  constexpr std::size_t kBytes = OOCPCOctreeAcceleratorNode::kBytes;
  if (node == nullptr) return oocpc::result::kFail;
  HRESULT code = oocpc::OpenNamedStream(GetRepository(), kStreamName, stream_);
  if (oocpc::Failed(code)) return code;
  // Dividing, because a product of the index could wrap.
  if (nodeIndex >= stream_->GetLength() / kBytes) return oocpc::result::kIndexOutOfRange;
  std::uint8_t record[kBytes];
  code = oocpc::ReadExactly(*stream_, nodeIndex * kBytes, record);
  if (oocpc::Failed(code)) return code;
  OOCPCOctreeAcceleratorNode read;
  code = OOCPCOctreeAcceleratorNode::Decode(record, read);
  if (oocpc::Failed(code)) return code;
  if (!HasChildrenBefore(read, nodeIndex)) return oocpc::result::kBadRecord;
  *node = read;
  return code;
}

OOCPCAcceleratorContainer* OOCPCAcceleratorContainer::Clone() const {
  auto* const clone = new (std::nothrow) OOCPCAcceleratorContainer(GetChunkType(), GetRepository());
  if (clone != nullptr) clone->description_ = description_;
  return clone;
}
