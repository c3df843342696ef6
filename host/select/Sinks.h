// Where selected points go: LAS, LAZ, CSV, PLY and PCD files, statistics, several of these at once.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

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

/// Bytes that a sink made of a node's points and writes as they are.
struct BytesPart final : SinkPart {
  std::string bytes;
};

/// Writes selected points as text: a line of names, then a line a point. Coordinates are the
/// source's, with as many decimals as its scale has; other numbers as short as they can be read
/// back without loss.
class CsvSink final : public SelectionSink {
 public:
  explicit CsvSink(std::filesystem::path output) : output_(std::move(output)) {}
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

 private:
  void AppendCoordinates(const SelectedValues& values, std::size_t point, std::string& lines) const;
  void AppendColumn(const SelectedValues& values, std::size_t column, std::size_t point,
                    std::string& lines) const;
  [[nodiscard]] std::string HeaderLine() const;

  std::filesystem::path output_;
  Cloud* cloud_ = nullptr;
  std::unique_ptr<OutputFile> file_;
  std::array<int, 3> decimals_{};
  SourceCoordinates coordinates_;
  ThreadValues values_;
};

/// Writes selected points as binary rows behind a header that states their number.
class RowSink : public SelectionSink {
 public:
  Outcome Begin(Cloud& cloud) override;
  Outcome Prepare(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  std::unique_ptr<SinkPart>& part) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node, std::span<const std::uint32_t> points,
                  SinkPart* part) override;
  Outcome End(const SelectReport& report) override;

 protected:
  RowSink(std::filesystem::path output, RowRules rules)
      : output_(std::move(output)), rules_(rules) {}
  [[nodiscard]] const RowPacker& GetPacker() const { return packer_; }
  /// The header for `count` points; of the same length for any number of them.
  [[nodiscard]] virtual std::string Header(std::uint64_t count) const = 0;

 private:
  std::filesystem::path output_;
  RowRules rules_;
  RowPacker packer_;
  std::unique_ptr<OutputFile> file_;
  ThreadValues columns_;
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
