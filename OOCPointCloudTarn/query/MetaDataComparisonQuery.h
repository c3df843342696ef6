// Queries that compare one metadata of a point with a constant: five kinds of value, six
// comparisons, thirty classes.
#pragma once

#include <OOCPointCloud/OOCPCIQuery.h>

#include <concepts>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"

/// Codes as the query language numbers them. The value of the record stands on the left.
enum class MetaDataComparison : std::uint32_t {
  kEqual = 0,
  kGreater = 1,
  kGreaterOrEqual = 2,
  kLess = 3,
  kLessOrEqual = 4,
  kNotEqual = 5
};

/// How a value is read from a record: little-endian, at any alignment; a text up to its first NUL.
template <typename T>
struct MetaDataValue {
  static T Read(const char* record) { return oocpc::LoadLittleEndian<T>(record); }
};
template <>
struct MetaDataValue<std::string> {
  static std::string_view Read(const char* record) { return record; }
};

/// Texts order by unsigned bytes, a proper prefix first. With a NaN only kNotEqual holds.
template <MetaDataComparison kComparison, typename Left, typename Right>
[[nodiscard]] bool Compares(const Left& left, const Right& right) {
  if constexpr (kComparison == MetaDataComparison::kEqual) return left == right;
  if constexpr (kComparison == MetaDataComparison::kGreater) return left > right;
  if constexpr (kComparison == MetaDataComparison::kGreaterOrEqual) return left >= right;
  if constexpr (kComparison == MetaDataComparison::kLess) return left < right;
  if constexpr (kComparison == MetaDataComparison::kLessOrEqual) return left <= right;
  if constexpr (kComparison == MetaDataComparison::kNotEqual) return left != right;
}

/// Compares the metadata that it names with `m_value`. With any number of names but one it compares
/// the point's first two metadata with each other instead.
///
/// Numbers are read in their own width whatever the size that comes with the record; a text ends at
/// its first NUL, which must be there. Nodes are never classified. Immutable, any thread.
template <typename T, MetaDataComparison kComparison>
class MetaDataComparisonQuery final : public OOCPCIQuery {
 public:
  using Value = T;
  static constexpr MetaDataComparison kCode = kComparison;
  using OOCPCIQuery::Satisfy;

  MetaDataComparisonQuery(const char* name, T value, BitwiseOperator op)
      : MetaDataComparisonQuery(std::vector<QelUnicodeString>{QelUnicodeString(name)},
                                std::move(value), op) {}
  MetaDataComparisonQuery(std::vector<QelUnicodeString> names, T value, BitwiseOperator op)
      : OOCPCIQuery(std::move(names), op), m_value(std::move(value)) {
    m_flags = 0;
  }

  [[nodiscard]] Descriptor GetDescriptor() const override {
    if constexpr (std::same_as<T, std::string>) return OOCPCIQuery::GetDescriptor();
    return kNumericDescriptor;
  }

  [[nodiscard]] bool Satisfy(const char* const* records, const unsigned* sizes) const override {
    if (records == nullptr || sizes == nullptr) return false;
    const auto left = MetaDataValue<T>::Read(records[0]);
    if (GetNumberOfMetadata() == 1) return Compares<kComparison>(left, m_value);
    return Compares<kComparison>(left, MetaDataValue<T>::Read(records[1]));
  }

  [[nodiscard]] const T& GetValue() const { return m_value; }

 private:
  T m_value;
};

using UInt8EqualQuery = MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kEqual>;
using UInt8GreaterQuery = MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kGreater>;
using UInt8GreaterOrEqualQuery =
    MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kGreaterOrEqual>;
using UInt8LessQuery = MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kLess>;
using UInt8LessOrEqualQuery =
    MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kLessOrEqual>;
using UInt8NotEqualQuery = MetaDataComparisonQuery<std::uint8_t, MetaDataComparison::kNotEqual>;

using Int32EqualQuery = MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kEqual>;
using Int32GreaterQuery = MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kGreater>;
using Int32GreaterOrEqualQuery =
    MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kGreaterOrEqual>;
using Int32LessQuery = MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kLess>;
using Int32LessOrEqualQuery =
    MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kLessOrEqual>;
using Int32NotEqualQuery = MetaDataComparisonQuery<std::int32_t, MetaDataComparison::kNotEqual>;

using FloatEqualQuery = MetaDataComparisonQuery<float, MetaDataComparison::kEqual>;
using FloatGreaterQuery = MetaDataComparisonQuery<float, MetaDataComparison::kGreater>;
using FloatGreaterOrEqualQuery =
    MetaDataComparisonQuery<float, MetaDataComparison::kGreaterOrEqual>;
using FloatLessQuery = MetaDataComparisonQuery<float, MetaDataComparison::kLess>;
using FloatLessOrEqualQuery = MetaDataComparisonQuery<float, MetaDataComparison::kLessOrEqual>;
using FloatNotEqualQuery = MetaDataComparisonQuery<float, MetaDataComparison::kNotEqual>;

using DoubleEqualQuery = MetaDataComparisonQuery<double, MetaDataComparison::kEqual>;
using DoubleGreaterQuery = MetaDataComparisonQuery<double, MetaDataComparison::kGreater>;
using DoubleGreaterOrEqualQuery =
    MetaDataComparisonQuery<double, MetaDataComparison::kGreaterOrEqual>;
using DoubleLessQuery = MetaDataComparisonQuery<double, MetaDataComparison::kLess>;
using DoubleLessOrEqualQuery = MetaDataComparisonQuery<double, MetaDataComparison::kLessOrEqual>;
using DoubleNotEqualQuery = MetaDataComparisonQuery<double, MetaDataComparison::kNotEqual>;

using StringEqualQuery = MetaDataComparisonQuery<std::string, MetaDataComparison::kEqual>;
using StringGreaterQuery = MetaDataComparisonQuery<std::string, MetaDataComparison::kGreater>;
using StringGreaterOrEqualQuery =
    MetaDataComparisonQuery<std::string, MetaDataComparison::kGreaterOrEqual>;
using StringLessQuery = MetaDataComparisonQuery<std::string, MetaDataComparison::kLess>;
using StringLessOrEqualQuery =
    MetaDataComparisonQuery<std::string, MetaDataComparison::kLessOrEqual>;
using StringNotEqualQuery = MetaDataComparisonQuery<std::string, MetaDataComparison::kNotEqual>;
