// Compares the selection engine with the evaluator that hosts call, point by point.
#pragma once

#include <optional>

#include "host/select/Select.h"

namespace tarnhost {

/// The first point of which the two say different things.
struct SelectionDifference {
  std::uint64_t point = 0;        ///< its number in storage order
  oocpc::Vector3d coordinates{};  ///< of the source
  bool byEngine = false;          ///< selected by the engine, and not record by record; or else
};

struct CheckReport {
  std::uint64_t selected = 0;  ///< by the engine
  std::uint64_t pointCount = 0;
  std::uint64_t comparedPoints = 0;
  std::uint64_t counted = 0;  ///< what counting alone gives; may differ with every point the same
  std::optional<SelectionDifference> difference;
  [[nodiscard]] bool IsSound() const { return !difference && counted == selected; }
};

/// Selects with both and compares every point of the iteration; `limit` does not count. A
/// difference is no failure: it is in the report.
Outcome CheckSelection(Cloud& cloud, const SelectOptions& options, CheckReport& report);

}  // namespace tarnhost
