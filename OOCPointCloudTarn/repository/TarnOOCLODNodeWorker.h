// Loads the nodes of a level-of-detail node cache in the background.
#pragma once

#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"

/// One load that runs on a thread of its own from Start on. Owned by its cache; destroying it asks
/// the thread to stop and waits for it.
class TarnOOCLODNodeWorker {
 public:
  /// What `status` says while the thread reads, and when it has ended well; negative: why it
  /// failed.
  static constexpr HRESULT kRunning = 1;
  static constexpr HRESULT kFinished = 0;

  /// Borrows the cache and takes over everything else; the containers may be null.
  TarnOOCLODNodeWorker(TarnOOCLODNodeCache& loading, const OOCPCLODHeader& header,
                       std::unique_ptr<OOCPCIInputStream> lod,
                       std::unique_ptr<OOCPCIInputStream> nodes,
                       std::unique_ptr<OOCPCMetaDataContainer> positions,
                       std::unique_ptr<OOCPCMetaDataContainer> colors);
  TarnOOCLODNodeWorker(const TarnOOCLODNodeWorker&) = delete;
  TarnOOCLODNodeWorker& operator=(const TarnOOCLODNodeWorker&) = delete;
  ~TarnOOCLODNodeWorker();

  /// Starts the thread, which reads the records from the second on. Raises std::system_error with
  /// std::errc::resource_unavailable_try_again when there can be no thread.
  void Start();
  /// Waits for the thread unless somebody did. Raises std::system_error as std::thread::join does,
  /// with std::errc::resource_deadlock_would_occur on the thread itself.
  void Join();
  [[nodiscard]] HRESULT GetStatus() const { return status.load(std::memory_order_acquire); }
  /// Held while a node is added to the cache.
  [[nodiscard]] std::mutex& GetMutex() { return mutex; }

 private:
  // Tests look at it.
  friend class TarnLodCacheAccess;

  void Run();
  void ReadRecords();

  TarnOOCLODNodeCache* cache;
  // Destroyed in the reverse of this order.
  std::unique_ptr<OOCPCIInputStream> lodStream;
  std::unique_ptr<OOCPCIInputStream> nodeStream;
  std::unique_ptr<OOCPCMetaDataContainer> positionContainer;
  std::unique_ptr<OOCPCMetaDataContainer> colorContainer;
  std::uint32_t headerValue;
  std::uint32_t recordCount;
  std::uint16_t version;
  std::mutex mutex;
  std::atomic<bool> stopRequested{false};
  std::atomic<HRESULT> status{kRunning};
  std::thread thread;
};
