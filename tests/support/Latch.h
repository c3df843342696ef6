// A gate that opens when as many have arrived as it was made for.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace oocpctest {

/// As std::latch, which, like all that waits for atomics, misses wake-ups in GCC 12 for Windows.
class Latch {
 public:
  explicit Latch(std::ptrdiff_t count) : count_(count) {}
  Latch(const Latch&) = delete;
  Latch& operator=(const Latch&) = delete;

  void CountDown() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (--count_ == 0) opened_.notify_all();
  }
  [[nodiscard]] bool IsOpen() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return count_ <= 0;
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return count_ <= 0; });
  }
  void ArriveAndWait() {
    CountDown();
    Wait();
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  std::ptrdiff_t count_;
};

}  // namespace oocpctest
