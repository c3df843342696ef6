// Gathers and encodes the blocks of planned nodes.
#include "host/build/BlockBuilder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

using oocpc::ColumnType;
using oocpc::ValueType;

oocpc::Vector3d LocalPosition(const std::int32_t* xyz, const PositionTransform& transform,
                              const oocpc::Vector3d& frameOffset) {
  oocpc::Vector3d position;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    position[axis] = static_cast<double>(xyz[axis]) * transform.scale[axis] +
                     transform.offset[axis] - frameOffset[axis];
  }
  return position;
}

void Extend(oocpc::Box3d& box, const oocpc::Box3d& other) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    box.min[axis] = std::min(box.min[axis], other.min[axis]);
    box.max[axis] = std::max(box.max[axis], other.max[axis]);
  }
}

oocpc::Box3d EmptyBox() {
  oocpc::Box3d box;
  box.min.fill(std::numeric_limits<double>::infinity());
  box.max.fill(-std::numeric_limits<double>::infinity());
  return box;
}

BlockBuilder::BlockBuilder(const PointSet& points, const oocpc::Vector3d& frameOffset)
    : points_(points), frameOffset_(frameOffset) {
  const auto& dimensions = points.GetDimensions();
  const auto found = std::ranges::find(dimensions, "gps_time", &Dimension::name);
  if (found != dimensions.end() && found->type == ColumnType{ValueType::kDouble, 1}) {
    timeDimension_ = static_cast<std::size_t>(found - dimensions.begin());
  }
}

void BlockBuilder::SortByTime(const std::uint8_t* records, std::span<std::uint64_t> rows) const {
  if (!timeDimension_ || rows.size() < 2) return;
  struct Timed {
    double time;
    std::uint64_t row;
  };
  std::vector<double> times(rows.size());
  points_.GatherDimension(*timeDimension_, records, rows,
                          reinterpret_cast<std::uint8_t*>(times.data()));
  std::vector<Timed> timed(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) timed[i] = {times[i], rows[i]};
  std::ranges::stable_sort(timed, [](const Timed& a, const Timed& b) {
    if (std::isnan(a.time) || std::isnan(b.time)) return !std::isnan(a.time) && std::isnan(b.time);
    return a.time < b.time;
  });
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = timed[i].row;
}

void BlockBuilder::Build(const std::uint8_t* records, std::span<const std::uint64_t> rows,
                         std::span<const std::uint32_t> parts, BuiltBlock& block) const {
  std::vector<std::uint64_t> ordered(rows.begin(), rows.end());
  std::size_t begin = 0;
  for (const std::uint32_t count : parts) {
    SortByTime(records, std::span(ordered).subspan(begin, count));
    begin += count;
  }
  std::vector<std::int32_t> positions(3 * ordered.size());
  const std::size_t recordBytes = points_.GetRecordBytes();
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    std::memcpy(positions.data() + 3 * i, records + ordered[i] * recordBytes, 12);
  }
  block.box = BoxOf(positions);
  block.columns.clear();
  std::vector<std::uint8_t> values(positions.size() * sizeof(std::int32_t));
  std::memcpy(values.data(), positions.data(), values.size());
  block.columns.push_back(oocpc::EncodeBlock({ValueType::kInt32, 3}, values));
  const auto& dimensions = points_.GetDimensions();
  for (std::size_t i = 0; i < dimensions.size(); ++i) {
    values.resize(ordered.size() * oocpc::ValueBytes(dimensions[i].type));
    points_.GatherDimension(i, records, ordered, values.data());
    block.columns.push_back(oocpc::EncodeBlock(dimensions[i].type, values));
  }
}

/// Every coordinate is a monotonic function of its integer, so the box of the integers gives that
/// of the positions.
oocpc::Box3d BlockBuilder::BoxOf(std::span<const std::int32_t> xyz) const {
  std::array<std::int32_t, 3> least{xyz[0], xyz[1], xyz[2]};
  std::array<std::int32_t, 3> greatest = least;
  for (std::size_t i = 3; i < xyz.size(); i += 3) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      least[axis] = std::min(least[axis], xyz[i + axis]);
      greatest[axis] = std::max(greatest[axis], xyz[i + axis]);
    }
  }
  const PositionTransform& transform = points_.GetTransform();
  const auto one = LocalPosition(least.data(), transform, frameOffset_);
  const auto other = LocalPosition(greatest.data(), transform, frameOffset_);
  oocpc::Box3d box{one, one};
  Extend(box, {other, other});
  return box;
}

}  // namespace tarnhost
