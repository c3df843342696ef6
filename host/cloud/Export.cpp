// Writes a cloud back into a scan file.
#include "host/cloud/Export.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "host/cloud/CloudFacts.h"
#include "host/cloud/MergedFrame.h"
#include "host/cloud/SourceColumns.h"
#include "host/common/System.h"

namespace tarnhost {

namespace result = oocpc::result;

Outcome FrameForLas(const Cloud& cloud, LasFrame& frame) {
  if (cloud.GetSources().empty()) return MakeMergedFrame(cloud, frame);
  const SourceRecord& source = cloud.GetSources().front();
  const std::optional<LasHeader> header = ReadSourceHeader(source);
  if (!header || !HoldsColumns(cloud, *header)) return MakeMergedFrame(cloud, frame);
  frame = {source.leadingBytes, source.trailingBytes, source.pointCount};
  return DropCopcRecords(frame, cloud.GetPath().string());
}

namespace {

const CloudColumn* FindColumn(const Cloud& cloud, const std::string& name) {
  const auto found = std::ranges::find(cloud.GetColumns(), name, &CloudColumn::name);
  return found == cloud.GetColumns().end() ? nullptr : &*found;
}

/// The column that a field of a LAS file takes; null for one that is zero. A column of a name that
/// LAS has for something else is described as extra bytes of that name, which a layout numbers.
const CloudColumn* ColumnFor(const Cloud& cloud, const LasField& field) {
  constexpr std::string_view kNumbered = "_2";
  const std::string& name = field.dimension.name;
  const CloudColumn* column = FindColumn(cloud, name);
  if (column == nullptr && name.ends_with(kNumbered)) {
    column = FindColumn(cloud, name.substr(0, name.size() - kNumbered.size()));
  }
  const bool fits = column != nullptr && CanWrite(column->type, field.dimension.type);
  return fits ? column : nullptr;
}

}  // namespace

Outcome ColumnsForLas(const Cloud& cloud, const LasRecordLayout& layout,
                      std::vector<std::string>& columns) {
  columns.clear();
  for (const LasField& field : layout.GetFields()) {
    const CloudColumn* const column = ColumnFor(cloud, field);
    const bool isNew =
        column != nullptr && std::ranges::find(columns, column->name) == columns.end();
    columns.push_back(isNew ? column->name : std::string());
  }
  for (const CloudColumn& column : cloud.GetColumns()) {
    if (IsSourceColumn(column) || std::ranges::find(columns, column.name) != columns.end())
      continue;
    return Outcome::Failure(result::kScanUnsupported,
                            "the cloud's " + column.name + " (" +
                                oocpc::ValueTypeName(column.type.value) +
                                ") has no place in such a LAS file",
                            cloud.GetPath().string(), "write a CSV file instead");
  }
  return Outcome::Success();
}

bool IsFirstSource(const Cloud& cloud, std::uint64_t written, std::uint64_t stated) {
  return written == stated && !cloud.GetSources().empty() &&
         written == cloud.GetSources().front().pointCount;
}

Outcome CheckPointCount(const Cloud& cloud, std::uint64_t written, std::uint64_t stated) {
  if (written == stated) return Outcome::Success();
  return Outcome::Failure(result::kBadRecord,
                          "the octree holds " + std::to_string(written) +
                              " points, but the iteration states " + std::to_string(stated),
                          cloud.GetPath().string(), "run tarn verify on it");
}

namespace {

/// Reads the own points of nodes as records of a LAS file.
class NodeFormatter {
 public:
  static Outcome Open(Cloud& cloud, const LasWriter& writer, NodeFormatter& formatter) {
    std::vector<std::string> columns;
    if (Outcome outcome = ColumnsForLas(cloud, writer.GetLayout(), columns); !outcome.Ok()) {
      return outcome;
    }
    formatter.writer_ = &writer;
    formatter.values_.resize(columns.size());
    if (HasSourceOrder(cloud)) columns.emplace_back(kSourceIndexDimension);
    return BlockReader::Open(cloud, columns, formatter.reader_);
  }

  Outcome Format(const OOCPCOctreeAcceleratorNode& node, LasRecords& records) {
    if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
    std::vector<std::span<const std::uint8_t>> columns;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      if (Outcome outcome = reader_.ReadColumn(i, node, values_[i]); !outcome.Ok()) return outcome;
      columns.emplace_back(values_[i]);
    }
    return writer_->FormatBlock(node.ownPointCount, xyz_.data(), columns, records);
  }

  /// Places of the node's points in the sources; only in a cloud that has them.
  Outcome ReadPlaces(const OOCPCOctreeAcceleratorNode& node, std::vector<std::uint64_t>& places) {
    Outcome outcome = reader_.ReadColumn(values_.size(), node, bytes_);
    if (!outcome.Ok()) return outcome;
    places.resize(node.ownPointCount);
    std::memcpy(places.data(), bytes_.data(), bytes_.size());
    return outcome;
  }

 private:
  const LasWriter* writer_ = nullptr;
  BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
  std::vector<std::uint8_t> bytes_;
};

class Exporter {
 public:
  Exporter(Cloud& cloud, const ExportOptions& options, const OOCPCUpdateIteration& record)
      : cloud_(cloud), options_(options), record_(record) {}

