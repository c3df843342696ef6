// The values of selected points, column by column.
#include "host/select/SelectedValues.h"

#include <cstring>
#include <numeric>

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
  if (Outcome outcome = BlockReader::Open(cloud, columns, values.reader_); !outcome.Ok()) {
    return outcome;
  }
  values.valueBytes_.clear();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const bool isThere = !columns[i].empty();
    values.valueBytes_.push_back(
        isThere ? oocpc::ValueBytes(values.reader_.GetContainer(i).GetDeliveredType()) : 0);
  }
  return Outcome::Success();
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
    Compact(columns_[i].data(), points, valueBytes_[i]);
    columns_[i].resize(points.size() * valueBytes_[i]);
  }
  return Outcome::Success();
}

std::size_t SelectedValues::GetRecordBytes() const {
  return std::accumulate(valueBytes_.begin(), valueBytes_.end(), kPositionBytes);
}

void SelectedValues::CopyRecords(std::vector<std::uint8_t>& records) const {
  const std::size_t recordBytes = GetRecordBytes();
  records.resize(GetCount() * recordBytes);
  std::uint8_t* record = records.data();
  for (std::size_t point = 0; point < GetCount(); ++point) {
    std::memcpy(record, xyz_.data() + 3 * point, kPositionBytes);
    record += kPositionBytes;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (valueBytes_[i] == 0) continue;
      std::memcpy(record, columns_[i].data() + point * valueBytes_[i], valueBytes_[i]);
      record += valueBytes_[i];
    }
  }
}

void SelectedValues::TakeRecords(std::span<const std::uint8_t> records) {
  const std::size_t count = records.size() / GetRecordBytes();
  xyz_.resize(3 * count);
  for (std::size_t i = 0; i < columns_.size(); ++i) columns_[i].resize(count * valueBytes_[i]);
  const std::uint8_t* record = records.data();
  for (std::size_t point = 0; point < count; ++point) {
    std::memcpy(xyz_.data() + 3 * point, record, kPositionBytes);
    record += kPositionBytes;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (valueBytes_[i] == 0) continue;
      std::memcpy(columns_[i].data() + point * valueBytes_[i], record, valueBytes_[i]);
      record += valueBytes_[i];
    }
  }
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
