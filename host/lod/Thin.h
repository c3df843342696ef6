// Writes the coarse levels of a cloud as a scan file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"

namespace tarnhost {

struct ThinReport {
  std::uint64_t pointCount = 0;  ///< points written
  std::uint32_t level = 0;       ///< the finest level written
  double spacing = 0;            ///< of that level, local units
};

/// How far to go: to a level, or to the coarsest one with points as near together as `spacing`
/// (local units), when that is above 0.
struct ThinOptions {
  std::uint64_t iteration = 0;
  std::uint32_t level = 0;
  double spacing = 0;
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
};

/// Writes the points of level 0 to the wanted one, with all their attributes, into a LAS or LAZ
/// file. It
/// appears only when it is complete. kNoLodStream for a repository without levels of detail.
Outcome ThinLas(Cloud& cloud, const ThinOptions& options, const std::filesystem::path& output,
                ThinReport& report);

}  // namespace tarnhost
