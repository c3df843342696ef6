// The facts of a repository as text and as JSON.
#include "apps/tarn/InfoText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "apps/tarn/Messages.h"

namespace tarnapp {

using tarnhost::CloudFacts;
using tarnhost::DimensionFacts;
using tarnhost::SourceFacts;

namespace {

std::string Three(const oocpc::Vector3d& vector) {
  return NumberText(vector[0]) + ", " + NumberText(vector[1]) + ", " + NumberText(vector[2]);
}

std::string Corner(const oocpc::Vector3d& corner, const oocpc::Vector3d& scale) {
  std::string text;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    text += (axis > 0 ? ", " : "") + CoordinateText(corner[axis], scale[axis]);
  }
  return text;
}

/// A header's corner without what rounding has left behind the decimals that its scale has.
std::string HeaderCorner(const oocpc::Vector3d& corner, const oocpc::Vector3d& scale) {
  constexpr double kRounding = 1e-3;  // of a step
  std::string text;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const std::string rounded = CoordinateText(corner[axis], scale[axis]);
    double value = 0;
    std::from_chars(rounded.data(), rounded.data() + rounded.size(), value);
    const double error = std::abs(value - corner[axis]);
    text += axis > 0 ? ", " : "";
    text += error <= kRounding * std::abs(scale[axis]) ? rounded : NumberText(corner[axis]);
  }
  return text;
}

std::string Numbers(const std::vector<tarnhost::Number>& numbers) {
  std::string text;
  for (const tarnhost::Number& number : numbers)
    text += (text.empty() ? "" : " ") + NumberText(number);
  return text.empty() ? "-" : text;
}

std::string Means(const std::vector<double>& means) {
  std::string text;
  for (const double mean : means) text += (text.empty() ? "" : " ") + MeanText(mean);
  return text.empty() ? "-" : text;
}

std::string TypeText(oocpc::ColumnType type) {
  const std::string name = oocpc::ValueTypeName(type.value);
  return type.components == 1 ? name : name + " x " + std::to_string(type.components);
}

std::string SpacingText(double spacing) {
  std::array<char, 40> digits;
  std::snprintf(digits.data(), digits.size(), "%.3g", spacing);
  return digits.data();
}

/// The levels of detail, coarse to fine, which are others than those of the octree.
std::string DetailText(const std::vector<tarnhost::LevelFacts>& levels) {
  const tarnhost::LevelFacts& coarse = levels.front();
  const tarnhost::LevelFacts& fine = levels.back();
  if (levels.size() == 1) {
    return "level " + std::to_string(coarse.level) + ", spacing " + SpacingText(coarse.spacing);
  }
  return "levels " + std::to_string(coarse.level) + " to " + std::to_string(fine.level) +
         " (thin --level), spacing " + SpacingText(coarse.spacing) + " to " +
         SpacingText(fine.spacing);
}

std::string NewestText(const std::vector<tarnhost::IterationFacts>& iterations) {
  if (iterations.empty()) return "none";
  const tarnhost::IterationFacts& newest = iterations.back();
  return newest.damage.Ok() ? TimeText(newest.timePoint) : "unknown";
}

std::vector<std::uint64_t> DamagedOf(const std::vector<tarnhost::IterationFacts>& iterations) {
  std::vector<std::uint64_t> damaged;
  for (const tarnhost::IterationFacts& iteration : iterations) {
    if (!iteration.damage.Ok()) damaged.push_back(iteration.index);
  }
  return damaged;
}

