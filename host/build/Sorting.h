// Sorting numbered keys, and points along the Morton curve.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tarnhost {

/// A point's place along the Morton curve, and its number among the points at hand.
struct CodedPoint {
  std::uint64_t code;
  std::uint64_t point;

  friend bool operator<(const CodedPoint& a, const CodedPoint& b) {
    return a.code != b.code ? a.code < b.code : a.point < b.point;
  }
};

/// Sorts by code; equal codes keep their order. `scratch` is used for the work and may grow.
void SortByCode(std::span<CodedPoint> points, std::vector<CodedPoint>& scratch);

/// A number whose order among others is that of the double among others: -0.0 equals 0.0, and NaNs
/// come last, as if they were all equal.
[[nodiscard]] std::uint64_t OrderOf(double number);

}  // namespace tarnhost
