// Points on the inner side of six planes.
#include <OOCPointCloud/GeometricQueries.h>

#include <algorithm>
#include <cmath>

#include "OOCPointCloud/queries/NodeBox.h"

namespace {

using ClassifyResult = OOCPCIQuery::ClassifyResult;
using Plane = std::array<float, 4>;

double SignedDistance(const Plane& plane, const oocpc::Vector3d& position) {
  const double a = plane[0];
  const double b = plane[1];
  const double c = plane[2];
  const double d = plane[3];
  return a * position[0] + b * position[1] + c * position[2] + d;
}

// A rounded product moves in one direction along an axis and a rounded sum with each of its
// operands, so the corners that the signs of a, b and c pick give the least and the greatest value
// that Contains can meet in the box, to the last bit. Overflow keeps that true: if the least value
// is a number not below zero, then no term can be minus infinity, and no sum of terms a NaN. Only a
// NaN that a product gives by itself (zero times an infinite bound) has to be looked for.
ClassifyResult ClassifyPlane(const Plane& plane, const double* min, const double* max) {
  oocpc::Vector3d least;
  oocpc::Vector3d greatest;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double factor = plane[axis];
    least[axis] = factor >= 0 ? min[axis] : max[axis];
    greatest[axis] = factor >= 0 ? max[axis] : min[axis];
    if (std::isnan(factor * least[axis]) || std::isnan(factor * greatest[axis])) {
      return ClassifyResult::kSome;
    }
  }
  if (SignedDistance(plane, least) >= 0) return ClassifyResult::kAll;
  return SignedDistance(plane, greatest) < 0 ? ClassifyResult::kNone : ClassifyResult::kSome;
}

}  // namespace

OOCPCInsideFrustumQuery::OOCPCInsideFrustumQuery(BitwiseOperator op, const float (&planes)[6][4])
    : OOCPCPositionQuery(op), planes_{} {
  for (std::size_t row = 0; row < 6; ++row) {
    std::copy_n(planes[row], 4, planes_[row].begin());
  }
}

OOCPCIQuery::Descriptor OOCPCInsideFrustumQuery::GetDescriptor() const {
  return kFrustumDescriptor;
}

bool OOCPCInsideFrustumQuery::Contains(const oocpc::Vector3d& position) const {
  return std::all_of(planes_.begin(), planes_.end(), [&position](const Plane& plane) {
    return SignedDistance(plane, position) >= 0;
  });
}

// None of a box is inside when all of it is behind one plane. A box beside an edge of the frustum
// may be behind no single plane and still be outside: it is classified as kSome, which is safe.
OOCPCIQuery::ClassifyResult OOCPCInsideFrustumQuery::ClassifyNode(const double* min,
                                                                  const double* max) const {
  const bool holdsNaN = std::any_of(planes_.begin(), planes_.end(),
                                    [](const Plane& plane) { return oocpc::HoldsNaN(plane); });
  if (holdsNaN) return ClassifyResult::kNone;
  if (!oocpc::SpansBox(min, max)) return ClassifyResult::kSome;
  ClassifyResult result = ClassifyResult::kAll;
  for (const Plane& plane : planes_) {
    result = std::min(result, ClassifyPlane(plane, min, max));
  }
  return result;
}
