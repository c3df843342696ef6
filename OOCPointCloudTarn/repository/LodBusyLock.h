// Keeps the load and wait operations of a level-of-detail node cache apart.
#pragma once

#include <OOCPointCloud/OOCPCIInputStream.h>

#include <memory>

#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"

/// Holds the cache's mutex. Whoever looks at `busy` meanwhile knows to wait for it.
class TarnOOCLODNodeCache::BusyLock {
 public:
  BusyLock(std::atomic<std::uint32_t>& busy, std::mutex& mutex) : busy_(busy), mutex_(mutex) {
    ++busy_;
    try {
      mutex_.lock();
    } catch (...) {
      --busy_;
      throw;
    }
  }
  BusyLock(const BusyLock&) = delete;
  BusyLock& operator=(const BusyLock&) = delete;
  ~BusyLock() {
    // The host's code, which a stream's destructor may run, finds the cache ready.
    --busy_;
    stream.reset();
    mutex_.unlock();
  }

  /// The stream that is being loaded from, until somebody takes it over.
  std::unique_ptr<OOCPCIInputStream> stream;

 private:
  std::atomic<std::uint32_t>& busy_;
  std::mutex& mutex_;
};
