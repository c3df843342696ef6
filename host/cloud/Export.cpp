// Writes a cloud back into a scan file.
#include "host/cloud/Export.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "host/cloud/CloudFacts.h"
#include "host/cloud/Damage.h"
#include "host/cloud/LargestValues.h"
#include "host/cloud/LasSources.h"
#include "host/cloud/MergedFrame.h"
#include "host/cloud/NodeWalk.h"
#include "host/cloud/SourceColumns.h"
#include "host/common/System.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// The first source's frame, with what records only others have.
Outcome ExtendFirstFrame(const Cloud& cloud, LasFrame& frame) {
  const std::vector<LasSource> sources = ListLasSources(cloud);
  const LasSource& first = sources.front();
  const LasSource* const system = FindSystemSource(sources);
  const std::string where = cloud.GetPath().string();
  frame = {first.record->leadingBytes, first.record->trailingBytes, first.record->pointCount};
  const bool hasOtherSystem = system != nullptr && system != &first;
  Outcome outcome = DropRecords(
      frame,
      [&](const LasVariableRecord& record) {
        return IsCopcRecord(record) || (hasOtherSystem && IsProjectionRecord(record));
      },
      where);
  if (!outcome.Ok()) return outcome;
  LasRecordBytes added;
  for (const ChosenRecord& chosen : ChooseRecords(sources)) {
    if (chosen.source == &first) continue;
    const auto bytes = chosen.source->GetBytes(*chosen.record);
    auto& to = chosen.record->extended ? added.extended : added.plain;
    to.insert(to.end(), bytes.begin(), bytes.end());
    ++(chosen.record->extended ? added.extendedCount : added.plainCount);
  }
  if (added.plainCount + added.extendedCount == 0) return outcome;
  return AddRecords(frame, added, ChooseEncoding(sources), where);
}

}  // namespace

Outcome FrameForLas(Cloud& cloud, LasFrame& frame) {
  LargestValues largest(cloud);
  if (cloud.GetSources().empty()) return MakeMergedFrame(cloud, largest, frame);
  const SourceRecord& source = cloud.GetSources().front();
  const std::optional<LasHeader> header = ReadSourceHeader(source);
  if (!header || !HoldsColumns(cloud, *header, largest)) {
    return MakeMergedFrame(cloud, largest, frame);
  }
  return ExtendFirstFrame(cloud, frame);
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
  const bool fits = column != nullptr && CanWrite(column->type, field.dimension);
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
    formatter.hasPlaces_ = HasSourceOrder(cloud);
    if (formatter.hasPlaces_) columns.emplace_back(kSourceIndexDimension);
    return BlockReader::Open(cloud, columns, formatter.reader_);
  }

  /// Takes the node's own points, of which there are some.
  Outcome Read(const OOCPCOctreeAcceleratorNode& node) {
    if (Outcome outcome = reader_.ReadPositions(node, xyz_); !outcome.Ok()) return outcome;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      if (Outcome outcome = reader_.ReadColumn(i, node, values_[i]); !outcome.Ok()) return outcome;
    }
    places_.clear();
    if (!hasPlaces_) return Outcome::Success();
    Outcome outcome = reader_.ReadColumn(values_.size(), node, bytes_);
    if (!outcome.Ok()) return outcome;
    places_.resize(node.ownPointCount);
    std::memcpy(places_.data(), bytes_.data(), bytes_.size());
    return outcome;
  }

  /// The points that were read last.
  Outcome Format(LasRecords& records) const {
    const std::vector<std::span<const std::uint8_t>> columns(values_.begin(), values_.end());
    return writer_->FormatBlock(xyz_.size() / 3, xyz_.data(), columns, records);
  }

  /// Their places in the sources; empty in a cloud that does not know them.
  [[nodiscard]] const std::vector<std::uint64_t>& GetPlaces() const { return places_; }

 private:
  const LasWriter* writer_ = nullptr;
  BlockReader reader_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
  bool hasPlaces_ = false;
  std::vector<std::uint64_t> places_;
  std::vector<std::uint8_t> bytes_;
};

