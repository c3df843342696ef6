// Reads everything in a repository and checks everything that can be checked.
#include "host/cloud/Verify.h"

#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/VerifyLod.h"
#include "host/cloud/VerifyOpening.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Node = OOCPCOctreeAcceleratorNode;

std::uint32_t ColumnIdOf(const OOCPCMetaDataContainer& column) {
  if (const auto* positions = dynamic_cast<const OOCPCStaticPositionsContainer*>(&column)) {
    return positions->GetDescription().columnId;
  }
  const auto* values = dynamic_cast<const OOCPCStaticMetaDataContainer*>(&column);
  return values == nullptr ? 0 : values->GetDescription().columnId;
}

void NoteKind(HRESULT code, const std::string& stream, VerifyReport& report) {
  report.hasLevelFaults |=
      stream == OOCPCLODContainer::kStreamName || stream.starts_with("DEF_OCTREE_LOD_NODES_");
  // Damage does not bring these about: checksums are compared first.
  report.needsLaterVersion |= code == result::kUnknownVersion || code == result::kUnknownEncoding;
}

/// A column under examination, and the streams that its faults are found in.
struct ExaminedColumn {
  explicit ExaminedColumn(OOCPCMetaDataContainer& examined)
      : container(examined),
        data(oocpc::ColumnDataStreamName(ColumnIdOf(examined))),
        table(oocpc::ColumnTableStreamName(ColumnIdOf(examined))),
        name("column " + std::string(examined.GetName()) + ": "),
        entryBytes(oocpc::BlockEntry::RecordBytes(examined.GetStoredType())) {}

