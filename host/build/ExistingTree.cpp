// The octree of a cloud that points are appended to.
#include "host/build/ExistingTree.h"

#include <OOCPointCloud/OOCPCLODRecords.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "host/build/BlockBuilder.h"
#include "host/build/NodeSampler.h"
#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace {

using Record = OOCPCOctreeAcceleratorNode;

/// A number that tells the cells of all levels down to the finest apart.
std::uint64_t PlaceOf(unsigned level, std::uint64_t indexInLevel) {
  return std::uint64_t{1} << (3 * level) | indexInLevel;
}

}  // namespace

ExistingTree::ExistingTree(Cloud& cloud, unsigned growth, const PointCoder& coder)
    : cloud_(cloud), growth_(growth), coder_(coder), records_(cloud) {}

Outcome ExistingTree::Load(Cloud& cloud, std::uint64_t iteration, unsigned growth,
                           std::uint64_t corner, const PointCoder& coder,
                           std::unique_ptr<ExistingTree>& tree) {
  std::unique_ptr<ExistingTree> loaded(new ExistingTree(cloud, growth, coder));
  Outcome outcome = loaded->LoadNodes(iteration, corner);
  if (outcome.Ok()) outcome = loaded->LoadParts(iteration);
  if (outcome.Ok()) tree = std::move(loaded);
  return outcome;
}

Outcome ExistingTree::LoadNodes(std::uint64_t iteration, std::uint64_t corner) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud_.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  const std::uint64_t limit = record.acceleratorPayload.sizeBytes / Record::kBytes;
  Node root;
  root.index = limit - 1;
  root.children.fill(kNone);
  if (Outcome outcome = cloud_.ReadRoot(iteration, root.record); !outcome.Ok()) return outcome;
  root.record.level = growth_;
  root.record.indexInLevel = corner;
  nodes_.push_back(std::move(root));
  for (std::uint32_t at = 0; at < nodes_.size(); ++at) {
    for (unsigned octant = 0; octant < 8; ++octant) {
      const std::uint64_t index = nodes_[at].record.children[octant];
      if (index == Record::kNoChild) continue;
      if (nodes_.size() >= limit || nodes_[at].record.level > kDeepestLevel) {
        return Outcome::Failure(oocpc::result::kBadRecord, "the octree's nodes are no tree",
                                cloud_.GetPath().string(), "run tarn verify");
      }
      Node child;
      child.index = index;
      child.children.fill(kNone);
      if (Outcome outcome = cloud_.ReadNode(index, child.record); !outcome.Ok()) return outcome;
      child.record.level = nodes_[at].record.level + 1;
      child.record.indexInLevel = nodes_[at].record.indexInLevel * 8 + octant;
      nodes_[at].children[octant] = static_cast<std::uint32_t>(nodes_.size());
      nodes_.push_back(std::move(child));
    }
    const Record& node = nodes_[at].record;
    if (node.level <= kMortonBits) places_.emplace(PlaceOf(node.level, node.indexInLevel), at);
  }
  touched_.resize(nodes_.size());
  return Outcome::Success();
}

/// The levels of detail of each node, out of the records of the iteration.
Outcome ExistingTree::LoadParts(std::uint64_t iteration) {
  std::unordered_map<std::uint64_t, std::uint32_t> byIndex;
  for (std::uint32_t i = 0; i < nodes_.size(); ++i) byIndex.emplace(nodes_[i].index, i);
  OOCPCLODBlock block;
  std::vector<OOCPCLODNodeRecord> records;
  Outcome outcome = ReadLevelRecords(cloud_, iteration, block, records);
  if (!outcome.Ok()) return outcome;
  for (const OOCPCLODNodeRecord& record : records) {
    const auto found = byIndex.find(record.nodeIndex);
    if (found == byIndex.end()) continue;
    std::vector<std::uint32_t>& parts = nodes_[found->second].parts;
    if (parts.size() <= record.levelsInLeaf && record.levelsInLeaf < 64) {
      parts.resize(record.levelsInLeaf + std::size_t{1});
    }
    if (record.levelsInLeaf < parts.size()) parts[record.levelsInLeaf] = record.pointCount;
  }
  for (Node& node : nodes_) {
    std::uint64_t points = 0;
    for (const std::uint32_t part : node.parts) points += part;
    if (points != node.record.ownPointCount) node.parts.clear();
    if (node.parts.empty()) node.parts.push_back(node.record.ownPointCount);
  }
  return Outcome::Success();
}

