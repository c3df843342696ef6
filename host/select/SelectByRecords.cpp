// Selects record by record, through the evaluator that hosts call.
#include <algorithm>
#include <numeric>

#include "host/select/BoundQuery.h"
#include "host/select/Select.h"
#include "host/select/SelectionStart.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using ClassifyResult = OOCPCIQuery::ClassifyResult;

/// One selection on its way through the octree.
class Selection {
 public:
  Selection(Cloud& cloud, SelectionSink* sink, std::optional<std::uint64_t> limit,
            SelectReport& report)
      : cloud_(cloud), sink_(sink), limit_(limit), report_(report) {}

  Outcome Prepare(const SelectOptions& options) {
    return BoundQuery::Open(cloud_, {options.text, options.local, report_.iteration}, query_);
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
      const bool isFull = limit_ && report_.selected >= *limit_;
      return failure.Ok() && !isFull ? descend : Descend::kStop;
    });
    if (!failure.Ok()) return failure;
    if (!walk.Ok()) return walk;
    return sink_ != nullptr ? sink_->End(report_) : Outcome::Success();
  }

 private:
  Outcome Visit(const Node& node, Descend& descend) {
    switch (query_->Classify(node.Describe())) {
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
      Add(node.subtreePointCount);
      descend = Descend::kPastSubtree;
      return Outcome::Success();
    }
    if (node.ownPointCount == 0) return Outcome::Success();
    points_.resize(node.ownPointCount);
    std::iota(points_.begin(), points_.end(), 0u);
    return Take(node);
  }

  /// Adds to the points selected, no more than the limit lets; the number of those added.
  std::uint64_t Add(std::uint64_t points) {
    if (limit_) points = std::min(points, *limit_ - report_.selected);
    report_.selected += points;
    return points;
  }

  Outcome Take(const Node& node) {
    points_.resize(Add(points_.size()));
    if (sink_ == nullptr || points_.empty()) return Outcome::Success();
    std::unique_ptr<SinkPart> part;
    if (Outcome outcome = sink_->Prepare(node, points_, part); !outcome.Ok()) return outcome;
    return sink_->Consume(node, points_, part.get());
  }

  Outcome Test(const Node& node) {
    ++report_.nodesTested;
    if (Outcome outcome = query_->TestNode(node, points_); !outcome.Ok()) return outcome;
    return Take(node);
  }

  Cloud& cloud_;
  SelectionSink* sink_;
  std::optional<std::uint64_t> limit_;
  SelectReport& report_;
  std::unique_ptr<BoundQuery> query_;
  std::vector<std::uint32_t> points_;
};

}  // namespace

Outcome SelectByRecords(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
                        SelectReport& report) {
  if (Outcome outcome = StartSelection(cloud, options, report); !outcome.Ok()) return outcome;
  Selection selection(cloud, sink, options.limit, report);
  if (Outcome outcome = selection.Prepare(options); !outcome.Ok()) return outcome;
  return selection.Run(report.iteration, options.progress);
}

}  // namespace tarnhost
