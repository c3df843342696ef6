// The values of selected points, column by column.
#pragma once

#include <tbb/enumerable_thread_specific.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// Reads the columns of one node after the other and keeps the values of the points selected. One
/// thread at a time.
class SelectedValues {
 public:
  static Outcome Open(Cloud& cloud, const std::vector<std::string>& columns,
                      SelectedValues& values);
  /// `points` ascend and are own points of the node.
  Outcome Read(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points);
  [[nodiscard]] std::size_t GetCount() const { return xyz_.size() / 3; }
  /// Stored integers, three a point.
  [[nodiscard]] std::span<const std::int32_t> GetPositions() const { return xyz_; }
  [[nodiscard]] std::span<const std::uint8_t> GetColumn(std::size_t column) const {
    return columns_[column];
  }
  [[nodiscard]] std::size_t GetColumnCount() const { return columns_.size(); }
  /// The same values point by point: records of one length, with the position and every column.
  [[nodiscard]] std::size_t GetRecordBytes() const;
  void CopyRecords(std::vector<std::uint8_t>& records) const;
  /// Takes the values of such records in place of those that were read.
  void TakeRecords(std::span<const std::uint8_t> records);

 private:
  static constexpr std::size_t kPositionBytes = 3 * sizeof(std::int32_t);

  BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> columns_;
  std::vector<std::size_t> valueBytes_;  ///< of a point, in each column
};

/// The same for any number of threads, each of which reads with its own.
class ThreadValues {
 public:
  Outcome Open(Cloud& cloud, std::vector<std::string> columns);
  /// This thread's values, with those of the points read; they stay until its next Read.
  Outcome Read(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
               const SelectedValues*& values);

 private:
  Cloud* cloud_ = nullptr;
  std::vector<std::string> columns_;
  tbb::enumerable_thread_specific<std::unique_ptr<SelectedValues>> values_;
};

}  // namespace tarnhost
