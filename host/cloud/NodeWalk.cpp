// Visits the nodes of an iteration one by one.
#include "host/cloud/NodeWalk.h"

namespace tarnhost {

using Node = OOCPCOctreeAcceleratorNode;

Outcome NodeWalk::Start(std::uint64_t iteration) {
  waiting_.clear();
  beforeChildren_ = 0;
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud_.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  left_ = record.acceleratorPayload.sizeBytes / Node::kBytes;
  isAtRoot_ = true;
  return cloud_.ReadRoot(iteration, root_);
}

Outcome NodeWalk::Next(Node& node, bool& hasNode) {
  hasNode = isAtRoot_ || !waiting_.empty();
  if (!hasNode) return Outcome::Success();
  if (left_-- == 0) {
    const char* name = OOCPCAcceleratorContainer::kStreamName;
    Outcome outcome = Outcome::FromCode(oocpc::result::kBadRecord, cloud_.GetPath().string());
    outcome.what += std::string(": stream ") + name;
    outcome.where = (cloud_.GetPath() / name).string();
    return outcome;
  }
  if (isAtRoot_) {
    node = root_;
    isAtRoot_ = false;
  } else {
    const std::uint64_t next = waiting_.back();
    waiting_.pop_back();
    if (Outcome outcome = cloud_.ReadNode(next, node); !outcome.Ok()) return outcome;
  }
  beforeChildren_ = waiting_.size();
  for (std::size_t i = node.children.size(); i-- > 0;) {
    if (node.children[i] != Node::kNoChild) waiting_.push_back(node.children[i]);
  }
  return Outcome::Success();
}

}  // namespace tarnhost
