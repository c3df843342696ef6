// Visits the nodes of an iteration one by one.
#include "host/cloud/NodeWalk.h"

#include "host/cloud/Damage.h"

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
  hasNode = isAtRoot_;
  if (isAtRoot_) {
    if (left_-- == 0) return TooManyNodes();
    node = root_;
    isAtRoot_ = false;
  } else if (Outcome outcome = ReadWaiting(node, hasNode); !outcome.Ok() || !hasNode) {
    return outcome;
  }
  beforeChildren_ = waiting_.size();
  for (std::size_t i = node.children.size(); i-- > 0;) {
    if (node.children[i] != Node::kNoChild) waiting_.push_back(node.children[i]);
  }
  return Outcome::Success();
}

Outcome NodeWalk::ReadWaiting(Node& node, bool& hasNode) {
  for (hasNode = false; !hasNode && !waiting_.empty();) {
    if (left_-- == 0) return TooManyNodes();
    const std::uint64_t next = waiting_.back();
    waiting_.pop_back();
    Outcome outcome = cloud_.ReadNode(next, node);
    hasNode = outcome.Ok();
    const bool isLeftOut = damaged_ == DamagedNodes::kLeaveOut && IsDamage(outcome.code);
    if (!hasNode && !isLeftOut) return outcome;
  }
  return Outcome::Success();
}

Outcome NodeWalk::TooManyNodes() const {
  const char* name = OOCPCAcceleratorContainer::kStreamName;
  Outcome outcome = Outcome::FromCode(oocpc::result::kBadRecord, cloud_.GetPath().string());
  outcome.what += std::string(": stream ") + name;
  outcome.where = (cloud_.GetPath() / name).string();
  return outcome;
}

}  // namespace tarnhost
