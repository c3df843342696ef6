// The 160-byte record of an octree node.
#include <OOCPointCloud/OOCPointCloudNode.h>
#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloud/support/Bytes.h"

namespace {

// The checksum stands in the middle, so that the corners keep the places that readers rely on.
constexpr std::size_t kChecksumAt = 108;
constexpr std::size_t kBehindChecksum = 112;

std::uint32_t ComputeChecksum(std::span<const std::uint8_t> record) {
  return oocpc::Crc32c(record.subspan(kBehindChecksum), oocpc::Crc32c(record.first(kChecksumAt)));
}

}  // namespace

void OOCPCOctreeAcceleratorNode::Encode(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  for (const std::uint64_t child : children) oocpc::AppendLittleEndian(out, child);
  oocpc::AppendLittleEndian(out, firstPoint);
  oocpc::AppendLittleEndian(out, blockId);
  oocpc::AppendLittleEndian(out, level);
  oocpc::AppendLittleEndian(out, ownPointCount);
  oocpc::AppendLittleEndian(out, indexInLevel);
  oocpc::AppendLittleEndian(out, subtreePointCount);
  oocpc::AppendLittleEndian(out, flags);
  oocpc::AppendLittleEndian(out, std::uint32_t{0});
  for (const double coordinate : corner1) oocpc::AppendLittleEndian(out, coordinate);
  for (const double coordinate : corner2) oocpc::AppendLittleEndian(out, coordinate);
  const std::uint32_t sum = ComputeChecksum(std::span(out).subspan(begin));
  std::memcpy(out.data() + begin + kChecksumAt, &sum, sizeof(sum));
}

HRESULT OOCPCOctreeAcceleratorNode::Decode(const std::uint8_t (&bytes)[kBytes],
                                           OOCPCOctreeAcceleratorNode& out) {
  OOCPCOctreeAcceleratorNode node;
  oocpc::ByteReader reader(bytes);
  bool complete = true;
  for (std::uint64_t& child : node.children) complete = complete && reader.Read(child);
  complete = complete && reader.Read(node.firstPoint) && reader.Read(node.blockId) &&
             reader.Read(node.level) && reader.Read(node.ownPointCount) &&
             reader.Read(node.indexInLevel) && reader.Read(node.subtreePointCount) &&
             reader.Read(node.flags) && reader.Read(node.checksum);
  for (double& coordinate : node.corner1) complete = complete && reader.Read(coordinate);
  for (double& coordinate : node.corner2) complete = complete && reader.Read(coordinate);
  if (!complete || node.checksum != ComputeChecksum(bytes)) {
    return oocpc::result::kChecksumMismatch;
  }
  out = node;
  return oocpc::result::kOk;
}