void ExistingTree::Touch(std::span<const std::uint64_t> codes) {
  const unsigned rootLevel = nodes_[0].record.level;
  const unsigned rootShift = 3 * (kMortonBits - rootLevel);
  std::uint64_t lastCode = 0;
  std::uint32_t last = kNone;
  for (const std::uint64_t code : codes) {
    if (rootLevel > 0 && code >> rootShift != nodes_[0].record.indexInLevel) continue;
    // Neighbours in a scan mostly fall into the same leaf.
    if (last != kNone) {
      const Record& record = nodes_[last].record;
      const unsigned shift = 3 * (kMortonBits - std::min<unsigned>(record.level, kMortonBits));
      if (code >> shift == lastCode >> shift) continue;
    }
    std::uint32_t node = 0;
    while (nodes_[node].record.level < kMortonBits) {
      const std::uint32_t child = nodes_[node].children[OctantOf(code, nodes_[node].record.level)];
      if (child == kNone) break;
      node = child;
    }
    std::atomic_ref<std::uint8_t>(touched_[node]).store(1, std::memory_order_relaxed);
    const bool isLeaf = nodes_[node].record.IsLeaf() || nodes_[node].record.level == kMortonBits;
    last = isLeaf ? node : kNone;
    lastCode = code;
  }
}

std::vector<OOCPCOctreeAcceleratorNode> ExistingTree::Dissolve() {
  std::vector<std::uint32_t> dissolved;
  if (growth_ > 0) DissolveRoot(dissolved);
  // In a cube that has grown, rounding may put a point on the border of a cell into the next one:
  // so what is dissolved falls into leaves, too. What the former root holds on to does not fall.
  std::size_t seen = dissolved.size();
  DissolveTouched(dissolved);
  while (seen < dissolved.size()) {
    const std::size_t end = dissolved.size();
    tbb::parallel_for(seen, end, [&](std::size_t i) { Touch(ReadCodes(dissolved[i])); });
    seen = end;
    DissolveTouched(dissolved);
  }
  MarkPaths();
  std::vector<Record> records;
  records.reserve(dissolved.size());
  for (const std::uint32_t node : dissolved) records.push_back(nodes_[node].record);
  return records;
}

void ExistingTree::DissolveRoot(std::vector<std::uint32_t>& dissolved) {
  Node& root = nodes_[0];
  root.isTouched = true;
  if (root.record.IsLeaf() || root.record.ownPointCount == 0) {
    DissolveAll(0, dissolved);
    return;
  }
  root.isDissolved = true;
  held_ = ReadCodes(0);
  dissolved.push_back(0);
}

void ExistingTree::DissolveTouched(std::vector<std::uint32_t>& dissolved) {
  for (std::uint32_t i = 0; i < nodes_.size(); ++i) {
    Node& node = nodes_[i];
    if (touched_[i] == 0 || node.isGone) continue;
    node.isTouched = true;
    // On the finest cells nothing tells where a point would go.
    if (node.record.IsLeaf() || node.record.level >= kMortonBits) DissolveAll(i, dissolved);
  }
}

void ExistingTree::DissolveAll(std::uint32_t node, std::vector<std::uint32_t>& dissolved) {
  std::vector<std::uint32_t> waiting{node};
  while (!waiting.empty()) {
    const std::uint32_t at = waiting.back();
    Node& next = nodes_[at];
    waiting.pop_back();
    if (next.record.ownPointCount > 0 && !next.isDissolved) dissolved.push_back(at);
    next.isTouched = next.isDissolved = next.isGone = true;
    for (const std::uint32_t child : next.children) {
      if (child != kNone) waiting.push_back(child);
    }
  }
}

/// Nodes above touched ones are touched, too.
void ExistingTree::MarkPaths() {
  for (std::size_t i = nodes_.size(); i-- > 0;) {
    for (const std::uint32_t child : nodes_[i].children) {
      if (child != kNone && nodes_[child].isTouched) nodes_[i].isTouched = true;
    }
  }
}