void PrintSummary(const std::string& repository, const CloudFacts& facts) {
  std::printf("%s: %s\n", repository.c_str(), Counted(facts.pointCount, "point").c_str());
  std::printf("  bounds       %s  to  %s\n",
              Corner(facts.bounds.min, facts.transform.scale).c_str(),
              Corner(facts.bounds.max, facts.transform.scale).c_str());
  std::printf("  system       %s\n",
              facts.coordinateSystem.empty()
                  ? "unknown"
                  : Shown(tarnhost::NameCoordinateSystem(facts.coordinateSystem)).c_str());
  std::printf("  scale        %s\n", Three(facts.transform.scale).c_str());
  std::printf("  local frame  source coordinates less %s\n", Three(facts.frameOffset).c_str());
  std::printf("  octree       %s, %u deep\n", Counted(facts.nodeCount, "node").c_str(),
              facts.depth);
  if (!facts.levels.empty()) {
    std::printf("  detail       %s\n", DetailText(facts.levels).c_str());
  }
  std::printf("  stored       %s%s\n", Bytes(facts.storedBytes).c_str(),
              facts.lasBytes == 0 ? "" : (" (as LAS: " + Bytes(facts.lasBytes) + ")").c_str());
  std::printf("  iterations   %zu, newest %s\n", facts.iterations.size(),
              NewestText(facts.iterations).c_str());
  for (const std::uint64_t damaged : DamagedOf(facts.iterations)) {
    std::printf("               iteration %s is damaged: tarn verify tells more\n",
                Grouped(damaged).c_str());
  }
  std::string names;
  for (const DimensionFacts& dimension : facts.dimensions) names += " " + Shown(dimension.name);
  std::printf("  dimensions   x y z%s\n", names.c_str());
}

void PrintSchema(const CloudFacts& facts) {
  std::printf("\n%-28s %-12s %12s  %s\n", "dimension", "type", "stored", "meaning");
  for (const DimensionFacts& dimension : facts.dimensions) {
    std::printf("%-28s %-12s %12s  %s\n", Shown(dimension.name).c_str(),
                TypeText(dimension.type).c_str(), Bytes(dimension.storedBytes).c_str(),
                Shown(dimension.description).c_str());
  }
}

void PrintScanSchema(const CloudFacts& facts) {
  std::printf("\n%-28s %-12s  %s\n", "dimension", "type", "meaning");
  for (const DimensionFacts& dimension : facts.dimensions) {
    std::printf("%-28s %-12s  %s\n", Shown(dimension.name).c_str(),
                TypeText(dimension.type).c_str(), Shown(dimension.description).c_str());
  }
}

void PrintRanges(const CloudFacts& facts) {
  std::printf("\n%-28s %-24s %-24s %s\n", "dimension", "minimum", "maximum", "mean");
  for (const DimensionFacts& dimension : facts.dimensions) {
    std::printf("%-28s %-24s %-24s %s\n", Shown(dimension.name).c_str(),
                Numbers(dimension.minimum).c_str(), Numbers(dimension.maximum).c_str(),
                Means(dimension.mean).c_str());
  }
}

void PrintStatistics(const CloudFacts& facts) {
  PrintRanges(facts);
  for (const std::string& oddity : facts.oddities) std::printf("note: %s\n", oddity.c_str());
}

void PrintHeader(const tarnhost::LasHeader& las) {
  std::printf("  LAS %d.%d, point format %d, %d bytes a point\n", las.versionMajor,
              las.versionMinor, las.pointFormat, las.pointBytes);
  std::printf("  made by \"%s\" (%s) on day %d of %d\n", Shown(las.generatingSoftware).c_str(),
              Shown(las.systemIdentifier).c_str(), las.creationDay, las.creationYear);
  std::printf("  scale %s, offset %s\n", Three(las.scale).c_str(), Three(las.offset).c_str());
  for (const tarnhost::LasVariableRecord& record : las.records) {
    std::printf("  record %s %d, %s: %s\n", Shown(record.userId).c_str(), record.recordId,
                Bytes(record.payloadBytes).c_str(), Shown(record.description).c_str());
  }
}

void PrintCoordinateSystem(const CloudFacts& facts) {
  if (!facts.coordinateSystem.empty()) {
    std::printf("\ncoordinate system:\n%s\n", facts.coordinateSystem.c_str());
  }
}

