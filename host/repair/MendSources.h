// Puts together anew what a repository keeps of its sources, where a part of it is lost.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tarnhost {

/// A source, or several that followed one another, of which nothing is left but the points.
struct LostSource {
  std::string fileName;  ///< empty where that is lost, too
  std::uint64_t pointCount = 0;
};

/// The sources of a state. Without losses, it is `wholeBytes` of the stream that holds them; else
/// `stream` takes its place, with the same number of points in the same order.
struct MendedSources {
  std::uint64_t wholeBytes = 0;
  std::vector<std::uint8_t> stream;
  std::vector<LostSource> lost;
};

/// Finds the sources of the first `pointCount` points in what there is of a stream of
/// `statedBytes`. `allPoints` is the number of points of all sources in it, where that is known. A
/// record whose head is sound keeps its name and its points. What lies between sound heads is a
/// gap; all from the first gap to the last is taken for one, whose points are those that the others
/// do not have. Where that cannot be told, everything from the first gap on is one. So no point
/// moves to another source.
[[nodiscard]] MendedSources MendSources(std::span<const std::uint8_t> bytes,
                                        std::uint64_t statedBytes, std::uint64_t pointCount,
                                        std::optional<std::uint64_t> allPoints);

}  // namespace tarnhost
