// Compares the selection engine with the evaluator that hosts call, point by point.
#include "host/select/CheckSelection.h"

#include <algorithm>

#include "host/cloud/NodeWalk.h"
#include "host/select/BoundQuery.h"

namespace tarnhost {

namespace {

using Node = OOCPCOctreeAcceleratorNode;

/// Walks the nodes once more, and evaluates each record by record whatever the engine says of it.
class CheckSink final : public SelectionSink {
 public:
  CheckSink(Cloud& cloud, const SelectOptions& options, std::uint64_t iteration,
            CheckReport& report)
      : cloud_(cloud), options_(options), iteration_(iteration), report_(report), walk_(cloud) {}

  Outcome Begin(Cloud& cloud) override {
    if (Outcome outcome = walk_.Start(iteration_); !outcome.Ok()) return outcome;
    if (Outcome outcome = BlockReader::Open(cloud, {}, reader_); !outcome.Ok()) return outcome;
    return BoundQuery::Open(cloud, {options_.text, options_.local, iteration_}, query_);
  }

  Outcome Consume(const Node& node, std::span<const std::uint32_t> points,
                  SinkPart* /*part*/) override {
    while (!report_.difference) {
      Node own;
      bool hasNode = false;
      if (Outcome outcome = walk_.Next(own, hasNode); !outcome.Ok()) return outcome;
      // The engine gives a node that the walk does not: it is compared with no records at all.
      if (!hasNode) return Compare(node, points, {});
      if (own.ownPointCount == 0) continue;
      if (Outcome outcome = query_->TestNode(own, selected_); !outcome.Ok()) return outcome;
      const bool isThis = own.blockId == node.blockId && own.firstPoint == node.firstPoint;
      Outcome outcome = Compare(own, isThis ? points : std::span<const std::uint32_t>(), selected_);
      if (!outcome.Ok() || isThis) return outcome;
    }
    return Outcome::Success();
  }

  Outcome End(const SelectReport& /*report*/) override {
    while (!report_.difference) {
      Node own;
      bool hasNode = false;
      if (Outcome outcome = walk_.Next(own, hasNode); !outcome.Ok()) return outcome;
      if (!hasNode) break;
      if (own.ownPointCount == 0) continue;
      if (Outcome outcome = query_->TestNode(own, selected_); !outcome.Ok()) return outcome;
      if (Outcome outcome = Compare(own, {}, selected_); !outcome.Ok()) return outcome;
    }
    return Outcome::Success();
  }

 private:
  Outcome Compare(const Node& node, std::span<const std::uint32_t> byEngine,
                  std::span<const std::uint32_t> byRecords) {
    report_.comparedPoints += node.ownPointCount;
    const auto [a, b] = std::ranges::mismatch(byEngine, byRecords);
    const bool isEnd = a == byEngine.end() && b == byRecords.end();
    if (isEnd) return Outcome::Success();
    SelectionDifference& difference = report_.difference.emplace();
    difference.byEngine = b == byRecords.end() || (a != byEngine.end() && *a < *b);
    const std::uint32_t point = difference.byEngine ? *a : *b;
    difference.point = node.firstPoint + point;
    std::vector<std::int32_t> xyz;
    if (Outcome outcome = reader_.ReadPositions(node, xyz); !outcome.Ok()) return outcome;
    const PositionTransform& transform = cloud_.GetTransform();
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto stored = static_cast<double>(xyz[3 * std::size_t{point} + axis]);
      difference.coordinates[axis] = stored * transform.scale[axis] + transform.offset[axis];
    }
    return Outcome::Success();
  }

  Cloud& cloud_;
  const SelectOptions& options_;
  std::uint64_t iteration_;
  CheckReport& report_;
  NodeWalk walk_;
  BlockReader reader_;
  std::unique_ptr<BoundQuery> query_;
  std::vector<std::uint32_t> selected_;
};

}  // namespace

Outcome CheckSelection(Cloud& cloud, const SelectOptions& options, CheckReport& report) {
  report = {};
  SelectOptions plain = options;
  plain.limit.reset();
  plain.explain = false;
  plain.progress = {};
  SelectReport counted;
  if (Outcome outcome = Select(cloud, plain, nullptr, counted); !outcome.Ok()) return outcome;
  report.counted = counted.selected;
  plain.iteration = counted.iteration;
  plain.progress = options.progress;
  CheckSink sink(cloud, plain, counted.iteration, report);
  SelectReport selected;
  Outcome outcome = Select(cloud, plain, &sink, selected);
  report.selected = selected.selected;
  report.pointCount = selected.pointCount;
  return outcome;
}

}  // namespace tarnhost
