// Reads everything in a repository and checks everything that can be checked.
#include "host/cloud/Verify.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>

#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/VerifyLod.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;

class Verifier {
 public:
  Verifier(Cloud& cloud, const std::function<bool(const ProgressReport&)>& progress,
           VerifyReport& report)
      : cloud_(cloud),
        progress_(progress),
        report_(report),
        lod_(cloud, [this](const Fault& fault) {
          Add(fault.code, fault.stream, fault.record, fault.offsetBytes, fault.what);
        }) {}

  Outcome Run() {
    for (const CloudColumn& column : cloud_.GetColumns()) names_.push_back(column.name);
    if (Outcome outcome = BlockReader::Open(cloud_, names_, reader_); !outcome.Ok()) return outcome;
    CountBytes();
    CheckNodeStream();
    if (Outcome outcome = CheckColumns(); !outcome.Ok()) return outcome;
    for (std::uint64_t i = 0; i < cloud_.GetIterationCount(); ++i) CheckIteration(i);
    return Outcome::Success();
  }

 private:
  struct BlockFacts {
    std::uint64_t points = 0;
    std::uint64_t firstPoint = 0;  ///< points of all blocks before
    oocpc::Box3d box;
  };

  void Add(HRESULT code, std::string stream, std::uint64_t record, std::uint64_t offset,
           std::string what) {
    ++report_.faultCount;
    if (report_.faults.size() < VerifyReport::kMaximumFaults) {
      report_.faults.push_back({code, std::move(stream), record, offset, std::move(what)});
    }
  }

  void AddNodeFault(HRESULT code, std::uint64_t index, std::string what) {
    Add(code, OOCPCAcceleratorContainer::kStreamName, index, index * Node::kBytes, std::move(what));
  }

  void CountBytes() {
    for (const OOCPCStreamLength& stream : cloud_.GetInformation().streams) {
      report_.bytes += stream.committedBytes;
    }
  }

  /// Every record of the node stream, whether an iteration refers to it or not.
  void CheckNodeStream() {
    const auto* stream = cloud_.GetInformation().FindStream(OOCPCAcceleratorContainer::kStreamName);
    if (stream == nullptr) {
      AddNodeFault(result::kStreamMissing, 0, "the stream of the octree is not listed");
      return;
    }
    if (stream->committedBytes % Node::kBytes != 0) {
      AddNodeFault(result::kBadRecord, stream->committedBytes / Node::kBytes,
                   "the stream ends within a record");
    }
    report_.nodes = stream->committedBytes / Node::kBytes;
    for (std::uint64_t i = 0; i < report_.nodes; ++i) {
      Node node;
      const Outcome outcome = cloud_.ReadNode(i, node);
      if (!outcome.Ok()) AddNodeFault(outcome.code, i, outcome.what);
    }
  }

  Outcome CheckColumns() {
    CheckColumn(reader_.GetPositions(), true);
    for (std::size_t i = 0; i < names_.size(); ++i) {
      CheckColumn(reader_.GetContainer(i), false);
      if (progress_ && !progress_({"checking columns", i + 1, names_.size()})) {
        return Outcome::FromCode(result::kStopped);
      }
    }
    return Outcome::Success();
  }

  void CheckColumn(OOCPCMetaDataContainer& column, bool positions) {
    std::uint64_t count = 0;
    const HRESULT code = column.GetBlockCount(count);
    const std::string name = std::string("column ") + column.GetName();
    if (oocpc::Failed(code)) {
      Add(code, name, 0, 0, "the block table cannot be read");
      return;
    }
    if (positions) {
      blocks_.resize(count);
    } else if (count != blocks_.size()) {
      Add(result::kBadRecord, name, count, 0, "it has another number of blocks than the positions");
    }
    nextValue_ = 0;
    for (std::uint64_t block = 0; block < count; ++block) CheckBlock(column, positions, block);
    report_.blocks += count;
  }

  void CheckBlock(OOCPCMetaDataContainer& column, bool positions, std::uint64_t block) {
    const std::string name = std::string("column ") + column.GetName();
    oocpc::BlockEntry entry;
    HRESULT code = column.ReadBlockEntry(block, entry);
    if (oocpc::Failed(code)) {
      Add(code, name, block, block * oocpc::BlockEntry::kBytes, "its table entry is not sound");
      nextValue_.reset();
      return;
    }
    CheckNumbering(entry, block, name);
    code = column.ReadStoredBlock(block, values_);
    if (oocpc::Failed(code)) {
      Add(code, name, block, entry.offsetBytes, "its values cannot be read");
      return;
    }
    CheckRange(column, entry, block, name);
    if (positions) {
      DescribePositions(column, block, entry.valueCount);
    } else if (block < blocks_.size() && blocks_[block].points != entry.valueCount) {
      Add(result::kBadRecord, name, block, entry.offsetBytes,
          "it has another number of values than there are positions");
    }
    if (column.GetStoredType().value == oocpc::ValueType::kString) CheckStrings(name, block, entry);
  }

