// The octree accelerator of a repository: the nodes of all its update iterations.
#pragma once

#include <OOCPointCloud/OOCPCContainer.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <memory>
#include <vector>

class OOCPCIInputStream;

/// What an accelerator chunk says. See docs/format.md.
struct OOCPOINTCLOUD_API OOCPCAcceleratorDescription {
  static constexpr std::uint16_t kVersion = 1;

  std::uint16_t version = kVersion;
  /// The root's cube, local frame: every cell of the octree is a subdivision of it.
  oocpc::Vector3d cubeMin{};
  double cubeEdge = 1;

  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// kBadRecord, kChecksumMismatch or kUnknownVersion leave the object as it was.
  [[nodiscard]] HRESULT DecodeChunk(const std::uint8_t* payload, std::uint32_t size);
};

/// Gives octree nodes by their index in the stream "DEF_OCTREE".
class OOCPOINTCLOUD_API OOCPCAcceleratorContainer final : public OOCPCContainer {
 public:
  static constexpr const char* kStreamName = "DEF_OCTREE";

  OOCPCAcceleratorContainer(oocpc::ContainerChunkType chunkType, OOCPCIDataRepository* repository);
  ~OOCPCAcceleratorContainer() override;

  /// 0 eligible, 1 unknown version, negative broken.
  [[nodiscard]] static HRESULT IsEligibleChunk(const oocpc::ChunkDescriptor& chunk);
  /// True when `candidate` is preferred to `kept`: the newer version wins, then the later chunk.
  [[nodiscard]] static bool CompareChunks(const oocpc::ChunkDescriptor& kept,
                                          const oocpc::ChunkDescriptor& candidate);

  [[nodiscard]] const OOCPCAcceleratorDescription& GetDescription() const { return description_; }
  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  /// Reads one node. kIndexOutOfRange, kStreamMissing, kIoError, kStreamShort, kChecksumMismatch,
  /// kBadRecord (a child that does not stand before its parent), kNoRepository and kFail (no
  /// `node`) leave `node` as it was.
  [[nodiscard]] HRESULT ReadNode(std::uint64_t nodeIndex, OOCPCOctreeAcceleratorNode* node);
  [[nodiscard]] OOCPCAcceleratorContainer* Clone() const override;

 private:
  OOCPCAcceleratorDescription description_;
  std::unique_ptr<OOCPCIInputStream> stream_;
};
