// Gathers and encodes the blocks of planned nodes.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/Types.h>

#include <optional>
#include <span>
#include <vector>

#include "host/build/ExistingTree.h"
#include "host/build/PointSet.h"
#include "host/build/RecordView.h"

namespace tarnhost {

/// What one node puts into the streams: a block for the positions, then one for each dimension.
struct BuiltBlock {
  std::vector<oocpc::EncodedBlock> columns;
  oocpc::Box3d box;  ///< tight, of the own points, local frame
};

/// Makes blocks of points. Const operations are safe from several threads at once.
class BlockBuilder {
 public:
  BlockBuilder(const PointSet& points, const oocpc::Vector3d& frameOffset);

  /// Builds the block of the points named, rows of `records`; at least one. `parts` divides them:
  /// each part is put into the order of its GPS time where there is one (equal times and no numbers
  /// in the order given, the latter last).
  void Build(const RecordView& records, std::span<const std::uint64_t> rows,
             std::span<const std::uint32_t> parts, BuiltBlock& block) const;
  /// Builds the block of points that join those of a node of an existing tree, which was read. When
  /// there are none, the block has no columns, and the box of the points that are there.
  void BuildMerged(std::vector<std::uint8_t> records, ExistingTree& existing, std::uint32_t node,
                   BuiltBlock& block) const;

 private:
  /// Puts rows, which follow one another, into the order of their GPS time.
  void SortByTime(std::span<const std::uint8_t> records, std::span<std::uint32_t> rows) const;

  const PointSet& points_;
  oocpc::Vector3d frameOffset_;
  std::vector<oocpc::BlockEncodings> encodings_;  ///< of each dimension
  std::optional<std::size_t> timeDimension_;
};

/// The smallest box that holds both.
void Extend(oocpc::Box3d& box, const oocpc::Box3d& other);
/// The box of stored positions in the local frame. Coordinates are monotonic functions of their
/// integers.
[[nodiscard]] oocpc::Box3d BoxInFrame(const StoredBox& stored, const PositionTransform& transform,
                                      const oocpc::Vector3d& frameOffset);
/// A box that holds nothing: extending it by a box gives that box.
[[nodiscard]] oocpc::Box3d EmptyBox();

}  // namespace tarnhost
