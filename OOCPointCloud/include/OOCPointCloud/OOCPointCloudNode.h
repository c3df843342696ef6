// A node of the octree as queries and readers see it.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <vector>

/// What a query is asked about when a whole node is classified.
struct OOCPointCloudNode {
  /// Tight closed box of all points of the subtree, local frame.
  oocpc::Box3d box;
  std::uint32_t level = 0;
  std::uint64_t indexInLevel = 0;
  std::uint64_t pointCount = 0;  ///< points in the subtree
};

/// One node of the additive octree: 160 bytes on disk, see docs/format.md. An inner node keeps an
/// even sample of its region; the rest is with its children; every point is in exactly one node.
struct OOCPCOctreeAcceleratorNode {
  static constexpr std::size_t kBytes = 160;
  static constexpr std::uint64_t kNoChild = ~std::uint64_t{0};
  static constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};

  /// Node indices in the accelerator stream; kNoChild where there is none.
  std::array<std::uint64_t, 8> children{kNoChild, kNoChild, kNoChild, kNoChild,
                                        kNoChild, kNoChild, kNoChild, kNoChild};
  std::uint64_t firstPoint = 0;  ///< number of the node's first own point in storage order
  std::uint64_t blockId =
      kNoBlock;             ///< the block of the node's own points, the same in all columns
  std::uint32_t level = 0;  ///< 0 is the root
  std::uint32_t ownPointCount = 0;
  std::uint64_t indexInLevel = 0;  ///< Morton code of the node's cell
  std::uint64_t subtreePointCount = 0;
  std::uint32_t flags = 0;     ///< none defined yet; written as 0
  std::uint32_t checksum = 0;  ///< CRC-32C of the other 156 bytes
  oocpc::Vector3d corner1{};   ///< least corner of the tight box of the subtree, local frame
  oocpc::Vector3d corner2{};   ///< greatest corner

  [[nodiscard]] bool IsLeaf() const;
  [[nodiscard]] OOCPointCloudNode Describe() const;
  /// Appends the 160 bytes; computes the checksum.
  OOCPOINTCLOUD_API void Encode(std::vector<std::uint8_t>& out) const;
  /// kChecksumMismatch leaves `out` as it was.
  [[nodiscard]] OOCPOINTCLOUD_API static HRESULT Decode(const std::uint8_t (&bytes)[kBytes],
                                                        OOCPCOctreeAcceleratorNode& out);
};

inline bool OOCPCOctreeAcceleratorNode::IsLeaf() const {
  for (const std::uint64_t child : children) {
    if (child != kNoChild) return false;
  }
  return true;
}

inline OOCPointCloudNode OOCPCOctreeAcceleratorNode::Describe() const {
  return {{corner1, corner2}, level, indexInLevel, subtreePointCount};
}
