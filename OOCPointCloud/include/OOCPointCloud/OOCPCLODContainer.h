// The level-of-detail container and the interface of the node caches that read it.
#pragma once

#include <OOCPointCloud/OOCPCContainer.h>

#include <mutex>
#include <vector>

class OOCPCIInputStream;

/// What a level-of-detail chunk says. See docs/format.md.
struct OOCPOINTCLOUD_API OOCPCLODDescription {
  static constexpr std::uint16_t kVersion = 1;

  std::uint16_t version = kVersion;
  std::uint64_t blockCount = 0;  ///< LOD blocks in the stream, one per update iteration

  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// kBadRecord, kChecksumMismatch or kUnknownVersion leave the object as it was.
  [[nodiscard]] HRESULT DecodeChunk(const std::uint8_t* payload, std::uint32_t size);
};

/// Opens the stream "DEF_LOD" with its LOD block per update iteration.
class OOCPOINTCLOUD_API OOCPCLODContainer final : public OOCPCContainer {
 public:
  static constexpr const char* kStreamName = "DEF_LOD";

  OOCPCLODContainer(OOCPCIDataRepository* repository, oocpc::ContainerChunkType chunkType,
                    const char* name);
  ~OOCPCLODContainer() override;

  /// 0 eligible, 1 unknown version, negative broken.
  [[nodiscard]] static HRESULT IsEligibleChunk(const oocpc::ChunkDescriptor& chunk);
  /// True when `candidate` is preferred to `kept`: the newer version wins, then the later chunk.
  [[nodiscard]] static bool CompareChunks(const oocpc::ChunkDescriptor& kept,
                                          const oocpc::ChunkDescriptor& candidate);

  [[nodiscard]] const OOCPCLODDescription& GetDescription() const { return description_; }
  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  /// Opens the LOD stream; the caller deletes it. Null when the repository has none.
  [[nodiscard]] OOCPCIInputStream* CreateLODInputStream() const;
  /// Keeps the extension bytes of the LOD block header that was read last. Safe from any thread:
  /// node caches of one repository share the container.
  void SetExtendedData(const std::uint8_t* data, std::uint16_t size);
  [[nodiscard]] std::vector<std::uint8_t> GetExtendedData() const;
  [[nodiscard]] OOCPCLODContainer* Clone() const override;

 private:
  OOCPCLODDescription description_;
  mutable std::mutex extendedDataMutex_;
  std::vector<std::uint8_t> extendedData_;
};
