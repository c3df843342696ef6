// Writes a scan that nobody took: a street with houses, trees and cars, scanned by ray casting.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/common/Outcome.h"

namespace tarnhost {

struct SynthesizeOptions {
  std::filesystem::path output;
  std::uint64_t pointCount = 2000000;  ///< exactly so many are written; above 4 million the street
                                       ///< grows longer
  std::uint64_t seed = 1;              ///< same seed and count, same file
  /// Told now and then, on the calling thread; answering false stops.
  std::function<bool(const ProgressReport&)> progress;
};

/// Scans the scene from two flights and two drives along the street into a LAS 1.4 file, point
/// format 7: intensity, several returns through foliage, classification (2 ground, 3 to 5
/// vegetation, 6 building, 11 road, 64 car, 65 street furniture), scan angle, GPS time in rising
/// order, colour, and the coordinate system UTM 32N. The file does not depend on the number of
/// threads. kStopped when the progress function asked to stop; else as OutputFile.
Outcome SynthesizeScan(const SynthesizeOptions& options);

}  // namespace tarnhost
