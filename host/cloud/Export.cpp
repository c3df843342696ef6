// Writes a cloud back into a scan file.
#include "host/cloud/Export.h"

#include <algorithm>

namespace tarnhost {

namespace result = oocpc::result;

Outcome FrameForLas(const Cloud& cloud, LasFrame& frame) {
  if (cloud.GetSources().empty()) {
    return Outcome::Failure(result::kScanUnsupported,
                            "the cloud has no source whose header a LAS file could take",
                            cloud.GetPath().string(), "write a CSV file instead");
  }
  const SourceRecord& source = cloud.GetSources().front();
  frame = {source.leadingBytes, source.trailingBytes, source.pointCount};
  return DropCopcRecords(frame, cloud.GetPath().string());
}

Outcome ColumnsForLas(const Cloud& cloud, const LasRecordLayout& layout,
                      std::vector<std::string>& columns) {
  columns.clear();
  for (const LasField& field : layout.GetFields()) {
    const auto found =
        std::ranges::find(cloud.GetColumns(), field.dimension.name, &CloudColumn::name);
    if (found == cloud.GetColumns().end() || !(found->type == field.dimension.type)) {
      return Outcome::Failure(
          result::kBadRecord,
          "the cloud has no column " + field.dimension.name + " of the type that its source had",
          cloud.GetPath().string(), "run tarn verify on it");
    }
    columns.push_back(field.dimension.name);
  }
  return Outcome::Success();
}

Outcome CheckPointCount(const Cloud& cloud, std::uint64_t written, std::uint64_t stated) {
  if (written == stated) return Outcome::Success();
  return Outcome::Failure(result::kBadRecord,
                          "the octree holds " + std::to_string(written) +
                              " points, but the iteration states " + std::to_string(stated),
                          cloud.GetPath().string(), "run tarn verify on it");
}

namespace {

/// Writes the own points of nodes, one after the other.
class NodeExporter {
 public:
  static Outcome Open(Cloud& cloud, LasWriter& writer, NodeExporter& exporter) {
    std::vector<std::string> columns;
    if (Outcome outcome = ColumnsForLas(cloud, writer.GetLayout(), columns); !outcome.Ok())
      return outcome;
    exporter.writer_ = &writer;
    exporter.values_.resize(columns.size());
    return BlockReader::Open(cloud, columns, exporter.reader_);
  }

  Outcome Write(const OOCPCOctreeAcceleratorNode& node) {
    if (node.ownPointCount == 0) return Outcome::Success();
    if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
    std::vector<std::span<const std::uint8_t>> columns;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      if (Outcome outcome = reader_.ReadColumn(i, node, values_[i]); !outcome.Ok()) return outcome;
      columns.emplace_back(values_[i]);
    }
    return writer_->WriteBlock(node.ownPointCount, xyz_.data(), columns);
  }

 private:
  LasWriter* writer_ = nullptr;
  BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
};

}  // namespace

Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  LasFrame frame;
  if (Outcome outcome = FrameForLas(cloud, frame); !outcome.Ok()) return outcome;
  std::unique_ptr<LasWriter> writer;
  if (Outcome outcome = LasWriter::Create(output, frame, writer); !outcome.Ok()) return outcome;
  NodeExporter exporter;
  if (Outcome outcome = NodeExporter::Open(cloud, *writer, exporter); !outcome.Ok()) return outcome;

  Outcome failure;
  Outcome walk = cloud.WalkNodes(iteration, [&](const OOCPCOctreeAcceleratorNode& node) {
    failure = exporter.Write(node);
    if (failure.Ok() && progress &&
        !progress({"writing", writer->GetPointCount(), record.pointCount})) {
      failure = Outcome::FromCode(result::kStopped);
    }
    return failure.Ok() ? Descend::kIntoChildren : Descend::kStop;
  });
  if (!failure.Ok()) return failure;
  if (!walk.Ok()) return walk;
  pointCount = writer->GetPointCount();
  if (Outcome outcome = CheckPointCount(cloud, pointCount, record.pointCount); !outcome.Ok()) {
    return outcome;
  }
  return writer->Finish(cloud.GetSources().size() == 1 &&
                        pointCount == cloud.GetSources().front().pointCount);
}

}  // namespace tarnhost
