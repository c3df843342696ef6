// Checks the levels of detail of a repository against its octree.
#include "host/cloud/VerifyLod.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using Record = OOCPCLODNodeRecord;

std::uint8_t MaskOf(const Node& node) {
  unsigned mask = 0;
  for (unsigned octant = 0; octant < node.children.size(); ++octant) {
    if (node.children[octant] != Node::kNoChild) mask |= 1u << octant;
  }
  return static_cast<std::uint8_t>(mask);
}

}  // namespace

void LodVerifier::AddBlockFault(HRESULT code, std::string what) {
  report_({code, OOCPCLODContainer::kStreamName, iteration_, blockOffset_, std::move(what)});
}

void LodVerifier::AddRecordFault(HRESULT code, std::uint64_t number, std::string what) {
  report_({code, nodeStream_, number, number * Record::kBytes, std::move(what)});
}

bool LodVerifier::Check(std::uint64_t iteration, const OOCPCUpdateIteration& record) {
  iteration_ = iteration;
  blockOffset_ = record.lodPayload.beginBytes;
  tree_.clear();
  records_.clear();
  places_.clear();
  if (record.lodPayload.beginBytes == record.lodPayload.endBytes) return true;
  if (!ReadBlock(record)) return false;
  CheckHead(record);
  const std::uint64_t nodes = record.acceleratorPayload.sizeBytes / Node::kBytes;
  isTreeWhole_ = nodes == 0 || CollectTree(nodes - 1);
  areRecordsWhole_ = ReadRecords();
  for (const auto& [number, read] : records_) CheckRecord(number, read);
  if (areRecordsWhole_) {
    for (const auto& [index, tree] : tree_) CheckPoints(tree);
  }
  return isTreeWhole_ && areRecordsWhole_;
}

bool LodVerifier::ReadBlock(const OOCPCUpdateIteration& record) {
  const OOCPCUpdItrLODPayload& payload = record.lodPayload;
  const auto* stream = cloud_.GetInformation().FindStream(OOCPCLODContainer::kStreamName);
  if (stream == nullptr) {
    AddBlockFault(result::kStreamMissing, "the stream of the levels of detail is not listed");
    return false;
  }
  if (payload.beginBytes > payload.endBytes || payload.endBytes > stream->committedBytes) {
    AddBlockFault(result::kStreamShort, "the iteration's block lies outside the stream");
    return false;
  }
  if (!isRead_) {
    const Outcome outcome = cloud_.ReadStream(OOCPCLODContainer::kStreamName, blocks_);
    if (!outcome.Ok()) {
      AddBlockFault(outcome.code, outcome.what);
      return false;
    }
    isRead_ = true;
  }
  if (payload.endBytes > blocks_.size()) {
    AddBlockFault(result::kStreamShort, "the iteration's block lies outside the stream");
    return false;
  }
  const HRESULT code = block_.Decode(
      std::span(blocks_).subspan(static_cast<std::size_t>(payload.beginBytes),
                                 static_cast<std::size_t>(payload.endBytes - payload.beginBytes)));
  if (oocpc::Failed(code)) AddBlockFault(code, "its block is not sound");
  return !oocpc::Failed(code);
}

void LodVerifier::CheckHead(const OOCPCUpdateIteration& record) {
  nodeStream_ = OOCPCLODNodeStreamName(block_.nodeStreamId);
  if (block_.nodeStreamId != iteration_) {
    AddBlockFault(result::kBadRecord, "its block names the node stream of another iteration");
  }
  if (!(std::isfinite(block_.scale) && block_.scale > 0)) {
    AddBlockFault(result::kBadRecord, "its block states no spacing");
  }
  if (block_.entries.empty() && record.pointCount > 0) {
    AddBlockFault(result::kBadRecord, "its block has no nodes");
  }
}

bool LodVerifier::CollectTree(std::uint64_t root) {
  bool isWhole = true;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> waiting{{root, Node::kNoChild}};
  while (!waiting.empty()) {
    const auto [index, parent] = waiting.back();
    waiting.pop_back();
    Node node;
    if (tree_.contains(index)) continue;
    // What is wrong with the octree is told where the octree is checked.
    if (!cloud_.ReadNode(index, node).Ok()) {
      isWhole = false;
      continue;
    }
    tree_.emplace(index, TreeNode{node, index, parent, {}});
    for (const std::uint64_t child : node.children) {
      if (child != Node::kNoChild) waiting.emplace_back(child, index);
    }
  }
  return isWhole;
}

