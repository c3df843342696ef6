// Writes a whole cloud into a file of a format that is not LAS.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// True for a name ending in .ply, .pcd or .csv.
[[nodiscard]] bool IsPointFileName(const std::filesystem::path& output);

/// Writes all points of an iteration into such a file, which appears only when it is complete.
/// Failures of the selection and of the sink.
Outcome ExportPoints(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                     const std::function<bool(const ProgressReport&)>& progress,
                     std::uint64_t& pointCount);

}  // namespace tarnhost
