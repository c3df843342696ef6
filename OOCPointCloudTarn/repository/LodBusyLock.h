// Keeps the load and wait operations of a level-of-detail node cache apart.
#pragma once

#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"

/// Holds the cache's mutex. Whoever looks at `busy` meanwhile knows to wait for it.
class TarnOOCLODNodeCache::BusyLock {
 public:
  BusyLock(std::atomic<std::uint32_t>& busy, std::mutex& mutex) : marked_(busy), mutex_(mutex) {
    mutex_.lock();
  }
  BusyLock(const BusyLock&) = delete;
  BusyLock& operator=(const BusyLock&) = delete;
  ~BusyLock() { mutex_.unlock(); }

 private:
  // Also when the lock raises an error.
  class Mark {
   public:
    explicit Mark(std::atomic<std::uint32_t>& busy) : busy_(busy) { ++busy_; }
    Mark(const Mark&) = delete;
    Mark& operator=(const Mark&) = delete;
    ~Mark() { --busy_; }

   private:
    std::atomic<std::uint32_t>& busy_;
  };

  Mark marked_;
  std::mutex& mutex_;
};
