#include "OOCPointCloudTarn/query/ExpressionAccumulator.h"

#include <OOCPointCloud/GeometricQueries.h>

#include <cassert>
#include <new>
#include <string_view>
#include <utility>

#include "OOCPointCloudTarn/query/MetaDataComparisonQuery.h"

namespace {

using Operator = OOCPCIQuery::BitwiseOperator;

/// Queries made from a text carry this as their own operator, whatever joins them.
constexpr Operator kOwnOperator = Operator::kAnd;

/// A query, or null when there is no memory for it.
template <typename Query, typename... Arguments>
[[nodiscard]] Query* TryNew(Arguments&&... arguments) {
  return new (std::nothrow) Query(std::forward<Arguments>(arguments)...);
}

/// A comparison, or null when there is no memory for it. The name is taken with all its bytes.
template <typename T, MetaDataComparison kComparison>
std::unique_ptr<OOCPCIQuery> Make(const std::string& name, const T& value) {
  std::vector<QelUnicodeString> names{QelUnicodeString(std::string_view(name))};
  return std::unique_ptr<OOCPCIQuery>(
      TryNew<MetaDataComparisonQuery<T, kComparison>>(std::move(names), value, kOwnOperator));
}

/// The query of a comparison code, or null when there is no such comparison or no memory.
template <typename T>
std::unique_ptr<OOCPCIQuery> MakeComparison(const ComparisonClause<T>& clause) {
  switch (static_cast<MetaDataComparison>(clause.code)) {
    case MetaDataComparison::kEqual:
      return Make<T, MetaDataComparison::kEqual>(clause.name, clause.value);
    case MetaDataComparison::kGreater:
      return Make<T, MetaDataComparison::kGreater>(clause.name, clause.value);
    case MetaDataComparison::kGreaterOrEqual:
      return Make<T, MetaDataComparison::kGreaterOrEqual>(clause.name, clause.value);
    case MetaDataComparison::kLess:
      return Make<T, MetaDataComparison::kLess>(clause.name, clause.value);
    case MetaDataComparison::kLessOrEqual:
      return Make<T, MetaDataComparison::kLessOrEqual>(clause.name, clause.value);
    case MetaDataComparison::kNotEqual:
      return Make<T, MetaDataComparison::kNotEqual>(clause.name, clause.value);
  }
  return nullptr;
}

float Narrow(double number) { return static_cast<float>(number); }

}  // namespace

TarOOCExpressionAccumulator::TarOOCExpressionAccumulator(
    std::vector<OOCPCQueryExpressionError*>* errorList,
    std::unique_ptr<OOCPCQueryReversePolishExpression> newExpression, TarnOOCPointCloud* cloud)
    : errors(errorList), expression(std::move(newExpression)), pointCloud(cloud) {}

TarOOCExpressionAccumulator::~TarOOCExpressionAccumulator() = default;

void TarOOCExpressionAccumulator::PushAnd() { expression->PushBackOperator(Operator::kAnd); }
void TarOOCExpressionAccumulator::PushOr() { expression->PushBackOperator(Operator::kOr); }
void TarOOCExpressionAccumulator::PushXor() { expression->PushBackOperator(Operator::kXor); }
void TarOOCExpressionAccumulator::PushNot() { expression->PushBackOperator(Operator::kNot); }

void TarOOCExpressionAccumulator::PushAllPoints() {
  expression->PushBackOperand(TryNew<OOCPCAllPointsQuery>(kOwnOperator));
}

void TarOOCExpressionAccumulator::PushNoPoints() {
  expression->PushBackOperand(TryNew<OOCPCNoPointsQuery>(kOwnOperator));
}

void TarOOCExpressionAccumulator::PushSphere(const std::vector<double>& numbers) {
  assert(numbers.size() == 4);
  const float centre[3] = {Narrow(numbers[0]), Narrow(numbers[1]), Narrow(numbers[2])};
  expression->PushBackOperand(
      TryNew<OOCPCInsideSphereQuery>(kOwnOperator, centre, Narrow(numbers[3])));
}

