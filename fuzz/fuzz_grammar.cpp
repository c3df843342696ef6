// Any text as a query: parsing must not crash; a text that parses makes a tree that walks, copies
// and evaluates; one that does not parse names a tail of itself.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <memory>
#include <string>
#include <vector>

namespace {

void Require(bool holds) {
  if (!holds) __builtin_trap();
}

/// The evaluator asks of a point cloud only whether there is one.
TarnOOCPointCloud* AnyPointCloud() {
  alignas(64) static char place[64];
  return reinterpret_cast<TarnOOCPointCloud*>(place);
}

/// Binds each name to the whole of a small zeroed record, and tests it.
bool Evaluate(OOCPCBooleanAST* tree) {
  TarnOOCBooleanExpressionEvaluator evaluator(AnyPointCloud(), tree);
  Require(evaluator.CompleteMetaDatas(tree) == oocpc::result::kOk);
  std::vector<std::string> names;
  evaluator.GetMetaDatas(names);
  std::vector<unsigned> sizes(names.size(), 24);
  std::vector<unsigned> offsets(names.size(), 0);
  Require(evaluator.CompleteBufferMetaDatas(names, sizes, offsets) == oocpc::result::kOk);
  Require(evaluator.InitializeQueries() == oocpc::result::kOk);
  const std::vector<char> record(32, '\0');
  return evaluator.EvaluateExpression(record.data(), 0, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  TarnOOCStringQueryExpression expression;
  expression.SetInputString(text);
  if (expression.ComputeBooleanAST() == oocpc::result::kOk) {
    OOCPCBooleanAST* const tree = expression.GetBooleanAST();
    Require(tree != nullptr && expression.GetErrorIterator() == nullptr);
    const std::unique_ptr<OOCPCBooleanAST> copy(tree->Clone());
    Require(Evaluate(tree) == Evaluate(copy.get()));
    return 0;
  }
  Require(expression.GetBooleanAST() == nullptr && expression.GetErrorIterator() != nullptr);
  const std::string& rest = expression.GetErrorIterator()->Next()->GetText();
  Require(rest.size() <= text.size() &&
          text.compare(text.size() - rest.size(), rest.size(), rest) == 0);
  return 0;
}
