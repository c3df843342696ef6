// Visits the nodes of an iteration one by one.
#pragma once

#include <cstdint>
#include <vector>

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// What becomes of a node that is damaged, and of those below it.
enum class DamagedNodes { kFail, kLeaveOut };

/// Gives the nodes of an iteration, parents before their children, children in their order. Borrows
/// the cloud. One thread at a time.
class NodeWalk {
 public:
  explicit NodeWalk(Cloud& cloud, DamagedNodes damaged = DamagedNodes::kFail)
      : cloud_(cloud), damaged_(damaged) {}

  /// Begins anew; codes of reading. A damaged root is a failure always.
  Outcome Start(std::uint64_t iteration);
  /// The next node; `hasNode` is false when there are no more. kBadRecord when the links lead to
  /// more nodes than there are.
  Outcome Next(OOCPCOctreeAcceleratorNode& node, bool& hasNode);
  /// Leaves out what is below the node given last.
  void SkipSubtree() { waiting_.resize(beforeChildren_); }

 private:
  Outcome ReadWaiting(OOCPCOctreeAcceleratorNode& node, bool& hasNode);
  [[nodiscard]] Outcome TooManyNodes() const;

  Cloud& cloud_;
  DamagedNodes damaged_;
  OOCPCOctreeAcceleratorNode root_;
  bool isAtRoot_ = false;
  /// A tree has no more nodes than the stream; altered links that share nodes could go on for ever.
  std::uint64_t left_ = 0;
  std::vector<std::uint64_t> waiting_;
  std::size_t beforeChildren_ = 0;
};

}  // namespace tarnhost
