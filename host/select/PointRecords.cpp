// Point records as the evaluator reads them.
#include "host/select/PointRecords.h"

#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <algorithm>
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

constexpr unsigned kAlignment = 8;

unsigned SizeOf(ClauseType type) {
  switch (type) {
    case ClauseType::kUInt8:
      return 1;
    case ClauseType::kInt:
    case ClauseType::kFloat:
      return 4;
    default:
      return 8;
  }
}

template <typename T>
void Put(char* place, T value) {
  std::memcpy(place, &value, sizeof(T));
}

/// Converts a value that the record's type is known to hold.
template <typename T>
void Convert(T value, ClauseType type, char* place) {
  switch (type) {
    case ClauseType::kUInt8:
      return Put(place, static_cast<std::uint8_t>(value));
    case ClauseType::kInt:
      return Put(place, static_cast<std::int32_t>(value));
    case ClauseType::kFloat:
      return Put(place, static_cast<float>(value));
    case ClauseType::kDouble:
      return Put(place, static_cast<double>(value));
    case ClauseType::kString:
      return;
  }
}

/// A column's values, `step` bytes apart, into records `stride` bytes apart.
template <typename T>
void ConvertColumn(const std::uint8_t* values, std::size_t step, std::uint32_t count,
                   ClauseType type, char* place, std::size_t stride) {
  for (std::uint32_t i = 0; i < count; ++i, values += step, place += stride) {
    Convert(oocpc::LoadLittleEndian<T>(values), type, place);
  }
}

}  // namespace

Outcome PointRecords::Open(Cloud& cloud, std::vector<RecordField> fields, PointRecords& records) {
  records.cloud_ = &cloud;
  records.fields_ = std::move(fields);
  std::vector<std::string> columns;
  for (const RecordField& field : records.fields_) {
    std::size_t place = 0;
    if (field.source == RecordField::Source::kColumn) {
      place = static_cast<std::size_t>(std::ranges::find(columns, field.column) - columns.begin());
      if (place == columns.size()) columns.push_back(field.column);
    } else {
      records.needsPositions_ = true;
    }
    records.columnOfField_.push_back(place);
  }
  records.columns_.resize(columns.size());
  if (Outcome outcome = records.PlaceFields(); !outcome.Ok()) return outcome;
  return BlockReader::Open(cloud, columns, records.reader_);
}

Outcome PointRecords::PlaceFields() {
  unsigned offset = 0;
  for (const RecordField& field : fields_) {
    unsigned size = SizeOf(field.type);
    if (field.source == RecordField::Source::kPosition) size = 24;
    if (field.source == RecordField::Source::kColumn && field.type == ClauseType::kString) {
      if (Outcome outcome = LoadStrings(); !outcome.Ok()) return outcome;
      std::size_t longest = 0;
      for (const std::string& text : strings_) longest = std::max(longest, text.size());
      size = static_cast<unsigned>(longest) + 1;
    }
    sizes_.push_back(size);
    offsets_.push_back(offset);
    offset += (size + kAlignment - 1) / kAlignment * kAlignment;
  }
  stride_ = std::max(offset, kAlignment);
  return Outcome::Success();
}

Outcome PointRecords::LoadStrings() {
  if (!strings_.empty()) return Outcome::Success();
  const OOCPCStringRepositoryContainer* dictionary =
      cloud_->GetPointCloud().GetDataRepository()->GetStringRepository();
  if (dictionary == nullptr) {
    return Outcome::FromCode(oocpc::result::kStringNotFound, cloud_->GetPath().string());
  }
  strings_.resize(dictionary->GetCount());
  for (std::uint64_t i = 0; i < strings_.size(); ++i) {
    const HRESULT code = dictionary->GetString(i, strings_[i]);
    if (oocpc::Failed(code)) return Outcome::FromCode(code, cloud_->GetPath().string());
  }
  return Outcome::Success();
}

std::vector<std::string> PointRecords::GetNames() const {
  std::vector<std::string> names;
  for (const RecordField& field : fields_) names.push_back(field.name);
  return names;
}

template <typename Points>
Outcome PointRecords::ReadPoints(const Points& points) {
  if (needsPositions_) {
    if (Outcome outcome = reader_.ReadPositions(points, stored_); !outcome.Ok()) return outcome;
    if (Outcome outcome = reader_.ReadLocalPositions(points, local_); !outcome.Ok()) return outcome;
  }
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (Outcome outcome = reader_.ReadColumn(i, points, columns_[i]); !outcome.Ok()) return outcome;
  }
  return CheckStrings();
}

