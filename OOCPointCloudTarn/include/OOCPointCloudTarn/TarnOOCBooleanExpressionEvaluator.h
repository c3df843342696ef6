// Tests point records against a boolean expression tree.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>
#include <OOCPointCloudTarn/Export.h>

#include <string>
#include <vector>

class TarnOOCPointCloud;

/// Answers, record by record, whether a point satisfies an expression.
///
/// The host and the evaluator first agree on what a record looks like: CompleteMetaDatas collects
/// the names that the tree reads, GetMetaDatas hands them out, CompleteBufferMetaDatas states where
/// each lies in a record, InitializeQueries binds the leaves to that layout. Then
/// EvaluateExpression may be called any number of times; it allocates nothing.
///
/// Ownership: tree and point cloud stay the caller's and must outlive the evaluator's calls; the
/// bindings belong to the tree's leaves. Copies refer to the same tree and point cloud. Thread
/// safety: none; the bindings are scratch space, so one tree is served by one thread at a time.
/// Different trees are independent.
class OOCPOINTCLOUDTARN_API TarnOOCBooleanExpressionEvaluator {
 public:
  /// The point cloud is only ever tested for null: without one every expression is false.
  TarnOOCBooleanExpressionEvaluator(TarnOOCPointCloud* cloud, OOCPCBooleanAST* ast);
  TarnOOCBooleanExpressionEvaluator(const TarnOOCBooleanExpressionEvaluator& other);
  TarnOOCBooleanExpressionEvaluator& operator=(const TarnOOCBooleanExpressionEvaluator& other);
  virtual ~TarnOOCBooleanExpressionEvaluator();

  /// Adds the names that the leaves under `node` read to those collected before, each once, in the
  /// order of a walk from left to right. The failed and successful parts' codes are combined by
  /// bitwise or: 0, 1 where the tree holds a constant, 0x80004005 where it is malformed (a null
  /// node or operand, a node of no known kind, a leaf without a query). The walk goes on after a
  /// failure.
  HRESULT CompleteMetaDatas(OOCPCBooleanAST* node);

  /// Makes `names` the names collected so far, in first-seen order.
  void GetMetaDatas(std::vector<std::string>& names) const;

  /// States the record layout: for each name its size and its offset in a record, in bytes; of a
  /// name given twice the first counts. 0x80004005, and the layout stays as it was, when the three
  /// differ in length. Takes effect with the next InitializeQueries.
  HRESULT CompleteBufferMetaDatas(std::vector<std::string> names, std::vector<unsigned> sizes,
                                  std::vector<unsigned> offsets);

  /// Binds every leaf of the tree to the layout stated last. Codes as CompleteMetaDatas. A name
  /// that the layout lacks is bound to size 0 at the record's first byte. Each call attaches new
  /// bindings; the leaves keep the earlier ones alive too, so call it once a layout, not once a
  /// block.
  HRESULT InitializeQueries();

  /// Whether the expression holds for the record that starts a * b bytes into `records`; one factor
  /// is the point's number, the other the bytes of a record. The product is taken in 32 bits and
  /// wraps: hand over less than 4 GiB at a time. Everything that the tree reads of the record must
  /// be readable there. Malformed or unbound parts of the tree count as false.
  ///
  /// Of an operator's operands the one of smaller weight is asked first, of equals the right one.
  /// The call stack grows with the operand that is asked first alone, which is never more than half
  /// of an operator's weight: some twenty frames at most, except in trees of nothing but weightless
  /// leaves, where it may grow as deep as these nest on their right sides.
  bool EvaluateExpression(const char* records, unsigned a, unsigned b);

 protected:
  HRESULT InitializeQueries(OOCPCBooleanAST* node);
  bool EvaluateExpression(OOCPCBooleanAST* node, const char* records, unsigned a, unsigned b);

 private:
  TarnOOCPointCloud* m_pointCloud;
  OOCPCBooleanAST* m_ast;
  std::vector<std::string> m_metaDataNames;
  std::vector<std::string> m_bufferMetaDataNames;
  std::vector<unsigned> m_bufferMetaDataSizes;
  std::vector<unsigned> m_bufferMetaDataOffsets;
};
