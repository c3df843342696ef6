// Appends built nodes to the streams of a repository, children before parents.
#include "host/build/NodeEmitter.h"

#include <algorithm>
#include <numeric>

namespace tarnhost {

Outcome NodeEmitter::Emit(const Piece& piece, const BuiltPiece& built) {
  if (Outcome outcome = CloseTo(piece); !outcome.Ok()) return outcome;
  for (unsigned level = 0; level < piece.level; ++level) {
    if (level == open_.size()) {
      OpenNode above;
      above.node.level = level;
      above.node.indexInLevel = piece.CellOf(level);
      open_.push_back(std::move(above));
    }
    const auto& taken = built.takenRecords[level];
    open_[level].records.insert(open_[level].records.end(), taken.begin(), taken.end());
  }
  const std::uint64_t firstNode = nodes_.size();
  for (std::size_t i = 0; i < built.plan.nodes.size(); ++i) {
    PlannedNode node = built.plan.nodes[i];
    for (std::uint64_t& child : node.children) {
      if (child != PlannedNode::kNoChild) child += firstNode;
    }
    Outcome outcome = Add(node, built.plan.PartsOf(node), built.blocks[i]);
    if (!outcome.Ok()) return outcome;
  }
  if (!built.plan.nodes.empty()) AttachToLast(nodes_.size() - 1);
  return Outcome::Success();
}

Outcome NodeEmitter::Finish() {
  while (!open_.empty()) {
    if (Outcome outcome = CloseLast(); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

/// Closes the nodes that the piece does not lie below.
Outcome NodeEmitter::CloseTo(const Piece& piece) {
  while (!open_.empty()) {
    const PlannedNode& last = open_.back().node;
    if (last.level < piece.level && piece.CellOf(last.level) == last.indexInLevel) break;
    if (Outcome outcome = CloseLast(); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

Outcome NodeEmitter::CloseLast() {
  OpenNode last = std::move(open_.back());
  open_.pop_back();
  const std::size_t count = last.records.size() / recordBytes_;
  last.node.ownPointCount = static_cast<std::uint32_t>(count);
  last.node.subtreePointCount = count;
  for (const std::uint64_t child : last.node.children) {
    if (child != PlannedNode::kNoChild) {
      last.node.subtreePointCount += nodes_[child].subtreePointCount;
    }
  }
  const std::uint32_t part = last.node.ownPointCount;
  BuiltBlock block;
  if (count > 0) {
    std::vector<std::uint64_t> rows(count);
    std::iota(rows.begin(), rows.end(), std::uint64_t{0});
    blocks_.Build(RecordView(last.records.data(), recordBytes_), rows, std::span(&part, 1), block);
  }
  if (Outcome outcome = Add(last.node, std::span(&part, 1), block); !outcome.Ok()) return outcome;
  AttachToLast(nodes_.size() - 1);
  return Outcome::Success();
}

void NodeEmitter::AttachToLast(std::uint64_t node) {
  if (!open_.empty()) open_.back().node.children[nodes_[node].indexInLevel & 7u] = node;
}

Outcome NodeEmitter::Add(PlannedNode planned, std::span<const std::uint32_t> parts,
                         const BuiltBlock& block) {
  planned.firstPoint = pointCount_;
  planned.firstPart = plan_.parts.size();
  planned.partCount = static_cast<std::uint32_t>(parts.size());
  plan_.parts.insert(plan_.parts.end(), parts.begin(), parts.end());
  plan_.nodes.push_back(planned);

  OOCPCOctreeAcceleratorNode node;
  std::copy(std::begin(planned.children), std::end(planned.children), node.children.begin());
  node.firstPoint = planned.firstPoint;
  node.level = planned.level;
  node.ownPointCount = planned.ownPointCount;
  node.indexInLevel = planned.indexInLevel;
  node.subtreePointCount = planned.subtreePointCount;
  oocpc::Box3d box = EmptyBox();
  if (planned.ownPointCount > 0) {
    node.blockId = blockCount_;
    box = block.box;
  }
  for (const std::uint64_t child : planned.children) {
    if (child != PlannedNode::kNoChild) Extend(box, {nodes_[child].corner1, nodes_[child].corner2});
  }
  if (planned.subtreePointCount == 0) box = {};
  node.corner1 = box.min;
  node.corner2 = box.max;
  nodes_.push_back(node);

  for (std::size_t column = 0; column < block.columns.size(); ++column) {
    const HRESULT code = writer_.AppendBlock(static_cast<std::uint32_t>(column),
                                             block.columns[column], planned.firstPoint);
    if (oocpc::Failed(code)) return Outcome::FromCode(code, place_);
  }
  if (planned.ownPointCount > 0) ++blockCount_;
  pointCount_ += planned.ownPointCount;
  return Outcome::Success();
}

}  // namespace tarnhost
