// Colours for numbers.
#pragma once

#include <cstdint>

#include "host/render/PointCanvas.h"

namespace tarnhost {

/// From blue in the valleys through green and yellow to light red on the heights; `share` from 0
/// to 1, what lies outside takes the end's colour.
[[nodiscard]] Rgb ElevationColor(double share);
/// Grey of a brightness from 0 to 1.
[[nodiscard]] Rgb GreyColor(double share);
/// A colour for each class of the LAS standard; classes without a meaning of their own share one.
[[nodiscard]] Rgb ClassificationColor(std::uint64_t number);
/// Only returns, first, intermediate and last ones of their pulse.
[[nodiscard]] Rgb ReturnColor(std::uint64_t returnNumber, std::uint64_t numberOfReturns);
/// The colour drained of most of its colourfulness and set back, so that others stand out.
[[nodiscard]] Rgb Subdued(Rgb color);
/// What selected points are drawn in: their own colour's light and dark on a signal colour.
[[nodiscard]] Rgb Highlighted(Rgb color);

}  // namespace tarnhost
