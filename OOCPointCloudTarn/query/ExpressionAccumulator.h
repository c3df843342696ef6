// What the grammar's actions do: make query objects and append them, and operators, to a
// reverse-polish expression.
#pragma once

#include <OOCPointCloud/OOCPCQueryExpression.h>

#include <memory>
#include <string>
#include <vector>

class TarnOOCPointCloud;

/// One value compared with a metadata: name, comparison code, value.
template <typename T>
struct ComparisonClause {
  std::string name;
  int code = 0;
  T value{};
};

/// Two values between which a metadata lies: name, range code (0 open, 1 closed), values.
template <typename T>
struct RangeClause {
  std::string name;
  int code = 0;
  T first{};
  T second{};
};

/// Serves one parse on one thread. Codes out of range append nothing; no action reports an error:
/// a form that does not balance is found when its tree is computed.
///
/// When there is no memory for a query object, the constants and shapes append a null operand; the
/// mesh clauses and comparisons append nothing, and so does a range unless it has both its objects.
/// Names, texts and the form's own list may throw std::bad_alloc.
class TarOOCExpressionAccumulator {
 public:
  /// Takes `newExpression` over; the error list and the point cloud stay the caller's.
  TarOOCExpressionAccumulator(std::vector<OOCPCQueryExpressionError*>* errorList,
                              std::unique_ptr<OOCPCQueryReversePolishExpression> newExpression,
                              TarnOOCPointCloud* cloud);
  TarOOCExpressionAccumulator(const TarOOCExpressionAccumulator&) = delete;
  TarOOCExpressionAccumulator& operator=(const TarOOCExpressionAccumulator&) = delete;
  virtual ~TarOOCExpressionAccumulator();

  void PushAnd();
  void PushOr();
  void PushXor();
  void PushNot();

  void PushAllPoints();
  void PushNoPoints();
  /// Numbers in text order; there must be 4, 6, 4 and 24 of them. Spheres, boxes and frustums keep
  /// them as floats.
  void PushSphere(const std::vector<double>& numbers);
  void PushBox(const std::vector<double>& numbers);
  void Push2DBox(const std::vector<double>& numbers);
  void PushFrustum(const std::vector<double>& numbers);
  /// For the mesh clauses, which select every point: neither name nor flag is used.
  void PushMeshPlaceholder();

  void PushIntComparison(const ComparisonClause<std::int32_t>& clause);
  void PushIntRange(const RangeClause<std::int32_t>& clause);
  void PushUInt8Comparison(const ComparisonClause<std::uint8_t>& clause);
  void PushUInt8Range(const RangeClause<std::uint8_t>& clause);
  void PushFloatComparison(const ComparisonClause<float>& clause);
  void PushFloatRange(const RangeClause<float>& clause);
  void PushDoubleComparison(const ComparisonClause<double>& clause);
  void PushDoubleRange(const RangeClause<double>& clause);
  void PushStringComparison(const ComparisonClause<std::string>& clause);

  HRESULT status = 0;  ///< negative: the expression is to be thrown away
  std::vector<OOCPCQueryExpressionError*>* errors;
  std::unique_ptr<OOCPCQueryReversePolishExpression> expression;
  TarnOOCPointCloud* pointCloud;

 private:
  template <typename T>
  void PushComparison(const ComparisonClause<T>& clause);
  template <typename T>
  void PushRange(const RangeClause<T>& clause);
};