void PrintMetadata(const CloudFacts& facts) {
  for (const SourceFacts& source : facts.sources) {
    std::printf("\n%s: %s\n",
                source.fileName.empty() ? "lost sources" : Shown(source.fileName).c_str(),
                Counted(source.pointCount, "point").c_str());
    if (source.las) PrintHeader(*source.las);
  }
  PrintCoordinateSystem(facts);
}

/// Sixteen digits.
std::string HexText(std::uint64_t number) {
  std::array<char, 17> digits;
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return digits.data();
}

void AddRange(const DimensionFacts& dimension, nlohmann::json& json) {
  json["minimum"] = nlohmann::json::array();
  json["maximum"] = nlohmann::json::array();
  for (const auto& number : dimension.minimum) json["minimum"].push_back(NumberJson(number));
  for (const auto& number : dimension.maximum) json["maximum"].push_back(NumberJson(number));
  for (const double mean : dimension.mean) json["mean"].push_back(NumberJson(mean));
}

nlohmann::json DimensionJson(const DimensionFacts& dimension) {
  nlohmann::json json{{"name", dimension.name},
                      {"type", oocpc::ValueTypeName(dimension.type.value)},
                      {"components", dimension.type.components},
                      {"description", dimension.description},
                      {"stored_bytes", dimension.storedBytes}};
  AddRange(dimension, json);
  return json;
}

nlohmann::json SourceJson(const SourceFacts& source) {
  nlohmann::json json{{"file", source.fileName}, {"points", source.pointCount}};
  if (!source.las) return json;
  const tarnhost::LasHeader& las = *source.las;
  json["las_version"] = std::to_string(las.versionMajor) + "." + std::to_string(las.versionMinor);
  json["point_format"] = las.pointFormat;
  json["point_bytes"] = las.pointBytes;
  json["generating_software"] = las.generatingSoftware;
  json["system_identifier"] = las.systemIdentifier;
  json["creation_day"] = las.creationDay;
  json["creation_year"] = las.creationYear;
  json["scale"] = las.scale;
  json["offset"] = las.offset;
  json["records"] = nlohmann::json::array();
  for (const tarnhost::LasVariableRecord& record : las.records) {
    json["records"].push_back({{"user_id", record.userId},
                               {"record_id", record.recordId},
                               {"description", record.description},
                               {"bytes", record.payloadBytes},
                               {"extended", record.extended}});
  }
  return json;
}

}  // namespace

void PrintInfoText(const std::string& repository, const CloudFacts& facts, const InfoParts& parts) {
  PrintSummary(repository, facts);
  if (parts.schema) PrintSchema(facts);
  if (parts.statistics) PrintStatistics(facts);
  if (parts.metadata) PrintMetadata(facts);
}

void PrintInfoJson(const std::string& repository, const CloudFacts& facts) {
  nlohmann::json json{{"repository", repository},
                      {"points", facts.pointCount},
                      {"bounds", {{"min", facts.bounds.min}, {"max", facts.bounds.max}}},
                      {"coordinate_system", facts.coordinateSystem},
                      {"scale", facts.transform.scale},
                      {"offset", facts.transform.offset},
                      {"local_frame_offset", facts.frameOffset},
                      {"nodes", facts.nodeCount},
                      {"levels", facts.depth},
                      {"stored_bytes", facts.storedBytes},
                      {"las_bytes", facts.lasBytes},
                      {"iterations", facts.iterations.size()},
                      {"damaged_iterations", DamagedOf(facts.iterations)},
                      {"generator", facts.generator},
                      {"notes", facts.oddities}};
  json["dimensions"] = nlohmann::json::array();
  for (const DimensionFacts& dimension : facts.dimensions) {
    json["dimensions"].push_back(DimensionJson(dimension));
  }
  json["levels_of_detail"] = nlohmann::json::array();
  for (const tarnhost::LevelFacts& level : facts.levels) {
    json["levels_of_detail"].push_back({{"level", level.level},
                                        {"spacing", NumberJson(level.spacing)},
                                        {"points", level.pointCount},
                                        {"nodes", level.nodeCount}});
  }
  json["sources"] = nlohmann::json::array();
  for (const SourceFacts& source : facts.sources) json["sources"].push_back(SourceJson(source));
  PrintJson(json);
}

