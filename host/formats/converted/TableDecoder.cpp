// Points as rows of values of fixed types: lines of words, or binary records of one length.
#include "host/formats/converted/TableDecoder.h"

#include <algorithm>
#include <cstring>

#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/RowsBuffer.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

/// The bytes of a packed colour, in the order red, green, blue, alpha.
constexpr std::array<std::size_t, 4> kColorBytes{2, 1, 0, 3};
constexpr std::size_t kMostValueBytes = 8;

void CopyValue(const std::uint8_t* from, std::size_t bytes, bool swap, std::uint8_t* to) {
  std::memcpy(to, from, bytes);
  if (swap) std::reverse(to, to + bytes);
}

double RealOf(ValueType type, const std::uint8_t* bytes) {
  const auto load = [&]<typename T>(T value) {
    std::memcpy(&value, bytes, sizeof(T));
    return static_cast<double>(value);
  };
  switch (type) {
    case ValueType::kUInt8:
      return load(std::uint8_t{});
    case ValueType::kInt8:
      return load(std::int8_t{});
    case ValueType::kUInt16:
      return load(std::uint16_t{});
    case ValueType::kInt16:
      return load(std::int16_t{});
    case ValueType::kUInt32:
      return load(std::uint32_t{});
    case ValueType::kInt32:
      return load(std::int32_t{});
    case ValueType::kUInt64:
      return load(std::uint64_t{});
    case ValueType::kInt64:
      return load(std::int64_t{});
    case ValueType::kFloat:
      return load(float{});
    case ValueType::kDouble:
      return load(double{});
    case ValueType::kString:
      break;
  }
  return kNoCoordinate;
}

void DecodeColumn(const TableColumn& column, const BinaryRows& source, std::uint64_t first,
                  std::size_t count, PointRows& rows) {
  const std::size_t bytes = oocpc::ComponentBytes(column.type);
  const std::uint8_t* from = source.data + column.offset + first * column.stride;
  std::array<std::uint8_t, kMostValueBytes> value{};
  if (column.role < TableColumn::kField) {
    double* to = rows.coordinates[static_cast<std::size_t>(column.role)].data();
    for (std::size_t i = 0; i < count; ++i, from += column.stride) {
      CopyValue(from, bytes, source.isBigEndian, value.data());
      to[i] = RealOf(column.type, value.data());
    }
    return;
  }
  if (rows.fields.empty()) return;
  if (column.role == TableColumn::kField) {
    std::uint8_t* to = rows.fields[column.field].data();
    for (std::size_t i = 0; i < count; ++i, from += column.stride, to += bytes) {
      CopyValue(from, bytes, source.isBigEndian, to);
    }
  } else if (column.role == TableColumn::kPackedColor) {
    for (std::size_t i = 0; i < count; ++i, from += column.stride) {
      CopyValue(from, bytes, source.isBigEndian, value.data());
      for (std::size_t part = 0; part < column.fieldCount; ++part) {
        rows.fields[column.field + part][i] = value[kColorBytes[part]];
      }
    }
  }
}

/// Puts one word into the row at hand; false when its column cannot hold it.
bool ParseColumn(const Table& table, const TableColumn& column, std::string_view word,
                 RowsBuffer& rows) {
  if (column.role < TableColumn::kField) {
    double& coordinate = rows.Coordinate(static_cast<std::size_t>(column.role));
    float narrow = 0;
    if (word.empty()) {
      coordinate = kNoCoordinate;
      return true;
    }
    if (column.type == ValueType::kFloat && ParseFloat(word, narrow)) {
      coordinate = narrow;
      return true;
    }
    return ParseReal(word, coordinate);
  }
  if (!rows.HasFields()) return true;
  if (column.role == TableColumn::kField) {
    std::uint8_t* const field = rows.Field(column.field);
    if (column.type == ValueType::kString) {
      const std::optional<std::uint32_t> number = table.FindText(word);
      if (number) std::memcpy(field, &*number, sizeof(*number));
      return number.has_value();
    }
    const bool isReal = column.type == ValueType::kFloat || column.type == ValueType::kDouble;
    if (word.empty() && isReal) return StoreNumber(kNoCoordinate, column.type, field);
    return ParseValue(word, column.type, field);
  }
  if (column.role != TableColumn::kPackedColor) return true;
  std::array<std::uint8_t, kMostValueBytes> value{};
  if (!ParseValue(word, column.type, value.data())) return false;
  for (std::size_t part = 0; part < column.fieldCount; ++part) {
    *rows.Field(column.field + part) = value[kColorBytes[part]];
  }
  return true;
}

