// From a query text to a tree that fits a cloud.
#include "host/select/QueryReading.h"

#include "host/select/QueryText.h"

namespace tarnhost {

namespace result = oocpc::result;

Outcome ReadQuery(Cloud& cloud, const QueryRequest& request, NameTypes types,
                  std::vector<RecordField>& fields, TarnOOCStringQueryExpression& expression) {
  const std::string& text = request.text;
  std::vector<QueryClause> clauses;
  QueryDiagnosis diagnosis;
  if (!ReadQueryText(text, clauses, diagnosis)) {
    return Outcome::Failure(result::kQueryRejected, diagnosis.message,
                            ShowPosition(text, diagnosis.position), diagnosis.hint);
  }
  Outcome outcome = FitQueryToCloud(cloud, request, clauses, fields, types);
  if (!outcome.Ok()) return outcome;
  expression.SetPointCloud(&cloud.GetPointCloud());
  expression.SetInputString(
      request.local ? text : MoveIntoLocalFrame(text, clauses, cloud.GetFrameOffset()));
  const HRESULT code = expression.ComputeBooleanAST();
  if (oocpc::Failed(code) || expression.GetBooleanAST() == nullptr) {
    return Outcome::FromCode(oocpc::Failed(code) ? code : result::kFail, text);
  }
  return outcome;
}

}  // namespace tarnhost
