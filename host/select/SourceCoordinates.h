// Coordinates of selected points as their source had them.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/converted/DecimalTransform.h"
#include "host/select/SelectedValues.h"

namespace tarnhost {

/// Where a cloud has its points' coordinates: in the columns "x_exact", "y_exact" and "z_exact", if
/// the import kept what stored integers would round; else in the positions. In a cloud of several
/// scans, a point of a scan without such columns has something else there, which does not round to
/// its position; that point's position is exact. Value semantics.
class SourceCoordinates {
 public:
  SourceCoordinates() = default;
  explicit SourceCoordinates(const Cloud& cloud);

  /// 32- or 64-bit floats; always the latter in a cloud of several scans.
  [[nodiscard]] oocpc::ValueType GetType(std::size_t axis) const { return axes_[axis].type; }
  /// The column that holds an axis; none when the positions do.
  [[nodiscard]] std::optional<std::size_t> GetColumn(std::size_t axis) const {
    return axes_[axis].column;
  }
  /// Whether a column is such a one, and no attribute.
  [[nodiscard]] bool IsCoordinate(std::size_t column) const;
  /// `values` are those of all columns of the cloud.
  [[nodiscard]] double Get(const SelectedValues& values, std::size_t point, std::size_t axis) const;

 private:
  struct Axis {
    oocpc::ValueType type = oocpc::ValueType::kDouble;
    oocpc::ValueType columnType = oocpc::ValueType::kDouble;
    std::optional<std::size_t> column;
  };
  std::array<Axis, 3> axes_;
  DecimalTransform transform_;
};

}  // namespace tarnhost