bool LodVerifier::ReadRecords() {
  const auto* stream = cloud_.GetInformation().FindStream(nodeStream_);
  if (stream == nullptr) {
    AddRecordFault(result::kStreamMissing, 0, "the stream of the nodes is not listed");
    return false;
  }
  if (stream->committedBytes != block_.entries.size() * std::uint64_t{Record::kBytes}) {
    AddRecordFault(result::kLodLengthMismatch, 0,
                   "it has another length than the block's nodes need");
  }
  std::vector<std::uint8_t> bytes;
  const Outcome outcome = cloud_.ReadStream(nodeStream_, bytes);
  if (!outcome.Ok()) {
    AddRecordFault(outcome.code, 0, outcome.what);
    return false;
  }
  const std::uint64_t count =
      std::min<std::uint64_t>(bytes.size() / Record::kBytes, block_.entries.size());
  bool areSound = true;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint8_t stored[Record::kBytes];
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(i * Record::kBytes), sizeof(stored),
                stored);
    Record record;
    const HRESULT code = Record::Decode(stored, record);
    if (oocpc::Failed(code)) {
      AddRecordFault(code, i, "the record is not sound");
      areSound = false;
    } else {
      Take(i, record);
    }
  }
  areSound = areSound && count == block_.entries.size();  // what is cut off was told above
  const std::uint32_t levels = records_.empty() ? 0 : records_.back().second.level + 1;
  if (areSound && block_.levelCount != levels) {
    AddBlockFault(result::kBadRecord, "its block states another number of levels");
  }
  return areSound;
}

/// Compares a record with its entry and with the records before it.
void LodVerifier::Take(std::uint64_t number, const Record& record) {
  const OOCPCLODNodeEntry& entry = block_.entries[static_cast<std::size_t>(number)];
  if (entry.childMask != record.childMask || entry.nodeIndex != record.nodeIndex) {
    AddRecordFault(result::kBadRecord, number, "its entry in the block says something else");
  }
  if (!records_.empty() && record.level < records_.back().second.level) {
    AddRecordFault(result::kBadRecord, number, "it stands behind a finer level");
  }
  if (!places_.insert({record.level, record.indexInLevel}).second) {
    AddRecordFault(result::kBadRecord, number, "its level has another node of its index");
  }
  records_.emplace_back(number, record);
  const auto found = tree_.find(record.nodeIndex);
  if (found != tree_.end()) found->second.records.push_back(record);
}

void LodVerifier::CheckRecord(std::uint64_t number, const Record& record) {
  const auto found = tree_.find(record.nodeIndex);
  if (found == tree_.end()) {
    if (!isTreeWhole_) return;
    AddRecordFault(result::kIndexOutOfRange, number, "the iteration has no such octree node");
    return;
  }
  const TreeNode& tree = found->second;
  const Node& node = tree.node;
  CheckPlace(number, tree, record);
  if (record.corner1 != node.corner1 || record.corner2 != node.corner2) {
    AddRecordFault(result::kBadRecord, number, "its box is not that of its octree node");
  }
  if (record.blockId != node.blockId) {
    AddRecordFault(result::kBadRecord, number, "its block is not that of its octree node");
  }
  if (record.firstPoint != node.firstPoint + record.firstInBlock) {
    AddRecordFault(result::kBadRecord, number, "its first point does not lie in its block");
  }
  const bool hasFiner = record.levelsInLeaf + std::size_t{1} < tree.records.size();
  if (areRecordsWhole_ && record.childMask != (hasFiner ? 1 : MaskOf(node))) {
    AddRecordFault(result::kBadRecord, number, "its children are not those of the octree");
  }
}

void LodVerifier::CheckPlace(std::uint64_t number, const TreeNode& tree, const Record& record) {
  const std::uint64_t level = std::uint64_t{tree.node.level} + record.levelsInLeaf;
  if (record.level != level || (record.levelsInLeaf > 0 && !tree.node.IsLeaf())) {
    AddRecordFault(result::kBadRecord, number, "its level is not one of its octree node");
    return;
  }
  if (record.indexInLevel != Record::GetIndex(tree.node, tree.index, record.level)) {
    AddRecordFault(result::kBadRecord, number, "its index is not that of its octree node");
  }
  if (record.parentIndex != ParentOf(tree, record)) {
    AddRecordFault(result::kBadRecord, number, "its parent is not that of its octree node");
  }
}

std::uint32_t LodVerifier::ParentOf(const TreeNode& tree, const Record& record) const {
  if (record.level == 0) return 0;
  if (record.levelsInLeaf > 0) return Record::GetIndex(tree.node, tree.index, record.level - 1);
  const auto parent = tree_.find(tree.parent);
  if (parent == tree_.end() || parent->second.node.level >= record.level) return 0;
  return Record::GetIndex(parent->second.node, tree.parent, record.level - 1);
}

void LodVerifier::CheckPoints(const TreeNode& tree) {
  const std::string name = "octree node " + std::to_string(tree.index);
  if (tree.records.empty()) {
    AddRecordFault(result::kBadRecord, 0, name + " has no level of detail");
    return;
  }
  std::uint64_t next = 0;
  std::uint32_t part = 0;
  bool isWhole = true;
  for (const Record& record : tree.records) {
    isWhole = isWhole && record.levelsInLeaf == part++ && record.firstInBlock == next;
    next += record.pointCount;
  }
  if (!isWhole || next != tree.node.ownPointCount) {
    AddRecordFault(result::kBadRecord, 0,
                   "the levels of " + name + " do not together have each of its points once");
  }
}

}  // namespace tarnhost
