// Appends built nodes to the streams of a repository, children before parents.
#include "host/build/NodeEmitter.h"

#include <algorithm>
#include <numeric>

namespace tarnhost {

Outcome NodeEmitter::Emit(const Piece& piece, const BuiltPiece& built) {
  if (Outcome outcome = CloseTo(piece); !outcome.Ok()) return outcome;
  OpenDownTo(piece, built.takenRecords);
  std::vector<std::uint64_t> indices(built.plan.nodes.size());
  for (std::size_t i = 0; i < built.plan.nodes.size(); ++i) {
    PlannedNode node = built.plan.nodes[i];
    for (std::uint64_t& child : node.children) {
      if (child != PlannedNode::kNoChild) child = indices[child];
    }
    Outcome outcome = Add(node, built.plan.PartsOf(node), built.blocks[i], indices[i]);
    if (!outcome.Ok()) return outcome;
  }
  if (!indices.empty() && !open_.empty()) {
    open_.back().node.children[piece.indexInLevel & 7u] = indices.back();
  }
  return Outcome::Success();
}

/// Opens the nodes above a piece that are not open yet, and gives all of them what they took of it.
void NodeEmitter::OpenDownTo(const Piece& piece,
                             std::span<const std::vector<std::uint8_t>> takenRecords) {
  for (unsigned level = 0; level < piece.level; ++level) {
    if (level == open_.size()) {
      // Its parent refers to it as it is; nothing was taken for it or for nodes below it.
      if (existing_ != nullptr && existing_->StaysAsItIs(level, piece.CellOf(level))) return;
      OpenNode above;
      above.node.level = level;
      above.node.indexInLevel = piece.CellOf(level);
      if (existing_ != nullptr) {
        above.node.existing = existing_->FindInner(level, above.node.indexInLevel);
      }
      open_.push_back(std::move(above));
    }
    const auto& taken = takenRecords[level];
    open_[level].records.insert(open_[level].records.end(), taken.begin(), taken.end());
  }
}

Outcome NodeEmitter::EmitEqual(const Piece& piece, const EqualPoints& points) {
  if (Outcome outcome = CloseTo(piece); !outcome.Ok()) return outcome;
  OpenDownTo(piece, points.takenRecords);
  if (points.count == 0) return Outcome::Success();
  std::uint64_t index = 0;
  Outcome outcome = DealEqual(points, 0, points.count, piece.level, piece.indexInLevel, index);
  if (outcome.Ok() && !open_.empty()) open_.back().node.children[piece.indexInLevel & 7u] = index;
  return outcome;
}

/// Emits the node of the points [first, first + count), after its children.
Outcome NodeEmitter::DealEqual(const EqualPoints& points, std::uint64_t first, std::uint64_t count,
                               unsigned level, std::uint64_t indexInLevel, std::uint64_t& index) {
  PlannedNode node;
  node.level = level;
  node.indexInLevel = indexInLevel;
  const auto part =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(count, OctreePlan::kNodeCapacity));
  node.ownPointCount = part;
  std::uint64_t next = first + part;
  std::uint64_t left = count - part;
  for (unsigned octant = 0; octant < 8 && left > 0; ++octant) {
    const std::uint64_t share = (left + (7 - octant)) / (8 - octant);
    Outcome outcome =
        DealEqual(points, next, share, level + 1, indexInLevel * 8 + octant, node.children[octant]);
    if (!outcome.Ok()) return outcome;
    next += share;
    left -= share;
  }
  std::vector<std::uint8_t> records;
  if (Outcome outcome = points.read(first, part, records); !outcome.Ok()) return outcome;
  std::vector<std::uint64_t> rows(part);
  std::iota(rows.begin(), rows.end(), std::uint64_t{0});
  BuiltBlock block;
  blocks_.Build(RecordView(records.data(), recordBytes_), rows, std::span(&part, 1), block);
  return Add(node, std::span(&part, 1), block, index);
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
  const auto part = static_cast<std::uint32_t>(last.records.size() / recordBytes_);
  last.node.ownPointCount = part;
  BuiltBlock block;
  if (last.node.existing != ExistingTree::kNone) {
    blocks_.BuildMerged(std::move(last.records), *existing_, last.node.existing, block);
  } else if (part > 0) {
    std::vector<std::uint64_t> rows(part);
    std::iota(rows.begin(), rows.end(), std::uint64_t{0});
    blocks_.Build(RecordView(last.records.data(), recordBytes_), rows, std::span(&part, 1), block);
  }
  std::uint64_t index = 0;
  Outcome outcome = Add(last.node, std::span(&part, 1), block, index);
  if (outcome.Ok() && !open_.empty()) {
    open_.back().node.children[last.node.indexInLevel & 7u] = index;
  }
  return outcome;
}

