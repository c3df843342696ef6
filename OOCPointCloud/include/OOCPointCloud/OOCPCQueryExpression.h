// From operands and operators to a tree: the reverse-polish expression, errors, expression objects.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <memory>
#include <string>
#include <variant>
#include <vector>

/// Operands and operators in reverse-polish order, and the tree that they make.
/// Owns its operands until a tree has taken them over. One thread at a time.
class OOCPOINTCLOUD_API OOCPCQueryReversePolishExpression {
 public:
  /// One step: an operand, or an operator on the operands before it.
  using Element = std::variant<std::shared_ptr<OOCPCIQuery>, OOCPCIQuery::BitwiseOperator>;

  OOCPCQueryReversePolishExpression();
  OOCPCQueryReversePolishExpression(const OOCPCQueryReversePolishExpression&) = delete;
  OOCPCQueryReversePolishExpression& operator=(const OOCPCQueryReversePolishExpression&) = delete;
  virtual ~OOCPCQueryReversePolishExpression();

  /// Takes the query over; null is kept and makes the form unbalanced.
  void PushBackOperand(OOCPCIQuery* query);
  void PushBackOperator(OOCPCIQuery::BitwiseOperator op);
  /// Drops everything that was pushed.
  void ReleaseOperands();
  [[nodiscard]] const std::vector<Element>& GetElements() const { return elements_; }

  /// Builds the tree. 0, or kFail and no tree when the form is empty, does not balance, or holds a
  /// null operand or an unknown operator.
  [[nodiscard]] HRESULT ComputeBooleanAST();
  /// The tree of the last ComputeBooleanAST, or null. Owned by this object.
  [[nodiscard]] OOCPCBooleanAST* GetBooleanAST() const { return tree_.get(); }

 private:
  std::vector<Element> elements_;
  std::unique_ptr<OOCPCBooleanAST> tree_;
};

/// One error in a query text.
class OOCPOINTCLOUD_API OOCPCQueryExpressionError {
 public:
  OOCPCQueryExpressionError(std::int32_t code, std::string text);
  virtual ~OOCPCQueryExpressionError();
  OOCPCQueryExpressionError(const OOCPCQueryExpressionError&) = default;
  OOCPCQueryExpressionError& operator=(const OOCPCQueryExpressionError&) = default;

  [[nodiscard]] std::int32_t GetCode() const { return code_; }
  /// The part of the query text that the error is about.
  [[nodiscard]] const std::string& GetText() const { return text_; }

 private:
  std::int32_t code_;
  std::string text_;
};

/// Walks over errors from first to last. Owns the records. Copies are deep.
class OOCPOINTCLOUD_API OOCPCQueryExpressionErrorIterator {
 public:
  /// Takes the records over.
  explicit OOCPCQueryExpressionErrorIterator(const std::vector<OOCPCQueryExpressionError*>& errors);
  OOCPCQueryExpressionErrorIterator(const OOCPCQueryExpressionErrorIterator& other);
  OOCPCQueryExpressionErrorIterator& operator=(const OOCPCQueryExpressionErrorIterator&) = delete;
  virtual ~OOCPCQueryExpressionErrorIterator();

  /// The next error, or null after the last. Owned by the iterator.
  [[nodiscard]] const OOCPCQueryExpressionError* Next();
  /// Back to before the first error.
  void Rewind() { next_ = 0; }
  [[nodiscard]] std::size_t GetCount() const { return errors_.size(); }

 private:
  std::vector<std::unique_ptr<OOCPCQueryExpressionError>> errors_;
  std::size_t next_ = 0;
};

/// Base of objects that make a tree out of some notation.
///
/// Ownership: owns the tree and the error iterator that it shows, and also those that later
/// computations replaced: pointers it gave out stay valid until it is destroyed or assigned to.
/// Copies are deep copies of the current tree and iterator.
class OOCPOINTCLOUD_API OOCPCIQueryExpression {
 public:
  OOCPCIQueryExpression();
  OOCPCIQueryExpression(const OOCPCIQueryExpression& other);
  OOCPCIQueryExpression& operator=(const OOCPCIQueryExpression& other);
  virtual ~OOCPCIQueryExpression();

  [[nodiscard]] virtual HRESULT ComputeBooleanAST() = 0;
  /// The tree of the last successful computation, or null.
  [[nodiscard]] virtual OOCPCBooleanAST* GetBooleanAST();
  /// The errors of the last failed computation, or null.
  [[nodiscard]] virtual OOCPCQueryExpressionErrorIterator* GetErrorIterator();

 protected:
  /// Makes `tree` (null allowed) the current tree and takes it over.
  void SetBooleanAST(OOCPCBooleanAST* tree);
  /// Makes `iterator` the current error iterator and takes it over.
  void SetErrorIterator(OOCPCQueryExpressionErrorIterator* iterator);

  OOCPCBooleanAST* booleanAST = nullptr;
  OOCPCQueryExpressionErrorIterator* errorIterator = nullptr;

 private:
  std::vector<std::unique_ptr<OOCPCBooleanAST>> ownedTrees_;
  std::vector<std::unique_ptr<OOCPCQueryExpressionErrorIterator>> ownedIterators_;
};
