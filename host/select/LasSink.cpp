// Selected points as a LAS file.
#include "host/cloud/Export.h"
#include "host/select/Sinks.h"

namespace tarnhost {

namespace {

struct LasPart final : SinkPart {
  LasRecords records;
};

}  // namespace

Outcome LasSink::Begin(Cloud& cloud) {
  cloud_ = &cloud;
  LasFrame frame;
  if (Outcome outcome = FrameForLas(cloud, frame); !outcome.Ok()) return outcome;
  if (Outcome outcome = LasWriter::Create(output_, frame, writer_); !outcome.Ok()) return outcome;
  std::vector<std::string> names;
  if (Outcome outcome = ColumnsForLas(cloud, writer_->GetLayout(), names); !outcome.Ok()) {
    return outcome;
  }
  return values_.Open(cloud, std::move(names));
}

Outcome LasSink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  const SelectedValues* values = nullptr;
  if (Outcome outcome = values_.Read(node, points, values); !outcome.Ok()) return outcome;
  std::vector<std::span<const std::uint8_t>> columns;
  for (std::size_t i = 0; i < values->GetColumnCount(); ++i) {
    columns.push_back(values->GetColumn(i));
  }
  auto made = std::make_unique<LasPart>();
  Outcome outcome =
      writer_->FormatBlock(points.size(), values->GetPositions().data(), columns, made->records);
  part = std::move(made);
  return outcome;
}

Outcome LasSink::Consume(const OOCPCOctreeAcceleratorNode& /*node*/,
                         std::span<const std::uint32_t> /*points*/, SinkPart* part) {
  return writer_->Write(static_cast<LasPart&>(*part).records);
}

Outcome LasSink::End(const SelectReport& report) {
  return writer_->Finish(IsFirstSource(*cloud_, report.selected, report.pointCount));
}

}  // namespace tarnhost
