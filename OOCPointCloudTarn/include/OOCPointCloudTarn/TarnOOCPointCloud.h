// A point cloud stored out of core, opened for reading.
#pragma once

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCMetaDataInfo.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/OOCPointCloudFileHeader.h>
#include <OOCPointCloudTarn/ContainerOrder.h>
#include <OOCPointCloudTarn/Export.h>
#include <OOCPointCloudTarn/SharedOwnership.h>
#include <tbb/concurrent_unordered_map.h>
#include <tbb/tbb_allocator.h>

#include <array>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// Reads one point-cloud repository: its containers, metadata, update iterations and octree nodes.
///
/// A cloud is *detached* (no repository) or *attached*; it starts detached. All coordinates are in
/// the repository's local frame.
///
/// Ownership: an attached repository belongs to the cloud, and so does every container that it
/// makes. Copies refer to the very same repository and containers; copies may be detached and
/// destroyed in any order, and an object is deleted when the last cloud that refers to it has let
/// go. An assignment keeps what the target referred to before alive until the target is gone.
/// Pointers that GetContainer and GetMetaDataContainer hand out stay valid until the cloud is
/// detached; clones belong to the caller, who reads them no longer than the repository lives.
///
/// Attaching another repository detaches the former one. Two things outlast that until the cloud is
/// gone, also after attaching null: iterations, origins and node caches that were read once keep
/// answering, and
/// the former octree and update iterations stay in place where the new repository brings none;
/// whatever they would have to read from a repository that is gone fails with 0xA1030080, or, where
/// another code is documented, with that.
///
/// Thread safety: GetLODNodeCache, CloneLODContainer, GetOOCNode, GetOOCRootNode, GetOrigin,
/// GetTimePoint, GetTimePoints and GetUpdateIterationCount may be called from several threads at
/// once on an attached cloud, and so may the const operations. Everything else is for one thread at
/// a time and excludes them.
///
/// Errors: result codes; a failed call leaves its out arguments as they were unless stated
/// otherwise. Codes of the companion library are passed on unchanged.
class OOCPOINTCLOUDTARN_API TarnOOCPointCloud {
 public:
  TarnOOCPointCloud();
  TarnOOCPointCloud(const TarnOOCPointCloud& other);
  TarnOOCPointCloud& operator=(const TarnOOCPointCloud& other);
  virtual ~TarnOOCPointCloud();

  /// Detaches the former repository, takes `repository` over and reads its main stream.
  ///
  /// 0 when the cloud is ready. 1 when there was nothing to read: `repository` is null, has no main
  /// stream or one shorter than a header, or the last chunk that was tested for eligibility is not
  /// eligible. 0xA1030086 not a repository or a newer format; 0xA103001E a chunk is cut off;
  /// 0xA103008B no accelerator; 0xA103008D no positions; 0xA1030090 to 0xA1030093 a core chunk
  /// twice; 0xA10300A0 the repository information twice; 0xA1030099 an unknown kind of metadata;
  /// 0xA103008F a metadata name twice; 0xA10D0088 a container's name twice; 0xA10D000E out of
  /// memory. The repository stays attached whatever the outcome, and containers installed before a
  /// failure stay installed.
  [[nodiscard]] HRESULT AttachDataRepository(OOCPCIDataRepository* repository);
  /// The attached repository, or null. It stays the cloud's.
  [[nodiscard]] OOCPCIDataRepository* GetDataRepository() const;
  [[nodiscard]] OOCPointCloudSettings& GetSettings();
  [[nodiscard]] const OOCPointCloudSettings& GetSettings() const;

  /// The registered container of that name, or null.
  [[nodiscard]] OOCPCContainer* GetContainer(const char* name) const;
  /// The registered container of that name if it holds a value per point, or null.
  [[nodiscard]] OOCPCMetaDataContainer* GetMetaDataContainer(const char* name) const;
  /// Names of all metadata, ordered by chunk type and then by name. A container whose chunk type
  /// has bits in both of its low bytes is listed twice.
  [[nodiscard]] std::list<std::string> GetMetaDataNames() const;
  /// Bytes of one value in a point record; 0 for a name that is not registered.
  [[nodiscard]] std::uint32_t GetMetaDataSize(const char* name) const;
  /// Whether the metadata catalogue has the name.
  [[nodiscard]] bool IsRegistered(const char* name) const;
  /// Makes a copy of a metadata container with a read position of its own; the caller deletes it.
  /// 0xA10D0084 when there is no metadata container of that name.
  [[nodiscard]] HRESULT CloneContainer(const std::string& name,
                                       OOCPCMetaDataContainer*& container) const;

  /// Makes a copy of the container that delivers an iteration's level-of-detail points for a
  /// metadata name; the caller deletes it. 1 leaves `container` alone: the iteration has none of
  /// that name. Codes otherwise as GetLODNodeCache.
  [[nodiscard]] HRESULT CloneLODContainer(std::uint64_t iterationIndex, const std::string& name,
                                          OOCPCMetaDataContainer*& container);

