// Appends built nodes to the streams of a repository, children before parents.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/PieceBuilder.h"

namespace tarnhost {

/// Takes the pieces along the Morton curve and puts the nodes above them where the last of their
/// pieces was. One thread at a time.
class NodeEmitter {
 public:
  /// `place` names the repository in messages.
  NodeEmitter(const BlockBuilder& blocks, std::size_t recordBytes, OOCPCRepositoryWriter& writer,
              std::string place)
      : blocks_(blocks), recordBytes_(recordBytes), writer_(writer), place_(std::move(place)) {}

  Outcome Emit(const Piece& piece, const BuiltPiece& built);
  /// After the last piece.
  Outcome Finish();

  [[nodiscard]] const BlockBuilder& GetBlocks() const { return blocks_; }
  /// All nodes, the root last, and their plan without the order of points.
  [[nodiscard]] const std::vector<OOCPCOctreeAcceleratorNode>& GetNodes() const { return nodes_; }
  [[nodiscard]] const OctreePlan& GetPlan() const { return plan_; }
  [[nodiscard]] std::uint64_t GetBlockCount() const { return blockCount_; }
  [[nodiscard]] std::uint64_t GetPointCount() const { return pointCount_; }

 private:
  /// A node above the pieces whose pieces are not all there yet.
  struct OpenNode {
    PlannedNode node;
    std::vector<std::uint8_t> records;
  };

  Outcome CloseTo(const Piece& piece);
  Outcome CloseLast();
  void AttachToLast(std::uint64_t node);
  Outcome Add(PlannedNode node, std::span<const std::uint32_t> parts, const BuiltBlock& block);

  const BlockBuilder& blocks_;
  std::size_t recordBytes_;
  OOCPCRepositoryWriter& writer_;
  std::string place_;
  std::vector<OpenNode> open_;  ///< from the root down
  std::vector<OOCPCOctreeAcceleratorNode> nodes_;
  OctreePlan plan_;
  std::uint64_t blockCount_ = 0;
  std::uint64_t pointCount_ = 0;
};

}  // namespace tarnhost