  OOCPCMetaDataContainer& container;
  std::string data;
  std::string table;
  std::string name;
  std::size_t entryBytes;
};

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
    bool isListed = false;  ///< its entry in the positions' table is sound: the next two are known
    std::uint64_t points = 0;
    std::uint64_t firstPoint = 0;
    bool hasBox = false;
    oocpc::Box3d box;
    bool isSound = true;  ///< in all columns looked at so far
  };
  /// What is known of a subtree: false where something below could not be read.
  struct Known {
    bool points = true;
    bool box = true;
  };

  void Add(HRESULT code, std::string stream, std::uint64_t record, std::uint64_t offset,
           std::string what) {
    ++report_.faultCount;
    NoteKind(code, stream, report_);
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
      if (outcome.Ok()) continue;
      AddNodeFault(outcome.code, i, outcome.what);
      unreadable_.insert(i);
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

  void CheckColumn(OOCPCMetaDataContainer& container, bool positions) {
    const ExaminedColumn column(container);
    std::uint64_t count = 0;
    const HRESULT code = container.GetBlockCount(count);
    if (oocpc::Failed(code)) {
      Add(code, column.table, 0, 0, column.name + "the block table cannot be read");
      count = 0;
    } else if (!positions && count != blocks_.size()) {
      Add(result::kBadRecord, column.table, count, count * column.entryBytes,
          column.name + "it has another number of blocks than the positions");
    }
    if (positions) blocks_.resize(count);
    nextValue_ = 0;
    for (std::uint64_t block = 0; block < count; ++block) {
      const std::uint64_t before = report_.faultCount;
      CheckBlock(column, positions, block);
      if (block < blocks_.size() && report_.faultCount != before) blocks_[block].isSound = false;
    }
    for (std::uint64_t block = count; block < blocks_.size(); ++block) {
      blocks_[block].isSound = false;
    }
    report_.blocks += count;
  }

  void CheckBlock(const ExaminedColumn& column, bool positions, std::uint64_t block) {
    oocpc::BlockEntry entry;
    HRESULT code = column.container.ReadBlockEntry(block, entry);
    if (oocpc::Failed(code)) {
      Add(code, column.table, block, block * column.entryBytes,
          column.name + "the block's table entry is not sound");
      nextValue_.reset();
      return;
    }
    CheckNumbering(column, entry, block);
    if (positions) {
      blocks_[block].isListed = true;
      blocks_[block].points = entry.valueCount;
      blocks_[block].firstPoint = entry.firstValue;
    }
    code = column.container.ReadStoredBlock(block, values_);
    if (oocpc::Failed(code)) {
      Add(code, column.data, block, entry.offsetBytes,
          column.name + "the block's values cannot be read");
      return;
    }
    CheckRange(column, entry, block);
    if (positions) {
      DescribePositions(column.container, block);
    } else if (block < blocks_.size() && blocks_[block].isListed &&
               blocks_[block].points != entry.valueCount) {
      Add(result::kBadRecord, column.table, block, block * column.entryBytes,
          column.name + "the block has another number of values than there are positions");
    }
    if (column.container.GetStoredType().value == oocpc::ValueType::kString) {
      CheckStrings(column, block, entry);
    }
  }

  /// The first value follows those of the blocks before, as far as their number is known.
  void CheckNumbering(const ExaminedColumn& column, const oocpc::BlockEntry& entry,
                      std::uint64_t block) {
    if (nextValue_ && *nextValue_ != entry.firstValue) {
      Add(result::kBadRecord, column.table, block, block * column.entryBytes,
          column.name + "the block's first value does not follow the blocks before");
    }
    nextValue_ = entry.firstValue + entry.valueCount;
  }

  /// The minimum and the maximum that the table states have to be those of the values.
  void CheckRange(const ExaminedColumn& column, const oocpc::BlockEntry& entry,
                  std::uint64_t block) {
    const oocpc::BlockEntry again =
        oocpc::EncodeBlock(column.container.GetStoredType(), values_, oocpc::BlockEncodings::kLight)
            .entry;
    if (again.minimumBits != entry.minimumBits || again.maximumBits != entry.maximumBits ||
        again.hasNan != entry.hasNan) {
      Add(result::kBadRecord, column.table, block, block * column.entryBytes,
          column.name + "the block's table entry states another range than its values have");
    }
  }

  void DescribePositions(OOCPCMetaDataContainer& column, std::uint64_t block) {
    BlockFacts& facts = blocks_[block];
    std::vector<std::uint8_t> local;
    if (oocpc::Failed(column.ReadBlock(block, local))) return;
    facts.hasBox = true;
    for (std::size_t i = 0; i < local.size() / 24; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto value = oocpc::LoadLittleEndian<double>(local.data() + 24 * i + 8 * axis);
        facts.box.min[axis] = i == 0 ? value : std::min(facts.box.min[axis], value);
        facts.box.max[axis] = i == 0 ? value : std::max(facts.box.max[axis], value);
      }
    }
  }

  void CheckStrings(const ExaminedColumn& column, std::uint64_t block,
                    const oocpc::BlockEntry& entry) {
    const auto* strings = cloud_.GetPointCloud().GetDataRepository()->GetStringRepository();
    const std::uint64_t count = strings == nullptr ? 0 : strings->GetCount();
    if (entry.valueCount > 0 && entry.maximumBits[0] >= count) {
      Add(result::kStringNotFound, column.data, block, entry.offsetBytes,
          column.name + "the block refers to a text that the dictionary does not hold");
    }
  }

  void CheckIteration(std::uint64_t iteration) {
    const std::uint64_t before = report_.faultCount;
    const bool isRead = ReadIteration(iteration);
    report_.intactIterations.push_back(isRead && report_.faultCount == before);
  }

  /// Checks what an iteration states. False when it needs something that cannot be read, whether
  /// or not that is told here.
  bool ReadIteration(std::uint64_t iteration) {
    OOCPCUpdateIteration record;
    const Outcome read = cloud_.ReadIteration(iteration, record);
    const std::uint64_t offset = iteration * OOCPCUpdateIteration::kRecordBytes;
    if (!read.Ok()) {
      Add(read.code, OOCPCUpdateIterationContainer::kStreamName, iteration, offset, read.what);
      return false;
    }
    ++report_.iterations;
    report_.points = record.pointCount;
    blockUses_.assign(blocks_.size(), 0);
    visited_.clear();
    const std::uint64_t rootIndex = record.acceleratorPayload.sizeBytes / Node::kBytes - 1;
    Node root;
    const Outcome found = cloud_.ReadRoot(iteration, root);
    if (!found.Ok()) {
      if (!unreadable_.contains(rootIndex)) {
        Add(found.code, OOCPCUpdateIterationContainer::kStreamName, iteration, offset,
            "the root that it states cannot be read");
      }
      return false;
    }
    if (root.level != 0 || root.indexInLevel != 0) {
      AddNodeFault(result::kBadRecord, rootIndex, "the root is not the whole cube");
    }
    if (root.subtreePointCount != record.pointCount) {
      AddNodeFault(result::kBadRecord, rootIndex,
                   "the root holds another number of points than the iteration states");
    }
    const Known known = CheckSubtree(rootIndex, root);
    const bool areBlocksSound = CheckBlockUses(iteration, record, known.points);
    return lod_.Check(iteration, record) && known.points && known.box && areBlocksSound;
  }

  /// True when all blocks that the iteration uses are sound in all columns.
  bool CheckBlockUses(std::uint64_t iteration, const OOCPCUpdateIteration& record, bool isWhole) {
    std::uint64_t used = 0;
    bool areSound = true;
    for (std::uint64_t block = 0; block < blockUses_.size(); ++block) {
      if (blockUses_[block] == 0) continue;
      ++used;
      areSound = areSound && blocks_[block].isSound;
      if (blockUses_[block] > 1) {
        Add(result::kBadRecord, OOCPCAcceleratorContainer::kStreamName, block, 0,
            "several nodes of iteration " + std::to_string(iteration) + " own block " +
                std::to_string(block));
      }
      if (block >= record.blockCount) {
        Add(result::kBadRecord, OOCPCUpdateIterationContainer::kStreamName, iteration,
            iteration * OOCPCUpdateIteration::kRecordBytes,
            "the iteration uses block " + std::to_string(block) + ", which is not one of its own");
      }
    }
    if (isWhole && cloud_.GetIterationCount() == 1 && used != blocks_.size()) {
      Add(result::kBadRecord, OOCPCAcceleratorContainer::kStreamName, 0, 0,
          std::to_string(blocks_.size() - used) + " blocks belong to no node");
    }
    return areSound;
  }

  /// Checks a node after its children. The depth of the recursion is that of the tree, at most
  /// kDeepestLevel.
  Known CheckSubtree(std::uint64_t index, const Node& node) {
    Known known;
    if (++visited_[index] > 1) {
      AddNodeFault(result::kBadRecord, index, "it has several parents");
      return known;
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
    if (CheckOwnBlock(index, node)) {
      known.box = blocks_[node.blockId].hasBox;
      extend(blocks_[node.blockId].box);
    } else if (node.ownPointCount > 0) {
      known.box = false;
    }
    for (std::size_t octant = 0; octant < node.children.size(); ++octant) {
      if (node.children[octant] == Node::kNoChild) continue;
      Node child;
      if (!cloud_.ReadNode(node.children[octant], child).Ok()) {
        if (!unreadable_.contains(node.children[octant])) {
          AddNodeFault(result::kIndexOutOfRange, index, "it names a child that does not exist");
        }
        known = {false, false};
        continue;
      }
      CheckChild(node, octant, child);
      points += child.subtreePointCount;
      extend({child.corner1, child.corner2});
      if (child.level != node.level + 1) continue;
      const Known below = CheckSubtree(node.children[octant], child);
      known = {known.points && below.points, known.box && below.box};
    }
    CheckSums(index, node, known, points, empty ? nullptr : &box);
    return known;
  }

  void CheckSums(std::uint64_t index, const Node& node, const Known& known, std::uint64_t points,
                 const oocpc::Box3d* box) {
    if (known.points && points != node.subtreePointCount) {
      AddNodeFault(result::kBadRecord, index, "its points and its children's do not add up");
    }
    if (known.box && box != nullptr && (box->min != node.corner1 || box->max != node.corner2)) {
      AddNodeFault(result::kBadRecord, index, "its box is not the tight box of its points");
    }
  }

  void CheckChild(const Node& parent, std::size_t octant, const Node& child) {
    if (child.level != parent.level + 1 || child.indexInLevel != parent.indexInLevel * 8 + octant) {
      AddNodeFault(result::kBadRecord, parent.children[octant],
                   "its level or its place does not follow from its parent's");
    }
  }

  /// True when the node owns a block that the table of the positions lists for it.
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
    if (!blocks_[node.blockId].isListed) return false;  // told where the table is checked
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
  std::unordered_set<std::uint64_t> unreadable_;  ///< nodes that were told to be so
  std::unordered_map<std::uint64_t, std::uint32_t> visited_;
  std::vector<std::uint8_t> values_;
  std::optional<std::uint64_t> nextValue_;  ///< of the column at hand
  LodVerifier lod_;
};

}  // namespace

