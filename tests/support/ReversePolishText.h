// Reverse-polish forms of query texts written out as text, for tables of cases.
#pragma once

#include <OOCPointCloud/GeometricQueries.h>
#include <OOCPointCloud/OOCPCQueryExpression.h>

#include <charconv>
#include <string>

#include "OOCPointCloudTarn/query/ComparisonDescription.h"
#include "OOCPointCloudTarn/query/ExpressionAccumulator.h"
#include "OOCPointCloudTarn/query/QueryGrammar.h"

namespace oocpctest {

/// The shortest text that reads back as the number.
template <typename T>
std::string Written(T number) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

template <typename Range>
std::string WrittenList(const Range& numbers) {
  std::string text;
  for (const auto number : numbers) text += (text.empty() ? "" : ",") + Written(number);
  return text;
}

inline std::string Written(const ComparisonDescription& comparison) {
  static constexpr const char* kSigns[] = {"==", ">", ">=", "<", "<=", "!="};
  struct Value {
    std::string operator()(const std::string& text) const { return "'" + text + "'"; }
    std::string operator()(std::uint8_t number) const { return oocpctest::Written(int{number}); }
    std::string operator()(std::int32_t number) const { return oocpctest::Written(number); }
    std::string operator()(float number) const { return oocpctest::Written(number); }
    std::string operator()(double number) const { return oocpctest::Written(number); }
  };
  return std::string(comparison.GetTypeWord()) + "[" + comparison.name +
         kSigns[static_cast<std::size_t>(comparison.comparison)] +
         std::visit(Value{}, comparison.value) + "]";
}

inline std::string WrittenQuery(const OOCPCIQuery& query) {
  if (dynamic_cast<const OOCPCAllPointsQuery*>(&query) != nullptr) return "all";
  if (dynamic_cast<const OOCPCNoPointsQuery*>(&query) != nullptr) return "none";
  if (const auto* const sphere = dynamic_cast<const OOCPCInsideSphereQuery*>(&query)) {
    return "sphere[" + WrittenList(sphere->GetCentre()) + ";" + Written(sphere->GetRadius()) + "]";
  }
  if (const auto* const box = dynamic_cast<const OOCPCInsideBoxQuery*>(&query)) {
    return "box[" + WrittenList(box->GetFirst()) + ";" + WrittenList(box->GetSecond()) + "]";
  }
  if (const auto* const box = dynamic_cast<const OOCPCInside2DBoxQuery*>(&query)) {
    return "2dbox[" + WrittenList(box->GetFirst()) + ";" + WrittenList(box->GetSecond()) + "]";
  }
  if (const auto* const frustum = dynamic_cast<const OOCPCInsideFrustumQuery*>(&query)) {
    std::string text;
    for (const auto& plane : frustum->GetPlanes()) {
      text += (text.empty() ? "" : ";") + WrittenList(plane);
    }
    return "frustum[" + text + "]";
  }
  const auto comparison = DescribeComparison(query);
  return comparison ? Written(*comparison) : "unknown";
}

/// Operands and operators with blanks between them.
inline std::string WrittenForm(const OOCPCQueryReversePolishExpression& form) {
  static constexpr const char* kOperators[] = {"and", "or", "xor", "not"};
  std::string text;
  for (const auto& element : form.GetElements()) {
    if (!text.empty()) text += ' ';
    if (const auto* const query = std::get_if<std::shared_ptr<OOCPCIQuery>>(&element)) {
      text += WrittenQuery(**query);
    } else {
      text += kOperators[static_cast<std::size_t>(std::get<OOCPCIQuery::BitwiseOperator>(element))];
    }
  }
  return text;
}

}  // namespace oocpctest
