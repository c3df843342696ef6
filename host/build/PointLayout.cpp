// The dimensions and the transform that all points of a cloud share, whatever scan they come from.
#include "host/build/PointLayout.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>

#include "host/build/StoredSteps.h"
#include "host/build/ValueWidening.h"
#include "host/formats/LasRecordLayout.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

Outcome CannotMerge(const Dimension& a, const Dimension& b, const ScanFile& scan) {
  return Outcome::Failure(
      oocpc::result::kScansDiffer,
      "no type holds its " + b.name + " (" + oocpc::ValueTypeName(b.type.value) +
          ") and that of the other scans (" + oocpc::ValueTypeName(a.type.value) + ") without loss",
      scan.GetPath().string(), "import it into a repository of its own");
}

/// Takes the dimensions of one more scan in.
Outcome MergeDimensions(const ScanFile& scan, std::vector<Dimension>& merged) {
  for (const Dimension& dimension : scan.GetDimensions()) {
    const auto found = std::ranges::find(merged, dimension.name, &Dimension::name);
    if (found == merged.end()) {
      merged.push_back(dimension);
      continue;
    }
    const auto wider = FindWiderType(found->type, dimension.type);
    if (!wider) return CannotMerge(*found, dimension, scan);
    if (*wider == found->type) continue;
    found->type = *wider;
    if (*wider == dimension.type) found->description = dimension.description;
  }
  return Outcome::Success();
}

/// Takes the boxes of the points themselves, which files may state wrongly, where they are at hand;
/// false when none is another one.
bool MeasureBoxes(std::span<const std::unique_ptr<ScanFile>> scans,
                  std::vector<TransformUse>& uses) {
  bool isNew = false;
  for (std::size_t i = 0; i < scans.size(); ++i) {
    if (scans[i]->GetPointCount() == 0 || scans[i]->GetMappedRecords().empty()) continue;
    const StoredBox box = FindStoredBox(*scans[i]);
    isNew = isNew || uses[i].box != box;
    uses[i].box = box;
  }
  return isNew;
}

}  // namespace

StoredBox FindStoredBox(const ScanFile& scan) {
  constexpr std::uint64_t kRun = 1u << 15;
  using Points = tbb::blocked_range<std::uint64_t>;
  return tbb::parallel_reduce(
      Points(0, scan.GetPointCount(), kRun), StoredBox(),
      [&](const Points& points, StoredBox box) {
        std::vector<std::int32_t> xyz(3 * points.size());
        scan.ReadPositions(points.begin(), points.size(), xyz.data());
        box.Extend(xyz.data(), points.size());
        return box;
      },
      [](StoredBox a, const StoredBox& b) {
        a.Extend(b);
        return a;
      },
      tbb::simple_partitioner());
}

std::vector<Dimension> DimensionsOf(const ScanTags& tags) {
  std::vector<Dimension> dimensions;
  if (tags.source) dimensions.push_back({kSourceDimension, kSourceType, "file of the point"});
  if (tags.firstIndex) {
    dimensions.push_back({kSourceIndexDimension, kSourceIndexType,
                          "place of the point in its source, counted through all sources"});
  }
  return dimensions;
}

bool LacksTexts(const ScanFile& scan, std::span<const Dimension> dimensions) {
  return std::ranges::any_of(dimensions, [&](const Dimension& dimension) {
    return dimension.type.value == ValueType::kString &&
           !IsSourceName(dimension.name, dimension.type) &&
           std::ranges::find(scan.GetDimensions(), dimension.name, &Dimension::name) ==
               scan.GetDimensions().end();
  });
}

bool HaveOneLayout(const ScanFile& a, const ScanFile& b) {
  return a.GetTransform().scale == b.GetTransform().scale &&
         a.GetTransform().offset == b.GetTransform().offset &&
         a.GetRecordBytes() == b.GetRecordBytes() &&
         std::ranges::equal(a.GetDimensions(), b.GetDimensions(),
                            [](const Dimension& x, const Dimension& y) {
                              return x.name == y.name && x.type == y.type;
                            });
}

Outcome FindCommonLayout(std::span<const std::unique_ptr<ScanFile>> scans, PointLayout& layout) {
  std::vector<TransformUse> uses;
  layout.dimensions.clear();
  for (const auto& scan : scans) {
    if (Outcome outcome = MergeDimensions(*scan, layout.dimensions); !outcome.Ok()) return outcome;
    StoredBox box;
    const bool isStated = scan->GetPointCount() > 0 && scan->GetStatedBox(box);
    uses.push_back({scan->GetTransform(), isStated ? std::optional(box) : std::nullopt});
  }
  Outcome outcome = FindCommonTransform(uses, layout.transform);
  if (!outcome.Ok() && MeasureBoxes(scans, uses)) {
    outcome = FindCommonTransform(uses, layout.transform);
  }
  if (!outcome.Ok()) outcome.where = scans.back()->GetPath().string();
  return outcome;
}

bool CanConvert(const Dimension& from, const Dimension& to) {
  return FindWiderType(from.type, to.type) == to.type;
}

void ConvertValues(const Dimension& from, const Dimension& to, const std::uint8_t* values,
                   std::size_t count, std::uint8_t* out) {
  if (IsCoarseAngle(from.type, to)) return RefineAngles({values, count}, out);
  if (IsByteColor(from.type, to)) {
    return SpreadColors({values, count * oocpc::ValueBytes(from.type)}, out);
  }
  WidenValues(from.type, to.type, values, count, out);
}

}  // namespace tarnhost
