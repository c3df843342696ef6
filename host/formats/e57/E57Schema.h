// The fields of all scans of an E57 file as those of one cloud.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/formats/converted/PointDecoder.h"
#include "host/formats/e57/E57Xml.h"

namespace tarnhost {

/// What becomes of one field of a scan.
struct E57Target {
  enum class Role {
    kField,
    kCartesian,       ///< a coordinate; `axis` tells which
    kSpherical,       ///< range, azimuth or elevation
    kCartesianState,  ///< not zero: there are no Cartesian coordinates
    kSphericalState,
  };
  Role role = Role::kField;
  std::size_t axis = 0;
  std::optional<std::size_t> field;  ///< of the cloud, where the value is kept
};

/// The cloud of several scans. Fields are put together by their names, texts by themselves; what a
/// scan lacks is zero, no number for floating-point fields, and the empty text.
struct E57Schema {
  std::vector<ScanField> fields;                ///< the first is the number of the scan
  std::vector<std::vector<E57Target>> targets;  ///< of each scan's fields
  CoordinateKind kind = CoordinateKind::kDouble;
  std::optional<PositionTransform> transform;  ///< where all scans have one and the same

  [[nodiscard]] bool HasTexts() const;
  static E57Schema Of(const std::vector<E57Scan>& scans);
};

/// What a field is by its name.
[[nodiscard]] E57Target TargetOf(const E57Field& field);

/// A field's name in the cloud: "rowIndex" is row_index, "colorRed" is red; names of extensions
/// stay.
[[nodiscard]] std::string E57FieldName(const std::string& name);

}  // namespace tarnhost
