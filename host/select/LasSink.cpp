// Selected points as a LAS file.
#include <cstring>

#include "host/cloud/Export.h"
#include "host/select/Sinks.h"

namespace tarnhost {

namespace {

/// Keeps the values of `points`, in place; they ascend.
void Compact(std::vector<std::uint8_t>& values, std::span<const std::uint32_t> points,
             std::size_t bytes) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::memmove(values.data() + i * bytes, values.data() + points[i] * bytes, bytes);
  }
  values.resize(points.size() * bytes);
}

std::string Ending(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  for (char& letter : ending) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return ending;
}

}  // namespace

Outcome MakeFileSink(const std::filesystem::path& output, std::unique_ptr<SelectionSink>& sink) {
  const std::string ending = Ending(output);
  if (ending == ".las" || ending == ".laz") {
    sink = std::make_unique<LasSink>(output);
  } else if (ending == ".csv") {
    sink = std::make_unique<CsvSink>(output);
  } else {
    return Outcome::Failure(oocpc::result::kScanUnsupported,
                            "points cannot be written as \"" + ending + "\"", output.string(),
                            "let the name end in .las, .laz or .csv");
  }
  return Outcome::Success();
}

Outcome LasSink::Begin(Cloud& cloud) {
  cloud_ = &cloud;
  LasFrame frame;
  if (Outcome outcome = FrameForLas(cloud, frame); !outcome.Ok()) return outcome;
  if (Outcome outcome = LasWriter::Create(output_, frame, writer_); !outcome.Ok()) return outcome;
  std::vector<std::string> names;
  if (Outcome outcome = ColumnsForLas(cloud, writer_->GetLayout(), names); !outcome.Ok()) return outcome;
  columns_.resize(names.size());
  return BlockReader::Open(cloud, names, reader_);
}

Outcome LasSink::Consume(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points) {
  if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::memmove(xyz_.data() + 3 * i, xyz_.data() + 3 * std::size_t{points[i]}, 12);
  }
  std::vector<std::span<const std::uint8_t>> values;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (Outcome outcome = reader_.ReadColumn(i, node, columns_[i]); !outcome.Ok()) return outcome;
    Compact(columns_[i], points, oocpc::ValueBytes(reader_.GetContainer(i).GetDeliveredType()));
    values.emplace_back(columns_[i]);
  }
  return writer_->WriteBlock(points.size(), xyz_.data(), values);
}

Outcome LasSink::End(const SelectReport& report) {
  const std::vector<SourceRecord>& sources = cloud_->GetSources();
  return writer_->Finish(sources.size() == 1 && report.selected == sources.front().pointCount);
}

}  // namespace tarnhost
