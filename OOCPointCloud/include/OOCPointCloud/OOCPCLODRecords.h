// What the level-of-detail streams hold: one block per update iteration, and the node records.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPointCloudNode.h>
#include <OOCPointCloud/Types.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// Name of the stream with the node records of a level-of-detail block: "DEF_OCTREE_LOD_NODES_" and
/// the id in decimal.
[[nodiscard]] OOCPOINTCLOUD_API std::string OOCPCLODNodeStreamName(std::uint64_t nodeStreamId);

/// The first 26 bytes of a level-of-detail block; see docs/format.md.
struct OOCPCLODHeader {
  static constexpr std::size_t kBytes = 26;
  static constexpr std::uint16_t kVersion = 1;
  static constexpr std::uint16_t kNewestVersion = 4;
  /// Bytes of scale, centre and node stream id, which follow the extension.
  static constexpr std::size_t kTailBytes = 40;
  /// Bytes of one node entry.
  static constexpr std::size_t kEntryBytes = 9;

  std::uint16_t version = 0;         ///< 1 to 4; 0 while nothing was read
  std::uint32_t recordCount = 0;     ///< records in the node stream
  std::uint32_t nodeEntryCount = 0;  ///< node entries at the end of the block
  std::uint32_t levelCount = 0;      ///< levels that have nodes
  std::uint32_t reserved14 = 0;
  std::uint16_t extensionBytes = 0;
  std::uint8_t reserved20[6] = {};

  /// Bytes of the whole block.
  [[nodiscard]] std::uint64_t GetBlockBytes() const {
    return kBytes + kTailBytes + std::uint64_t{extensionBytes} +
           kEntryBytes * std::uint64_t{nodeEntryCount};
  }
  [[nodiscard]] bool HasKnownVersion() const { return version >= 1 && version <= kNewestVersion; }
  /// Appends the 26 bytes.
  OOCPOINTCLOUD_API void Encode(std::vector<std::uint8_t>& out) const;
  /// Takes the bytes as they are; whoever decodes checks the version.
  [[nodiscard]] OOCPOINTCLOUD_API static OOCPCLODHeader Decode(const std::uint8_t (&bytes)[kBytes]);
};

/// The extension of a level-of-detail block that is sealed: a mark, and the CRC-32C of everything
/// in the block but the extension. The node records of a sealed block carry checksums, too. Blocks
/// of other writers have another extension or none, and nothing that could be checked.
struct OOCPOINTCLOUD_API OOCPCLODSeal {
  static constexpr std::uint16_t kBytes = 8;
  /// The letters CRC1.
  static constexpr std::uint32_t kMark = 0x31435243;

  std::uint32_t checksum = 0;

  void Encode(std::vector<std::uint8_t>& out) const;
  /// False when the extension is no seal.
  [[nodiscard]] static bool Decode(std::span<const std::uint8_t> extension, OOCPCLODSeal& seal);
};

/// Names one node of the octree in a level-of-detail block: 9 bytes on disk.
struct OOCPCLODNodeEntry {
  std::uint8_t childMask = 0;
  std::uint64_t nodeIndex = 0;  ///< of the octree node, in the accelerator stream
};

/// A whole level-of-detail block, as a writer makes it.
struct OOCPOINTCLOUD_API OOCPCLODBlock {
  std::uint32_t levelCount = 0;
  /// Distance, local units, between neighbouring points of level 0; each level halves it.
  double scale = 0;
  oocpc::Vector3d centre{};  ///< of the octree's cube, local frame
  std::uint64_t nodeStreamId = 0;
  std::vector<OOCPCLODNodeEntry> entries;  ///< one per node record, in their order

  /// Appends the block. Its extension is its seal.
  void Encode(std::vector<std::uint8_t>& out) const;
  /// Decodes a block that Encode made. kLodShortRead, kLodBadVersion, kLodLengthMismatch;
  /// kBadRecord for one that was not made so; kChecksumMismatch. These leave the object as it was.
  [[nodiscard]] HRESULT Decode(std::span<const std::uint8_t> bytes);
};

/// One level-of-detail node: 116 bytes on disk, packed; see docs/format.md.
///
/// A node of the octree has one node of its own level. A leaf whose points lie closer together than
/// its level's points should has more, one for each finer level, which divide its points: each is
/// an even sample of what the coarser ones left.
struct OOCPCLODNodeRecord {
  static constexpr std::size_t kBytes = 116;
  static constexpr std::size_t kWords = 13;
  static constexpr std::size_t kValues = 8;
  /// The deepest level in which a Morton code fits the 32 bits of an index.
  static constexpr std::uint32_t kDeepestMortonLevel = 10;

  std::uint32_t indexInLevel = 0;  ///< see GetIndex
  std::uint32_t level = 0;
  std::uint8_t childMask = 0;      ///< bit o: there is a node of the next level in octant o
  std::uint32_t levelsInLeaf = 0;  ///< 0: the octree node itself; k: the k-th finer level of a leaf
  std::uint32_t firstInBlock = 0;  ///< number of the first point within its block
  std::uint32_t parentIndex = 0;   ///< index of the node above in its level; 0 for the root
  std::uint64_t nodeIndex = 0;     ///< of the octree node, in the accelerator stream
  std::uint32_t pointCount = 0;    ///< the twelfth of the 32-bit values
  oocpc::Vector3d corner1{};       ///< box of the octree node, local frame
  oocpc::Vector3d corner2{};
  std::uint64_t firstPoint = 0;  ///< in storage order; the seventh of the 64-bit values
  std::uint64_t blockId = OOCPCOctreeAcceleratorNode::kNoBlock;

  /// The index, within a level, of the level-of-detail node that an octree node has there: at
  /// `level`, which is the node's own or, for a leaf, a finer one. In levels 0 to 10 it is a Morton
  /// code: the node's own, or that of the first cell within it. Deeper, where codes would not fit,
  /// it is the node's index in the accelerator stream, which must be below 2^32.
  [[nodiscard]] static std::uint32_t GetIndex(const OOCPCOctreeAcceleratorNode& node,
                                              std::uint64_t nodeIndex, std::uint32_t level) {
    if (level > kDeepestMortonLevel) return static_cast<std::uint32_t>(nodeIndex);
    return static_cast<std::uint32_t>(node.indexInLevel << (3 * (level - node.level)));
  }

  /// Appends the 116 bytes; computes the checksum.
  OOCPOINTCLOUD_API void Encode(std::vector<std::uint8_t>& out) const;
  /// kChecksumMismatch and kBadRecord (a reserved field is not 0, more than eight children) leave
  /// `out` as it was.
  [[nodiscard]] OOCPOINTCLOUD_API static HRESULT Decode(const std::uint8_t (&bytes)[kBytes],
                                                        OOCPCLODNodeRecord& out);
};
