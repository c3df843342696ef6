// Which level-of-detail nodes a picture needs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "host/lod/LodTree.h"
#include "host/render/Camera.h"

namespace tarnhost {

/// One node to be drawn, and how densely its surroundings are drawn.
struct ChosenNode {
  /// Cells of the node's box along an edge for which the density is known.
  static constexpr unsigned kCells = 8;

  LodNode node;
  oocpc::Box3d box;  ///< of the octree node, local frame
  std::int32_t parent = -1;
  /// Distance between the points drawn in each cell, local units, x fastest.
  std::vector<float> spacings;

  /// Cells per unit along each axis; 0 where the box has no extent.
  oocpc::Vector3d cellsPerUnit{};

  /// The cell of a position within the box.
  [[nodiscard]] std::size_t CellOf(const double* position) const {
    std::size_t cell = 0;
    for (std::size_t axis = 3; axis-- > 0;) cell = cell * kCells + CellAlong(axis, position[axis]);
    return cell;
  }
  [[nodiscard]] unsigned CellAlong(std::size_t axis, double coordinate) const {
    const double place = (coordinate - box.min[axis]) * cellsPerUnit[axis];
    return static_cast<unsigned>(std::clamp(place, 0.0, kCells - 1.0));
  }
};

/// Chooses nodes in the order of the size at which their points' distances show, the largest first,
/// until the budget of points is used up or the points lie closer than a pixel; the coarsest level
/// is chosen whatever the budget. Parents stand
/// before their children. `box` frames need no transformation: the camera is in the local frame.
Outcome ChooseNodes(const LodTree& tree, const Camera& camera, std::uint64_t budget,
                    std::vector<ChosenNode>& chosen);

}  // namespace tarnhost
