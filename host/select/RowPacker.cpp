// Selected points as binary rows, for formats that store them so.
#include "host/select/RowPacker.h"

#include <cstring>

#include "OOCPointCloud/support/Bytes.h"
#include "host/select/Sinks.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

double WideAsDouble(ValueType type, const std::uint8_t* value) {
  const auto number = oocpc::LoadLittleEndian<std::uint64_t>(value);
  return type == ValueType::kInt64 ? static_cast<double>(static_cast<std::int64_t>(number))
                                   : static_cast<double>(number);
}

}  // namespace

RowPacker::RowPacker(const Cloud& cloud, RowRules rules) : coordinates_(cloud) {
  AddCoordinates();
  const std::vector<CloudColumn>& columns = cloud.GetColumns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!coordinates_.IsCoordinate(i)) AddColumn(i, columns[i], rules);
  }
}

void RowPacker::AddCoordinates() {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const ValueType type = coordinates_.GetType(axis);
    values_.push_back({std::string(1, "xyz"[axis]), type});
    rowBytes_ += oocpc::ComponentBytes(type);
  }
}

void RowPacker::AddColumn(std::size_t index, const CloudColumn& column, RowRules rules) {
  using Kind = Part::Kind;
  Part part{Kind::kCopy, index, column.type, rowBytes_};
  ValueType type = column.type.value == ValueType::kString ? ValueType::kUInt32 : column.type.value;
  if (rules.packsColors && column.name == "DEF_COLOR" &&
      column.type == oocpc::ColumnType{ValueType::kUInt8, 3}) {
    part.kind = Kind::kPackedColor;
    values_.push_back({"rgb", ValueType::kUInt32});
    rowBytes_ += sizeof(std::uint32_t);
  } else {
    const bool isWide = type == ValueType::kInt64 || type == ValueType::kUInt64;
    if (isWide && !rules.hasWideIntegers) {
      part.kind = Kind::kAsDouble;
      type = ValueType::kDouble;
    }
    for (std::string& name : ComponentNames(column)) {
      values_.push_back({AsWord(std::move(name)), type});
      rowBytes_ += oocpc::ComponentBytes(type);
    }
  }
  parts_.push_back(part);
}

void RowPacker::Append(const SelectedValues& selected, std::string& out) const {
  const std::size_t begin = out.size();
  out.resize(begin + selected.GetCount() * rowBytes_);
  std::size_t offset = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    char* place = out.data() + begin + offset;
    const bool isNarrow = coordinates_.GetType(axis) == ValueType::kFloat;
    for (std::size_t i = 0; i < selected.GetCount(); ++i, place += rowBytes_) {
      const double value = coordinates_.Get(selected, i, axis);
      const auto narrow = static_cast<float>(value);
      if (isNarrow) {
        std::memcpy(place, &narrow, sizeof(narrow));
      } else {
        std::memcpy(place, &value, sizeof(value));
      }
    }
    offset += oocpc::ComponentBytes(coordinates_.GetType(axis));
  }
  for (const Part& part : parts_) PackColumn(part, selected, out.data() + begin + part.offset);
}

void RowPacker::PackColumn(const Part& part, const SelectedValues& selected, char* rows) const {
  const std::size_t bytes = oocpc::ValueBytes(part.type);
  const std::uint8_t* value = selected.GetColumn(part.column).data();
  for (std::size_t i = 0; i < selected.GetCount(); ++i, value += bytes, rows += rowBytes_) {
    switch (part.kind) {
      case Part::Kind::kCopy:
        std::memcpy(rows, value, bytes);
        break;
      case Part::Kind::kAsDouble:
        for (std::size_t at = 0; at < bytes; at += sizeof(double)) {
          const double number = WideAsDouble(part.type.value, value + at);
          std::memcpy(rows + at, &number, sizeof(number));
        }
        break;
      case Part::Kind::kPackedColor: {
        const std::uint32_t packed =
            std::uint32_t{value[0]} << 16 | std::uint32_t{value[1]} << 8 | value[2];
        std::memcpy(rows, &packed, sizeof(packed));
        break;
      }
    }
  }
}

std::string AsWord(std::string name) {
  for (char& letter : name) {
    if (static_cast<unsigned char>(letter) <= ' ') letter = '_';
  }
  return name;
}

}  // namespace tarnhost
