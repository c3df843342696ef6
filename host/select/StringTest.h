// Tests a block of string indices against a set of strings, in the form in which it is stored where
// possible.
#pragma once

#include <vector>

#include "host/select/BlockColumn.h"

namespace tarnhost {

/// Sets bit i of the mask where string i of the block is in the set. Where the block's part of the
/// set is a few runs of indices, these are compared as numbers are (see TestInterval); else every
/// index is looked up, without decoding the block when it is bit-packed. kStringNotFound for an
/// index that has no string. `scratch` is for a mask.
Outcome TestStrings(BlockColumn& column, const StringSet& strings,
                    std::vector<std::uint64_t>& scratch, std::span<std::uint64_t> mask);

}  // namespace tarnhost