template Outcome PointRecords::ReadPoints(const OOCPCOctreeAcceleratorNode& points);
template Outcome PointRecords::ReadPoints(const PointRange& points);

Outcome PointRecords::CheckStrings() const {
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (fields_[i].source != RecordField::Source::kColumn || fields_[i].type != ClauseType::kString)
      continue;
    const std::vector<std::uint8_t>& indices = columns_[columnOfField_[i]];
    for (std::size_t at = 0; at + 4 <= indices.size(); at += 4) {
      if (oocpc::LoadLittleEndian<std::uint32_t>(indices.data() + at) >= strings_.size()) {
        return Outcome::FromCode(oocpc::result::kStringNotFound, "column " + fields_[i].column);
      }
    }
  }
  return Outcome::Success();
}

const char* PointRecords::Fill(std::uint32_t first, std::uint32_t count) {
  records_.resize(std::size_t{count} * stride_);
  for (std::size_t i = 0; i < fields_.size(); ++i) FillField(i, first, count);
  return records_.data();
}

void PointRecords::FillField(std::size_t field, std::uint32_t first, std::uint32_t count) {
  const RecordField& description = fields_[field];
  char* place = records_.data() + offsets_[field];
  switch (description.source) {
    case RecordField::Source::kPosition:
      for (std::size_t i = first; i < std::size_t{first} + count; ++i, place += stride_) {
        std::memcpy(place, local_.data() + 3 * i, 24);
      }
      return;
    case RecordField::Source::kCoordinate: {
      const std::size_t axis = description.component;
      const PositionTransform& transform = cloud_->GetTransform();
      for (std::size_t i = first; i < std::size_t{first} + count; ++i, place += stride_) {
        Put(place, static_cast<double>(stored_[3 * i + axis]) * transform.scale[axis] +
                       transform.offset[axis]);
      }
      return;
    }
    case RecordField::Source::kColumn:
      return FillFromColumn(field, first, count);
  }
}

void PointRecords::FillFromColumn(std::size_t field, std::uint32_t first, std::uint32_t count) {
  const RecordField& description = fields_[field];
  const std::size_t bytes = oocpc::ComponentBytes(description.stored.value);
  const std::vector<std::uint8_t>& column = columns_[columnOfField_[field]];
  const CloudColumn& stored =
      *std::ranges::find(cloud_->GetColumns(), description.column, &CloudColumn::name);
  const std::size_t step = oocpc::ValueBytes(stored.type);
  const std::uint8_t* values = column.data() + first * step + description.component * bytes;
  char* place = records_.data() + offsets_[field];
  const ClauseType type = description.type;
  switch (description.stored.value) {
    case ValueType::kUInt8:
      return ConvertColumn<std::uint8_t>(values, step, count, type, place, stride_);
    case ValueType::kInt8:
      return ConvertColumn<std::int8_t>(values, step, count, type, place, stride_);
    case ValueType::kUInt16:
      return ConvertColumn<std::uint16_t>(values, step, count, type, place, stride_);
    case ValueType::kInt16:
      return ConvertColumn<std::int16_t>(values, step, count, type, place, stride_);
    case ValueType::kUInt32:
      return ConvertColumn<std::uint32_t>(values, step, count, type, place, stride_);
    case ValueType::kInt32:
      return ConvertColumn<std::int32_t>(values, step, count, type, place, stride_);
    case ValueType::kUInt64:
      return ConvertColumn<std::uint64_t>(values, step, count, type, place, stride_);
    case ValueType::kInt64:
      return ConvertColumn<std::int64_t>(values, step, count, type, place, stride_);
    case ValueType::kFloat:
      return ConvertColumn<float>(values, step, count, type, place, stride_);
    case ValueType::kDouble:
      return ConvertColumn<double>(values, step, count, type, place, stride_);
    case ValueType::kString:
      break;
  }
  for (std::uint32_t i = 0; i < count; ++i, values += step, place += stride_) {
    const std::string& text = strings_[oocpc::LoadLittleEndian<std::uint32_t>(values)];
    std::memcpy(place, text.c_str(), text.size() + 1);
  }
}

}  // namespace tarnhost
