// From a query text to a boolean expression tree.
#pragma once

#include <OOCPointCloud/OOCPCQueryExpression.h>
#include <OOCPointCloudTarn/Export.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpressionErrorIterator.h>

#include <string>

class TarnOOCPointCloud;

/// A query text and the tree that it means. Set the text, call ComputeBooleanAST, then read the
/// tree with GetBooleanAST or, after a failure, the error with GetErrorIterator.
///
/// Constants of geometric clauses are in the repository's local frame. Names of metadata are not
/// looked up: a text may name metadata that no point cloud has.
///
/// Ownership: owns its trees and iterators, also those that a later computation replaced; pointers
/// to them stay valid until this object is destroyed or assigned to. The point cloud stays the
/// caller's. Copies get copies of the text, the current tree and the current iterator. Thread
/// safety: one thread at a time; separate objects are independent.
class OOCPOINTCLOUDTARN_API TarnOOCStringQueryExpression : public OOCPCIQueryExpression {
 public:
  /// Empty text, no point cloud, no tree, no errors.
  TarnOOCStringQueryExpression();
  TarnOOCStringQueryExpression(const TarnOOCStringQueryExpression& other);
  TarnOOCStringQueryExpression& operator=(const TarnOOCStringQueryExpression& other);
  ~TarnOOCStringQueryExpression() override;

  /// Parses the text and builds its tree.
  ///
  /// 0x80004005 when the text is no query, when anything but white space follows the query, or when
  /// parentheses nest deeper than 1000; the tree then stays as it was and the error iterator is
  /// new. A failure of the reverse-polish form comes back as it is and leaves no tree and the error
  /// iterator as it was; so it does when there was no memory for one of the queries. A success
  /// leaves the error iterator as it was. Throws std::bad_alloc when there is no memory for
  /// anything else.
  [[nodiscard]] HRESULT ComputeBooleanAST() override;

  /// The error of the last failed computation, or null.
  [[nodiscard]] TarnOOCStringQueryExpressionErrorIterator* GetErrorIterator() override;

  void SetInputString(const std::string& text);

  /// The point cloud that the query is meant for; null allowed.
  void SetPointCloud(TarnOOCPointCloud* pointCloud);

 private:
  std::string inputString_;
  TarnOOCPointCloud* pointCloud_ = nullptr;
};
