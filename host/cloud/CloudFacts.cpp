// What there is to tell about a repository.
#include "host/cloud/CloudFacts.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/Statistics.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

using Node = OOCPCOctreeAcceleratorNode;

Outcome EntryOf(OOCPCMetaDataContainer& column, const Node& node, oocpc::BlockEntry& entry) {
  const HRESULT code = column.ReadBlockEntry(node.blockId, entry);
  if (!oocpc::Failed(code)) return Outcome::Success();
  return Outcome::FromCode(
      code, std::string("column ") + column.GetName() + ", block " + std::to_string(node.blockId));
}

/// Goes through the nodes of an iteration and gathers ranges and, if asked to, statistics.
class Collector {
 public:
  Collector(Cloud& cloud, bool statistics, CloudFacts& facts)
      : cloud_(cloud), statistics_(statistics), facts_(facts) {}

  Outcome Run(std::uint64_t iteration) {
    std::vector<std::string> names;
    for (const CloudColumn& column : cloud_.GetColumns()) {
      facts_.dimensions.push_back({column.name, column.type, column.description, 0, {}, {}, {}});
      names.push_back(column.name);
    }
    if (Outcome outcome = BlockReader::Open(cloud_, names, reader_); !outcome.Ok()) return outcome;
    Outcome failure;
    Outcome walk = cloud_.WalkNodes(iteration, [&](const Node& node) {
      failure = Visit(node);
      return failure.Ok() ? Descend::kIntoChildren : Descend::kStop;
    });
    if (!failure.Ok()) return failure;
    if (!walk.Ok()) return walk;
    Finish();
    return Outcome::Success();
  }

 private:
  Outcome Visit(const Node& node) {
    ++facts_.nodeCount;
    facts_.depth = std::max(facts_.depth, node.level + 1);
    facts_.pointCount += node.ownPointCount;
    if (node.ownPointCount == 0) return Outcome::Success();
    oocpc::BlockEntry entry;
    if (Outcome outcome = EntryOf(reader_.GetPositions(), node, entry); !outcome.Ok()) {
      return outcome;
    }
    Widen(positions_, entry);
    for (std::size_t i = 0; i < facts_.dimensions.size(); ++i) {
      if (Outcome outcome = EntryOf(reader_.GetContainer(i), node, entry); !outcome.Ok()) {
        return outcome;
      }
      // Of texts there are but their numbers, which say nothing.
      if (facts_.dimensions[i].type.value != ValueType::kString) {
        Widen(facts_.dimensions[i], entry);
      }
      facts_.dimensions[i].storedBytes += entry.storedBytes;
    }
    return statistics_ ? AddValues(node) : Outcome::Success();
  }

  Outcome AddValues(const Node& node) {
    for (std::size_t i = 0; i < facts_.dimensions.size(); ++i) {
      if (facts_.dimensions[i].type.value == ValueType::kString) continue;
      if (Outcome outcome = reader_.ReadColumn(i, node, values_); !outcome.Ok()) return outcome;
      sums_.Add(i, facts_.dimensions[i], values_);
    }
    return Outcome::Success();
  }

  void Finish() {
    if (!positions_.minimum.empty()) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto source = [&](const Number& number) {
          return static_cast<double>(std::get<std::int64_t>(number)) *
                     facts_.transform.scale[axis] +
                 facts_.transform.offset[axis];
        };
        const double a = source(positions_.minimum[axis]);
        const double b = source(positions_.maximum[axis]);
        facts_.bounds.min[axis] = std::min(a, b);
        facts_.bounds.max[axis] = std::max(a, b);
      }
    }
    if (statistics_) sums_.GiveTo(facts_);
  }

  Cloud& cloud_;
  bool statistics_;
  CloudFacts& facts_;
  BlockReader reader_;
  DimensionFacts positions_{"", {ValueType::kInt32, 3}, "", 0, {}, {}, {}};
  ValueSums sums_;
  std::vector<std::uint8_t> values_;
};

std::string EpsgFromGeoKeys(std::span<const std::uint8_t> keys) {
  constexpr std::uint16_t kProjected = 3072;
  constexpr std::uint16_t kGeographic = 2048;
  constexpr std::uint16_t kUserDefined = 32767;
  std::uint16_t geographic = 0;
  // Four 16-bit numbers a key, after a head of four: key, tag (0: the value stands here), count,
  // value.
  for (std::size_t at = 8; at + 8 <= keys.size(); at += 8) {
    const auto key = oocpc::LoadLittleEndian<std::uint16_t>(keys.data() + at);
    const auto tag = oocpc::LoadLittleEndian<std::uint16_t>(keys.data() + at + 2);
    const auto value = oocpc::LoadLittleEndian<std::uint16_t>(keys.data() + at + 6);
    if (tag != 0 || value == 0 || value == kUserDefined) continue;
    if (key == kProjected) return "EPSG:" + std::to_string(value);
    if (key == kGeographic) geographic = value;
  }
  return geographic == 0 ? std::string() : "EPSG:" + std::to_string(geographic);
}

