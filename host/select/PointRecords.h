// Point records as the evaluator reads them: one row a point, one field a metadata name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/QueryTyping.h"

namespace tarnhost {

/// Lays out records for the fields of a query and fills them from the blocks of nodes. One thread
/// at a time.
class PointRecords {
 public:
  static Outcome Open(Cloud& cloud, std::vector<RecordField> fields, PointRecords& records);

  // What the evaluator wants to know of the layout, field by field.
  [[nodiscard]] std::vector<std::string> GetNames() const;
  [[nodiscard]] const std::vector<unsigned>& GetSizes() const { return sizes_; }
  [[nodiscard]] const std::vector<unsigned>& GetOffsets() const { return offsets_; }
  /// Bytes of one record.
  [[nodiscard]] unsigned GetStride() const { return stride_; }

  /// Reads what the fields need of a node's own points.
  Outcome ReadNode(const OOCPCOctreeAcceleratorNode& node) { return ReadPoints(node); }
  /// The same of a run of points.
  Outcome ReadRange(const PointRange& points) { return ReadPoints(points); }
  /// Fills the records of the points [first, first + count) of those read.
  const char* Fill(std::uint32_t first, std::uint32_t count);

 private:
  template <typename Points>
  Outcome ReadPoints(const Points& points);
  Outcome CheckStrings() const;
  Outcome PlaceFields();
  Outcome LoadStrings();
  void FillField(std::size_t field, std::uint32_t first, std::uint32_t count);
  void FillFromColumn(std::size_t field, std::uint32_t first, std::uint32_t count);

  Cloud* cloud_ = nullptr;
  std::vector<RecordField> fields_;
  std::vector<unsigned> sizes_;
  std::vector<unsigned> offsets_;
  unsigned stride_ = 8;
  BlockReader reader_;
  bool needsPositions_ = false;
  std::vector<std::size_t> columnOfField_;
  std::vector<std::vector<std::uint8_t>> columns_;
  std::vector<std::int32_t> stored_;
  std::vector<double> local_;
  std::vector<std::string> strings_;
  std::vector<char> records_;
};

}  // namespace tarnhost
