// Where selected points go: LAS, LAZ, CSV, PLY and PCD files, statistics, several of these at once.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/cloud/OrderedRecords.h"
#include "host/common/OutputFile.h"
#include "host/formats/LasWriter.h"
#include "host/select/RowPacker.h"
#include "host/select/Select.h"
#include "host/select/SelectedValues.h"

namespace tarnhost {

/// Makes the sink for a file by the ending of its name: .las, .laz, .ply, .pcd or .csv.
/// kScanUnsupported for others.
Outcome MakeFileSink(const std::filesystem::path& output, std::unique_ptr<SelectionSink>& sink);

/// Writes selected points to a LAS or LAZ file with the header and records of the cloud's first
/// source.
class LasSink final : public SelectionSink {
 public:
  explicit LasSink(std::filesystem::path output) : output_(std::move(output)) {}
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

 private:
  std::filesystem::path output_;
  Cloud* cloud_ = nullptr;
  std::unique_ptr<LasWriter> writer_;
  ThreadValues values_;
};

/// What puts the points of a table into the order of their sources.
struct SourceOrder {
  std::uint64_t memoryBytes = 0;
  std::function<bool(const ProgressReport&)> progress;
  std::size_t placeColumn = 0;
  SelectedValues values;  ///< of points in their order
  std::unique_ptr<OrderedRecords> records;
};

/// Writes selected points as rows of a table behind a header, with all columns of the cloud.
class TableSink : public SelectionSink {
 public:
  /// Writes the points in the order of their sources where the cloud knows it, with about so much
  /// memory at most (0: a quarter of the machine's). To be called before Begin.
  void KeepSourceOrder(std::uint64_t memoryBytes,
                       std::function<bool(const ProgressReport&)> progress);
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

 protected:
  explicit TableSink(std::filesystem::path output) : output_(std::move(output)) {}
  /// Comes before all others.
  virtual void LookAt(Cloud& cloud) = 0;
  /// The header for `count` points; of the same length for any number of them.
  [[nodiscard]] virtual std::string Header(std::uint64_t count) const = 0;
  /// Called by several threads at once.
  virtual void AppendRows(const SelectedValues& values, std::string& rows) const = 0;

 private:
  Outcome PrepareOrder(Cloud& cloud, const std::vector<std::string>& columns);
  Outcome WriteInOrder(std::uint64_t count);

  std::filesystem::path output_;
  std::unique_ptr<OutputFile> file_;
  std::string header_;  ///< as it was written at first
  ThreadValues values_;
  std::optional<SourceOrder> order_;
};

/// Makes the sink for a table by the ending of its name: .ply, .pcd or .csv; null for others.
std::unique_ptr<TableSink> MakeTableSink(const std::filesystem::path& output);

/// Writes selected points as text: a line of names, then a line a point. Coordinates are the
/// source's, with as many decimals as its scale has; other numbers as short as they can be read
/// back without loss.
class CsvSink final : public TableSink {
 public:
  explicit CsvSink(std::filesystem::path output) : TableSink(std::move(output)) {}

 private:
  void LookAt(Cloud& cloud) override;
  [[nodiscard]] std::string Header(std::uint64_t count) const override;
  void AppendRows(const SelectedValues& values, std::string& rows) const override;
  void AppendCoordinates(const SelectedValues& values, std::size_t point, std::string& lines) const;
  void AppendColumn(const SelectedValues& values, std::size_t column, std::size_t point,
                    std::string& lines) const;

  Cloud* cloud_ = nullptr;
  std::array<int, 3> decimals_{};
  SourceCoordinates coordinates_;
};

/// Writes selected points as binary rows behind a header that states their number.
class RowSink : public TableSink {
 protected:
  RowSink(std::filesystem::path output, RowRules rules)
      : TableSink(std::move(output)), rules_(rules) {}
  [[nodiscard]] const RowPacker& GetPacker() const { return packer_; }

 private:
  void LookAt(Cloud& cloud) override { packer_ = RowPacker(cloud, rules_); }
  void AppendRows(const SelectedValues& values, std::string& rows) const override {
    packer_.Append(values, rows);
  }

  RowRules rules_;
  RowPacker packer_;
};

/// Writes selected points as binary little-endian PLY: x, y and z are the source's coordinates as
/// it had them, doubles or floats, the rest goes by the names of the columns. 64-bit integers,
/// which PLY lacks, become doubles; strings are their numbers in the dictionary.
class PlySink final : public RowSink {
 public:
  explicit PlySink(std::filesystem::path output) : RowSink(std::move(output), {false, false}) {}

 private:
  [[nodiscard]] std::string Header(std::uint64_t count) const override;
};

/// Writes selected points as binary PCD, in the same way; 8-bit colours are packed, as that format
/// has them.
class PcdSink final : public RowSink {
 public:
  explicit PcdSink(std::filesystem::path output) : RowSink(std::move(output), {true, true}) {}

 private:
  [[nodiscard]] std::string Header(std::uint64_t count) const override;
};

/// Hands points to several sinks, one after the other.
class TeeSink final : public SelectionSink {
 public:
  explicit TeeSink(std::vector<SelectionSink*> sinks) : sinks_(std::move(sinks)) {}
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

 private:
  std::vector<SelectionSink*> sinks_;  ///< borrowed
};

/// The names under which files show the components of a column: red, green and blue of the colours.
[[nodiscard]] std::vector<std::string> ComponentNames(const CloudColumn& column);

/// Decimals that show every multiple of `scale` exactly, or -1 when no 15 do.
[[nodiscard]] int DecimalsOf(double scale);

}  // namespace tarnhost
