// The level-of-detail nodes of one update iteration, held in memory.
#pragma once

#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>
#include <tbb/concurrent_unordered_map.h>

#include <atomic>
#include <memory_resource>
#include <mutex>
#include <optional>
#include <unordered_map>

class TarnOOCLODNodeWorker;

/// One node as it stands in memory: the numbers of its record, the 64-bit ones aligned.
struct TarnOOCLODNodeEntry {
  std::array<std::uint32_t, OOCPCLODNodeRecord::kWords> words{};
  std::array<std::uint64_t, OOCPCLODNodeRecord::kValues> values{};

  [[nodiscard]] static TarnOOCLODNodeEntry FromRecord(const std::uint8_t* record);
  [[nodiscard]] std::uint32_t GetIndexInLevel() const { return words[0]; }
  [[nodiscard]] std::uint32_t GetLevel() const { return words[1]; }
  [[nodiscard]] std::uint32_t GetPointCount() const { return words[11]; }
  [[nodiscard]] std::uint64_t GetFirstPoint() const { return values[6]; }
};

/// Ownership: made by TarnOOCPointCloud::GetLODNodeCache and shared; borrows the cloud and the LOD
/// container, and forgets the cloud when it is destroyed. Thread safety: as the interface says.
class TarnOOCLODNodeCache final : public OOCPCLODNodeCache {
 public:
  TarnOOCLODNodeCache(TarnOOCPointCloud* owner, OOCPCLODContainer* lodContainer);
  ~TarnOOCLODNodeCache() override;

  HRESULT Reset() override;
  [[nodiscard]] bool HasLODContainer() const override;
  HRESULT SetLODContainer(OOCPCLODContainer* container) override;
  void DetachLODContainer() override;
  [[nodiscard]] double GetScale() const override;
  [[nodiscard]] bool GetCentre(double (&centreOut)[3]) const override;
  [[nodiscard]] std::uint32_t GetCapabilities() const override;
  bool ReleaseFinishedWorker() override;
  HRESULT ReservedSlot10() override;
  [[nodiscard]] HRESULT LoadLODPayload(OOCPCUpdItrLODPayload payload, bool background) override;
  HRESULT WaitForNodeLoading() override;
  [[nodiscard]] HRESULT GetLevelContainer(const char* name,
                                          OOCPCMetaDataContainer*& container) override;
  [[nodiscard]] HRESULT FindNode(std::uint32_t indexInLevel, std::uint32_t level,
                                 std::uint64_t& firstPoint, std::uint32_t& pointCount) override;
  HRESULT ReservedSlot15() override;
  HRESULT ReservedSlot16() override;
  [[nodiscard]] HRESULT WalkUpdateIterations(std::string_view name, std::uint64_t value) override;
  void ReservedSlot18() override;
  [[nodiscard]] HRESULT StartNodeLoading(std::unique_ptr<OOCPCIInputStream> lodStream,
                                         bool background) override;
  [[nodiscard]] HRESULT GetMetaDataContainer(std::string_view name,
                                             OOCPCMetaDataContainer*& container) override;

  /// Lets go of `gone` and its LOD container if that is the owner: what needs them fails from now
  /// on, what is in memory stays.
  void ForgetOwner(const TarnOOCPointCloud* gone);

 private:
  friend class TarnOOCLODNodeWorker;
  // Tests look at the tables.
  friend class TarnLodCacheAccess;

  struct NodeKey {
    std::uint32_t level;
    std::uint32_t indexInLevel;
    bool operator==(const NodeKey&) const = default;
  };
  // The number of a node in a full octree, in which level L holds 8^L nodes.
  struct NodeKeyHash {
    std::size_t operator()(const NodeKey& key) const noexcept;
  };
  using NodeIndex = std::pmr::unordered_map<NodeKey, std::size_t, NodeKeyHash>;
  struct NameHash {
    std::size_t operator()(const std::string& name) const noexcept;
  };
  using ContainerMap =
      tbb::concurrent_unordered_map<std::string, std::unique_ptr<OOCPCMetaDataContainer>, NameHash>;

  // A LOD block's header and the values behind its extension.
  struct BlockHead {
    OOCPCLODHeader header;
    std::vector<std::uint8_t> extension;
    double scale = 0;
    std::array<double, 3> centre{};
    std::uint64_t nodeStreamId = 0;
  };

  // Holds the mutex, and `busy` set around that.
  class BusyLock;

  [[nodiscard]] HRESULT LoadLocked(OOCPCUpdItrLODPayload payload, bool background,
                                   std::unique_ptr<OOCPCIInputStream>& stream);
  [[nodiscard]] HRESULT OpenLodStream(std::uint64_t position,
                                      std::unique_ptr<OOCPCIInputStream>& stream) const;
  // Fills `head` as far as the stream goes.
  [[nodiscard]] static HRESULT ReadHead(OOCPCIInputStream& stream, BlockHead& head);
  // Compares a sealed block, which begins at `position`, with its checksum; leaves the stream
  // behind it. Blocks without a seal are taken as they are.
  [[nodiscard]] static HRESULT CheckSeal(OOCPCIInputStream& stream, std::uint64_t position,
                                         const BlockHead& head);
  [[nodiscard]] HRESULT FillContainerMap();
  [[nodiscard]] HRESULT MakeLevelContainer(const char* name, std::uint64_t level,
                                           std::unique_ptr<OOCPCMetaDataContainer>& made) const;
  [[nodiscard]] HRESULT WalkBlock(OOCPCIInputStream& stream, std::string_view name,
                                  std::uint64_t value, std::uint64_t iteration,
                                  std::uint64_t& position);
  [[nodiscard]] HRESULT StartLocked(std::unique_ptr<OOCPCIInputStream> lodStream, bool background);
  [[nodiscard]] HRESULT OpenNodeStream(std::unique_ptr<OOCPCIInputStream>& stream) const;
  [[nodiscard]] std::unique_ptr<OOCPCMetaDataContainer> CloneLevelContainer(const char* name) const;
  void ReserveNodes(const OOCPCIInputStream& nodeStream);
  // Reads the next record of the node stream and registers its node, under `guard` if there is one.
  [[nodiscard]] HRESULT ReadNodeRecord(OOCPCIInputStream& nodeStream, std::mutex* guard);
  void ClearNodes();
  [[nodiscard]] OOCPCMetaDataContainer* FindLevelContainer(const std::string& name);

  OOCPCLODHeader header;
  double scale = 0;
  std::array<double, 3> centre{};
  std::uint64_t nodeStreamId = 0;
  // The block was sealed, so that its node records carry checksums.
  bool isSealed = false;
  TarnOOCPointCloud* owner;
  OOCPCLODContainer* lodContainer;
  // Nodes are many and small and go all at once.
  std::pmr::monotonic_buffer_resource nodeIndexMemory;
  std::optional<NodeIndex> nodeIndex;
  std::vector<TarnOOCLODNodeEntry> nodeEntries;
  ContainerMap containerMap;
  std::unique_ptr<TarnOOCLODNodeWorker> worker;
  // Load and wait operations that hold the mutex or wait for it.
  std::atomic<std::uint32_t> busy{0};
  std::mutex mutex;
};
