// The points of an E57 file: of all its scans, in one frame.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Opens an E57 file that is mapped already. Without `verify`, checksums of pages are not looked
/// at. kScanTruncated, kScanContradictory, kScanUnsupported; kStopped.
Outcome OpenE57(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan, bool verify = true);

}  // namespace tarnhost
