// What there is to tell about a repository.
#pragma once

#include <OOCPointCloud/OOCPCLODRecords.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/LasHeader.h"

namespace tarnhost {

/// A number as its column holds it.
using Number = std::variant<std::uint64_t, std::int64_t, double>;

struct DimensionFacts {
  std::string name;
  oocpc::ColumnType type;
  std::string description;
  std::uint64_t storedBytes = 0;
  /// One per component; empty in a cloud without points. NaNs are left out.
  std::vector<Number> minimum;
  std::vector<Number> maximum;
  std::vector<double> mean;  ///< empty unless asked for
};

struct SourceFacts {
  std::string fileName;
  std::uint64_t pointCount = 0;
  std::optional<LasHeader> las;  ///< with its records; `pointCount` as the file states it
};

struct IterationFacts {
  std::uint64_t index = 0;
  std::uint64_t timePoint = 0;  ///< microseconds since 1970 UTC
  std::uint64_t pointCount = 0;
  std::uint64_t addedPointCount = 0;
  std::uint64_t addedBytes = 0;
  Outcome damage;  ///< why its record cannot be read; then nothing but the index is known
};

/// One level of detail.
struct LevelFacts {
  std::uint32_t level = 0;
  double spacing = 0;  ///< distance between neighbouring points, local units
  std::uint64_t pointCount = 0;
  std::uint64_t nodeCount = 0;
};

struct CloudFacts {
  std::uint64_t pointCount = 0;  ///< of the iteration asked for
  std::uint64_t nodeCount = 0;
  std::uint32_t depth = 0;  ///< levels of the octree
  std::uint64_t storedBytes = 0;
  std::uint64_t lasBytes = 0;  ///< of the sources as LAS files; 0 where one is of another kind
  std::string generator;
  oocpc::Vector3d frameOffset{};
  PositionTransform transform;
  oocpc::Box3d bounds;                     ///< source coordinates; zero for a cloud without points
  std::string coordinateSystem;            ///< WKT, "EPSG:n", or empty
  std::vector<DimensionFacts> dimensions;  ///< positions left out
  std::vector<SourceFacts> sources;
  std::vector<IterationFacts> iterations;
  std::vector<LevelFacts> levels;     ///< coarse to fine; none in a repository made without
  std::vector<std::string> oddities;  ///< what contradicts itself in the data, sentences
};

/// Collects the facts of one iteration. With `statistics`, reads every value for means and for what
/// contradicts itself; without, reads no point.
Outcome CollectFacts(Cloud& cloud, std::uint64_t iteration, bool statistics, CloudFacts& facts);

/// The level-of-detail block and node records of one iteration; none when it has none. Errors as
/// CollectLevels.
Outcome ReadLevelRecords(Cloud& cloud, std::uint64_t iteration, OOCPCLODBlock& block,
                         std::vector<OOCPCLODNodeRecord>& records);

/// What a scan file says of itself, without its points being read: header, records, dimensions;
/// bounds are those of the header. `facts.sources` has one element.
void CollectScanFacts(const ScanFile& scan, CloudFacts& facts);

/// The levels of detail of one iteration, from its node records; none when it has none.
/// kStreamMissing, kStreamShort, and those of decoding.
Outcome CollectLevels(Cloud& cloud, std::uint64_t iteration, std::vector<LevelFacts>& levels);

/// The iterations alone, those included whose record cannot be read; a failure where none can.
Outcome CollectIterations(Cloud& cloud, std::vector<IterationFacts>& iterations);

/// The header of a source, with its records, whatever became of its points.
std::optional<LasHeader> ReadSourceHeader(const SourceRecord& source);

/// WKT, or "EPSG:n" out of GeoTIFF keys, or empty; from the records before or behind the points.
std::string FindCoordinateSystem(const LasHeader& header, const SourceRecord& source);

/// A coordinate system's name, for people: out of WKT the first quoted text.
std::string NameCoordinateSystem(const std::string& system);

}  // namespace tarnhost
