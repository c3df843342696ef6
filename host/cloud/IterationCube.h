// The cube that an iteration's octree divides.
#pragma once

#include "host/cloud/Cloud.h"

namespace tarnhost {

struct IterationCube {
  oocpc::Vector3d min{};  ///< least corner, local frame
  double edge = 1;        ///< local units
  /// Cells of level 0's sample along an edge, as a power of two; 7 where nothing tells.
  unsigned gridBits = 7;
};

/// Finds the cube of an iteration. The main stream states the largest one, the newest as a rule: an
/// iteration that came before the cube grew has a cell of it, which its level-of-detail block names
/// by its centre. Without such a block it is the one that is stated. Errors are those of reading.
Outcome FindCube(Cloud& cloud, std::uint64_t iteration, IterationCube& cube);

}  // namespace tarnhost