  /// The first value follows those of the blocks before, as far as their number is known.
  void CheckNumbering(const oocpc::BlockEntry& entry, std::uint64_t block,
                      const std::string& name) {
    if (nextValue_ && *nextValue_ != entry.firstValue) {
      Add(result::kBadRecord, name, block, block * oocpc::BlockEntry::kBytes,
          "its first value does not follow the blocks before");
    }
    nextValue_ = entry.firstValue + entry.valueCount;
  }

  /// The minimum and the maximum that the table states have to be those of the values.
  void CheckRange(OOCPCMetaDataContainer& column, const oocpc::BlockEntry& entry,
                  std::uint64_t block, const std::string& name) {
    const oocpc::BlockEntry again = oocpc::EncodeBlock(column.GetStoredType(), values_).entry;
    if (again.minimumBits != entry.minimumBits || again.maximumBits != entry.maximumBits ||
        again.hasNan != entry.hasNan) {
      Add(result::kBadRecord, name, block, entry.offsetBytes,
          "its table entry states another range than its values have");
    }
  }

  void DescribePositions(OOCPCMetaDataContainer& column, std::uint64_t block,
                         std::uint64_t points) {
    BlockFacts& facts = blocks_[block];
    facts.points = points;
    if (block > 0) facts.firstPoint = blocks_[block - 1].firstPoint + blocks_[block - 1].points;
    std::vector<std::uint8_t> local;
    if (oocpc::Failed(column.ReadBlock(block, local))) return;
    for (std::size_t i = 0; i < local.size() / 24; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto value = oocpc::LoadLittleEndian<double>(local.data() + 24 * i + 8 * axis);
        facts.box.min[axis] = i == 0 ? value : std::min(facts.box.min[axis], value);
        facts.box.max[axis] = i == 0 ? value : std::max(facts.box.max[axis], value);
      }
    }
  }

  void CheckStrings(const std::string& name, std::uint64_t block, const oocpc::BlockEntry& entry) {
    const auto* strings = cloud_.GetPointCloud().GetDataRepository()->GetStringRepository();
    const std::uint64_t count = strings == nullptr ? 0 : strings->GetCount();
    if (entry.valueCount > 0 && entry.maximumBits[0] >= count) {
      Add(result::kStringNotFound, name, block, entry.offsetBytes,
          "it refers to a text that the dictionary does not hold");
    }
  }

  void CheckIteration(std::uint64_t iteration) {
    OOCPCUpdateIteration record;
    const Outcome read = cloud_.ReadIteration(iteration, record);
    const std::uint64_t offset = iteration * OOCPCUpdateIteration::kRecordBytes;
    if (!read.Ok()) {
      Add(read.code, OOCPCUpdateIterationContainer::kStreamName, iteration, offset, read.what);
      return;
    }
    report_.points += record.pointCount;
    blockUses_.assign(blocks_.size(), 0);
    visited_.clear();
    Node root;
    const Outcome found = cloud_.ReadRoot(iteration, root);
    if (!found.Ok()) {
      Add(found.code, OOCPCAcceleratorContainer::kStreamName, 0, 0, found.what);
      return;
    }
    const std::uint64_t rootIndex = record.acceleratorPayload.sizeBytes / Node::kBytes - 1;
    if (root.level != 0 || root.indexInLevel != 0) {
      AddNodeFault(result::kBadRecord, rootIndex, "the root is not the whole cube");
    }
    if (root.subtreePointCount != record.pointCount) {
      AddNodeFault(result::kBadRecord, rootIndex,
                   "the root holds another number of points than the iteration states");
    }
    CheckSubtree(rootIndex, root);
    CheckBlockUses(iteration, record);
    lod_.Check(iteration, record);
  }

  void CheckBlockUses(std::uint64_t iteration, const OOCPCUpdateIteration& record) {
    std::uint64_t used = 0;
    for (std::uint64_t block = 0; block < blockUses_.size(); ++block) {
      used += blockUses_[block] > 0 ? 1u : 0u;
      if (blockUses_[block] > 1) {
        Add(result::kBadRecord, OOCPCAcceleratorContainer::kStreamName, block, 0,
            "several nodes of iteration " + std::to_string(iteration) + " own block " +
                std::to_string(block));
      }
      if (blockUses_[block] > 0 && block >= record.blockCount) {
        Add(result::kBadRecord, OOCPCUpdateIterationContainer::kStreamName, iteration,
            iteration * OOCPCUpdateIteration::kRecordBytes,
            "the iteration uses block " + std::to_string(block) + ", which is not one of its own");
      }
    }
    if (cloud_.GetIterationCount() == 1 && used != blocks_.size()) {
      Add(result::kBadRecord, OOCPCAcceleratorContainer::kStreamName, 0, 0,
          std::to_string(blocks_.size() - used) + " blocks belong to no node");
    }
  }

  /// Checks a node after its children; gives the tight box of its subtree in `box`. The depth of
  /// the recursion is that of the tree, which the cells' levels bound.
  void CheckSubtree(std::uint64_t index, const Node& node) {
    if (++visited_[index] > 1) {
      AddNodeFault(result::kBadRecord, index, "it has several parents");
      return;
    }
    std::uint64_t points = node.ownPointCount;
    oocpc::Box3d box;
    bool empty = true;
    const auto extend = [&](const oocpc::Box3d& other) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        box.min[axis] = empty ? other.min[axis] : std::min(box.min[axis], other.min[axis]);
        box.max[axis] = empty ? other.max[axis] : std::max(box.max[axis], other.max[axis]);
      }
      empty = false;
    };
    if (CheckOwnBlock(index, node)) extend(blocks_[node.blockId].box);
    for (std::size_t octant = 0; octant < node.children.size(); ++octant) {
      if (node.children[octant] == Node::kNoChild) continue;
      Node child;
      if (!cloud_.ReadNode(node.children[octant], child).Ok()) continue;  // told above
      CheckChild(node, octant, child);
      points += child.subtreePointCount;
      extend({child.corner1, child.corner2});
      if (child.level == node.level + 1) CheckSubtree(node.children[octant], child);
    }
    if (points != node.subtreePointCount) {
      AddNodeFault(result::kBadRecord, index, "its points and its children's do not add up");
    }
    if (!empty && (box.min != node.corner1 || box.max != node.corner2)) {
      AddNodeFault(result::kBadRecord, index, "its box is not the tight box of its points");
    }
  }

  void CheckChild(const Node& parent, std::size_t octant, const Node& child) {
    if (child.level != parent.level + 1 || child.indexInLevel != parent.indexInLevel * 8 + octant) {
      AddNodeFault(result::kBadRecord, parent.children[octant],
                   "its level or its place does not follow from its parent's");
    }
  }

  /// True when the node owns a block whose facts are known.
  bool CheckOwnBlock(std::uint64_t index, const Node& node) {
    if (node.ownPointCount == 0) {
      if (node.blockId != Node::kNoBlock) {
        AddNodeFault(result::kBadRecord, index, "it owns a block, but no points");
      }
      return false;
    }
    if (node.blockId >= blocks_.size()) {
      AddNodeFault(result::kIndexOutOfRange, index, "its block does not exist");
      return false;
    }
    ++blockUses_[node.blockId];
    if (blocks_[node.blockId].points != node.ownPointCount) {
      AddNodeFault(result::kBadRecord, index, "its block has another number of points");
      return false;
    }
    if (blocks_[node.blockId].firstPoint != node.firstPoint) {
      AddNodeFault(result::kBadRecord, index, "its first point is not that of its block");
    }
    return true;
  }

  Cloud& cloud_;
  const std::function<bool(const ProgressReport&)>& progress_;
  VerifyReport& report_;
  BlockReader reader_;
  std::vector<std::string> names_;
  std::vector<BlockFacts> blocks_;
  std::vector<std::uint32_t> blockUses_;
  std::unordered_map<std::uint64_t, std::uint32_t> visited_;
  std::vector<std::uint8_t> values_;
  std::optional<std::uint64_t> nextValue_;  ///< of the column at hand
  LodVerifier lod_;
};

}  // namespace

Outcome VerifyRepository(const std::filesystem::path& folder,
                         const std::function<bool(const ProgressReport&)>& progress,
                         VerifyReport& report) {
  report = {};
  std::unique_ptr<Cloud> cloud;
  Outcome opened = Cloud::Open(folder, cloud);
  if (opened.code == result::kNotARepository || opened.code == result::kAccessDenied) {
    return opened;
  }
  if (!opened.Ok()) {
    report.faultCount = 1;
    report.faults.push_back({opened.code, opened.where, 0, 0, opened.what});
    return Outcome::Success();
  }
  return Verifier(*cloud, progress, report).Run();
}

}  // namespace tarnhost
