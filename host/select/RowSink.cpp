// Selected points as binary rows behind a header.
#include "host/select/Sinks.h"

namespace tarnhost {

Outcome RowSink::Begin(Cloud& cloud) {
  packer_ = RowPacker(cloud, rules_);
  if (Outcome outcome = OutputFile::Create(output_, file_); !outcome.Ok()) return outcome;
  std::vector<std::string> names;
  for (const CloudColumn& column : cloud.GetColumns()) names.push_back(column.name);
  if (Outcome outcome = file_->Write(Header(0)); !outcome.Ok()) return outcome;
  return columns_.Open(cloud, std::move(names));
}

Outcome RowSink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  const SelectedValues* values = nullptr;
  if (Outcome outcome = columns_.Read(node, points, values); !outcome.Ok()) return outcome;
  auto made = std::make_unique<BytesPart>();
  packer_.Append(*values, made->bytes);
  part = std::move(made);
  return Outcome::Success();
}

Outcome RowSink::Consume(const OOCPCOctreeAcceleratorNode& /*node*/,
                         std::span<const std::uint32_t> /*points*/, SinkPart* part) {
  return file_->Write(static_cast<BytesPart&>(*part).bytes);
}

Outcome RowSink::End(const SelectReport& report) {
  const std::string header = Header(report.selected);
  const std::vector<std::uint8_t> bytes(header.begin(), header.end());
  if (Outcome outcome = file_->Overwrite(0, bytes); !outcome.Ok()) return outcome;
  return file_->Commit();
}

}  // namespace tarnhost