/// How many columns there are up to the last coordinate.
std::size_t CountToCoordinates(const Table& table) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (table.columns[i].role < TableColumn::kField) count = i + 1;
  }
  return count;
}

Outcome BadLine(const std::string& where, std::uint64_t line, const std::string& what) {
  return Outcome::Failure(
      result::kScanContradictory, what, where + ", line " + std::to_string(line),
      "correct the line, or write the scan again with the program that made it");
}

}  // namespace

void Table::Add(std::string name, ValueType type, bool mayBeCoordinate) {
  TableColumn column;
  column.type = type;
  column.role = TableColumn::kField;
  const std::string lower = LowerCase(name);
  if (mayBeCoordinate && lower.size() == 1 && lower[0] >= 'x' && lower[0] <= 'z') {
    const int axis = lower[0] - 'x';
    const bool isNew = std::ranges::find(columns, axis, &TableColumn::role) == columns.end();
    if (isNew) column.role = axis;
  }
  if (column.role == TableColumn::kField) {
    column.field = fields.size();
    fields.push_back({std::move(name), type, {}});
  }
  columns.push_back(column);
}

void Table::AddSkipped(ValueType type) {
  TableColumn column;
  column.type = type;
  columns.push_back(column);
}

std::optional<std::uint32_t> Table::FindText(std::string_view word) const {
  // Only between separators are quotation marks more than letters.
  const bool isQuoted = separator != 0 && word.find("\"\"") != std::string_view::npos;
  return isQuoted ? texts.Find(Unquoted(word)) : texts.Find(word);
}

void Table::AddPackedColor(ValueType type, std::size_t fieldCount) {
  TableColumn column;
  column.type = type;
  column.role = TableColumn::kPackedColor;
  column.field = fields.size();
  column.fieldCount = fieldCount;
  columns.push_back(column);
  constexpr std::array<const char*, 4> kNames{"red", "green", "blue", "alpha"};
  for (std::size_t i = 0; i < fieldCount; ++i) fields.push_back({kNames[i], ValueType::kUInt8, {}});
}

std::size_t Table::PackRecords() {
  std::size_t bytes = 0;
  for (TableColumn& column : columns) {
    column.offset = bytes;
    bytes += oocpc::ComponentBytes(column.type);
  }
  for (TableColumn& column : columns) column.stride = bytes;
  return bytes;
}

bool Table::HasCoordinates() {
  kind = CoordinateKind::kFloat;
  for (int axis = 0; axis < 3; ++axis) {
    const auto column = std::ranges::find(columns, axis, &TableColumn::role);
    if (column == columns.end()) return false;
    if (column->type != ValueType::kFloat) kind = CoordinateKind::kDouble;
  }
  return true;
}

void DecodeBinaryRows(const Table& table, const BinaryRows& source, std::uint64_t first,
                      std::size_t count, bool withFields, PointRows& rows) {
  rows.Resize(count, withFields ? std::span(table.fields) : std::span<const ScanField>());
  for (const TableColumn& column : table.columns) DecodeColumn(column, source, first, count, rows);
}

Outcome DecodeTextRows(const Table& table, std::string_view text, const LineStretch& stretch,
                       std::uint64_t firstRow, const std::string& where, bool withFields,
                       const PointDecoder::RowSink& take) {
  RowsBuffer rows(table.fields, withFields, take);
  const std::size_t wanted =
      table.areLinesCounted && !withFields ? CountToCoordinates(table) : table.columns.size();
  std::vector<std::string_view> words;
  Outcome failure;
  ForEachRow(text, stretch, [&](const TextRow& row) {
    if (row.row < firstRow || row.row - firstRow >= table.rowCount) return true;
    SplitWords(row.line, table.separator, words, wanted);
    if (words.size() < wanted) {
      failure = BadLine(where, row.lineNumber,
                        "the line has " + std::to_string(words.size()) + " values instead of " +
                            std::to_string(table.columns.size()));
      return false;
    }
    for (std::size_t i = 0; i < wanted; ++i) {
      if (ParseColumn(table, table.columns[i], words[i], rows)) continue;
      failure = BadLine(
          where, row.lineNumber,
          Quoted(words[i]) + " is no value of type " + oocpc::ValueTypeName(table.columns[i].type));
      return false;
    }
    if (!rows.Next()) failure = rows.Flush();
    return failure.Ok();
  });
  return failure.Ok() ? rows.Flush() : failure;
}

}  // namespace tarnhost
