// A query text made ready to be asked of the points of a cloud.
#include "host/select/BoundQuery.h"

#include <algorithm>

#include "host/select/QueryReading.h"

namespace tarnhost {

namespace {

/// Bounds of what is laid out at once. Index times stride stays far below 2^32, where the
/// evaluator's product would wrap, however long the records of a cloud with long strings are.
constexpr std::uint32_t kRecordsAtOnce = 4096;
constexpr std::uint32_t kRecordBytesAtOnce = 1u << 22;

}  // namespace

Outcome BoundQuery::Open(Cloud& cloud, const QueryRequest& request,
                         std::unique_ptr<BoundQuery>& query) {
  std::unique_ptr<BoundQuery> opened(new BoundQuery(cloud));
  Outcome outcome = opened->Prepare(request);
  if (outcome.Ok()) query = std::move(opened);
  return outcome;
}

Outcome BoundQuery::Prepare(const QueryRequest& request) {
  std::vector<RecordField> fields;
  Outcome outcome = ReadQuery(cloud_, request, NameTypes::kOnePerName, fields, expression_);
  if (outcome.Ok()) outcome = PointRecords::Open(cloud_, std::move(fields), records_);
  if (!outcome.Ok()) return outcome;
  return Bind();
}

Outcome BoundQuery::Bind() {
  OOCPCBooleanAST* tree = expression_.GetBooleanAST();
  classifier_.emplace(*tree);
  evaluator_.emplace(&cloud_.GetPointCloud(), tree);
  HRESULT code = evaluator_->CompleteMetaDatas(tree);
  if (!oocpc::Failed(code)) {
    code = evaluator_->CompleteBufferMetaDatas(records_.GetNames(), records_.GetSizes(),
                                               records_.GetOffsets());
  }
  if (!oocpc::Failed(code)) code = evaluator_->InitializeQueries();
  return oocpc::Failed(code) ? Outcome::FromCode(code) : Outcome::Success();
}

Outcome BoundQuery::TestNode(const OOCPCOctreeAcceleratorNode& node,
                             std::vector<std::uint32_t>& selected) {
  if (Outcome outcome = records_.ReadNode(node); !outcome.Ok()) return outcome;
  Test(node.ownPointCount, selected);
  return Outcome::Success();
}

Outcome BoundQuery::TestRange(const PointRange& points, std::vector<std::uint32_t>& selected) {
  if (Outcome outcome = records_.ReadRange(points); !outcome.Ok()) return outcome;
  Test(points.count, selected);
  return Outcome::Success();
}

void BoundQuery::Test(std::uint32_t count, std::vector<std::uint32_t>& selected) {
  selected.clear();
  const std::uint32_t most =
      std::clamp(kRecordBytesAtOnce / records_.GetStride(), 1u, kRecordsAtOnce);
  for (std::uint32_t first = 0; first < count;) {
    const std::uint32_t laidOut = std::min(most, count - first);
    const char* records = records_.Fill(first, laidOut);
    for (std::uint32_t i = 0; i < laidOut; ++i) {
      if (evaluator_->EvaluateExpression(records, i, records_.GetStride())) {
        selected.push_back(first + i);
      }
    }
    first += laidOut;
  }
}

}  // namespace tarnhost