const char* WhatIsWrongWithCopy(HRESULT code) {
  return code == result::kStreamMissing ? "the copy of the main stream is missing"
                                        : "the copy of the main stream is not sound";
}

Outcome VerifyStreams(const RepositoryOpener& open, const std::filesystem::path& place,
                      const std::function<bool(const ProgressReport&)>& progress,
                      VerifyReport& report) {
  report = {};
  std::unique_ptr<OOCPCStreamRepository> repository;
  const HRESULT found = open(repository);
  if (oocpc::Failed(found)) return Outcome::FromCode(found, place.string());
  std::unique_ptr<Cloud> cloud;
  Outcome opened = Cloud::Attach(std::move(repository), place, cloud);
  if (opened.Ok()) return Verifier(*cloud, progress, report).Run();
  if (opened.code == result::kAccessDenied || opened.code == result::kOutOfMemory) return opened;
  const HRESULT again = open(repository);
  if (oocpc::Failed(again)) return Outcome::FromCode(again, place.string());
  report.faults = FindOpeningFaults(*repository, opened);
  for (const Fault& fault : report.faults) NoteKind(fault.code, fault.stream, report);
  report.faultCount = report.faults.size();
  return Outcome::Success();
}

Outcome VerifyRepository(const std::filesystem::path& folder,
                         const std::function<bool(const ProgressReport&)>& progress,
                         VerifyReport& report) {
  const auto open = [&](std::unique_ptr<OOCPCStreamRepository>& repository) {
    std::unique_ptr<OOCPCFolderRepository> opened;
    const HRESULT code = OOCPCFolderRepository::Open(folder, opened);
    repository = std::move(opened);
    return code;
  };
  std::unique_ptr<OOCPCStreamRepository> found;
  if (const HRESULT code = open(found); oocpc::Failed(code)) {
    return ExplainNoRepository(code, folder);
  }
  Outcome outcome = VerifyStreams(open, folder, progress, report);
  if (!outcome.Ok()) return outcome;
  // Writers make it whole or not at all.
  const char* const copy = OOCPCFolderStreamStore::kMainCopyFileName;
  std::shared_ptr<const OOCPCByteSource> bytes;
  OOCPCCatalogue catalogue;
  HRESULT code = OOCPCMapFile(folder / copy, bytes);
  if (!oocpc::Failed(code)) code = OOCPCDecodeMainStream(bytes->GetBytes(), catalogue);
  if (oocpc::Failed(code)) {
    ++report.faultCount;
    report.faults.push_back({code, copy, 0, 0, WhatIsWrongWithCopy(code)});
  }
  return outcome;
}

}  // namespace tarnhost
