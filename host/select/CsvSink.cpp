// Selected points as lines of text.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "OOCPointCloud/support/Bytes.h"
#include "host/select/Sinks.h"

namespace tarnhost {

using oocpc::LoadLittleEndian;
using oocpc::ValueType;

namespace {

template <typename T>
void AppendNumber(std::string& text, T value) {
  std::array<char, 40> digits;
  text.append(digits.data(),
              std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
}

void AppendValue(std::string& text, ValueType type, const std::uint8_t* bytes) {
  switch (type) {
    case ValueType::kUInt8:
      return AppendNumber(text, unsigned{*bytes});
    case ValueType::kInt8:
      return AppendNumber(text, int{static_cast<std::int8_t>(*bytes)});
    case ValueType::kUInt16:
      return AppendNumber(text, LoadLittleEndian<std::uint16_t>(bytes));
    case ValueType::kInt16:
      return AppendNumber(text, LoadLittleEndian<std::int16_t>(bytes));
    case ValueType::kString:
    case ValueType::kUInt32:
      return AppendNumber(text, LoadLittleEndian<std::uint32_t>(bytes));
    case ValueType::kInt32:
      return AppendNumber(text, LoadLittleEndian<std::int32_t>(bytes));
    case ValueType::kUInt64:
      return AppendNumber(text, LoadLittleEndian<std::uint64_t>(bytes));
    case ValueType::kInt64:
      return AppendNumber(text, LoadLittleEndian<std::int64_t>(bytes));
    case ValueType::kFloat:
      return AppendNumber(text, LoadLittleEndian<float>(bytes));
    case ValueType::kDouble:
      return AppendNumber(text, LoadLittleEndian<double>(bytes));
  }
}

/// A field as RFC 4180 quotes it. Quoted are blanks at the ends, too, which readers drop otherwise.
std::string Field(const std::string& text) {
  constexpr std::string_view kBlanks = " \t";
  const bool hasBlankEnds = !text.empty() && (kBlanks.find(text.front()) != kBlanks.npos ||
                                              kBlanks.find(text.back()) != kBlanks.npos);
  if (!hasBlankEnds && text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char letter : text) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  return quoted + "\"";
}

}  // namespace

int DecimalsOf(double scale) {
  constexpr std::ptrdiff_t kMostDecimals = 15;
  if (!std::isfinite(scale)) return -1;
  std::array<char, 400> digits;
  const char* const end =
      std::to_chars(digits.data(), digits.data() + digits.size(), scale, std::chars_format::fixed)
          .ptr;
  const char* const point = std::find(static_cast<const char*>(digits.data()), end, '.');
  const std::ptrdiff_t decimals = point == end ? 0 : end - point - 1;
  return decimals <= kMostDecimals ? static_cast<int>(decimals) : -1;
}

void CsvSink::LookAt(Cloud& cloud) {
  cloud_ = &cloud;
  coordinates_ = SourceCoordinates(cloud);
  const PositionTransform& transform = cloud.GetTransform();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const int scale = DecimalsOf(transform.scale[axis]);
    const int offset = DecimalsOf(transform.offset[axis]);
    decimals_[axis] = scale < 0 || offset < 0 ? -1 : std::max(scale, offset);
  }
}

std::string CsvSink::Header(std::uint64_t /*count*/) const {
  std::string line = "x,y,z";
  for (std::size_t i = 0; i < cloud_->GetColumns().size(); ++i) {
    if (coordinates_.IsCoordinate(i)) continue;
    for (const std::string& name : ComponentNames(cloud_->GetColumns()[i])) {
      line += "," + Field(name);
    }
  }
  return line + "\n";
}

void CsvSink::AppendRows(const SelectedValues& values, std::string& rows) const {
  for (std::size_t point = 0; point < values.GetCount(); ++point) {
    AppendCoordinates(values, point, rows);
    for (std::size_t i = 0; i < values.GetColumnCount(); ++i) {
      if (!coordinates_.IsCoordinate(i)) AppendColumn(values, i, point, rows);
    }
    rows += '\n';
  }
}

void CsvSink::AppendCoordinates(const SelectedValues& values, std::size_t point,
                                std::string& lines) const {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double value = coordinates_.Get(values, point, axis);
    if (axis > 0) lines += ',';
    if (coordinates_.GetType(axis) == ValueType::kFloat) {
      AppendNumber(lines, static_cast<float>(value));
      continue;
    }
    if (decimals_[axis] < 0 || coordinates_.GetColumn(axis)) {
      AppendNumber(lines, value);
      continue;
    }
    std::array<char, 400> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                   std::chars_format::fixed, decimals_[axis]);
    lines.append(digits.data(), end.ptr);
  }
}

void CsvSink::AppendColumn(const SelectedValues& values, std::size_t column, std::size_t point,
                           std::string& lines) const {
  const oocpc::ColumnType type = cloud_->GetColumns()[column].type;
  const std::size_t bytes = oocpc::ComponentBytes(type.value);
  const std::uint8_t* value = values.GetColumn(column).data() + point * bytes * type.components;
  for (std::size_t i = 0; i < type.components; ++i, value += bytes) {
    lines += ',';
    std::string text;
    const auto* strings = cloud_->GetPointCloud().GetDataRepository()->GetStringRepository();
    if (type.value == ValueType::kString && strings != nullptr &&
        !oocpc::Failed(strings->GetString(LoadLittleEndian<std::uint32_t>(value), text))) {
      lines += Field(text);
    } else {
      AppendValue(lines, type.value, value);
    }
  }
}

}  // namespace tarnhost
