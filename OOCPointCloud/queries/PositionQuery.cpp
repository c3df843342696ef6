// Common part of the queries of a position: reading it from a record, and node accelerators.
#include <OOCPointCloud/GeometricQueries.h>

#include "OOCPointCloud/support/Bytes.h"

namespace {

constexpr unsigned kFloatPositionBytes = 3 * sizeof(float);
constexpr unsigned kDoublePositionBytes = 3 * sizeof(double);

template <typename T>
oocpc::Vector3d LoadPosition(const char* record) {
  oocpc::Vector3d position;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    position[axis] = oocpc::LoadLittleEndian<T>(record + axis * sizeof(T));
  }
  return position;
}

}  // namespace

OOCPCPositionQuery::OOCPCPositionQuery(BitwiseOperator op) : OOCPCIQuery({"DEF_POSITION"}, op) {}

OOCPCIQuery::Descriptor OOCPCPositionQuery::GetDescriptor() const { return kPositionDescriptor; }

bool OOCPCPositionQuery::Satisfy(const char* const* records, const unsigned* sizes) const {
  if (records == nullptr || sizes == nullptr || records[0] == nullptr) return false;
  if (sizes[0] == kFloatPositionBytes) return Contains(LoadPosition<float>(records[0]));
  if (sizes[0] == kDoublePositionBytes) return Contains(LoadPosition<double>(records[0]));
  return false;
}

OOCPCIQuery::ClassifyResult OOCPCPositionQuery::ClassifyNode(const OOCPointCloudNode& node) const {
  return ClassifyNode(node.box.min.data(), node.box.max.data());
}

OOCPCIQuery::NodeAccelerator* OOCPCPositionQuery::MakeNodeAccelerator(
    const OOCPointCloudNode& node) const {
  return new NodeAccelerator(ClassifyNode(node));
}
