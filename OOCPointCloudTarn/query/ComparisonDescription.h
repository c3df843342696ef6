// What a metadata comparison asks, as plain data: for messages, plans and tests.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"

struct ComparisonDescription {
  using Value = std::variant<std::uint8_t, std::int32_t, float, double, std::string>;

  std::string name;  ///< bytes of the metadata's name
  MetaDataComparison comparison = MetaDataComparison::kEqual;
  Value value;  ///< its alternative tells the kind

  /// The word that the query language has for the kind of `value`.
  [[nodiscard]] const char* GetTypeWord() const {
    static constexpr const char* kWords[] = {"uint8_t", "int", "float", "double", "string"};
    return kWords[value.index()];
  }
};

namespace comparison_detail {

template <typename T, MetaDataComparison kComparison>
bool DescribeAs(const OOCPCIQuery& query, ComparisonDescription& out) {
  const auto* comparison = dynamic_cast<const MetaDataComparisonQuery<T, kComparison>*>(&query);
  if (comparison == nullptr) return false;
  out = {query.GetMetaName(0).ConvertToChar(), kComparison, comparison->GetValue()};
  return true;
}

template <typename T>
bool DescribeKind(const OOCPCIQuery& query, ComparisonDescription& out) {
  return DescribeAs<T, MetaDataComparison::kEqual>(query, out) ||
         DescribeAs<T, MetaDataComparison::kGreater>(query, out) ||
         DescribeAs<T, MetaDataComparison::kGreaterOrEqual>(query, out) ||
         DescribeAs<T, MetaDataComparison::kLess>(query, out) ||
         DescribeAs<T, MetaDataComparison::kLessOrEqual>(query, out) ||
         DescribeAs<T, MetaDataComparison::kNotEqual>(query, out);
}

}  // namespace comparison_detail

/// The description of one of the thirty comparisons; nothing for any other query.
[[nodiscard]] inline std::optional<ComparisonDescription> DescribeComparison(
    const OOCPCIQuery& query) {
  using namespace comparison_detail;
  ComparisonDescription out;
  if (DescribeKind<std::uint8_t>(query, out) || DescribeKind<std::int32_t>(query, out) ||
      DescribeKind<float>(query, out) || DescribeKind<double>(query, out) ||
      DescribeKind<std::string>(query, out)) {
    return out;
  }
  return std::nullopt;
}
