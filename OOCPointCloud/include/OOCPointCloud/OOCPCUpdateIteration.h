// Update iterations: the successive states of a point cloud.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCContainer.h>

#include <memory>
#include <vector>

class OOCPCIInputStream;

/// What the octree accelerator of an iteration needs.
struct OOCPCUpdItrAcceleratorPayload {
  /// Where the nodes that the iteration added begin, bytes from the start of the node stream.
  std::uint64_t beginBytes = 0;
  /// Bytes of node records from the start of the stream to the end of the iteration's; the root is
  /// the last record within them.
  std::uint64_t sizeBytes = 0;
};

/// Where the iteration's level-of-detail block lies in the LOD stream; begin == end: there is none.
struct OOCPCUpdItrLODPayload {
  std::uint64_t beginBytes = 0;
  std::uint64_t endBytes = 0;  ///< exclusive
};
static_assert(sizeof(OOCPCUpdItrLODPayload) == 16);

/// One state of the point cloud: 80 bytes on disk, see docs/format.md. Value semantics.
class OOCPOINTCLOUD_API OOCPCUpdateIteration {
 public:
  static constexpr std::uint32_t kStreamVersion = 1;
  static constexpr std::uint16_t kRecordBytes = 80;

  std::uint64_t timePoint = 0;  ///< microseconds since 1970-01-01 UTC
  OOCPCUpdItrAcceleratorPayload acceleratorPayload;
  OOCPCUpdItrLODPayload lodPayload;
  std::uint64_t pointCount = 0;       ///< points of this state
  std::uint64_t addedPointCount = 0;  ///< points that this iteration brought
  std::uint64_t blockCount = 0;       ///< blocks from the start of the columns that it may refer to
  std::uint64_t addedBytes = 0;       ///< bytes that this iteration added to all streams

  void GetAcceleratorPayload(OOCPCUpdItrAcceleratorPayload& payload) const {
    payload = acceleratorPayload;
  }
  void GetLODPayload(OOCPCUpdItrLODPayload& payload) const { payload = lodPayload; }

  /// Appends the record, its CRC-32C last.
  void Stream(std::vector<std::uint8_t>& out) const;
  /// Decodes one record. kUnknownVersion, kBadRecord, kChecksumMismatch leave the object as it was.
  HRESULT Unstream(std::uint32_t version, const std::uint8_t* record, std::uint16_t recordBytes);
};

/// What an update-iteration chunk says. See docs/format.md.
struct OOCPOINTCLOUD_API OOCPCUpdateIterationDescription {
  static constexpr std::uint16_t kVersion = 1;

  std::uint16_t version = kVersion;
  std::uint32_t streamVersion = OOCPCUpdateIteration::kStreamVersion;
  std::uint64_t iterationCount = 0;
  std::uint16_t recordBytes = OOCPCUpdateIteration::kRecordBytes;

  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// kBadRecord, kChecksumMismatch or kUnknownVersion leave the object as it was.
  [[nodiscard]] HRESULT DecodeChunk(const std::uint8_t* payload, std::uint32_t size);
};

/// The records of all update iterations, in the stream "DEF_UPDATE_ITERATIONS".
class OOCPOINTCLOUD_API OOCPCUpdateIterationContainer final : public OOCPCContainer {
 public:
  static constexpr const char* kStreamName = "DEF_UPDATE_ITERATIONS";

  OOCPCUpdateIterationContainer(OOCPCIDataRepository* repository,
                                oocpc::ContainerChunkType chunkType);
  ~OOCPCUpdateIterationContainer() override;

  /// 0 eligible, 1 unknown version, negative broken.
  [[nodiscard]] static HRESULT IsEligibleChunk(const oocpc::ChunkDescriptor& chunk);
  /// True when `candidate` is preferred to `kept`: the newer version wins, then the later chunk.
  [[nodiscard]] static bool CompareChunks(const oocpc::ChunkDescriptor& kept,
                                          const oocpc::ChunkDescriptor& candidate);

  [[nodiscard]] std::uint32_t GetStreamVersion() const { return description_.streamVersion; }
  [[nodiscard]] std::uint64_t GetIterationCount() const { return description_.iterationCount; }
  [[nodiscard]] std::uint16_t GetRecordSize() const { return description_.recordBytes; }

  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size) override;
  /// Reads the record of iteration `index` of `iterationCount` into `record` (GetRecordSize()
  /// bytes), checked against its CRC-32C. kIndexOutOfRange, kStreamMissing, kStreamShort,
  /// kChecksumMismatch. Safe from several threads at once: opens a stream of its own.
  [[nodiscard]] HRESULT ReadUpdateIterations(std::uint64_t index, std::uint64_t iterationCount,
                                             std::uint8_t* record) const;
  [[nodiscard]] OOCPCUpdateIterationContainer* Clone() const override;

 private:
  OOCPCUpdateIterationDescription description_;
};
