// Checksums of points that do not depend on their order, the same for a scan and for its cloud.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Sums, modulo 2^64, of Hash64 of each point's value. A value is hashed as it is stored: its
/// components one after the other, little-endian; a position as its three stored integers. The
/// columns that tell the source are no part of it. See docs/checksums.md.
struct Checksums {
  std::uint64_t pointCount = 0;
  PositionTransform transform;
  /// The position first, under "DEF_POSITION", then the dimensions in their order.
  std::vector<std::pair<std::string, std::uint64_t>> dimensions;
  /// Of whole points: the values of all dimensions in that order as one run of bytes.
  std::uint64_t records = 0;

  friend bool operator==(const Checksums& a, const Checksums& b) {
    return a.pointCount == b.pointCount && a.transform.scale == b.transform.scale &&
           a.transform.offset == b.transform.offset && a.dimensions == b.dimensions &&
           a.records == b.records;
  }
};

using ChecksumProgress = std::function<bool(const ProgressReport&)>;

/// Reads all points of a scan, which is prepared with this workspace. kStopped; those of Prepare().
Outcome SumScan(ScanFile& scan, ScanWorkspace& workspace, const ChecksumProgress& progress,
                Checksums& sums);

/// Reads all points of an iteration. kStopped; those of reading.
Outcome SumCloud(Cloud& cloud, std::uint64_t iteration, const ChecksumProgress& progress,
                 Checksums& sums);

}  // namespace tarnhost
