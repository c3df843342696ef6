// Writes a cloud as a COPC file, whose octree is the cloud's own.
#include "host/lod/ExportCopc.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "host/cloud/Export.h"
#include "host/cloud/IterationCube.h"
#include "host/formats/laz/CopcWriter.h"
#include "host/lod/LodTree.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Of the cube's edge: what rounding may move a point across the border of a cell.
constexpr double kTolerance = 1e-9;
/// Points along an edge of the root node, where no level of detail tells their distance.
constexpr double kUsualGrid = 128;
/// The finest cells whose place a node's number tells. Below, points are equal or nearly so, and
/// lie in nodes without regard to place.
constexpr std::uint32_t kFinestLevel = 21;
/// That a file of this format can count in a node.
constexpr std::uint64_t kMostPoints = std::numeric_limits<std::int32_t>::max();

/// Takes the Morton code of the node's cell apart, whose bits stand in the order ...zyxzyx.
CopcKey KeyOf(const OOCPCOctreeAcceleratorNode& node) {
  CopcKey key;
  key.level = static_cast<std::int32_t>(node.level);
  for (unsigned bit = 0; bit < node.level; ++bit) {
    for (unsigned axis = 0; axis < 3; ++axis) {
      key.cell[axis] |= static_cast<std::int32_t>(node.indexInLevel >> (3 * bit + axis) & 1u)
                        << bit;
    }
  }
  return key;
}

bool IsInCell(const OOCPCOctreeAcceleratorNode& node, const CopcKey& key, const CopcCube& cube) {
  const double size = std::ldexp(cube.edge, -key.level);
  const double tolerance = kTolerance * cube.edge;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double min = cube.min[axis] + key.cell[axis] * size;
    if (node.corner1[axis] < min - tolerance || node.corner2[axis] > min + size + tolerance) {
      return false;
    }
  }
  return true;
}

class CopcExporter {
 public:
  CopcExporter(Cloud& cloud, const CopcCube& cube) : cloud_(cloud), cube_(cube) {}

  Outcome Open(const std::filesystem::path& output, double spacing) {
    LasFrame frame;
    if (Outcome outcome = FrameForLas(cloud_, frame); !outcome.Ok()) return outcome;
    CopcCube cube = cube_;
    cube.spacing = spacing;
    for (std::size_t axis = 0; axis < 3; ++axis) cube.min[axis] += cloud_.GetFrameOffset()[axis];
    Outcome outcome = CopcWriter::Create(output, frame, cube, writer_);
    if (!outcome.Ok()) return outcome;
    std::vector<std::string> columns;
    outcome = ColumnsForLas(cloud_, writer_->GetLayout(), columns);
    if (!outcome.Ok()) return outcome;
    values_.resize(columns.size());
    return BlockReader::Open(cloud_, columns, reader_);
  }

  /// Takes the nodes in the order of a walk, parents first.
  Outcome Write(const OOCPCOctreeAcceleratorNode& node) {
    if (node.level <= kFinestLevel) {
      if (Outcome outcome = WriteCell(); !outcome.Ok()) return outcome;
      key_ = KeyOf(node);
      hasCell_ = true;
      if (!IsInCell(node, key_, cube_)) {
        return Refuse("the nodes of this iteration are no cells of one cube");
      }
    }
    return AddToCell(node);
  }

  /// Writes the cell whose points were taken last.
  Outcome WriteCell() {
    if (!std::exchange(hasCell_, false)) return Outcome::Success();
    const std::vector<std::span<const std::uint8_t>> columns(values_.begin(), values_.end());
    Outcome outcome =
        writer_->WriteNode(key_, static_cast<std::uint32_t>(xyz_.size() / 3), xyz_.data(), columns);
    xyz_.clear();
    for (auto& values : values_) values.clear();
    return outcome;
  }

  [[nodiscard]] CopcWriter& GetWriter() { return *writer_; }

 private:
  template <typename T>
  static void MoveBehind(std::vector<T>& values, std::vector<T>& more) {
    if (values.empty()) {
      values.swap(more);
    } else {
      values.insert(values.end(), more.begin(), more.end());
    }
  }

  Outcome AddToCell(const OOCPCOctreeAcceleratorNode& node) {
    if (node.ownPointCount == 0) return Outcome::Success();
    if (xyz_.size() / 3 + node.ownPointCount > kMostPoints) {
      return Refuse("more than two billion points of this iteration are in one place");
    }
    if (Outcome outcome = reader_.ReadPositions(node, xyzOfNode_); !outcome.Ok()) return outcome;
    MoveBehind(xyz_, xyzOfNode_);
    for (std::size_t i = 0; i < values_.size(); ++i) {
      if (Outcome outcome = reader_.ReadColumn(i, node, bytes_); !outcome.Ok()) return outcome;
      MoveBehind(values_[i], bytes_);
    }
    return Outcome::Success();
  }

  Outcome Refuse(const char* what) const {
    return Outcome::Failure(result::kScanUnsupported, what, cloud_.GetPath().string(),
                            "write a LAZ file and import that, or write that instead");
  }

  Cloud& cloud_;
  CopcCube cube_;  ///< local frame
  std::unique_ptr<CopcWriter> writer_;
  BlockReader reader_;
  bool hasCell_ = false;
  CopcKey key_;  ///< of the cell whose points these are
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
  std::vector<std::int32_t> xyzOfNode_;
  std::vector<std::uint8_t> bytes_;
};

double SpacingOf(Cloud& cloud, std::uint64_t iteration, const CopcCube& cube) {
  std::unique_ptr<LodTree> tree;
  const bool known = LodTree::Open(cloud, iteration, tree).Ok() && tree->GetSpacing(0) > 0;
  return known ? tree->GetSpacing(0) : cube.edge / kUsualGrid;
}

}  // namespace

Outcome ExportCopc(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                   const std::function<bool(const ProgressReport&)>& progress, CopcReport& report) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  IterationCube divided;
  if (Outcome outcome = FindCube(cloud, iteration, divided); !outcome.Ok()) return outcome;
  CopcCube cube;
  cube.min = divided.min;
  cube.edge = divided.edge;
  CopcExporter exporter(cloud, cube);
  Outcome failure = exporter.Open(output, SpacingOf(cloud, iteration, cube));
  if (!failure.Ok()) return failure;
  CopcWriter& writer = exporter.GetWriter();
  Outcome walk = cloud.WalkNodes(iteration, [&](const OOCPCOctreeAcceleratorNode& node) {
    failure = exporter.Write(node);
    if (failure.Ok() && progress &&
        !progress({"writing", writer.GetPointCount(), record.pointCount})) {
      failure = Outcome::FromCode(result::kStopped);
    }
    return failure.Ok() ? Descend::kIntoChildren : Descend::kStop;
  });
  if (!failure.Ok()) return failure;
  if (!walk.Ok()) return walk;
  if (Outcome outcome = exporter.WriteCell(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckPointCount(cloud, writer.GetPointCount(), record.pointCount);
      !outcome.Ok()) {
    return outcome;
  }
  report = {writer.GetPointCount(), writer.GetSourceFormat(), writer.GetFormat(),
            writer.LacksWkt()};
  return writer.Finish();
}

}  // namespace tarnhost
