// Selects the points of a cloud that a query text describes.
#include "host/select/Select.h"

#include <numeric>

#include "host/select/BoundQuery.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using ClassifyResult = OOCPCIQuery::ClassifyResult;

/// One selection on its way through the octree.
class Selection {
 public:
  Selection(Cloud& cloud, SelectionSink* sink, SelectReport& report)
      : cloud_(cloud), sink_(sink), report_(report) {}

  Outcome Prepare(const SelectOptions& options) {
    return BoundQuery::Open(cloud_, options.text, options.local, query_);
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
    if (Outcome outcome = query_->TestNode(node, points_); !outcome.Ok()) return outcome;
    report_.selected += points_.size();
    if (sink_ == nullptr || points_.empty()) return Outcome::Success();
    return sink_->Consume(node, points_);
  }

  Cloud& cloud_;
  SelectionSink* sink_;
  SelectReport& report_;
  std::unique_ptr<BoundQuery> query_;
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
