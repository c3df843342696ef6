// The points of a PCD file: text, binary, or compressed.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Opens a PCD file that is mapped already. Compressed points are unpacked in memory as far as the
/// options allow, else in a temporary file. kScanTruncated, kScanContradictory, kScanUnsupported;
/// kStopped; those of ScratchBytes.
Outcome OpenPcd(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan);

}  // namespace tarnhost
