// Selects the points of a cloud that a query text describes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "host/cloud/Cloud.h"
#include "host/common/Outcome.h"

namespace tarnhost {

struct SelectOptions {
  std::string text;
  bool local = false;  ///< constants are in the local frame, not in source coordinates
  std::optional<std::uint64_t> iteration;               ///< default: the newest
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
};

struct SelectReport {
  std::uint64_t selected = 0;
  std::uint64_t pointCount = 0;  ///< of the iteration
  std::uint64_t iteration = 0;
  std::uint64_t nodesSkipped = 0;   ///< subtrees of which no point was read: none is selected
  std::uint64_t nodesAccepted = 0;  ///< nodes whose points were all taken without a test
  std::uint64_t nodesTested = 0;    ///< nodes whose points were tested one by one
};

/// Receives what was selected, node by node, always in the same order.
class SelectionSink {
 public:
  SelectionSink() = default;
  SelectionSink(const SelectionSink&) = delete;
  SelectionSink& operator=(const SelectionSink&) = delete;
  virtual ~SelectionSink() = default;

  virtual Outcome Begin(Cloud& cloud) = 0;
  /// `points` are numbers of own points of the node, ascending; at least one.
  virtual Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                          std::span<const std::uint32_t> points) = 0;
  virtual Outcome End(const SelectReport& report) = 0;
};

/// Selects and hands the points to `sink`; a null sink just counts, and then whole subtrees that
/// are wholly inside are counted without being read. Errors: kQueryRejected with the place in the
/// text as `where`; kIndexOutOfRange for an iteration that is not there; those of reading.
Outcome Select(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
               SelectReport& report);

}  // namespace tarnhost
