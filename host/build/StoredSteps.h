// How stored integers of scans with different scales and offsets become those of one scale and
// offset, exactly.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// One axis: stored integer * factor + shift is the integer of the other transform.
struct StoredStep {
  std::int64_t factor = 1;
  std::int64_t shift = 0;
};

/// The same of all three axes. A conversion is exact in terms of decimal numbers: scales and
/// offsets are taken as the shortest decimal numbers that denote them, 0.01 as one hundredth.
using StoredSteps = std::array<StoredStep, 3>;

/// Whether the steps leave every integer as it is.
[[nodiscard]] bool IsIdentity(const StoredSteps& steps);

/// Converts a box; none when an integer of it does not fit into 32 bits.
[[nodiscard]] std::optional<StoredBox> Convert(const StoredSteps& steps, const StoredBox& box);

/// Converts `count` positions of three integers each, in place; they have to fit.
void Convert(const StoredSteps& steps, std::uint64_t count, std::int32_t* xyz);

/// The steps from one transform to another. kScansDiffer, which names no scan, when a coordinate of
/// the one may lie between two of the other.
Outcome FindSteps(const PositionTransform& from, const PositionTransform& to, StoredSteps& steps);

/// Where points lie, as far as it is known.
struct TransformUse {
  PositionTransform transform;
  std::optional<StoredBox> box;
};

/// The transform with the largest scale to which there are steps from all others, with an offset so
/// that all integers fit into 32 bits: that of the first one that will do, or one in the middle.
/// kScansDiffer, which names no scan, when there is none.
Outcome FindCommonTransform(const std::vector<TransformUse>& uses, PositionTransform& common);

}  // namespace tarnhost
