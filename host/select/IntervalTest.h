// Tests a block of one column against an interval, in the form in which it is stored where
// possible.
#pragma once

#include "host/select/BlockColumn.h"

namespace tarnhost {

/// Whether blocks so encoded need not be decoded to be compared: bit-packed ones, runs and raw
/// ones, whatever the number of components. Of entropy-coded and of compressed blocks no value is
/// to be had without those before it.
[[nodiscard]] bool IsComparedAsStored(oocpc::ColumnType type, oocpc::BlockEncoding encoding);

/// Sets bit i of the mask where component `component` of value i lies in the interval; a block's
/// indices of strings are numbers, too. Decodes only what cannot be compared as it is stored.
/// `scratch` is for the values of one component.
Outcome TestInterval(BlockColumn& column, const ValueInterval& interval, std::size_t component,
                     std::vector<std::uint8_t>& scratch, std::span<std::uint64_t> mask);

}  // namespace tarnhost
