// Several scans seen as one numbered set of points.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/build/RecordView.h"
#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// The points of all scans, numbered through in the order of the scans. Const operations are safe
/// from several threads at once.
class PointSet {
 public:
  /// Takes the scans over, which have one layout (kScansDiffer); see JoinScans for others.
  static Outcome Join(std::vector<std::unique_ptr<ScanFile>> scans, PointSet& set);

  /// Texts that have no number in the cloud's dictionary yet, in the order of the numbers that they
  /// get: names of scans, and what the points hold.
  void SetNewStrings(std::vector<std::string> strings) { newStrings_ = std::move(strings); }
  [[nodiscard]] const std::vector<std::string>& GetNewStrings() const { return newStrings_; }

  // As ScanFile, one scan after the other; progress counts the points of all.
  Outcome Prepare(ScanWorkspace& workspace);
  void Release();

  [[nodiscard]] std::uint64_t GetPointCount() const { return firstPoints_.back(); }
  [[nodiscard]] const std::vector<std::unique_ptr<ScanFile>>& GetScans() const { return scans_; }
  [[nodiscard]] const PositionTransform& GetTransform() const { return scans_[0]->GetTransform(); }
  [[nodiscard]] const std::vector<Dimension>& GetDimensions() const {
    return scans_[0]->GetDimensions();
  }
  /// Stored integers of the points [first, first + count): three per point.
  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const;
  /// As ScanFile.
  [[nodiscard]] std::size_t GetRecordBytes() const { return scans_[0]->GetRecordBytes(); }
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const;
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const {
    scans_[0]->ExtractDimension(dimension, records, count, out);
  }
  /// All records, where they lie in memory as ReadRecords gives them; false where one has to be
  /// made.
  [[nodiscard]] bool GetMappedRecords(RecordView& records) const;
  /// The least and the greatest stored integers as the scans state them, which may be wrong; false
  /// when one states none.
  [[nodiscard]] bool GetStatedBox(StoredBox& box) const;

 private:
  [[nodiscard]] std::size_t ScanOf(std::uint64_t point) const;
  template <typename Read>
  void ForEachScan(std::uint64_t first, std::uint64_t count, const Read& read) const;

  std::vector<std::unique_ptr<ScanFile>> scans_;
  std::vector<std::string> newStrings_;
  std::vector<std::uint64_t> firstPoints_{0};  ///< of each scan, and the total at the end
};

}  // namespace tarnhost
