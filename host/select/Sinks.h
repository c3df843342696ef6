// Where selected points go: LAS, LAZ and CSV files.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/common/OutputFile.h"
#include "host/formats/LasWriter.h"
#include "host/select/Select.h"

namespace tarnhost {

/// Makes the sink for a file by the ending of its name: .las, .laz or .csv. kScanUnsupported for others.
Outcome MakeFileSink(const std::filesystem::path& output, std::unique_ptr<SelectionSink>& sink);

/// Writes selected points to a LAS or LAZ file with the header and records of the cloud's first source.
class LasSink final : public SelectionSink {
 public:
  explicit LasSink(std::filesystem::path output) : output_(std::move(output)) {}
  Outcome Begin(Cloud& cloud) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                  std::span<const std::uint32_t> points) override;
  Outcome End(const SelectReport& report) override;

 private:
  std::filesystem::path output_;
  Cloud* cloud_ = nullptr;
  std::unique_ptr<LasWriter> writer_;
  BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> columns_;
};

/// Writes selected points as text: a line of names, then a line a point. Coordinates are the
/// source's, with as many decimals as its scale has; other numbers as short as they can be read
/// back without loss.
class CsvSink final : public SelectionSink {
 public:
  explicit CsvSink(std::filesystem::path output) : output_(std::move(output)) {}
  Outcome Begin(Cloud& cloud) override;
  Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                  std::span<const std::uint32_t> points) override;
  Outcome End(const SelectReport& report) override;

 private:
  void AppendCoordinates(std::uint32_t point);
  void AppendColumn(std::size_t column, std::uint32_t point);
  [[nodiscard]] std::string HeaderLine() const;

  std::filesystem::path output_;
  Cloud* cloud_ = nullptr;
  std::unique_ptr<OutputFile> file_;
  BlockReader reader_;
  std::array<int, 3> decimals_{};
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> columns_;
  std::string lines_;
};

/// Decimals that show every multiple of `scale` exactly, or -1 when no 15 do.
[[nodiscard]] int DecimalsOf(double scale);

}  // namespace tarnhost
