// Selected points as rows behind a header, in the order of storage or in that of their sources.
#include <algorithm>
#include <cstring>

#include "host/cloud/Export.h"
#include "host/cloud/SourceColumns.h"
#include "host/select/Sinks.h"

namespace tarnhost {

namespace {

/// Points written at once: their rows may be several times as long as their records.
constexpr std::size_t kPointsAtOnce = std::size_t{1} << 16;

/// Rows of a node's points, written as they are.
struct RowsPart final : SinkPart {
  std::string rows;
};

/// Points that are still to be put into order.
struct RecordsPart final : SinkPart {
  std::vector<std::uint64_t> places;
  std::vector<std::uint8_t> records;
};

}  // namespace

void TableSink::KeepSourceOrder(std::uint64_t memoryBytes,
                                std::function<bool(const ProgressReport&)> progress) {
  order_.emplace();
  order_->memoryBytes = memoryBytes;
  order_->progress = std::move(progress);
}

Outcome TableSink::Begin(Cloud& cloud) {
  LookAt(cloud);
  if (Outcome outcome = OutputFile::Create(output_, file_); !outcome.Ok()) return outcome;
  header_ = Header(0);
  if (Outcome outcome = file_->Write(header_); !outcome.Ok()) return outcome;
  std::vector<std::string> names;
  for (const CloudColumn& column : cloud.GetColumns()) names.push_back(column.name);
  if (!HasSourceOrder(cloud)) order_.reset();
  if (order_) {
    if (Outcome outcome = PrepareOrder(cloud, names); !outcome.Ok()) return outcome;
  }
  return values_.Open(cloud, std::move(names));
}

Outcome TableSink::PrepareOrder(Cloud& cloud, const std::vector<std::string>& columns) {
  const auto place = std::ranges::find(columns, kSourceIndexDimension);
  order_->placeColumn = static_cast<std::size_t>(place - columns.begin());
  Outcome outcome = SelectedValues::Open(cloud, columns, order_->values);
  if (!outcome.Ok()) return outcome;
  return MakeSourceOrder(cloud, order_->values.GetRecordBytes(), order_->memoryBytes, output_,
                         order_->records);
}

Outcome TableSink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                           std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  const SelectedValues* values = nullptr;
  if (Outcome outcome = values_.Read(node, points, values); !outcome.Ok()) return outcome;
  if (order_) {
    auto made = std::make_unique<RecordsPart>();
    const auto places = values->GetColumn(order_->placeColumn);
    made->places.resize(values->GetCount());
    std::memcpy(made->places.data(), places.data(), places.size());
    values->CopyRecords(made->records);
    part = std::move(made);
  } else {
    auto made = std::make_unique<RowsPart>();
    AppendRows(*values, made->rows);
    part = std::move(made);
  }
  return Outcome::Success();
}

Outcome TableSink::Consume(const OOCPCOctreeAcceleratorNode& /*node*/,
                           std::span<const std::uint32_t> /*points*/, SinkPart* part) {
  if (!order_) return file_->Write(static_cast<RowsPart&>(*part).rows);
  const auto& made = static_cast<RecordsPart&>(*part);
  return order_->records->Put(made.places, made.records);
}

Outcome TableSink::WriteInOrder(std::uint64_t count) {
  const std::size_t mostBytes = kPointsAtOnce * order_->values.GetRecordBytes();
  std::uint64_t done = 0;
  std::string rows;
  return order_->records->Give([&](std::span<const std::uint8_t> records) {
    while (!records.empty()) {
      const auto some = records.first(std::min(records.size(), mostBytes));
      records = records.subspan(some.size());
      order_->values.TakeRecords(some);
      rows.clear();
      AppendRows(order_->values, rows);
      if (Outcome outcome = file_->Write(rows); !outcome.Ok()) return outcome;
      done += order_->values.GetCount();
      if (order_->progress && !order_->progress({"writing", done, count})) {
        return Outcome::FromCode(oocpc::result::kStopped);
      }
    }
    return Outcome::Success();
  });
}

Outcome TableSink::End(const SelectReport& report) {
  if (order_) {
    if (Outcome outcome = WriteInOrder(report.selected); !outcome.Ok()) return outcome;
  }
  // What is written to may be a pipe, which does not go back.
  if (const std::string header = Header(report.selected); header != header_) {
    const std::vector<std::uint8_t> bytes(header.begin(), header.end());
    if (Outcome outcome = file_->Overwrite(0, bytes); !outcome.Ok()) return outcome;
  }
  return file_->Commit();
}

}  // namespace tarnhost
