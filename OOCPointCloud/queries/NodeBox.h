// What the classifications of the position queries share: checks of a node's box and of constants.
#pragma once

#include <cmath>
#include <cstddef>

namespace oocpc {

/// Whether `min` and `max` (three doubles each) span a box: least not above greatest on each axis.
/// A NaN or an inverted bound spans none; nothing is known then of the points that it stands for.
[[nodiscard]] inline bool SpansBox(const double* min, const double* max) {
  return min[0] <= max[0] && min[1] <= max[1] && min[2] <= max[2];
}

/// Whether any number of a range is a NaN.
template <typename Range>
[[nodiscard]] bool HoldsNaN(const Range& numbers) {
  for (const auto number : numbers) {
    if (std::isnan(number)) return true;
  }
  return false;
}

}  // namespace oocpc
