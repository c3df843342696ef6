// Points as rows of values of fixed types: lines of words, or binary records of one length.
#pragma once

#include <array>
#include <bit>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "host/formats/converted/LineIndex.h"
#include "host/formats/converted/PointDecoder.h"
#include "host/formats/converted/TextDictionary.h"

namespace tarnhost {

/// What a value of a row is.
struct TableColumn {
  static constexpr int kField = 3;
  static constexpr int kSkipped = 4;
  static constexpr int kPackedColor = 5;  ///< 32 bits: blue, green, red and alpha, from the lowest

  oocpc::ValueType type = oocpc::ValueType::kDouble;
  int role = kSkipped;         ///< 0 to 2: a coordinate
  std::size_t field = 0;       ///< which one it is; of a packed colour, the first of its fields
  std::size_t fieldCount = 1;  ///< 3 or 4 of a packed colour
  std::size_t offset = 0;      ///< bytes from the start of a binary record
  std::size_t stride = 0;      ///< bytes from one record's value to the next one's
};

/// The columns of a table and what they become.
struct Table {
  std::vector<TableColumn> columns;
  std::vector<ScanField> fields;
  CoordinateKind kind = CoordinateKind::kDouble;
  std::uint64_t rowCount = 0;
  char separator = 0;            ///< between the words of a line; 0: blanks
  bool areLinesCounted = false;  ///< whether every line is known to have all words
  TextDictionary texts;          ///< that fields of texts hold

  /// Adds a column that is a field of its own, a coordinate when its name is x, y or z and that is
  /// not there yet.
  void Add(std::string name, oocpc::ValueType type, bool mayBeCoordinate = true);
  void AddSkipped(oocpc::ValueType type);
  /// The text that a word of a line is.
  [[nodiscard]] std::optional<std::uint32_t> FindText(std::string_view word) const;
  /// `fieldCount`: 3, or 4 with alpha.
  void AddPackedColor(oocpc::ValueType type, std::size_t fieldCount);
  /// States offsets and strides for records with all columns in their order; gives their bytes.
  std::size_t PackRecords();
  /// Whether all three coordinates are there; settles their kind.
  [[nodiscard]] bool HasCoordinates();
};

/// Decodes binary rows, any `count` of them from `first` on, out of `data`.
struct BinaryRows {
  const std::uint8_t* data = nullptr;
  bool isBigEndian = false;
};
void DecodeBinaryRows(const Table& table, const BinaryRows& source, std::uint64_t first,
                      std::size_t count, bool withFields, PointRows& rows);

/// Decodes rows of words: those of a stretch that are rows [firstRow, firstRow + rowCount) of the
/// text. A word that is empty is a number that is missing. Failures name the line and the word.
/// Without fields, words behind the coordinates are not looked at where they are known to be there.
Outcome DecodeTextRows(const Table& table, std::string_view text, const LineStretch& stretch,
                       std::uint64_t firstRow, const std::string& where, bool withFields,
                       const PointDecoder::RowSink& take);

}  // namespace tarnhost
