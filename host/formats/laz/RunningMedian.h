// The median of recent values, in the manner of the format: of five, one end is dropped for each
// value that comes in, and which end alternates.
#pragma once

#include <array>
#include <cstdint>

namespace tarnhost::laz {

class RunningMedian {
 public:
  [[nodiscard]] std::int32_t Get() const { return values_[2]; }

  void Add(std::int32_t value) {
    if (dropsHighest_) {
      dropsHighest_ = value < values_[2];
      std::size_t at = 4;
      for (; at > 0 && values_[at - 1] > value; --at) values_[at] = values_[at - 1];
      values_[at] = value;
    } else {
      dropsHighest_ = value <= values_[2];
      std::size_t at = 0;
      for (; at < 4 && values_[at + 1] < value; ++at) values_[at] = values_[at + 1];
      values_[at] = value;
    }
  }

 private:
  std::array<std::int32_t, 5> values_{};
  bool dropsHighest_ = true;
};

}  // namespace tarnhost::laz