void PrintScanText(const std::string& scan, const CloudFacts& facts, const InfoParts& parts) {
  std::printf("%s: %s\n", scan.c_str(), Counted(facts.pointCount, "point").c_str());
  const tarnhost::LasHeader* const las =
      facts.sources.empty() || !facts.sources.front().las ? nullptr : &*facts.sources.front().las;
  const bool isLas = las != nullptr;
  std::printf("  bounds       %s  to  %s%s\n",
              isLas ? HeaderCorner(facts.bounds.min, facts.transform.scale).c_str()
                    : Corner(facts.bounds.min, facts.transform.scale).c_str(),
              isLas ? HeaderCorner(facts.bounds.max, facts.transform.scale).c_str()
                    : Corner(facts.bounds.max, facts.transform.scale).c_str(),
              isLas ? ", as the header says" : "");
  std::string names;
  for (const DimensionFacts& dimension : facts.dimensions) names += " " + Shown(dimension.name);
  std::printf("  dimensions   x y z%s\n", names.c_str());
  for (const std::string& oddity : facts.oddities) std::printf("  note: %s\n", oddity.c_str());
  if (parts.schema) PrintScanSchema(facts);
  if (parts.statistics) PrintRanges(facts);
  if (isLas) {
    std::printf("\nheader:\n");
    PrintHeader(*las);
  }
  PrintCoordinateSystem(facts);
}

void PrintScanJson(const std::string& scan, const CloudFacts& facts) {
  nlohmann::json json{{"scan", scan},
                      {"points", facts.pointCount},
                      {"bounds", {{"min", facts.bounds.min}, {"max", facts.bounds.max}}},
                      {"coordinate_system", facts.coordinateSystem},
                      {"scale", facts.transform.scale},
                      {"offset", facts.transform.offset},
                      {"notes", facts.oddities}};
  json["dimensions"] = nlohmann::json::array();
  for (const DimensionFacts& dimension : facts.dimensions) {
    json["dimensions"].push_back({{"name", dimension.name},
                                  {"type", oocpc::ValueTypeName(dimension.type.value)},
                                  {"components", dimension.type.components},
                                  {"description", dimension.description}});
    if (!dimension.mean.empty()) AddRange(dimension, json["dimensions"].back());
  }
  json["sources"] = nlohmann::json::array();
  for (const SourceFacts& source : facts.sources) json["sources"].push_back(SourceJson(source));
  PrintJson(json);
}

void PrintChecksumsText(const tarnhost::Checksums& sums) {
  std::printf("points %s\n", Grouped(sums.pointCount).c_str());
  std::printf("scale %s\noffset %s\n", Three(sums.transform.scale).c_str(),
              Three(sums.transform.offset).c_str());
  for (const auto& [name, sum] : sums.dimensions) {
    std::printf("%s  %s\n", HexText(sum).c_str(), Shown(name).c_str());
  }
  std::printf("%s  whole points\n", HexText(sums.records).c_str());
}

void PrintChecksumsJson(const tarnhost::Checksums& sums) {
  nlohmann::json json{{"points", sums.pointCount},
                      {"scale", sums.transform.scale},
                      {"offset", sums.transform.offset},
                      {"records", HexText(sums.records)}};
  json["dimensions"] = nlohmann::json::array();
  for (const auto& [name, sum] : sums.dimensions) {
    json["dimensions"].push_back({{"name", name}, {"checksum", HexText(sum)}});
  }
  PrintJson(json);
}

}  // namespace tarnapp