void TarOOCExpressionAccumulator::PushBox(const std::vector<double>& numbers) {
  assert(numbers.size() == 6);
  const float first[3] = {Narrow(numbers[0]), Narrow(numbers[1]), Narrow(numbers[2])};
  const float second[3] = {Narrow(numbers[3]), Narrow(numbers[4]), Narrow(numbers[5])};
  expression->PushBackOperand(TryNew<OOCPCInsideBoxQuery>(kOwnOperator, first, second));
}

void TarOOCExpressionAccumulator::Push2DBox(const std::vector<double>& numbers) {
  assert(numbers.size() == 4);
  const double first[2] = {numbers[0], numbers[1]};
  const double second[2] = {numbers[2], numbers[3]};
  expression->PushBackOperand(TryNew<OOCPCInside2DBoxQuery>(kOwnOperator, first, second));
}

void TarOOCExpressionAccumulator::PushFrustum(const std::vector<double>& numbers) {
  assert(numbers.size() == 24);
  float planes[6][4];
  for (std::size_t i = 0; i < 24; ++i) planes[i / 4][i % 4] = Narrow(numbers[i]);
  expression->PushBackOperand(TryNew<OOCPCInsideFrustumQuery>(kOwnOperator, planes));
}

void TarOOCExpressionAccumulator::PushMeshPlaceholder() {
  OOCPCIQuery* const query = TryNew<OOCPCAllPointsQuery>(kOwnOperator);
  if (query != nullptr) expression->PushBackOperand(query);
}

template <typename T>
void TarOOCExpressionAccumulator::PushComparison(const ComparisonClause<T>& clause) {
  std::unique_ptr<OOCPCIQuery> query = MakeComparison(clause);
  if (query != nullptr) expression->PushBackOperand(query.release());
}

// The values keep their order: a range whose first value exceeds its second selects nothing.
template <typename T>
void TarOOCExpressionAccumulator::PushRange(const RangeClause<T>& clause) {
  std::unique_ptr<OOCPCIQuery> lower;
  std::unique_ptr<OOCPCIQuery> upper;
  if (clause.code == 0) {
    lower = Make<T, MetaDataComparison::kGreater>(clause.name, clause.first);
    upper = Make<T, MetaDataComparison::kLess>(clause.name, clause.second);
  } else if (clause.code == 1) {
    lower = Make<T, MetaDataComparison::kGreaterOrEqual>(clause.name, clause.first);
    upper = Make<T, MetaDataComparison::kLessOrEqual>(clause.name, clause.second);
  } else {
    return;
  }
  if (lower == nullptr || upper == nullptr) return;
  expression->PushBackOperand(lower.release());
  expression->PushBackOperand(upper.release());
  PushAnd();
}

void TarOOCExpressionAccumulator::PushIntComparison(const ComparisonClause<std::int32_t>& clause) {
  PushComparison(clause);
}
void TarOOCExpressionAccumulator::PushIntRange(const RangeClause<std::int32_t>& clause) {
  PushRange(clause);
}
void TarOOCExpressionAccumulator::PushUInt8Comparison(
    const ComparisonClause<std::uint8_t>& clause) {
  PushComparison(clause);
}
void TarOOCExpressionAccumulator::PushUInt8Range(const RangeClause<std::uint8_t>& clause) {
  PushRange(clause);
}
void TarOOCExpressionAccumulator::PushFloatComparison(const ComparisonClause<float>& clause) {
  PushComparison(clause);
}
void TarOOCExpressionAccumulator::PushFloatRange(const RangeClause<float>& clause) {
  PushRange(clause);
}
void TarOOCExpressionAccumulator::PushDoubleComparison(const ComparisonClause<double>& clause) {
  PushComparison(clause);
}
void TarOOCExpressionAccumulator::PushDoubleRange(const RangeClause<double>& clause) {
  PushRange(clause);
}
void TarOOCExpressionAccumulator::PushStringComparison(
    const ComparisonClause<std::string>& clause) {
  PushComparison(clause);
}
