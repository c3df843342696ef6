// Queries: one test of a point or of a whole node each.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPointCloudNode.h>
#include <OOCPointCloud/Types.h>
#include <QelSysTS/QelUnicodeString.h>

#include <vector>

/// Base of all queries. A query names the metadata that it reads and tests their values.
///
/// Ownership: created with new, deleted through the virtual destructor. Thread safety: immutable
/// after construction; every const operation may run on several threads at once. Errors: none; a
/// test that can't be made answers false. Coordinates are in the repository's local frame.
class OOCPOINTCLOUD_API OOCPCIQuery {
 public:
  enum class BitwiseOperator : std::uint32_t { kAnd = 0, kOr = 1, kXor = 2, kNot = 3 };

  /// Bits 0 to 3: what the query reads (0 anything, 1 numbers of fixed size, 2 a position, 3
  /// nothing). Bits 4 to 7: what a test costs, as the tree weighs it.
  using Descriptor = std::uint32_t;
  static constexpr Descriptor kDefaultDescriptor = 0x80;
  static constexpr Descriptor kNumericDescriptor = 0x11;
  static constexpr Descriptor kPositionDescriptor = 0x22;
  static constexpr Descriptor kFrustumDescriptor = 0x62;
  static constexpr Descriptor kConstantDescriptor = 0x03;
  [[nodiscard]] static constexpr std::int32_t CostOf(Descriptor descriptor) {
    return static_cast<std::int32_t>((descriptor >> 4) & 0xFu);
  }

  /// What a node's points have in common for a query: none satisfies it, some may, all do.
  enum class ClassifyResult : std::uint32_t { kNone = 0, kSome = 1, kAll = 2 };

  /// What a query knows beforehand of the points of one node.
  class OOCPOINTCLOUD_API NodeAccelerator {
   public:
    explicit NodeAccelerator(ClassifyResult result) : result_(result) {}
    NodeAccelerator(const NodeAccelerator&) = delete;
    NodeAccelerator& operator=(const NodeAccelerator&) = delete;
    virtual ~NodeAccelerator();
    [[nodiscard]] ClassifyResult GetResult() const { return result_; }

   private:
    ClassifyResult result_;
  };

  OOCPCIQuery(std::vector<QelUnicodeString> metaDataNames, BitwiseOperator op);
  OOCPCIQuery(const OOCPCIQuery&) = delete;
  OOCPCIQuery& operator=(const OOCPCIQuery&) = delete;

  // The virtual operations stand in the order of their slots.

  virtual HRESULT Reset();
  [[nodiscard]] virtual Descriptor GetDescriptor() const;
  /// Tests one metadata alone: the base answers false.
  [[nodiscard]] virtual bool Satisfy(const char* record, unsigned size) const;
  /// Tests all metadata of the query: one pointer and one size in bytes for each name, in their
  /// order; no alignment is assumed. The base answers false.
  [[nodiscard]] virtual bool Satisfy(const char* const* records, const unsigned* sizes) const;
  /// Classifies the closed box from `min` to `max` (three doubles each). The base answers kSome.
  [[nodiscard]] virtual ClassifyResult ClassifyNode(const double* min, const double* max) const;
  /// Classifies a node by its box. The base answers what the box form answers.
  [[nodiscard]] virtual ClassifyResult ClassifyNode(const OOCPointCloudNode& node) const;
  /// What is known beforehand of a node's points; the caller deletes it. Null when nothing is.
  [[nodiscard]] virtual NodeAccelerator* MakeNodeAccelerator(const OOCPointCloudNode& node) const;
  virtual ~OOCPCIQuery();

  /// As the virtual forms, but asks the accelerator first (null: nothing is known): wholly inside
  /// answers true and wholly outside false without a test.
  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes,
                             NodeAccelerator* accelerator) const {
    if (accelerator != nullptr && accelerator->GetResult() != ClassifyResult::kSome) {
      return accelerator->GetResult() == ClassifyResult::kAll;
    }
    return Satisfy(records, sizes);
  }
  [[nodiscard]] bool Satisfy(const char* record, unsigned size,
                             NodeAccelerator* accelerator) const {
    if (accelerator != nullptr && accelerator->GetResult() != ClassifyResult::kSome) {
      return accelerator->GetResult() == ClassifyResult::kAll;
    }
    return Satisfy(record, size);
  }

  [[nodiscard]] std::uint64_t GetNumberOfMetadata() const { return metaDataNames_.size(); }
  /// Name of one metadata; the empty string when `index` is not below GetNumberOfMetadata().
  [[nodiscard]] QelUnicodeString GetMetaName(std::uint64_t index) const;
  [[nodiscard]] BitwiseOperator GetBitwiseOperator() const { return operator_; }

 protected:
  /// Marks of the query for its owner; no bit is defined yet.
  std::uint32_t m_flags = 0;

 private:
  std::vector<QelUnicodeString> metaDataNames_;
  BitwiseOperator operator_;
};
