// The points of a text file: a line a point, a column a dimension.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// True for the endings of text files that hold points: .xyz, .txt, .csv, .asc, .pts.
[[nodiscard]] bool HasTextEnding(const std::filesystem::path& path);

/// Opens a text file that is mapped already. Separators, names and types are found by looking at
/// it; coordinates are read as 64-bit floats. kScanNotRecognised without columns for coordinates;
/// kScanContradictory for a line with too few or too many words, or with one that is no number
/// where one has to be; kScanUnsupported for more texts than a dictionary holds; kStopped.
Outcome OpenText(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                 const ScanOptions& options, std::unique_ptr<ScanFile>& scan);

}  // namespace tarnhost
