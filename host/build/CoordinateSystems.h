// Coordinate systems of scans that come into one cloud.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "host/build/Import.h"
#include "host/cloud/SourceRecord.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// The first coordinate system that one of the sources states, or nothing.
[[nodiscard]] std::string CoordinateSystemOf(std::span<const SourceRecord> sources);

/// Tells of each scan that states another coordinate system than the cloud, which is given, or
/// where it has none, is the first one stated. What is written in different ways is taken for the
/// same when the number of one is named by the other.
void TellOfOtherSystems(const ImportOptions& options, std::string system,
                        std::span<const std::unique_ptr<ScanFile>> scans);

}  // namespace tarnhost
