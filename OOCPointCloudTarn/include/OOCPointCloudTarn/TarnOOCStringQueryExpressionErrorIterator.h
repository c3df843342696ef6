// Walks over what was wrong with a query text.
#pragma once

#include <OOCPointCloud/OOCPCQueryExpression.h>

#include <vector>

/// The error iterator of TarnOOCStringQueryExpression. There is one record for a failed
/// computation: code 0, and as text the part of the query text that could not be parsed. Ownership
/// and thread safety as the base.
class TarnOOCStringQueryExpressionErrorIterator : public OOCPCQueryExpressionErrorIterator {
 public:
  /// Takes the records over.
  explicit TarnOOCStringQueryExpressionErrorIterator(
      const std::vector<OOCPCQueryExpressionError*>& errors)
      : OOCPCQueryExpressionErrorIterator(errors) {}
  /// A deep copy, position included.
  explicit TarnOOCStringQueryExpressionErrorIterator(const OOCPCQueryExpressionErrorIterator& other)
      : OOCPCQueryExpressionErrorIterator(other) {}
  ~TarnOOCStringQueryExpressionErrorIterator() override = default;
};
