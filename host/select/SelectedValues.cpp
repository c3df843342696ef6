// The values of selected points, column by column.
#include "host/select/SelectedValues.h"

#include <cstring>

namespace tarnhost {

namespace {

template <std::size_t kBytes>
void CompactAs(std::uint8_t* values, std::span<const std::uint32_t> points) {
  std::uint8_t* to = values;
  for (const std::uint32_t point : points) {
    std::uint8_t value[kBytes];
    std::memcpy(value, values + std::size_t{point} * kBytes, kBytes);
    std::memcpy(to, value, kBytes);
    to += kBytes;
  }
}

/// Keeps the values of `points`, in place; they ascend.
void Compact(std::uint8_t* values, std::span<const std::uint32_t> points, std::size_t bytes) {
  switch (bytes) {
    case 1:
      return CompactAs<1>(values, points);
    case 2:
      return CompactAs<2>(values, points);
    case 4:
      return CompactAs<4>(values, points);
    case 6:
      return CompactAs<6>(values, points);
    case 8:
      return CompactAs<8>(values, points);
    default:
      break;
  }
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::memmove(values + i * bytes, values + points[i] * bytes, bytes);
  }
}

}  // namespace

Outcome SelectedValues::Open(Cloud& cloud, const std::vector<std::string>& columns,
                             SelectedValues& values) {
  values.columns_.resize(columns.size());
  return BlockReader::Open(cloud, columns, values.reader_);
}

Outcome SelectedValues::Read(const OOCPCOctreeAcceleratorNode& node,
                             std::span<const std::uint32_t> points) {
  const bool isWhole = points.size() == node.ownPointCount;
  if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
  if (!isWhole) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        xyz_[3 * i + axis] = xyz_[3 * std::size_t{points[i]} + axis];
      }
    }
    xyz_.resize(3 * points.size());
  }
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (Outcome outcome = reader_.ReadColumn(i, node, columns_[i]); !outcome.Ok()) return outcome;
    if (isWhole || columns_[i].empty()) continue;
    const std::size_t bytes = oocpc::ValueBytes(reader_.GetContainer(i).GetDeliveredType());
    Compact(columns_[i].data(), points, bytes);
    columns_[i].resize(points.size() * bytes);
  }
  return Outcome::Success();
}

Outcome ThreadValues::Open(Cloud& cloud, std::vector<std::string> columns) {
  cloud_ = &cloud;
  columns_ = std::move(columns);
  values_.clear();
  SelectedValues first;  // so that a column that is not there is reported at once
  return SelectedValues::Open(cloud, columns_, first);
}

Outcome ThreadValues::Read(const OOCPCOctreeAcceleratorNode& node,
                           std::span<const std::uint32_t> points, const SelectedValues*& values) {
  std::unique_ptr<SelectedValues>& own = values_.local();
  if (own == nullptr) {
    auto opened = std::make_unique<SelectedValues>();
    Outcome outcome = SelectedValues::Open(*cloud_, columns_, *opened);
    if (!outcome.Ok()) return outcome;
    own = std::move(opened);
  }
  values = own.get();
  return own->Read(node, points);
}

}  // namespace tarnhost
