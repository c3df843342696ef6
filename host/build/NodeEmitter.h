// Appends built nodes to the streams of a repository, children before parents.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/ExistingTree.h"
#include "host/build/LodBuilder.h"
#include "host/build/PieceBuilder.h"

namespace tarnhost {

/// What the streams hold before a writer appends to them.
struct StreamEnds {
  std::uint64_t nodeCount = 0;   ///< records of octree nodes
  std::uint64_t blockCount = 0;  ///< blocks of each column
  std::uint64_t pointCount = 0;  ///< values of each column
};

/// Points of a piece that no Morton bit tells apart, in the order in which they came.
struct EqualPoints {
  /// As BuiltPiece.
  std::vector<std::vector<std::uint8_t>> takenRecords;
  std::uint64_t count = 0;  ///< of those that no node above took
  /// Reads some of these.
  std::function<Outcome(std::uint64_t first, std::uint64_t count, std::vector<std::uint8_t>&)> read;
};

/// Takes the pieces along the Morton curve and puts the nodes above them where the last of their
/// pieces was. One thread at a time.
class NodeEmitter {
 public:
  /// `place` names the repository in messages. `existing` is the tree that the points come to, or
  /// null.
  NodeEmitter(const BlockBuilder& blocks, std::size_t recordBytes, OOCPCRepositoryWriter& writer,
              std::string place, const StreamEnds& ends, ExistingTree* existing)
      : blocks_(blocks),
        recordBytes_(recordBytes),
        writer_(writer),
        place_(std::move(place)),
        begin_(ends),
        end_(ends),
        existing_(existing) {}

  Outcome Emit(const Piece& piece, const BuiltPiece& built);
  /// A piece of the finest level with more points than are built at once. They all have the same
  /// code, so their nodes follow from their number, as PlanSubtree would give them: a node keeps as
  /// many as it may, and deals the rest to its children.
  Outcome EmitEqual(const Piece& piece, const EqualPoints& points);
  /// After the last piece.
  Outcome Finish();

  [[nodiscard]] const BlockBuilder& GetBlocks() const { return blocks_; }
  /// All nodes that were emitted, children before parents, the root last.
  [[nodiscard]] const std::vector<OOCPCOctreeAcceleratorNode>& GetNodes() const { return nodes_; }
  /// The whole tree with its levels of detail, nodes of the existing one included.
  [[nodiscard]] std::vector<LodTreeNode> ListTree() const;
  [[nodiscard]] const StreamEnds& GetEnds() const { return end_; }
  /// Whether a node was emitted in the place of one that stays: points would be lost.
  [[nodiscard]] bool Clashes() const { return clashes_; }
  /// Points that were written, those of rewritten nodes included.
  [[nodiscard]] std::uint64_t GetWrittenPoints() const {
    return end_.pointCount - begin_.pointCount;
  }

 private:
  static constexpr std::uint64_t kNone = OOCPCOctreeAcceleratorNode::kNoChild;

  /// A node above the pieces whose pieces are not all there yet. Children are numbers in the
  /// stream.
  struct OpenNode {
    PlannedNode node;
    std::vector<std::uint8_t> records;
  };

  void OpenDownTo(const Piece& piece, std::span<const std::vector<std::uint8_t>> takenRecords);
  Outcome DealEqual(const EqualPoints& points, std::uint64_t first, std::uint64_t count,
                    unsigned level, std::uint64_t indexInLevel, std::uint64_t& index);
  Outcome CloseTo(const Piece& piece);
  Outcome CloseLast();
  Outcome Add(PlannedNode node, std::span<const std::uint32_t> parts, const BuiltBlock& block,
              std::uint64_t& index);
  Outcome AppendBlock(const BuiltBlock& block);
  void LinkKeptChildren(PlannedNode& node);
  std::uint64_t LinkKept(std::uint32_t existing);
  [[nodiscard]] const OOCPCOctreeAcceleratorNode& NodeAt(std::uint64_t index) const;
  void Keep(const OOCPCOctreeAcceleratorNode& node, std::vector<std::uint32_t> parts);

  const BlockBuilder& blocks_;
  std::size_t recordBytes_;
  OOCPCRepositoryWriter& writer_;
  std::string place_;
  bool clashes_ = false;
  StreamEnds begin_;
  StreamEnds end_;
  ExistingTree* existing_;
  std::vector<OpenNode> open_;  ///< from the root down
  std::vector<OOCPCOctreeAcceleratorNode> nodes_;
  std::vector<std::vector<std::uint32_t>> parts_;  ///< levels of detail of each
  /// Nodes of the existing tree, by their numbers in the stream, that emitted ones refer to.
  std::unordered_map<std::uint64_t, std::uint32_t> linked_;
};

}  // namespace tarnhost