class Exporter {
 public:
  Exporter(Cloud& cloud, const ExportOptions& options, const OOCPCUpdateIteration& record)
      : cloud_(cloud), options_(options), record_(record) {}

  Outcome Run(const std::filesystem::path& output, ExportReport& report) {
    LasFrame frame;
    if (Outcome outcome = FrameForLas(cloud_, frame); !outcome.Ok()) return outcome;
    if (Outcome outcome = LasWriter::Create(output, frame, writer_); !outcome.Ok()) return outcome;
    if (Outcome outcome = NodeFormatter::Open(cloud_, *writer_, formatter_); !outcome.Ok()) {
      return outcome;
    }
    Outcome outcome = HasSourceOrder(cloud_) ? WriteInSourceOrder(output) : WriteAsStored();
    if (!outcome.Ok()) return outcome;
    const std::uint64_t written = writer_->GetPointCount();
    report.pointCount = written;
    const bool mayLack = options_.leavesOutDamaged && written < record_.pointCount;
    report.damagedPoints = mayLack ? record_.pointCount - written : 0;
    outcome = CheckPointCount(cloud_, written + report.damagedPoints, record_.pointCount);
    if (!outcome.Ok()) return outcome;
    return writer_->Finish(IsFirstSource(cloud_, written, record_.pointCount));
  }

 private:
  /// Reads and formats the nodes that have points of their own, and puts each.
  template <typename Put>
  Outcome ForEachNode(const char* stage, const Put& put) {
    NodeWalk walk(cloud_,
                  options_.leavesOutDamaged ? DamagedNodes::kLeaveOut : DamagedNodes::kFail);
    OOCPCOctreeAcceleratorNode node;
    bool hasNode = false;
    std::uint64_t done = 0;
    for (Outcome next = walk.Start(options_.iteration);; next = Report(stage, done)) {
      if (next.Ok()) next = walk.Next(node, hasNode);
      if (!next.Ok() || !hasNode) return next;
      done += node.ownPointCount;
      if (node.ownPointCount == 0) continue;
      Outcome outcome = formatter_.Read(node);
      if (IsDamage(outcome.code) && options_.leavesOutDamaged) continue;
      if (outcome.Ok()) outcome = formatter_.Format(records_);
      if (outcome.Ok()) outcome = put();
      if (!outcome.Ok()) return outcome;
    }
  }

  [[nodiscard]] Outcome Report(const char* stage, std::uint64_t done) const {
    const bool goesOn = !options_.progress || options_.progress({stage, done, record_.pointCount});
    return goesOn ? Outcome::Success() : Outcome::FromCode(result::kStopped);
  }

  Outcome WriteAsStored() {
    return ForEachNode("writing", [&] { return writer_->Write(records_); });
  }

  Outcome WriteInSourceOrder(const std::filesystem::path& output) {
    const std::size_t recordBytes = writer_->GetLayout().GetRecordBytes();
    std::unique_ptr<OrderedRecords> ordered;
    Outcome outcome = MakeSourceOrder(cloud_, recordBytes, options_.memoryBytes, output, ordered);
    if (!outcome.Ok()) return outcome;
    LasRecords all;  // what the header says of them
    all.Clear();
    outcome = ForEachNode("sorting", [&] {
      all.Count(records_);
      return ordered->Put(formatter_.GetPlaces(), records_.bytes);
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
                  ExportReport& report) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(options.iteration, record); !outcome.Ok()) {
    return outcome;
  }
  return Exporter(cloud, options, record).Run(output, report);
}

Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount) {
  ExportOptions options;
  options.iteration = iteration;
  options.progress = progress;
  ExportReport report;
  Outcome outcome = ExportLas(cloud, options, output, report);
  pointCount = report.pointCount;
  return outcome;
}

}  // namespace tarnhost
