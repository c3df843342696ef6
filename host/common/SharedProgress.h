// Progress that several threads make together.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

namespace tarnhost {

/// Counts what is done, and tells it now and then, by one thread at a time; an answer of false is
/// kept. Safe from several threads at once.
class SharedProgress {
 public:
  /// `report` gets what is done so far, first 0; empty: nobody is told.
  explicit SharedProgress(std::function<bool(std::uint64_t)> report)
      : report_(std::move(report)), goesOn_(!report_ || report_(0)) {}

  [[nodiscard]] bool GoesOn() const { return goesOn_; }
  void Add(std::uint64_t done) {
    const std::uint64_t all = done_ += done;
    if (!report_) return;
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (lock.owns_lock() && goesOn_) goesOn_ = report_(all);
  }

 private:
  std::function<bool(std::uint64_t)> report_;
  std::atomic<bool> goesOn_;
  std::atomic<std::uint64_t> done_ = 0;
  std::mutex mutex_;
};

}  // namespace tarnhost
