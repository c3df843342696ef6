// The interface of a level-of-detail node cache: one update iteration's LOD nodes, held in memory.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/ResultCodes.h>

#include <memory>
#include <string_view>

class OOCPCLODContainer;
class OOCPCMetaDataContainer;

/// The level-of-detail nodes of one update iteration.
///
/// The order of the virtual operations is part of the contract between separately built programs:
/// new operations go to the end, and a reserved slot is never given up.
///
/// Ownership: shared through std::shared_ptr; a cache borrows its point cloud and its LOD container
/// and must not be used after either is gone. Thread safety: LoadLODPayload, StartNodeLoading and
/// WaitForNodeLoading exclude one another; FindNode and GetLevelContainer may be called while nodes
/// are still being loaded in the background. The other operations are for one thread at a time.
class OOCPOINTCLOUD_API OOCPCLODNodeCache {
 public:
  OOCPCLODNodeCache() = default;
  OOCPCLODNodeCache(const OOCPCLODNodeCache&) = delete;
  OOCPCLODNodeCache& operator=(const OOCPCLODNodeCache&) = delete;
  /// Stops a background load and releases everything the cache owns.
  virtual ~OOCPCLODNodeCache();

  /// Forgets all nodes, level containers and header values, and stops a background load.
  virtual HRESULT Reset() = 0;
  [[nodiscard]] virtual bool HasLODContainer() const = 0;
  /// Replaces the LOD container, detaching a former one first. The container stays the caller's.
  virtual HRESULT SetLODContainer(OOCPCLODContainer* container) = 0;
  virtual void DetachLODContainer() = 0;
  /// Scale of the LOD block that was loaded last; 0 before.
  [[nodiscard]] virtual double GetScale() const = 0;
  /// Centre of the LOD block that was loaded last, local frame. True when `centre` was filled in.
  [[nodiscard]] virtual bool GetCentre(double (&centre)[3]) const = 0;
  /// What the cache can do, as a set of bits.
  [[nodiscard]] virtual std::uint32_t GetCapabilities() const = 0;
  /// Lets go of a background load that has ended well. False while it runs or when it failed.
  virtual bool ReleaseFinishedWorker() = 0;
  /// Not used: oocpc::result::kFail.
  virtual HRESULT ReservedSlot10() = 0;
  /// Reads an iteration's LOD block and then its nodes; with `background` only the first node is
  /// there when the call returns. Codes: kLodNoOwner, kLodPayloadTooLong, kNoLodStream,
  /// kLodStreamUnusable, kLodContainerMissing, kLodShortRead, kLodBadVersion, kLodLengthMismatch,
  /// kLodNoContainerForName, kLodNoLevelContainer, those of StartNodeLoading, and
  /// kChecksumMismatch for a block that states a checksum and was altered.
  [[nodiscard]] virtual HRESULT LoadLODPayload(OOCPCUpdItrLODPayload payload, bool background) = 0;
  /// Waits for the background load. Its negative code when it failed, kFail in every other case,
  /// also when it ended well.
  virtual HRESULT WaitForNodeLoading() = 0;
  /// The container of that name for the level of this cache; it stays the cache's.
  /// kLodNoLevelContainer sets `container` to null.
  [[nodiscard]] virtual HRESULT GetLevelContainer(const char* name,
                                                  OOCPCMetaDataContainer*& container) = 0;
  /// Looks up a node that is already loaded: its first point and its number of points.
  /// kLodNodeNotFound sets both to 0; the code of a failed background load leaves both alone.
  [[nodiscard]] virtual HRESULT FindNode(std::uint32_t indexInLevel, std::uint32_t level,
                                         std::uint64_t& firstPoint, std::uint32_t& pointCount) = 0;
  /// Not used: oocpc::result::kFail.
  virtual HRESULT ReservedSlot15() = 0;
  /// Not used: oocpc::result::kFail.
  virtual HRESULT ReservedSlot16() = 0;
  /// Hands the node entry count of every iteration's LOD block, and `value`, to the level container
  /// of that iteration for the container called `name`.
  [[nodiscard]] virtual HRESULT WalkUpdateIterations(std::string_view name,
                                                     std::uint64_t value) = 0;
  /// Not used: does nothing.
  virtual void ReservedSlot18() = 0;
  /// Loads the node records that belong to the LOD block read last. Takes `lodStream` over.
  /// kLodNoRepository, kNoLodStream, kLodStreamUnusable, kLodShortRead, kWorkerNotCreated; of a
  /// block with a checksum also kChecksumMismatch and kBadRecord.
  [[nodiscard]] virtual HRESULT StartNodeLoading(std::unique_ptr<OOCPCIInputStream> lodStream,
                                                 bool background) = 0;
  /// The container of that name for the level of this cache; it stays the cache's. For a name that
  /// the cache does not know 1 and null.
  [[nodiscard]] virtual HRESULT GetMetaDataContainer(std::string_view name,
                                                     OOCPCMetaDataContainer*& container) = 0;
};
