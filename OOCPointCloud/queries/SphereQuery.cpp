// Points within a distance of a centre.
#include <OOCPointCloud/GeometricQueries.h>

#include <algorithm>
#include <cmath>

#include "OOCPointCloud/queries/NodeBox.h"

OOCPCInsideSphereQuery::OOCPCInsideSphereQuery(BitwiseOperator op, const float (&centre)[3],
                                               float radius)
    : OOCPCPositionQuery(op), centre_{centre[0], centre[1], centre[2]}, radius_(radius) {}

bool OOCPCInsideSphereQuery::Contains(const oocpc::Vector3d& position) const {
  if (!(radius_ >= 0)) return false;
  const double dx = position[0] - centre_[0];
  const double dy = position[1] - centre_[1];
  const double dz = position[2] - centre_[2];
  const double radius = radius_;
  return dx * dx + dy * dy + dz * dz <= radius * radius;
}

// Rounded subtraction, squaring (of magnitudes) and addition never fall when their operands rise.
// So the same operations on the axis offsets of least and of greatest magnitude give the least and
// the greatest sum that Contains can meet in the box, to the last bit. Both are met by points of
// the box: an offset of zero by the centre's own coordinate.
OOCPCIQuery::ClassifyResult OOCPCInsideSphereQuery::ClassifyNode(const double* min,
                                                                 const double* max) const {
  if (!(radius_ >= 0) || oocpc::HoldsNaN(centre_)) return ClassifyResult::kNone;
  if (!oocpc::SpansBox(min, max)) return ClassifyResult::kSome;
  double nearest = 0;
  double farthest = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double low = min[axis] - centre_[axis];
    const double high = max[axis] - centre_[axis];
    // An infinite centre in a box that reaches as far: some offsets are NaN, others are not.
    if (std::isnan(low) || std::isnan(high)) return ClassifyResult::kSome;
    const bool straddles = low <= 0 && high >= 0;
    const double least = straddles ? 0 : std::min(std::abs(low), std::abs(high));
    const double greatest = std::max(std::abs(low), std::abs(high));
    nearest += least * least;
    farthest += greatest * greatest;
  }
  const double radius = radius_;
  if (farthest <= radius * radius) return ClassifyResult::kAll;
  return nearest <= radius * radius ? ClassifyResult::kSome : ClassifyResult::kNone;
}