/// The payload of a record, which lies before or behind the points; empty where it does neither.
std::span<const std::uint8_t> PayloadOf(const LasHeader& header, const SourceRecord& source,
                                        const LasVariableRecord& record) {
  const std::uint64_t pointsEnd =
      header.pointsOffset + source.pointCount * std::uint64_t{header.pointBytes};
  const bool behind = record.payloadOffset >= pointsEnd;
  const auto bytes = behind ? source.trailingBytes : source.leadingBytes;
  const std::uint64_t at = record.payloadOffset - (behind ? pointsEnd : 0);
  if (at > bytes.size() || record.payloadBytes > bytes.size() - at) return {};
  return bytes.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(record.payloadBytes));
}

}  // namespace

std::optional<LasHeader> ReadSourceHeader(const SourceRecord& source) {
  LasHeader header;
  const Outcome outcome = ParseLasFrame(source.leadingBytes, source.pointCount,
                                        source.trailingBytes, source.fileName, header);
  if (!outcome.Ok()) return std::nullopt;
  return header;
}

std::string FindCoordinateSystem(const LasHeader& header, const SourceRecord& source) {
  std::string geoKeys;
  for (const LasVariableRecord& record : header.records) {
    if (record.userId != "LASF_Projection") continue;
    const auto payload = PayloadOf(header, source, record);
    if (record.recordId == 2112) {
      const auto end = std::ranges::find(payload, std::uint8_t{0});
      return {payload.begin(), end};
    }
    if (record.recordId == 34735) geoKeys = EpsgFromGeoKeys(payload);
  }
  return geoKeys;
}

std::string NameCoordinateSystem(const std::string& system) {
  const std::size_t begin = system.find('"');
  const std::size_t end = begin == std::string::npos ? begin : system.find('"', begin + 1);
  return end == std::string::npos ? system : system.substr(begin + 1, end - begin - 1);
}

void CollectScanFacts(const ScanFile& scan, CloudFacts& facts) {
  facts = {};
  SourceRecord source;
  source.fileName = scan.GetPath().filename().string();
  source.pointCount = facts.pointCount = scan.GetPointCount();
  source.leadingBytes = scan.GetLeadingBytes();
  source.trailingBytes = scan.GetTrailingBytes();
  facts.transform = scan.GetTransform();
  facts.sources.push_back({source.fileName, source.pointCount, ReadSourceHeader(source)});
  if (const std::optional<LasHeader>& las = facts.sources.back().las) {
    facts.generator = las->generatingSoftware;
    facts.bounds = {las->min, las->max};
    facts.coordinateSystem = FindCoordinateSystem(*las, source);
  } else if (StoredBox box; scan.GetStatedBox(box)) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto source = [&](std::int32_t stored) {
        return stored * facts.transform.scale[axis] + facts.transform.offset[axis];
      };
      facts.bounds.min[axis] = source(box.least[axis]);
      facts.bounds.max[axis] = source(box.greatest[axis]);
    }
  }
  facts.oddities = scan.GetNotices();
  for (const Dimension& dimension : scan.GetDimensions()) {
    facts.dimensions.push_back(
        {dimension.name, dimension.type, dimension.description, 0, {}, {}, {}});
  }
}

Outcome CollectIterations(Cloud& cloud, std::vector<IterationFacts>& iterations) {
  iterations.clear();
  bool isAnySound = cloud.GetIterationCount() == 0;
  for (std::uint64_t i = 0; i < cloud.GetIterationCount(); ++i) {
    OOCPCUpdateIteration record;
    Outcome damage = cloud.ReadIteration(i, record);
    isAnySound = isAnySound || damage.Ok();
    iterations.push_back({i, record.timePoint, record.pointCount, record.addedPointCount,
                          record.addedBytes, std::move(damage)});
  }
  return isAnySound ? Outcome::Success() : iterations.front().damage;
}

Outcome CollectFacts(Cloud& cloud, std::uint64_t iteration, bool statistics, CloudFacts& facts) {
  facts = {};
  facts.generator = cloud.GetInformation().generator;
  facts.frameOffset = cloud.GetFrameOffset();
  facts.transform = cloud.GetTransform();
  for (const OOCPCStreamLength& stream : cloud.GetInformation().streams) {
    facts.storedBytes += stream.committedBytes;
  }
  bool areAllLas = true;
  for (const SourceRecord& source : cloud.GetSources()) {
    facts.sources.push_back({source.fileName, source.pointCount, ReadSourceHeader(source)});
    const std::optional<LasHeader>& las = facts.sources.back().las;
    areAllLas = areAllLas && las.has_value();
    if (!las) continue;
    facts.lasBytes += source.leadingBytes.size() + source.trailingBytes.size() +
                      source.pointCount * las->pointBytes;
    if (facts.coordinateSystem.empty()) {
      facts.coordinateSystem = FindCoordinateSystem(*las, source);
    }
  }
  if (!areAllLas) facts.lasBytes = 0;
  if (Outcome outcome = CollectIterations(cloud, facts.iterations); !outcome.Ok()) return outcome;
  if (Outcome outcome = CollectLevels(cloud, iteration, facts.levels); !outcome.Ok()) {
    return outcome;
  }
  return Collector(cloud, statistics, facts).Run(iteration);
}

}  // namespace tarnhost
