// Selects the points of a cloud that a query text describes.
#include "host/select/Select.h"

#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <algorithm>
#include <numeric>

#include "host/select/NodeClassifier.h"
#include "host/select/PointRecords.h"
#include "host/select/QueryText.h"
#include "host/select/QueryTyping.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using ClassifyResult = OOCPCIQuery::ClassifyResult;

/// Bounds of what is laid out at once. Index times stride stays far below 2^32, where the
/// evaluator's product would wrap, however long the records of a cloud with long strings are.
constexpr std::uint32_t kRecordsAtOnce = 4096;
constexpr std::uint32_t kRecordBytesAtOnce = 1u << 22;

/// One selection on its way through the octree.
class Selection {
 public:
  Selection(Cloud& cloud, SelectionSink* sink, SelectReport& report)
      : cloud_(cloud), sink_(sink), report_(report) {}

  Outcome Prepare(const SelectOptions& options) {
    std::vector<QueryClause> clauses;
    QueryDiagnosis diagnosis;
    if (!ReadQueryText(options.text, clauses, diagnosis)) {
      return Outcome::Failure(result::kQueryRejected, diagnosis.message,
                              ShowPosition(options.text, diagnosis.position), diagnosis.hint);
    }
    std::vector<RecordField> fields;
    if (Outcome outcome = FitQueryToCloud(cloud_, options.text, clauses, fields); !outcome.Ok()) {
      return outcome;
    }
    if (Outcome outcome = PointRecords::Open(cloud_, std::move(fields), records_); !outcome.Ok()) {
      return outcome;
    }
    expression_.SetPointCloud(&cloud_.GetPointCloud());
    expression_.SetInputString(
        options.local ? options.text
                      : MoveIntoLocalFrame(options.text, clauses, cloud_.GetFrameOffset()));
    const HRESULT code = expression_.ComputeBooleanAST();
    if (oocpc::Failed(code) || expression_.GetBooleanAST() == nullptr) {
      return Outcome::FromCode(oocpc::Failed(code) ? code : result::kFail, options.text);
    }
    return Bind();
  }

  Outcome Run(std::uint64_t iteration, const std::function<bool(const ProgressReport&)>& progress) {
    if (sink_ != nullptr) {
      if (Outcome outcome = sink_->Begin(cloud_); !outcome.Ok()) return outcome;
    }
    Outcome failure;
    std::uint64_t done = 0;
    Outcome walk = cloud_.WalkNodes(iteration, [&](const Node& node) {
      Descend descend = Descend::kIntoChildren;
      failure = Visit(node, descend);
      done += descend == Descend::kPastSubtree ? node.subtreePointCount : node.ownPointCount;
      if (failure.Ok() && progress && !progress({"selecting", done, report_.pointCount})) {
        failure = Outcome::FromCode(result::kStopped);
      }
      return failure.Ok() ? descend : Descend::kStop;
    });
    if (!failure.Ok()) return failure;
    if (!walk.Ok()) return walk;
    return sink_ != nullptr ? sink_->End(report_) : Outcome::Success();
  }

 private:
  Outcome Bind() {
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

  Outcome Visit(const Node& node, Descend& descend) {
    switch (classifier_->Classify(node.Describe())) {
      case ClassifyResult::kNone:
        ++report_.nodesSkipped;
        descend = Descend::kPastSubtree;
        return Outcome::Success();
      case ClassifyResult::kAll:
        return Accept(node, descend);
      case ClassifyResult::kSome:
        break;
    }
    return node.ownPointCount == 0 ? Outcome::Success() : Test(node);
  }

  Outcome Accept(const Node& node, Descend& descend) {
    ++report_.nodesAccepted;
    if (sink_ == nullptr) {
      report_.selected += node.subtreePointCount;
      descend = Descend::kPastSubtree;
      return Outcome::Success();
    }
    if (node.ownPointCount == 0) return Outcome::Success();
    points_.resize(node.ownPointCount);
    std::iota(points_.begin(), points_.end(), 0u);
    report_.selected += points_.size();
    return sink_->Consume(node, points_);
  }

  Outcome Test(const Node& node) {
    ++report_.nodesTested;
    if (Outcome outcome = records_.ReadNode(node); !outcome.Ok()) return outcome;
    points_.clear();
    const std::uint32_t most =
        std::clamp(kRecordBytesAtOnce / records_.GetStride(), 1u, kRecordsAtOnce);
    for (std::uint32_t first = 0; first < node.ownPointCount;) {
      const std::uint32_t count = std::min(most, node.ownPointCount - first);
      const char* records = records_.Fill(first, count);
      for (std::uint32_t i = 0; i < count; ++i) {
        if (evaluator_->EvaluateExpression(records, i, records_.GetStride())) {
          points_.push_back(first + i);
        }
      }
      first += count;
    }
    report_.selected += points_.size();
    if (sink_ == nullptr || points_.empty()) return Outcome::Success();
    return sink_->Consume(node, points_);
  }

  Cloud& cloud_;
  SelectionSink* sink_;
  SelectReport& report_;
  PointRecords records_;
  TarnOOCStringQueryExpression expression_;
  std::optional<NodeClassifier> classifier_;
  std::optional<TarnOOCBooleanExpressionEvaluator> evaluator_;
  std::vector<std::uint32_t> points_;
};

}  // namespace

Outcome Select(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
               SelectReport& report) {
  report = {};
  if (options.iteration) {
    report.iteration = *options.iteration;
  } else if (Outcome outcome = cloud.FindNewestIteration(report.iteration); !outcome.Ok()) {
    return outcome;
  }
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(report.iteration, record); !outcome.Ok()) {
    return outcome;
  }
  report.pointCount = record.pointCount;
  Selection selection(cloud, sink, report);
  if (Outcome outcome = selection.Prepare(options); !outcome.Ok()) return outcome;
  return selection.Run(report.iteration, options.progress);
}

}  // namespace tarnhost
