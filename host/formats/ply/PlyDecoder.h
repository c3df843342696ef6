// The points of a PLY file: text, or binary of either byte order.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Opens a PLY file that is mapped already. The vertices are the points; other elements are passed
/// over. kScanTruncated, kScanContradictory, kScanUnsupported; kStopped.
Outcome OpenPly(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan);

}  // namespace tarnhost