std::uint32_t ExistingTree::FindInner(unsigned level, std::uint64_t indexInLevel) const {
  if (level >= kMortonBits) return kNone;
  const auto found = places_.find(PlaceOf(level, indexInLevel));
  if (found == places_.end()) return kNone;
  const Node& node = nodes_[found->second];
  return node.isGone || node.record.IsLeaf() ? kNone : found->second;
}

bool ExistingTree::LeadsToRoot(unsigned level, std::uint64_t indexInLevel) const {
  const Node& root = nodes_[0];
  return !root.isGone && level <= growth_ &&
         root.record.indexInLevel >> (3 * (growth_ - level)) == indexInLevel;
}

std::uint32_t ExistingTree::FindKeptChild(std::uint32_t node, unsigned octant) const {
  const std::uint32_t child = nodes_[node].children[octant];
  return child == kNone || nodes_[child].isTouched ? kNone : child;
}

bool ExistingTree::HasChangingChild(std::uint32_t node, unsigned octant) const {
  const std::uint32_t child = nodes_[node].children[octant];
  return child != kNone && nodes_[child].isTouched && !nodes_[child].isGone;
}

bool ExistingTree::StaysAsItIs(unsigned level, std::uint64_t indexInLevel) const {
  const std::uint32_t node = FindInner(level, indexInLevel);
  return node != kNone && !nodes_[node].isTouched;
}

bool ExistingTree::IsInRoot(unsigned level, std::uint64_t indexInLevel) const {
  return level >= growth_ &&
         indexInLevel >> (3 * (level - growth_)) == nodes_[0].record.indexInLevel;
}

std::uint64_t ExistingTree::CountHeld(std::uint64_t code, unsigned level,
                                      std::uint64_t indexInLevel) const {
  if (held_.empty() || !IsInRoot(level, indexInLevel)) return 0;
  const auto [first, last] = std::equal_range(held_.begin(), held_.end(), code);
  return static_cast<std::uint64_t>(last - first);
}

std::uint64_t ExistingTree::CountHeldIn(unsigned level, std::uint64_t indexInLevel) const {
  if (held_.empty() || !IsInRoot(level, indexInLevel)) return 0;
  const unsigned shift = 3 * (kMortonBits - level);
  const auto first = std::ranges::lower_bound(held_, indexInLevel << shift);
  const auto last = std::ranges::lower_bound(first, held_.end(), (indexInLevel + 1) << shift);
  return static_cast<std::uint64_t>(last - first);
}

std::vector<std::uint64_t> ExistingTree::ReadOwn(std::uint32_t node) {
  if (node == 0 && nodes_[0].isDissolved) return held_;
  return ReadCodes(node);
}

std::vector<std::uint64_t> ExistingTree::ReadCodes(std::uint32_t at) {
  Node& node = nodes_[at];
  std::vector<std::uint64_t> codes;
  if (node.record.ownPointCount == 0) return codes;
  std::vector<std::int32_t> xyz;
  Outcome outcome = records_.ReadPositions(node.record, xyz);
  if (!outcome.Ok()) {
    Note(std::move(outcome));
    return codes;
  }
  StoredBox box;
  box.Extend(xyz.data(), xyz.size() / 3);
  node.ownBox = BoxInFrame(box, coder_.transform, coder_.frameOffset);
  codes.resize(xyz.size() / 3);
  coder_.CodesOf(xyz.data(), codes);
  std::ranges::sort(codes);
  return codes;
}

void ExistingTree::AppendRecords(std::uint32_t node, std::vector<std::uint8_t>& records) {
  if (CountOwn(node) == 0) return;
  const std::size_t bytes = CountOwn(node) * records_.GetLayout().GetRecordBytes();
  const std::size_t begin = records.size();
  Outcome outcome = records_.Append(nodes_[node].record, records);
  // Whoever goes on has as many records as there should be, until the failure is asked for.
  records.resize(begin + bytes);
  if (outcome.Ok()) return;
  Note(std::move(outcome));
}

void ExistingTree::Note(Outcome outcome) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (failure_.Ok()) failure_ = std::move(outcome);
}

Outcome ExistingTree::GetFailure() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return failure_;
}

}  // namespace tarnhost
