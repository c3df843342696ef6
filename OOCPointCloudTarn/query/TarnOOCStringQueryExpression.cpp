#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "OOCPointCloudTarn/query/ExpressionAccumulator.h"
#include "OOCPointCloudTarn/query/QueryGrammar.h"

namespace {

using Iterator = std::string::const_iterator;

Iterator SkipWhiteSpace(Iterator position, Iterator end) {
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  return std::find_if_not(position, end, [kWhiteSpace](char byte) {
    return kWhiteSpace.find(byte) != std::string_view::npos;
  });
}

/// The errors of one computation, and their owner until an iterator takes them over.
struct ErrorList {
  ErrorList() = default;
  ErrorList(const ErrorList&) = delete;
  ErrorList& operator=(const ErrorList&) = delete;
  ~ErrorList() {
    for (const OOCPCQueryExpressionError* const error : errors) delete error;
  }

  void Add(std::string text) {
    auto error = std::make_unique<OOCPCQueryExpressionError>(0, std::move(text));
    errors.push_back(error.get());
    static_cast<void>(error.release());
  }
  [[nodiscard]] TarnOOCStringQueryExpressionErrorIterator* MakeIterator() {
    auto* const iterator = new TarnOOCStringQueryExpressionErrorIterator(errors);
    errors.clear();
    return iterator;
  }

  std::vector<OOCPCQueryExpressionError*> errors;
};

}  // namespace

TarnOOCStringQueryExpression::TarnOOCStringQueryExpression() = default;

// The base copies the iterator as its own kind; GetErrorIterator promises ours.
TarnOOCStringQueryExpression::TarnOOCStringQueryExpression(
    const TarnOOCStringQueryExpression& other)
    : OOCPCIQueryExpression(other),
      inputString_(other.inputString_),
      pointCloud_(other.pointCloud_) {
  if (errorIterator != nullptr) {
    SetErrorIterator(new TarnOOCStringQueryExpressionErrorIterator(*errorIterator));
  }
}

TarnOOCStringQueryExpression& TarnOOCStringQueryExpression::operator=(
    const TarnOOCStringQueryExpression& other) {
  if (this == &other) return *this;
  OOCPCIQueryExpression::operator=(other);
  if (errorIterator != nullptr) {
    SetErrorIterator(new TarnOOCStringQueryExpressionErrorIterator(*errorIterator));
  }
  inputString_ = other.inputString_;
  pointCloud_ = other.pointCloud_;
  return *this;
}

TarnOOCStringQueryExpression::~TarnOOCStringQueryExpression() { pointCloud_ = nullptr; }

void TarnOOCStringQueryExpression::SetInputString(const std::string& text) { inputString_ = text; }

void TarnOOCStringQueryExpression::SetPointCloud(TarnOOCPointCloud* pointCloud) {
  pointCloud_ = pointCloud;
}

TarnOOCStringQueryExpressionErrorIterator* TarnOOCStringQueryExpression::GetErrorIterator() {
  return static_cast<TarnOOCStringQueryExpressionErrorIterator*>(errorIterator);
}

HRESULT TarnOOCStringQueryExpression::ComputeBooleanAST() {
  ErrorList list;
  TarOOCExpressionAccumulator accumulator(
      &list.errors, std::make_unique<OOCPCQueryReversePolishExpression>(), pointCloud_);
  Iterator position = inputString_.begin();
  const bool parsed = tarn::ParseQuery(inputString_, accumulator, position);
  if (parsed) position = SkipWhiteSpace(position, inputString_.end());

  HRESULT result = oocpc::result::kFail;
  if (!parsed || position != inputString_.end()) {
    list.Add(std::string(position, Iterator(inputString_.end())));
  } else if (accumulator.status < 0) {
    accumulator.expression->ReleaseOperands();
    result = accumulator.status;
  } else {
    result = accumulator.expression->ComputeBooleanAST();
    const OOCPCBooleanAST* const tree = accumulator.expression->GetBooleanAST();
    SetBooleanAST(tree == nullptr ? nullptr : tree->Clone());
  }
  if (!list.errors.empty()) SetErrorIterator(list.MakeIterator());
  return result;
}