/// The children of an existing node that stay as they are.
void NodeEmitter::LinkKeptChildren(PlannedNode& node) {
  for (unsigned octant = 0; octant < 8; ++octant) {
    const std::uint32_t kept = existing_->FindKeptChild(node.existing, octant);
    if (kept == ExistingTree::kNone) continue;
    if (node.children[octant] != PlannedNode::kNoChild) clashes_ = true;
    node.children[octant] = LinkKept(kept);
  }
}

/// The number in the stream of a node that stays as it is. In a cube that has grown its level and
/// its place have changed, and those of everything below: then the records are written again, and
/// go on to refer to their blocks.
std::uint64_t NodeEmitter::LinkKept(std::uint32_t existing) {
  const ExistingTree::Node& node = existing_->Get(existing);
  if (!existing_->HasGrown()) {
    linked_.emplace(node.index, existing);
    return node.index;
  }
  OOCPCOctreeAcceleratorNode record = node.record;
  for (std::size_t octant = 0; octant < record.children.size(); ++octant) {
    const std::uint32_t child = node.children[octant];
    record.children[octant] = child == ExistingTree::kNone ? kNone : LinkKept(child);
  }
  Keep(record, node.parts);
  return end_.nodeCount - 1;
}

const OOCPCOctreeAcceleratorNode& NodeEmitter::NodeAt(std::uint64_t index) const {
  return index >= begin_.nodeCount ? nodes_[index - begin_.nodeCount]
                                   : existing_->Get(linked_.at(index)).record;
}

void NodeEmitter::Keep(const OOCPCOctreeAcceleratorNode& node, std::vector<std::uint32_t> parts) {
  nodes_.push_back(node);
  parts_.push_back(std::move(parts));
  ++end_.nodeCount;
}

Outcome NodeEmitter::Add(PlannedNode planned, std::span<const std::uint32_t> parts,
                         const BuiltBlock& block, std::uint64_t& index) {
  OOCPCOctreeAcceleratorNode node;
  std::vector<std::uint32_t> levels(parts.begin(), parts.end());
  node.level = planned.level;
  node.indexInLevel = planned.indexInLevel;
  node.ownPointCount = planned.ownPointCount;
  if (planned.existing != ExistingTree::kNone) {
    LinkKeptChildren(planned);
    node.ownPointCount += existing_->CountOwn(planned.existing);
    levels = {node.ownPointCount};
  }
  std::copy(std::begin(planned.children), std::end(planned.children), node.children.begin());
  oocpc::Box3d box = EmptyBox();
  if (!block.columns.empty()) {
    node.firstPoint = end_.pointCount;
    node.blockId = end_.blockCount;
    if (Outcome outcome = AppendBlock(block); !outcome.Ok()) return outcome;
    ++end_.blockCount;
    end_.pointCount += node.ownPointCount;
  } else if (node.ownPointCount > 0) {
    node.firstPoint = existing_->Get(planned.existing).record.firstPoint;
    node.blockId = existing_->Get(planned.existing).record.blockId;
  } else {
    node.firstPoint = end_.pointCount;
  }
  if (node.ownPointCount > 0) box = block.box;
  node.subtreePointCount = node.ownPointCount;
  for (const std::uint64_t child : node.children) {
    if (child == kNone) continue;
    const OOCPCOctreeAcceleratorNode& below = NodeAt(child);
    node.subtreePointCount += below.subtreePointCount;
    if (below.subtreePointCount > 0) Extend(box, {below.corner1, below.corner2});
  }
  if (node.subtreePointCount == 0) box = {};
  node.corner1 = box.min;
  node.corner2 = box.max;
  index = end_.nodeCount;
  Keep(node, std::move(levels));
  return Outcome::Success();
}

Outcome NodeEmitter::AppendBlock(const BuiltBlock& block) {
  for (std::size_t column = 0; column < block.columns.size(); ++column) {
    const HRESULT code = writer_.AppendBlock(static_cast<std::uint32_t>(column),
                                             block.columns[column], end_.pointCount);
    if (oocpc::Failed(code)) return Outcome::FromCode(code, place_);
  }
  return Outcome::Success();
}

std::vector<LodTreeNode> NodeEmitter::ListTree() const {
  std::vector<LodTreeNode> tree;
  for (std::size_t i = 0; i < nodes_.size(); ++i) {
    tree.push_back({begin_.nodeCount + i, nodes_[i], parts_[i]});
  }
  if (existing_ == nullptr) return tree;
  // The subtrees that emitted nodes refer to.
  std::vector<std::uint32_t> waiting;
  for (const auto& [index, node] : linked_) waiting.push_back(node);
  while (!waiting.empty()) {
    const ExistingTree::Node& node = existing_->Get(waiting.back());
    waiting.pop_back();
    tree.push_back({node.index, node.record, node.parts});
    for (const std::uint32_t child : node.children) {
      if (child != ExistingTree::kNone) waiting.push_back(child);
    }
  }
  return tree;
}

}  // namespace tarnhost
