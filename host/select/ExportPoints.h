// Writes a whole cloud into a file of a format that is not LAS.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/cloud/Export.h"

namespace tarnhost {

/// True for a name ending in .ply, .pcd or .csv.
[[nodiscard]] bool IsPointFileName(const std::filesystem::path& output);

/// Writes all points of an iteration into such a file, as ExportLas does into others: source by
/// source in the order of the points there, where the cloud knows it. Failures of the selection and
/// of the sink; kScanUnsupported for other names.
Outcome ExportPoints(Cloud& cloud, const ExportOptions& options,
                     const std::filesystem::path& output, std::uint64_t& pointCount);

}  // namespace tarnhost
