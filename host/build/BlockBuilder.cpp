// Gathers and encodes the blocks of planned nodes.
#include "host/build/BlockBuilder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <string_view>

#include "OOCPointCloud/support/Bytes.h"
#include "host/build/OctreePlan.h"
#include "host/build/PointCoder.h"
#include "host/build/Sorting.h"

namespace tarnhost {

using oocpc::BlockEncodings;
using oocpc::ColumnType;
using oocpc::ValueType;

namespace {

/// What filters ask for most often should be quick to read before it is small. Floating point has
/// no light encoding that is any smaller than its values.
BlockEncodings EncodingsFor(const Dimension& dimension) {
  constexpr std::array<std::string_view, 4> kAskedForMost{"classification", "intensity",
                                                          "return_number", "number_of_returns"};
  const bool isAsked = std::ranges::find(kAskedForMost, dimension.name) != kAskedForMost.end();
  const bool isWhole =
      dimension.type.value != ValueType::kFloat && dimension.type.value != ValueType::kDouble;
  return isAsked && isWhole ? BlockEncodings::kLight : BlockEncodings::kAll;
}

/// What a thread keeps from block to block.
struct BuildBuffers {
  std::vector<std::uint8_t> gathered;
  std::vector<std::uint8_t> records;
  std::vector<std::uint8_t> values;
  std::vector<double> times;
  std::vector<CodedPoint> keys;
  std::vector<CodedPoint> scratch;

  static BuildBuffers& OfThread() {
    thread_local BuildBuffers buffers;
    return buffers;
  }
};

}  // namespace

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

void BlockBuilder::BuildMerged(std::vector<std::uint8_t> records, ExistingTree& existing,
                               std::uint32_t node, BuiltBlock& block) const {
  if (records.empty()) {
    block.columns.clear();
    block.box = existing.Get(node).ownBox;
    return;
  }
  existing.AppendRecords(node, records);
  const std::size_t recordBytes = points_.GetRecordBytes();
  std::vector<std::uint64_t> rows(records.size() / recordBytes);
  std::iota(rows.begin(), rows.end(), std::uint64_t{0});
  const auto part = static_cast<std::uint32_t>(rows.size());
  Build(RecordView(records.data(), recordBytes), rows, std::span(&part, 1), block);
}

oocpc::Box3d BoxInFrame(const StoredBox& stored, const PositionTransform& transform,
                        const oocpc::Vector3d& frameOffset) {
  oocpc::Box3d box = EmptyBox();
  for (const auto& corner : {stored.least, stored.greatest}) {
    const auto position = LocalPosition(corner.data(), transform, frameOffset);
    Extend(box, {position, position});
  }
  return box;
}

BlockBuilder::BlockBuilder(const PointSet& points, const oocpc::Vector3d& frameOffset)
    : points_(points), frameOffset_(frameOffset) {
  const auto& dimensions = points.GetDimensions();
  for (const Dimension& dimension : dimensions) encodings_.push_back(EncodingsFor(dimension));
  const auto found = std::ranges::find(dimensions, "gps_time", &Dimension::name);
  if (found != dimensions.end() && found->type == ColumnType{ValueType::kDouble, 1}) {
    timeDimension_ = static_cast<std::size_t>(found - dimensions.begin());
  }
}

void BlockBuilder::SortByTime(std::span<const std::uint8_t> records,
                              std::span<std::uint32_t> rows) const {
  if (!timeDimension_ || rows.size() < 2) return;
  const std::size_t recordBytes = points_.GetRecordBytes();
  BuildBuffers& buffers = BuildBuffers::OfThread();
  std::vector<double>& times = buffers.times;
  std::vector<CodedPoint>& keys = buffers.keys;
  times.resize(rows.size());
  const auto part = records.subspan(rows[0] * recordBytes, rows.size() * recordBytes);
  points_.ExtractDimension(*timeDimension_, part.data(), rows.size(),
                           reinterpret_cast<std::uint8_t*>(times.data()));
  keys.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) keys[i] = {OrderOf(times[i]), rows[i]};
  if (std::ranges::is_sorted(keys, {}, &CodedPoint::code)) return;
  SortByCode(keys, buffers.scratch);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<std::uint32_t>(keys[i].point);
}

void BlockBuilder::Build(const RecordView& source, std::span<const std::uint64_t> sourceRows,
                         std::span<const std::uint32_t> parts, BuiltBlock& block) const {
  const std::size_t recordBytes = points_.GetRecordBytes();
  const std::size_t count = sourceRows.size();
  // Twice: the first copy brings the records close together, the second one into order.
  BuildBuffers& buffers = BuildBuffers::OfThread();
  std::vector<std::uint8_t>& gathered = buffers.gathered;
  std::vector<std::uint8_t>& records = buffers.records;
  std::vector<std::uint8_t>& values = buffers.values;
  gathered.resize(count * recordBytes);
  source.Gather(sourceRows, gathered.data());
  std::vector<std::uint32_t> rows(count);
  std::iota(rows.begin(), rows.end(), std::uint32_t{0});
  std::size_t begin = 0;
  for (const std::uint32_t points : parts) {
    SortByTime(gathered, std::span(rows).subspan(begin, points));
    begin += points;
  }
  records.resize(gathered.size());
  for (std::size_t i = 0; i < count; ++i) {
    CopyRecord(records.data() + i * recordBytes, gathered.data() + rows[i] * recordBytes,
               recordBytes);
  }
  std::vector<std::int32_t> positions(3 * count);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(positions.data() + 3 * i, records.data() + i * recordBytes, 12);
  }
  StoredBox box;
  box.Extend(positions.data(), count);
  block.box = BoxInFrame(box, points_.GetTransform(), frameOffset_);
  block.columns.clear();
  values.resize(positions.size() * sizeof(std::int32_t));
  std::memcpy(values.data(), positions.data(), values.size());
  block.columns.push_back(oocpc::EncodeBlock({ValueType::kInt32, 3}, values));
  const auto& dimensions = points_.GetDimensions();
  for (std::size_t i = 0; i < dimensions.size(); ++i) {
    values.resize(count * oocpc::ValueBytes(dimensions[i].type));
    points_.ExtractDimension(i, records.data(), count, values.data());
    block.columns.push_back(oocpc::EncodeBlock(dimensions[i].type, values, encodings_[i]));
  }
  if (count > OctreePlan::kNodeCapacity) buffers = {};  // with many threads it would add up
}

}  // namespace tarnhost
