// What is known of the points of a subtree or a block before any of them is read.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

#include <span>
#include <vector>

#include "host/select/SelectionPlan.h"

namespace tarnhost {

using ClassifyResult = OOCPCIQuery::ClassifyResult;

/// The stored positions that a box of the local frame holds, axis by axis; everything where the
/// corners span no box.
[[nodiscard]] std::array<StoredRange, 3> StoredBoxOf(const StoredPositions& positions,
                                                     const oocpc::Box3d& local);

/// Classifies the points of a subtree by its box; `stored` is StoredBoxOf the same. Leaves that
/// read no position are undecided.
[[nodiscard]] ClassifyResult ClassifySubtree(const PlanLeaf& leaf, const OOCPointCloudNode& node,
                                             const std::array<StoredRange, 3>& stored);

/// Classifies the points of a block by the least and the greatest values of the leaf's column.
[[nodiscard]] ClassifyResult ClassifyBlock(const SelectionPlan& plan, const PlanLeaf& leaf,
                                           const oocpc::BlockEntry& entry);

/// Combines the answers of the plan's leaves through its nodes: `nodes` gets one for each. Returns
/// the root's.
ClassifyResult CombineAnswers(const SelectionPlan& plan, std::span<const ClassifyResult> leaves,
                              std::vector<ClassifyResult>& nodes);

}  // namespace tarnhost
