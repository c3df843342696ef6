// Selected points as binary rows, for formats that store them so.
#pragma once

#include <string>
#include <vector>

#include "host/select/SourceCoordinates.h"

namespace tarnhost {

/// What a format can hold.
struct RowRules {
  bool hasWideIntegers = true;  ///< 64-bit integers; else they become doubles
  bool packsColors = false;     ///< 8-bit colours are one 32-bit number "rgb"
};

/// A value of a row.
struct RowValue {
  std::string name;
  oocpc::ValueType type = oocpc::ValueType::kDouble;
};

/// Rows begin with x, y and z as doubles, or floats where the source had floats; the columns of the
/// cloud follow, component by component. Strings are their numbers in the dictionary. Const
/// operations are safe from several threads at once.
class RowPacker {
 public:
  RowPacker() = default;
  RowPacker(const Cloud& cloud, RowRules rules);

  [[nodiscard]] const std::vector<RowValue>& GetValues() const { return values_; }
  /// Appends rows of all points in `selected`, which holds all columns of the cloud.
  void Append(const SelectedValues& selected, std::string& out) const;

 private:
  /// What becomes of a column.
  struct Part {
    enum class Kind { kCopy, kAsDouble, kPackedColor } kind = Kind::kCopy;
    std::size_t column = 0;
    oocpc::ColumnType type;
    std::size_t offset = 0;  ///< within a row
  };

  void AddCoordinates();
  void AddColumn(std::size_t index, const CloudColumn& column, RowRules rules);
  void PackColumn(const Part& part, const SelectedValues& selected, char* rows) const;

  SourceCoordinates coordinates_;
  std::vector<RowValue> values_;
  std::vector<Part> parts_;
  std::size_t rowBytes_ = 0;
};

/// A name as a word: formats with text headers separate words by white space.
[[nodiscard]] std::string AsWord(std::string name);

}  // namespace tarnhost
