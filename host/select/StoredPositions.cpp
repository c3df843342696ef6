// From stored integers to coordinates, and from bounds of coordinates back to stored integers.
#include "host/select/StoredPositions.h"

#include <algorithm>
#include <cmath>

namespace tarnhost {

namespace {

constexpr std::int64_t kFirst = kAllStored.least;
constexpr std::int64_t kEnd = kAllStored.greatest + 1;

std::int64_t Clamped(double guess) {
  if (!(guess > static_cast<double>(kFirst))) return kFirst;  // NaN, too
  return guess < static_cast<double>(kEnd) ? static_cast<std::int64_t>(guess) : kEnd - 1;
}

/// The first integer for which `holds`, which turns from false to true once; kEnd when it never
/// does. Looks near the guess first.
template <typename Predicate>
std::int64_t FindFirst(double guess, const Predicate& holds) {
  std::int64_t at = Clamped(guess);
  std::int64_t low = kFirst;  // everything below is false
  std::int64_t high = kEnd;   // everything from here on is true
  for (std::int64_t step = 1; low < high; step *= 2) {
    if (holds(static_cast<std::int32_t>(at))) {
      high = at;
      if (at - kFirst < step) break;
      at -= step;
      if (at < low) break;
    } else {
      low = at + 1;
      if (kEnd - 1 - at < step) break;
      at += step;
      if (at >= high) break;
    }
  }
  while (low < high) {
    const std::int64_t middle = low + (high - low) / 2;
    if (holds(static_cast<std::int32_t>(middle))) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return high;
}

/// `coordinate` is monotonic: rising for a positive scale, else falling.
template <typename Coordinate>
StoredRange FindRange(double low, double high, double scale, double guessLow, double guessHigh,
                      const Coordinate& coordinate) {
  if (!(low <= high)) return {};
  StoredRange range;
  if (scale > 0) {
    range.least = FindFirst(guessLow, [&](std::int32_t i) { return coordinate(i) >= low; });
    range.greatest =
        FindFirst(guessHigh + 1, [&](std::int32_t i) { return !(coordinate(i) <= high); }) - 1;
  } else {
    range.least = FindFirst(guessHigh, [&](std::int32_t i) { return coordinate(i) <= high; });
    range.greatest =
        FindFirst(guessLow + 1, [&](std::int32_t i) { return !(coordinate(i) >= low); }) - 1;
  }
  return range;
}

}  // namespace

StoredRange StoredPositions::FindSource(double low, double high, std::size_t axis) const {
  const double scale = transform.scale[axis];
  const double offset = transform.offset[axis];
  return FindRange(low, high, scale, std::ceil((low - offset) / scale),
                   std::floor((high - offset) / scale),
                   [&](std::int32_t stored) { return GetSource(stored, axis); });
}

StoredRange StoredPositions::FindLocal(double low, double high, std::size_t axis) const {
  const double scale = transform.scale[axis];
  const double offset = transform.offset[axis];
  const double frame = frameOffset[axis];
  return FindRange(low, high, scale, std::ceil((low + frame - offset) / scale),
                   std::floor((high + frame - offset) / scale),
                   [&](std::int32_t stored) { return GetLocal(stored, axis); });
}

}  // namespace tarnhost
