// Which sink a file name asks for, and what sinks share.
#include "host/select/Sinks.h"

namespace tarnhost {

namespace {

std::string Ending(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  for (char& letter : ending) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return ending;
}

/// What the sinks of a tee made.
struct TeePart final : SinkPart {
  std::vector<std::unique_ptr<SinkPart>> parts;
};

}  // namespace

std::unique_ptr<TableSink> MakeTableSink(const std::filesystem::path& output) {
  const std::string ending = Ending(output);
  if (ending == ".csv") return std::make_unique<CsvSink>(output);
  if (ending == ".ply") return std::make_unique<PlySink>(output);
  if (ending == ".pcd") return std::make_unique<PcdSink>(output);
  return nullptr;
}

Outcome MakeFileSink(const std::filesystem::path& output, std::unique_ptr<SelectionSink>& sink) {
  const std::string ending = Ending(output);
  if (ending == ".las" || ending == ".laz") {
    sink = std::make_unique<LasSink>(output);
  } else {
    sink = MakeTableSink(output);
  }
  if (sink != nullptr) return Outcome::Success();
  return Outcome::Failure(oocpc::result::kScanUnsupported,
                          "points cannot be written as \"" + ending + "\"", output.string(),
                          "let the name end in .las, .laz, .ply, .pcd or .csv");
}

std::vector<std::string> ComponentNames(const CloudColumn& column) {
  if (column.name == "DEF_COLOR" && column.type.components == 3) return {"red", "green", "blue"};
  if (column.type.components == 1) return {column.name};
  std::vector<std::string> names;
  for (std::size_t i = 0; i < column.type.components; ++i) {
    names.push_back(column.name + "_" + std::to_string(i));
  }
  return names;
}

Outcome TeeSink::Begin(Cloud& cloud) {
  for (SelectionSink* sink : sinks_) {
    if (Outcome outcome = sink->Begin(cloud); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

Outcome TeeSink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  auto made = std::make_unique<TeePart>();
  made->parts.resize(sinks_.size());
  for (std::size_t i = 0; i < sinks_.size(); ++i) {
    if (Outcome outcome = sinks_[i]->Prepare(node, points, made->parts[i]); !outcome.Ok()) {
      return outcome;
    }
  }
  part = std::move(made);
  return Outcome::Success();
}

Outcome TeeSink::Consume(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points, SinkPart* part) {
  auto& made = static_cast<TeePart&>(*part);
  for (std::size_t i = 0; i < sinks_.size(); ++i) {
    if (Outcome outcome = sinks_[i]->Consume(node, points, made.parts[i].get()); !outcome.Ok()) {
      return outcome;
    }
  }
  return Outcome::Success();
}

Outcome TeeSink::End(const SelectReport& report) {
  for (SelectionSink* sink : sinks_) {
    if (Outcome outcome = sink->End(report); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

}  // namespace tarnhost
