// Coordinates out of stored integers, exactly as decimal numbers where scale and offset are such.
#pragma once

#include <array>
#include <cstdint>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Powers of ten that doubles hold exactly end here.
inline constexpr int kMostDecimals = 22;

/// Units of the last decimal digit are told apart with certainty up to this, offset included.
inline constexpr double kMostDecimalUnits = 1125899906842624.0;  // 2^50

/// 10 to the power of `exponent`, from 0 to kMostDecimals.
[[nodiscard]] double PowerOfTen(int exponent);

/// Source coordinates of stored integers.
///
/// Where the scale is a power of ten such as 0.001 and the offset a multiple of it, a coordinate is
/// the double closest to the decimal number that is meant (a division, which rounds correctly);
/// elsewhere it is integer * scale + offset as usual. The two differ in the last bit at most. Value
/// semantics.
class DecimalTransform {
 public:
  DecimalTransform() = default;
  explicit DecimalTransform(const PositionTransform& transform);

  [[nodiscard]] double Coordinate(std::size_t axis, std::int32_t stored) const {
    const Axis& a = axes_[axis];
    if (a.divisor != 0) return (static_cast<double>(stored) + a.units) / a.divisor;
    return static_cast<double>(stored) * a.scale + a.offset;
  }
  /// The stored integer that comes closest to a coordinate; the last one where none is close.
  [[nodiscard]] std::int32_t Store(std::size_t axis, double coordinate) const;
  /// True where coordinates are decimal numbers.
  [[nodiscard]] bool IsDecimal(std::size_t axis) const { return axes_[axis].divisor != 0; }
  /// Digits behind the point of such numbers.
  [[nodiscard]] int GetDecimals(std::size_t axis) const { return axes_[axis].decimals; }

 private:
  struct Axis {
    double scale = 1;
    double offset = 0;
    double divisor = 0;  ///< 1 / scale, when that is a power of ten; else 0
    double units = 0;    ///< the offset in units of the scale, in that case
    int decimals = 0;
  };
  std::array<Axis, 3> axes_{};
};

}  // namespace tarnhost
