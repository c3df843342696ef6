// The points of a PCD file: text, binary, or compressed.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Opens a PCD file that is mapped already. kScanTruncated, kScanContradictory, kScanUnsupported;
/// kOutOfMemory for compressed data that does not fit into memory.
Outcome OpenPcd(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                std::unique_ptr<ScanFile>& scan);

}  // namespace tarnhost
