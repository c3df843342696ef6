// Coordinates of selected points as their source had them.
#include "host/select/SourceCoordinates.h"

#include <algorithm>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

using oocpc::ValueType;

SourceCoordinates::SourceCoordinates(const Cloud& cloud) : transform_(cloud.GetTransform()) {
  const std::vector<CloudColumn>& columns = cloud.GetColumns();
  // A source without a name may stand for several that were lost.
  const std::vector<SourceRecord>& sources = cloud.GetSources();
  const bool isOneSource = sources.size() == 1 && !sources.front().fileName.empty();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto exact =
        std::ranges::find(columns, std::string(1, "xyz"[axis]) + "_exact", &CloudColumn::name);
    if (exact == columns.end() || exact->type.components != 1) continue;
    if (exact->type.value != ValueType::kFloat && exact->type.value != ValueType::kDouble) continue;
    axes_[axis] = {isOneSource ? exact->type.value : ValueType::kDouble, exact->type.value,
                   static_cast<std::size_t>(exact - columns.begin())};
  }
}

bool SourceCoordinates::IsCoordinate(std::size_t column) const {
  return std::ranges::any_of(axes_, [&](const Axis& axis) { return axis.column == column; });
}

double SourceCoordinates::Get(const SelectedValues& values, std::size_t point,
                              std::size_t axis) const {
  const Axis& place = axes_[axis];
  const std::int32_t stored = values.GetPositions()[3 * point + axis];
  if (!place.column) return transform_.Coordinate(axis, stored);
  const std::uint8_t* const column = values.GetColumn(*place.column).data();
  const double exact = place.columnType == ValueType::kFloat
                           ? oocpc::LoadLittleEndian<float>(column + point * sizeof(float))
                           : oocpc::LoadLittleEndian<double>(column + point * sizeof(double));
  return transform_.Store(axis, exact) == stored ? exact : transform_.Coordinate(axis, stored);
}

}  // namespace tarnhost