  /// The level-of-detail nodes of an iteration, read on the first request and then shared by all.
  /// A cache borrows this cloud: only what it has in memory may be asked of it when the cloud is
  /// gone. 1 when another thread had loaded one meanwhile; `cache` then is this caller's own.
  /// Codes of GetTimePoint and of OOCPCLODNodeCache::LoadLODPayload; nothing is kept then.
  [[nodiscard]] HRESULT GetLODNodeCache(std::uint64_t iterationIndex,
                                        std::shared_ptr<OOCPCLODNodeCache>& cache);
  /// Reads an octree node by its index in the node stream. 0xA1100084 without an accelerator,
  /// 0xA10D0089 when it cannot be cloned.
  [[nodiscard]] HRESULT GetOOCNode(std::uint64_t nodeIndex, OOCPCOctreeAcceleratorNode& node) const;
  /// Reads the root node of an iteration. Codes as GetOOCNode and GetTimePoint.
  [[nodiscard]] HRESULT GetOOCRootNode(std::uint64_t iterationIndex,
                                       OOCPCOctreeAcceleratorNode& node);
  /// The centre of an iteration's root box. 1 when another thread had computed it meanwhile;
  /// 0x80004005 when the root cannot be read.
  [[nodiscard]] HRESULT GetOrigin(std::uint64_t iterationIndex, double (&origin)[3]);
  /// The time of an iteration in microseconds since 1970-01-01 UTC. 0xA1100083 when the repository
  /// has no update iterations.
  [[nodiscard]] HRESULT GetTimePoint(std::uint64_t iterationIndex, std::uint64_t& timePoint);
  /// Appends the times of the iterations from `first` up to but without `end`. Stops at the first
  /// failure; what was appended before stays.
  [[nodiscard]] HRESULT GetTimePoints(std::uint64_t first, std::uint64_t end,
                                      std::vector<unsigned long long>& timePoints);
  [[nodiscard]] std::uint64_t GetUpdateIterationCount() const;

 private:
  struct ChunkSelection;
  /// A cache by iteration index; lookups and insertions take no lock, the first insertion is kept.
  template <typename Value>
  using IterationMap =
      tbb::concurrent_unordered_map<std::uint64_t, Value, std::hash<std::uint64_t>,
                                    std::equal_to<std::uint64_t>,
                                    tbb::tbb_allocator<std::pair<const std::uint64_t, Value>>>;

  // The framework, and tests, reach the operations below.
  friend class TarnFrameworkAccess;
  // Asks whether its LOD container can be read from.
  friend class TarnOOCLODNodeCache;

  // Reads header and chunks of the main stream and sorts the chunks; any argument may be null.
  [[nodiscard]] HRESULT ParseHeader(OOCPointCloudFileHeader* fileHeader,
                                    OOCPCRepositoryInformation* information,
                                    std::array<std::uint8_t, 16>* value16,
                                    std::vector<OOCIndexChunk>* selectedChunks,
                                    std::vector<OOCIndexChunk>* otherChunks,
                                    std::array<double, 6>* seed);
  // Makes the containers of the selected chunks that the cloud cannot do without.
  [[nodiscard]] HRESULT CreateCoreContainers(ChunkSelection& selection) const;
  // Installs the containers of a selection and makes those of its remaining chunks.
  [[nodiscard]] HRESULT LoadChunkSelection(ChunkSelection&& selection);
  [[nodiscard]] HRESULT InstallPositions(ChunkSelection& selection);
  [[nodiscard]] HRESULT LoadMetaDataChunk(const OOCIndexChunk& chunk);
  [[nodiscard]] HRESULT LoadStringRepositoryChunk(const OOCIndexChunk& chunk);
  void RegisterMetaData(const OOCPCMetaDataContainer& container);
  // Detaches the repository; always 0. Caches and core containers stay.
  HRESULT DestroyDataRepository();
  // False for a core container whose repository was detached: it must not be read from.
  [[nodiscard]] bool IsReadable(const OOCPCContainer& container) const;

  // Takes `container` over and registers it under its name; deletes it when it is refused.
  [[nodiscard]] HRESULT AddContainer(OOCPCContainer* container);
  // Deletes a container that was refused, unless it is the registered one itself.
  void Discard(OOCPCContainer* container) const;

  [[nodiscard]] HRESULT GetIteration(std::uint64_t iterationIndex,
                                     std::shared_ptr<OOCPCUpdateIteration>& iteration);
  // Reads the record of an iteration past the cache.
  [[nodiscard]] HRESULT ReadIteration(std::uint64_t iterationIndex,
                                      OOCPCUpdateIteration& iteration) const;
  // Tells the node caches that their cloud goes.
  void LeaveNodeCaches();
  [[nodiscard]] HRESULT GetPayload(std::uint64_t iterationIndex,
                                   OOCPCUpdItrAcceleratorPayload& payload);
  [[nodiscard]] HRESULT GetLODPayload(std::uint64_t iterationIndex, OOCPCUpdItrLODPayload& payload);

  void SetMortonSeed(const double (&seed)[6]);
  // The six values stay.
  void UnsetMortonSeed();
  void SetSeedPlacement(std::uint64_t index, std::int32_t value);
  void GetSeedPlacement(std::uint64_t& index, std::int32_t& value) const;

  IterationMap<std::shared_ptr<OOCPCLODNodeCache>> lodNodeCacheMap;
  IterationMap<std::shared_ptr<OOCPCUpdateIteration>> iterationCache;
  IterationMap<oocpc::Vector3d> originCache;
  OOCPCAcceleratorContainer* acceleratorContainer = nullptr;
  OOCPCUpdateIterationContainer* updateIterationContainer = nullptr;
  OOCPCLODContainer* lodContainer = nullptr;
  OOCPointCloudFileHeader header;
  OOCPCIDataRepository* dataRepository = nullptr;
  OOCPointCloudSettings settings;
  OOCPCMetaDataInfo metaDataInfo;
  std::set<OOCPCContainer*, ContainerTypeOrder> ownedContainers;
  std::set<OOCPCContainer*, ContainerNameOrder> containersByName;
  bool hasMortonSeed = false;
  std::array<double, 6> mortonSeed{};
  std::int32_t seedPlacementValue = -1;
  std::uint64_t seedPlacementIndex = 0;
  // Keeps alive what the plain pointers above refer to, and what they referred to before.
  SharedOwnership ownership;
};
