// How the fields of a source become dimensions: names that are free, and colours as one dimension.
#pragma once

#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/formats/converted/PointDecoder.h"

namespace tarnhost {

/// Lower-case letters of ASCII; everything else as it is.
[[nodiscard]] std::string LowerCase(std::string_view text);

/// Gives each name once: a second "a" becomes "a_2". Names that positions, colours and derived
/// values go by are taken from the start.
class FreeNames {
 public:
  FreeNames();
  /// Takes a name; one that is empty becomes "field".
  [[nodiscard]] std::string Take(std::string name);

 private:
  std::set<std::string> taken_;
};

/// Where a field's values go in a record.
struct FieldPlace {
  std::size_t offset = 0;  ///< bytes from the start of the record
  std::size_t bytes = 0;   ///< of a value
};

/// The dimensions that fields become, and the place of each field in a record that begins with the
/// stored position and holds the dimensions in their order. Fields that are red, green and blue by
/// their names, and of one type, are the dimension "DEF_COLOR".
struct FieldLayout {
  std::vector<Dimension> dimensions;
  std::vector<FieldPlace> dimensionPlaces;
  std::vector<FieldPlace> fieldPlaces;
  std::size_t recordBytes = 0;
};

/// `before` are dimensions that stand before those of the fields.
[[nodiscard]] FieldLayout LayOutFields(std::vector<Dimension> before,
                                       std::span<const ScanField> fields);

}  // namespace tarnhost
