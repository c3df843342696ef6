// Gathers and encodes the blocks of planned nodes.
#include "host/build/BlockBuilder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

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

void BlockBuilder::SortByTime(std::span<std::uint64_t> points) const {
  if (!timeDimension_) return;
  std::vector<std::uint8_t> bytes(points.size() * sizeof(double));
  points_.GatherDimension(*timeDimension_, points, bytes.data());
  std::vector<std::uint32_t> places(points.size());
  std::iota(places.begin(), places.end(), 0u);
  std::ranges::stable_sort(places, [&](std::uint32_t a, std::uint32_t b) {
    const auto timeA = oocpc::LoadLittleEndian<double>(bytes.data() + 8 * std::size_t{a});
    const auto timeB = oocpc::LoadLittleEndian<double>(bytes.data() + 8 * std::size_t{b});
    if (std::isnan(timeA) || std::isnan(timeB)) return !std::isnan(timeA) && std::isnan(timeB);
    return timeA < timeB;
  });
  const std::vector<std::uint64_t> given(points.begin(), points.end());
  for (std::size_t i = 0; i < places.size(); ++i) points[i] = given[places[i]];
}

void BlockBuilder::Build(std::span<const std::uint64_t> points,
                         std::span<const std::uint32_t> parts, BuiltBlock& block) const {
  std::vector<std::uint64_t> ordered(points.begin(), points.end());
  std::size_t begin = 0;
  for (const std::uint32_t count : parts) {
    SortByTime(std::span(ordered).subspan(begin, count));
    begin += count;
  }
  std::vector<std::int32_t> positions(3 * ordered.size());
  points_.GatherPositions(ordered, positions.data());
  block.box = EmptyBox();
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    const auto position =
        LocalPosition(positions.data() + 3 * i, points_.GetTransform(), frameOffset_);
    Extend(block.box, {position, position});
  }
  block.columns.clear();
  std::vector<std::uint8_t> values(positions.size() * sizeof(std::int32_t));
  std::memcpy(values.data(), positions.data(), values.size());
  block.columns.push_back(oocpc::EncodeBlock({ValueType::kInt32, 3}, values));
  const auto& dimensions = points_.GetDimensions();
  for (std::size_t i = 0; i < dimensions.size(); ++i) {
    values.resize(ordered.size() * oocpc::ValueBytes(dimensions[i].type));
    points_.GatherDimension(i, ordered, values.data());
    block.columns.push_back(oocpc::EncodeBlock(dimensions[i].type, values));
  }
}

}  // namespace tarnhost
