// Selects the points of a cloud that a query text describes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/common/Outcome.h"

namespace tarnhost {

struct SelectOptions {
  std::string text;
  bool local = false;  ///< constants are in the local frame, not in source coordinates
  std::optional<std::uint64_t> iteration;               ///< default: the newest
  std::optional<std::uint64_t> limit;                   ///< stop after so many points
  bool explain = false;                                 ///< fill in SelectReport::plan
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
};

/// What was read of a column.
struct ColumnReport {
  std::string name;
  std::uint64_t blocksCompared = 0;  ///< in the form in which they are stored
  std::uint64_t blocksDecoded = 0;
  std::uint64_t bytesRead = 0;     ///< stored bytes of both
  std::uint64_t bytesDecoded = 0;  ///< of values made of them
};

/// What became of one test of the query, and where its time went.
struct LeafReport {
  std::string text;
  std::uint64_t nodesSkipped = 0;   ///< subtrees of which no point satisfies it
  std::uint64_t nodesAccepted = 0;  ///< subtrees of which every point does
  std::uint64_t nodesTested = 0;    ///< nodes where their box decides nothing
  std::uint64_t blocksSkipped = 0;  ///< the same of blocks, by least and greatest values
  std::uint64_t blocksAccepted = 0;
  std::uint64_t blocksTested = 0;  ///< blocks whose points were tested
  double seconds = 0;              ///< of testing points, over all threads
  /// Of the one column that it asks. Where several tests ask the same column of a block, reading
  /// counts for the first of them alone, so the reports of tests add up to those of columns.
  ColumnReport reading;
};

struct PlanReport {
  std::string text;          ///< the plan, a line a node
  std::string instructions;  ///< that the tests use
  double planSeconds = 0;    ///< of reading the text and compiling it
  double runSeconds = 0;     ///< of all the rest
  std::vector<LeafReport> leaves;
  std::vector<ColumnReport> columns;
};

struct SelectReport {
  std::uint64_t selected = 0;
  std::uint64_t pointCount = 0;  ///< of the iteration
  std::uint64_t iteration = 0;
  std::uint64_t nodesSkipped = 0;   ///< subtrees of which no point was read: none is selected
  std::uint64_t nodesAccepted = 0;  ///< nodes whose points were all taken, for where they are
  std::uint64_t blocksSkipped =
      0;  ///< nodes without a selected point, by least and greatest values
  std::uint64_t blocksAccepted = 0;  ///< nodes whose points were all taken, by the same
  std::uint64_t nodesTested = 0;     ///< nodes of which points were tested
  std::optional<PlanReport> plan;    ///< when it was asked for
};

/// What a sink makes of a node's points before it is their turn.
class SinkPart {
 public:
  SinkPart() = default;
  SinkPart(const SinkPart&) = delete;
  SinkPart& operator=(const SinkPart&) = delete;
  virtual ~SinkPart() = default;
};

/// Receives what was selected, node by node, always in the same order.
class SelectionSink {
 public:
  SelectionSink() = default;
  SelectionSink(const SelectionSink&) = delete;
  SelectionSink& operator=(const SelectionSink&) = delete;
  virtual ~SelectionSink() = default;

  virtual Outcome Begin(Cloud& cloud) = 0;
  /// Does what of a node's points can be done in any order. Called by several threads at once, for
  /// a node before its Consume; what it makes is handed to that. The default makes nothing.
  virtual Outcome Prepare(const OOCPCOctreeAcceleratorNode& node,
                          std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part);
  /// `points` are numbers of own points of the node, ascending; at least one. One call at a time.
  virtual Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                          std::span<const std::uint32_t> points, SinkPart* part) = 0;
  virtual Outcome End(const SelectReport& report) = 0;
};

/// Selects and hands the points to `sink`; a null sink just counts, and then whole subtrees that
/// are wholly inside are counted without being read. Runs on all processors; the same query gives
/// the same points in the same order, and memory does not grow with what is selected. Errors:
/// kQueryRejected with the place in the text as `where`; kIndexOutOfRange for an iteration that is
/// not there; those of reading.
Outcome Select(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
               SelectReport& report);

/// The same, record by record through the evaluator that hosts call, and with one type a name.
/// Slow: it is what the engine is checked against. `explain` does nothing.
Outcome SelectByRecords(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
                        SelectReport& report);

}  // namespace tarnhost
