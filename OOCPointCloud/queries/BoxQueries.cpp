// Points in an axis-aligned box, and points in a rectangle of x and y. Nothing is rounded here, so
// the classification decides every box of which it can be decided.
#include <OOCPointCloud/GeometricQueries.h>

#include <algorithm>
#include <cmath>

#include "OOCPointCloud/queries/NodeBox.h"

namespace {

using ClassifyResult = OOCPCIQuery::ClassifyResult;

/// Whether `value` lies between the two bounds, which come in any order and are not NaN.
bool LiesBetween(double value, double a, double b) {
  return std::min(a, b) <= value && value <= std::max(a, b);
}

/// Classifies the interval from `low` to `high` against the two bounds.
ClassifyResult ClassifyInterval(double low, double high, double a, double b) {
  const double least = std::min(a, b);
  const double greatest = std::max(a, b);
  if (high < least || low > greatest) return ClassifyResult::kNone;
  return least <= low && high <= greatest ? ClassifyResult::kAll : ClassifyResult::kSome;
}

/// Classifies a box by the corners' first N axes.
template <typename T, std::size_t N>
ClassifyResult ClassifyAxes(const double* min, const double* max, const std::array<T, N>& first,
                            const std::array<T, N>& second) {
  if (oocpc::HoldsNaN(first) || oocpc::HoldsNaN(second)) return ClassifyResult::kNone;
  if (!oocpc::SpansBox(min, max)) return ClassifyResult::kSome;
  ClassifyResult result = ClassifyResult::kAll;
  for (std::size_t axis = 0; axis < N; ++axis) {
    result = std::min(result, ClassifyInterval(min[axis], max[axis], first[axis], second[axis]));
  }
  return result;
}

}  // namespace

OOCPCInsideBoxQuery::OOCPCInsideBoxQuery(BitwiseOperator op, const float (&first)[3],
                                         const float (&second)[3])
    : OOCPCPositionQuery(op),
      first_{first[0], first[1], first[2]},
      second_{second[0], second[1], second[2]} {}

bool OOCPCInsideBoxQuery::Contains(const oocpc::Vector3d& position) const {
  if (oocpc::HoldsNaN(first_) || oocpc::HoldsNaN(second_)) return false;
  return LiesBetween(position[0], first_[0], second_[0]) &&
         LiesBetween(position[1], first_[1], second_[1]) &&
         LiesBetween(position[2], first_[2], second_[2]);
}

OOCPCIQuery::ClassifyResult OOCPCInsideBoxQuery::ClassifyNode(const double* min,
                                                              const double* max) const {
  return ClassifyAxes(min, max, first_, second_);
}

OOCPCInside2DBoxQuery::OOCPCInside2DBoxQuery(BitwiseOperator op, const double (&first)[2],
                                             const double (&second)[2])
    : OOCPCPositionQuery(op), first_{first[0], first[1]}, second_{second[0], second[1]} {}

bool OOCPCInside2DBoxQuery::Contains(const oocpc::Vector3d& position) const {
  if (oocpc::HoldsNaN(first_) || oocpc::HoldsNaN(second_) || std::isnan(position[2])) return false;
  return LiesBetween(position[0], first_[0], second_[0]) &&
         LiesBetween(position[1], first_[1], second_[1]);
}

OOCPCIQuery::ClassifyResult OOCPCInside2DBoxQuery::ClassifyNode(const double* min,
                                                                const double* max) const {
  return ClassifyAxes(min, max, first_, second_);
}
