// Coordinates out of stored integers, exactly as decimal numbers where scale and offset are such.
#include "host/formats/converted/DecimalTransform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tarnhost {

namespace {

constexpr std::array<double, kMostDecimals + 1> kPowers{
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

}  // namespace

double PowerOfTen(int exponent) { return kPowers[static_cast<std::size_t>(exponent)]; }

DecimalTransform::DecimalTransform(const PositionTransform& transform) {
  for (std::size_t i = 0; i < 3; ++i) {
    Axis& axis = axes_[i];
    axis.scale = transform.scale[i];
    axis.offset = transform.offset[i];
    for (int decimals = 0; decimals <= kMostDecimals; ++decimals) {
      const double power = PowerOfTen(decimals);
      if (1 / power != axis.scale) continue;
      const double units = std::nearbyint(axis.offset * power);
      if (std::abs(units) <= kMostDecimalUnits && units / power == axis.offset) {
        axis.divisor = power;
        axis.units = units;
        axis.decimals = decimals;
      }
      break;
    }
  }
}

std::int32_t DecimalTransform::Store(std::size_t axis, double coordinate) const {
  const Axis& a = axes_[axis];
  const double stored = a.divisor != 0 ? std::nearbyint(coordinate * a.divisor) - a.units
                                       : std::nearbyint((coordinate - a.offset) / a.scale);
  return static_cast<std::int32_t>(std::clamp<double>(
      stored, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

}  // namespace tarnhost
