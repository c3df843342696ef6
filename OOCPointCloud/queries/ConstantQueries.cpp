// All points and no points: queries that read nothing and know every node beforehand.
#include <OOCPointCloud/GeometricQueries.h>

OOCPCAllPointsQuery::OOCPCAllPointsQuery(BitwiseOperator op) : OOCPCIQuery({}, op) {}

OOCPCIQuery::Descriptor OOCPCAllPointsQuery::GetDescriptor() const { return kConstantDescriptor; }

bool OOCPCAllPointsQuery::Satisfy(const char* const* /*records*/, const unsigned* /*sizes*/) const {
  return true;
}

OOCPCIQuery::ClassifyResult OOCPCAllPointsQuery::ClassifyNode(const double* /*min*/,
                                                              const double* /*max*/) const {
  return ClassifyResult::kAll;
}

OOCPCIQuery::ClassifyResult OOCPCAllPointsQuery::ClassifyNode(
    const OOCPointCloudNode& /*node*/) const {
  return ClassifyResult::kAll;
}

OOCPCIQuery::NodeAccelerator* OOCPCAllPointsQuery::MakeNodeAccelerator(
    const OOCPointCloudNode& /*node*/) const {
  return new NodeAccelerator(ClassifyResult::kAll);
}

OOCPCNoPointsQuery::OOCPCNoPointsQuery(BitwiseOperator op) : OOCPCIQuery({}, op) {}

OOCPCIQuery::Descriptor OOCPCNoPointsQuery::GetDescriptor() const { return kConstantDescriptor; }

bool OOCPCNoPointsQuery::Satisfy(const char* const* /*records*/, const unsigned* /*sizes*/) const {
  return false;
}

OOCPCIQuery::ClassifyResult OOCPCNoPointsQuery::ClassifyNode(const double* /*min*/,
                                                             const double* /*max*/) const {
  return ClassifyResult::kNone;
}

OOCPCIQuery::ClassifyResult OOCPCNoPointsQuery::ClassifyNode(
    const OOCPointCloudNode& /*node*/) const {
  return ClassifyResult::kNone;
}

OOCPCIQuery::NodeAccelerator* OOCPCNoPointsQuery::MakeNodeAccelerator(
    const OOCPointCloudNode& /*node*/) const {
  return new NodeAccelerator(ClassifyResult::kNone);
}