  Outcome Run(const std::filesystem::path& output, std::uint64_t& pointCount) {
    LasFrame frame;
    if (Outcome outcome = FrameForLas(cloud_, frame); !outcome.Ok()) return outcome;
    if (Outcome outcome = LasWriter::Create(output, frame, writer_); !outcome.Ok()) return outcome;
    if (Outcome outcome = NodeFormatter::Open(cloud_, *writer_, formatter_); !outcome.Ok()) {
      return outcome;
    }
    Outcome outcome = HasSourceOrder(cloud_) ? WriteInSourceOrder(output) : WriteAsStored();
    if (!outcome.Ok()) return outcome;
    pointCount = writer_->GetPointCount();
    outcome = CheckPointCount(cloud_, pointCount, record_.pointCount);
    if (!outcome.Ok()) return outcome;
    return writer_->Finish(IsFirstSource(cloud_, pointCount, record_.pointCount));
  }

 private:
  /// Visits the nodes that have points of their own until one fails.
  template <typename Visit>
  Outcome ForEachNode(const char* stage, const Visit& visit) {
    Outcome failure;
    std::uint64_t done = 0;
    Outcome walk =
        cloud_.WalkNodes(options_.iteration, [&](const OOCPCOctreeAcceleratorNode& node) {
          if (node.ownPointCount > 0) failure = visit(node);
          done += node.ownPointCount;
          if (failure.Ok()) failure = Report(stage, done);
          return failure.Ok() ? Descend::kIntoChildren : Descend::kStop;
        });
    return failure.Ok() ? walk : failure;
  }

  [[nodiscard]] Outcome Report(const char* stage, std::uint64_t done) const {
    const bool goesOn = !options_.progress || options_.progress({stage, done, record_.pointCount});
    return goesOn ? Outcome::Success() : Outcome::FromCode(result::kStopped);
  }

  Outcome WriteAsStored() {
    return ForEachNode("writing", [&](const OOCPCOctreeAcceleratorNode& node) {
      Outcome outcome = formatter_.Format(node, records_);
      return outcome.Ok() ? writer_->Write(records_) : outcome;
    });
  }

  Outcome WriteInSourceOrder(const std::filesystem::path& output) {
    const std::size_t recordBytes = writer_->GetLayout().GetRecordBytes();
    std::unique_ptr<OrderedRecords> ordered;
    Outcome outcome = MakeSourceOrder(cloud_, recordBytes, options_.memoryBytes, output, ordered);
    if (!outcome.Ok()) return outcome;
    LasRecords all;  // what the header says of them
    all.Clear();
    std::vector<std::uint64_t> placesOfNode;
    outcome = ForEachNode("sorting", [&](const OOCPCOctreeAcceleratorNode& node) {
      Outcome read = formatter_.Format(node, records_);
      if (read.Ok()) read = formatter_.ReadPlaces(node, placesOfNode);
      if (!read.Ok()) return read;
      all.Count(records_);
      return ordered->Put(placesOfNode, records_.bytes);
    });
    if (!outcome.Ok()) return outcome;
    return ordered->Give([&](std::span<const std::uint8_t> records) {
      all.bytes.assign(records.begin(), records.end());
      all.pointCount = records.size() / recordBytes;
      if (Outcome written = writer_->Write(all); !written.Ok()) return written;
      all.Clear();
      return Report("writing", writer_->GetPointCount());
    });
  }

  Cloud& cloud_;
  const ExportOptions& options_;
  const OOCPCUpdateIteration& record_;
  std::unique_ptr<LasWriter> writer_;
  NodeFormatter formatter_;
  LasRecords records_;
};

}  // namespace

bool HasSourceOrder(const Cloud& cloud) {
  return std::ranges::any_of(cloud.GetColumns(), [](const CloudColumn& column) {
    return IsSourceIndex(column.name, column.type);
  });
}

Outcome MakeSourceOrder(const Cloud& cloud, std::size_t recordBytes, std::uint64_t memoryBytes,
                        const std::filesystem::path& output,
                        std::unique_ptr<OrderedRecords>& ordered) {
  std::uint64_t places = 0;
  for (const SourceRecord& source : cloud.GetSources()) places += source.pointCount;
  const std::filesystem::path folder =
      output.has_parent_path() ? output.parent_path() : std::filesystem::path(".");
  return OrderedRecords::Create(places, recordBytes,
                                memoryBytes == 0 ? GetMachineMemoryBytes() / 4 : memoryBytes,
                                folder, ordered);
}

Outcome ExportLas(Cloud& cloud, const ExportOptions& options, const std::filesystem::path& output,
                  std::uint64_t& pointCount) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(options.iteration, record); !outcome.Ok()) {
    return outcome;
  }
  return Exporter(cloud, options, record).Run(output, pointCount);
}

Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount) {
  ExportOptions options;
  options.iteration = iteration;
  options.progress = progress;
  return ExportLas(cloud, options, output, pointCount);
}

}  // namespace tarnhost
