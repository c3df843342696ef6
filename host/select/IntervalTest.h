// Tests a block of one column against an interval, in the form in which it is stored where
// possible.
#pragma once

#include "host/select/BlockColumn.h"

namespace tarnhost {

/// Sets bit i of the mask where component `component` of value i lies in the interval. Bit-packed
/// blocks, blocks in runs and raw ones are compared as they are stored; others are decoded.
/// `scratch` is for the values of one component.
Outcome TestInterval(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                     std::vector<std::uint8_t>& scratch, std::span<std::uint64_t> mask);

}  // namespace tarnhost
