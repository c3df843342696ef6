// Errors of a query text, the iterator over them, and the base of objects that compute a tree.
#include <OOCPointCloud/OOCPCQueryExpression.h>

#include <utility>

OOCPCQueryExpressionError::OOCPCQueryExpressionError(std::int32_t code, std::string text)
    : code_(code), text_(std::move(text)) {}

OOCPCQueryExpressionError::~OOCPCQueryExpressionError() = default;

OOCPCQueryExpressionErrorIterator::OOCPCQueryExpressionErrorIterator(
    const std::vector<OOCPCQueryExpressionError*>& errors) {
  errors_.reserve(errors.size());
  for (OOCPCQueryExpressionError* const error : errors) {
    if (error != nullptr) errors_.emplace_back(error);
  }
}

OOCPCQueryExpressionErrorIterator::OOCPCQueryExpressionErrorIterator(
    const OOCPCQueryExpressionErrorIterator& other)
    : next_(other.next_) {
  errors_.reserve(other.errors_.size());
  for (const auto& error : other.errors_) {
    errors_.push_back(std::make_unique<OOCPCQueryExpressionError>(*error));
  }
}

OOCPCQueryExpressionErrorIterator::~OOCPCQueryExpressionErrorIterator() = default;

const OOCPCQueryExpressionError* OOCPCQueryExpressionErrorIterator::Next() {
  return next_ < errors_.size() ? errors_[next_++].get() : nullptr;
}

OOCPCIQueryExpression::OOCPCIQueryExpression() = default;

OOCPCIQueryExpression::OOCPCIQueryExpression(const OOCPCIQueryExpression& other) { *this = other; }

OOCPCIQueryExpression& OOCPCIQueryExpression::operator=(const OOCPCIQueryExpression& other) {
  if (this == &other) return *this;
  booleanAST = nullptr;
  errorIterator = nullptr;
  ownedTrees_.clear();
  ownedIterators_.clear();
  if (other.booleanAST != nullptr) SetBooleanAST(other.booleanAST->Clone());
  if (other.errorIterator != nullptr) {
    SetErrorIterator(new OOCPCQueryExpressionErrorIterator(*other.errorIterator));
  }
  return *this;
}

OOCPCIQueryExpression::~OOCPCIQueryExpression() = default;

OOCPCBooleanAST* OOCPCIQueryExpression::GetBooleanAST() { return booleanAST; }

OOCPCQueryExpressionErrorIterator* OOCPCIQueryExpression::GetErrorIterator() {
  return errorIterator;
}

void OOCPCIQueryExpression::SetBooleanAST(OOCPCBooleanAST* tree) {
  booleanAST = tree;
  if (tree != nullptr) ownedTrees_.emplace_back(tree);
}

void OOCPCIQueryExpression::SetErrorIterator(OOCPCQueryExpressionErrorIterator* iterator) {
  errorIterator = iterator;
  if (iterator != nullptr) ownedIterators_.emplace_back(iterator);
}
