// The first failure of several threads.
#pragma once

#include <mutex>
#include <utility>

#include "host/common/Outcome.h"

namespace tarnhost {

class FirstFailure {
 public:
  void Note(Outcome outcome) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (outcome_.Ok()) outcome_ = std::move(outcome);
  }
  [[nodiscard]] bool HasNone() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return outcome_.Ok();
  }
  /// When no thread notes any more.
  [[nodiscard]] const Outcome& Get() const { return outcome_; }

 private:
  std::mutex mutex_;
  Outcome outcome_;
};

}  // namespace tarnhost
