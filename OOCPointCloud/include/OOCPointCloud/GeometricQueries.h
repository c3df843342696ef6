// The queries of the companion library: geometry, all points, no points.
#pragma once

#include <OOCPointCloud/OOCPCIQuery.h>

// The geometric queries read one metadata, "DEF_POSITION": 12 bytes are three floats, 24 bytes
// three doubles; any other size is not satisfied. Constants and positions are in the local frame.
// All arithmetic is in double precision from the constants given, without fused operations and in
// the order stated, so that a node's classification holds for each of its points to the last bit. A
// NaN in a constant or a position satisfies nothing.

/// Every point.
class OOCPOINTCLOUD_API OOCPCAllPointsQuery final : public OOCPCIQuery {
 public:
  explicit OOCPCAllPointsQuery(BitwiseOperator op);
  using OOCPCIQuery::Satisfy;
  [[nodiscard]] Descriptor GetDescriptor() const override;
  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes) const override;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] ClassifyResult ClassifyNode(const OOCPointCloudNode& node) const override;
  [[nodiscard]] NodeAccelerator* MakeNodeAccelerator(const OOCPointCloudNode& node) const override;
};

/// No point.
class OOCPOINTCLOUD_API OOCPCNoPointsQuery final : public OOCPCIQuery {
 public:
  explicit OOCPCNoPointsQuery(BitwiseOperator op);
  using OOCPCIQuery::Satisfy;
  [[nodiscard]] Descriptor GetDescriptor() const override;
  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes) const override;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] ClassifyResult ClassifyNode(const OOCPointCloudNode& node) const override;
  [[nodiscard]] NodeAccelerator* MakeNodeAccelerator(const OOCPointCloudNode& node) const override;
};

/// Common part of the queries of a position: reading it, and accelerators from ClassifyNode.
class OOCPOINTCLOUD_API OOCPCPositionQuery : public OOCPCIQuery {
 public:
  using OOCPCIQuery::Satisfy;
  [[nodiscard]] Descriptor GetDescriptor() const override;
  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes) const final;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min,
                                            const double* max) const override = 0;
  [[nodiscard]] ClassifyResult ClassifyNode(const OOCPointCloudNode& node) const final;
  [[nodiscard]] NodeAccelerator* MakeNodeAccelerator(const OOCPointCloudNode& node) const final;
  /// The test itself, of a position in the local frame.
  [[nodiscard]] virtual bool Contains(const oocpc::Vector3d& position) const = 0;

 protected:
  explicit OOCPCPositionQuery(BitwiseOperator op);
};

/// dx*dx + dy*dy + dz*dz <= r*r with dx = x - cx …, summed from left to right. Closed; a negative
/// radius contains nothing.
class OOCPOINTCLOUD_API OOCPCInsideSphereQuery final : public OOCPCPositionQuery {
 public:
  OOCPCInsideSphereQuery(BitwiseOperator op, const float (&centre)[3], float radius);
  using OOCPCPositionQuery::ClassifyNode;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] bool Contains(const oocpc::Vector3d& position) const override;
  [[nodiscard]] const std::array<float, 3>& GetCentre() const { return centre_; }
  [[nodiscard]] float GetRadius() const { return radius_; }

 private:
  std::array<float, 3> centre_;
  float radius_;
};

/// Closed axis-aligned box between two corners given in any order.
class OOCPOINTCLOUD_API OOCPCInsideBoxQuery final : public OOCPCPositionQuery {
 public:
  OOCPCInsideBoxQuery(BitwiseOperator op, const float (&first)[3], const float (&second)[3]);
  using OOCPCPositionQuery::ClassifyNode;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] bool Contains(const oocpc::Vector3d& position) const override;
  [[nodiscard]] const std::array<float, 3>& GetFirst() const { return first_; }
  [[nodiscard]] const std::array<float, 3>& GetSecond() const { return second_; }

 private:
  std::array<float, 3> first_;
  std::array<float, 3> second_;
};

/// Closed rectangle in x and y between two corners given in any order; any z.
class OOCPOINTCLOUD_API OOCPCInside2DBoxQuery final : public OOCPCPositionQuery {
 public:
  OOCPCInside2DBoxQuery(BitwiseOperator op, const double (&first)[2], const double (&second)[2]);
  using OOCPCPositionQuery::ClassifyNode;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] bool Contains(const oocpc::Vector3d& position) const override;
  [[nodiscard]] const std::array<double, 2>& GetFirst() const { return first_; }
  [[nodiscard]] const std::array<double, 2>& GetSecond() const { return second_; }

 private:
  std::array<double, 2> first_;
  std::array<double, 2> second_;
};

/// Six planes (a, b, c, d): inside where a*x + b*y + c*z + d >= 0, summed from left to right, holds
/// for all six.
class OOCPOINTCLOUD_API OOCPCInsideFrustumQuery final : public OOCPCPositionQuery {
 public:
  OOCPCInsideFrustumQuery(BitwiseOperator op, const float (&planes)[6][4]);
  using OOCPCPositionQuery::ClassifyNode;
  [[nodiscard]] Descriptor GetDescriptor() const override;
  [[nodiscard]] ClassifyResult ClassifyNode(const double* min, const double* max) const override;
  [[nodiscard]] bool Contains(const oocpc::Vector3d& position) const override;
  [[nodiscard]] const std::array<std::array<float, 4>, 6>& GetPlanes() const { return planes_; }

 private:
  std::array<std::array<float, 4>, 6> planes_;
};
