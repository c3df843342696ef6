// Writes a cloud as a COPC file, whose octree is the cloud's own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"

namespace tarnhost {

struct CopcReport {
  std::uint64_t pointCount = 0;
  std::uint8_t sourceFormat = 0;  ///< LAS point format of the cloud
  std::uint8_t format = 0;        ///< of the file; another one when the cloud's has no place there
  bool lacksWkt = false;          ///< see CopcWriter
};

/// Writes all points of an iteration, a node of the octree as a chunk. The file appears only when
/// it is complete. Failures of CopcWriter; kScanUnsupported when the nodes are no cells of one
/// cube.
Outcome ExportCopc(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                   const std::function<bool(const ProgressReport&)>& progress, CopcReport& report);

}  // namespace tarnhost
