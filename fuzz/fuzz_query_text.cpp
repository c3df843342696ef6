// The reader of query texts accepts exactly what the grammar accepts, and what it says of a text
// that it rejects stays within that text.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/select/QueryText.h"

namespace {

void Require(bool holds) {
  if (!holds) __builtin_trap();
}

bool GrammarAccepts(const std::string& text) {
  TarnOOCStringQueryExpression expression;
  expression.SetInputString(text);
  return !oocpc::Failed(expression.ComputeBooleanAST());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::vector<tarnhost::QueryClause> clauses;
  tarnhost::QueryDiagnosis diagnosis;
  const bool accepted = tarnhost::ReadQueryText(text, clauses, diagnosis);
  Require(accepted == GrammarAccepts(text));
  if (accepted) {
    Require(GrammarAccepts(tarnhost::MoveIntoLocalFrame(text, clauses, {637000, 849000.5, -3})));
    return 0;
  }
  Require(diagnosis.position <= text.size() && !diagnosis.message.empty());
  Require(!tarnhost::ShowPosition(text, diagnosis.position).empty());
  if (diagnosis.hint.starts_with("write ")) Require(GrammarAccepts(diagnosis.hint.substr(6)));
  return 0;
}
