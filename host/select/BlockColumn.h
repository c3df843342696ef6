// One column of a block on its way through a test: its entry, its stored bytes, its values.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>

#include <span>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/SelectionPlan.h"

namespace tarnhost {

/// Counts of what was read of a column.
struct ColumnCounts {
  std::uint64_t blocksCompared = 0;  ///< as they are stored
  std::uint64_t blocksDecoded = 0;
  std::uint64_t bytesRead = 0;     ///< stored bytes of both
  std::uint64_t bytesDecoded = 0;  ///< of values made of them

  ColumnCounts& operator+=(const ColumnCounts& other) {
    blocksCompared += other.blocksCompared;
    blocksDecoded += other.blocksDecoded;
    bytesRead += other.bytesRead;
    bytesDecoded += other.bytesDecoded;
    return *this;
  }
  /// What was counted since `before`.
  friend ColumnCounts operator-(ColumnCounts now, const ColumnCounts& before) {
    now.blocksCompared -= before.blocksCompared;
    now.blocksDecoded -= before.blocksDecoded;
    now.bytesRead -= before.bytesRead;
    now.bytesDecoded -= before.bytesDecoded;
    return now;
  }
};

/// Reads a column block by block, each part when it is first asked for. Codes of ColumnReader, with
/// the column and the block named. One thread at a time.
class BlockColumn {
 public:
  BlockColumn(Cloud& cloud, const PlanColumn& column)
      : name_(column.name),
        type_(column.type),
        reader_(cloud.GetPointCloud().GetDataRepository(), column.columnId, column.type) {}

  /// Goes to a node's block and reads its entry; kBadRecord when it has not the node's points.
  Outcome Enter(const OOCPCOctreeAcceleratorNode& node);
  [[nodiscard]] const oocpc::BlockEntry& GetEntry() const { return entry_; }
  [[nodiscard]] oocpc::ColumnType GetType() const { return type_; }
  /// The block as it is stored, checked.
  Outcome ReadStored(std::span<const std::uint8_t>& stored);
  /// The block's values, one after the other. They stay as they are until the next Enter.
  Outcome ReadValues(std::span<const std::uint8_t>& values);
  [[nodiscard]] const ColumnCounts& GetCounts() const { return counts_; }
  /// A failure of this block.
  [[nodiscard]] Outcome Fail(HRESULT code) const;

 private:
  std::string name_;
  oocpc::ColumnType type_;
  oocpc::ColumnReader reader_;
  oocpc::BlockEntry entry_;
  std::uint64_t block_ = 0;
  bool isDecoded_ = false;
  bool isChecked_ = false;
  std::span<const std::uint8_t> stored_;
  std::vector<std::uint8_t> values_;
  ColumnCounts counts_;
};

}  // namespace tarnhost
