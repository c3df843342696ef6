// Keeps the points of pieces until they are built: in memory, or in a temporary file.
#include "host/build/PieceStore.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/build/FirstFailure.h"

namespace tarnhost {

namespace {

/// Points dealt at once.
constexpr std::uint64_t kRun = 1u << 15;

/// What a thread sorts with.
std::vector<CodedPoint>& SortScratch() {
  thread_local std::vector<CodedPoint> scratch;
  return scratch;
}

/// Rows of records grouped by piece, in their order within a piece.
struct GroupedRows {
  struct Group {
    std::uint32_t piece;
    std::uint32_t begin;  ///< in rows
  };
  std::vector<std::uint32_t> rows;
  std::vector<Group> groups;
};

GroupedRows GroupByPiece(std::span<const std::uint32_t> pieces) {
  // Neighbours in a scan mostly lie in the same piece: a few pieces, each of them often.
  std::vector<std::uint32_t> used(pieces.begin(), pieces.end());
  used.erase(std::unique(used.begin(), used.end()), used.end());
  std::ranges::sort(used);
  used.erase(std::unique(used.begin(), used.end()), used.end());
  const auto placeOf = [&](std::uint32_t piece) {
    return static_cast<std::size_t>(std::ranges::lower_bound(used, piece) - used.begin());
  };
  std::vector<std::uint32_t> counts(used.size() + 1);
  std::vector<std::uint32_t> places(pieces.size());
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const bool same = i > 0 && pieces[i] == pieces[i - 1];
    places[i] = same ? places[i - 1] : static_cast<std::uint32_t>(placeOf(pieces[i]));
    ++counts[places[i]];
  }
  GroupedRows grouped;
  std::uint32_t begin = 0;
  for (std::size_t i = 0; i < used.size(); ++i) {
    grouped.groups.push_back({used[i], begin});
    begin += std::exchange(counts[i], begin);
  }
  grouped.rows.resize(pieces.size());
  for (std::uint32_t i = 0; i < places.size(); ++i) grouped.rows[counts[places[i]]++] = i;
  return grouped;
}

/// A run of points, their records side by side with those of the same piece.
struct DealtRun {
  std::uint64_t end = 0;
  std::vector<std::uint8_t> records;
  std::vector<GroupedRows::Group> groups;
};

DealtRun Deal(const PointSet& points, std::uint64_t first, std::uint64_t count,
              const PieceTree& pieces, const PointCoder& coder) {
  const std::size_t recordBytes = points.GetRecordBytes();
  std::vector<std::uint8_t> records(count * recordBytes);
  points.ReadRecords(first, count, records.data());
  std::vector<std::uint64_t> codes(count);
  coder.CodesOfRecords(records, recordBytes, codes);
  std::vector<std::uint32_t> pieceOf(count);
  for (std::size_t i = 0; i < count; ++i) pieceOf[i] = pieces.FindPiece(codes[i]);
  GroupedRows grouped = GroupByPiece(pieceOf);
  DealtRun run{first + count, std::vector<std::uint8_t>(records.size()), std::move(grouped.groups)};
  std::uint8_t* to = run.records.data();
  for (const std::uint32_t row : grouped.rows) {
    CopyRecord(to, records.data() + row * recordBytes, recordBytes);
    to += recordBytes;
  }
  return run;
}

Outcome AppendRun(const DealtRun& run, std::size_t recordBytes, FilePieceStore& store) {
  const std::span<const std::uint8_t> records(run.records);
  for (std::size_t i = 0; i < run.groups.size(); ++i) {
    const std::size_t begin = run.groups[i].begin * recordBytes;
    const std::size_t end =
        i + 1 < run.groups.size() ? run.groups[i + 1].begin * recordBytes : records.size();
    Outcome outcome = store.Append(run.groups[i].piece, records.subspan(begin, end - begin));
    if (!outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

}  // namespace

MemoryPieceStore::MemoryPieceStore(std::span<const std::uint64_t> codes, const PieceTree& pieces,
                                   RecordView records)
    : records_(std::move(records)),
      points_(std::make_unique_for_overwrite<CodedPoint[]>(codes.size())),
      isSorted_(pieces.GetPieces().size()) {
  const std::size_t pieceCount = pieces.GetPieces().size();
  // A stable sort by counting. Runs are as long as it takes for their counts not to outweigh them.
  const std::size_t run = std::max<std::size_t>(kRun, 4 * pieceCount);
  const std::size_t runs = (codes.size() + run - 1) / run;
  std::vector<std::vector<std::uint64_t>> places(runs);
  tbb::parallel_for(std::size_t{0}, runs, [&](std::size_t r) {
    const auto part = codes.subspan(r * run, std::min(run, codes.size() - r * run));
    places[r].resize(pieceCount);
    for (const std::uint64_t code : part) ++places[r][pieces.FindPiece(code)];
  });
  begins_.resize(pieceCount + 1);
  std::uint64_t place = 0;
  for (std::size_t piece = 0; piece < pieceCount; ++piece) {
    begins_[piece] = place;
    for (auto& counts : places) place += std::exchange(counts[piece], place);
  }
  begins_[pieceCount] = place;
  tbb::parallel_for(std::size_t{0}, runs, [&](std::size_t r) {
    const std::size_t end = std::min(codes.size(), (r + 1) * run);
    for (std::size_t i = r * run; i < end; ++i) {
      points_[places[r][pieces.FindPiece(codes[i])]++] = {codes[i], i};
    }
  });
}

Outcome MemoryPieceStore::Load(std::uint32_t piece, LoadedPiece& loaded) {
  loaded.points = {points_.get() + begins_[piece], points_.get() + begins_[piece + 1]};
  loaded.records = records_;
  if (isSorted_[piece] == 0) {
    SortByCode(loaded.points, SortScratch());
    isSorted_[piece] = 1;
  }
  return Outcome::Success();
}

FilePieceStore::FilePieceStore(std::unique_ptr<TemporaryFile> file, std::size_t pieceCount,
                               std::size_t recordBytes, std::size_t bufferBytes,
                               const PointCoder& coder)
    : file_(std::move(file)),
      recordBytes_(recordBytes),
      bufferBytes_(bufferBytes),
      coder_(coder),
      buffers_(pieceCount),
      chunks_(pieceCount) {}

Outcome FilePieceStore::Append(std::uint32_t piece, std::span<const std::uint8_t> records) {
  std::vector<std::uint8_t>& buffer = buffers_[piece];
  buffer.insert(buffer.end(), records.begin(), records.end());
  return buffer.size() < bufferBytes_ ? Outcome::Success() : Flush(piece);
}

Outcome FilePieceStore::Finish() {
  for (std::uint32_t piece = 0; piece < buffers_.size(); ++piece) {
    if (Outcome outcome = Flush(piece); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

Outcome FilePieceStore::Flush(std::uint32_t piece) {
  std::vector<std::uint8_t>& buffer = buffers_[piece];
  if (buffer.empty()) return Outcome::Success();
  Chunk chunk{0, buffer.size()};
  if (Outcome outcome = file_->Append(buffer, chunk.offset); !outcome.Ok()) return outcome;
  chunks_[piece].push_back(chunk);
  std::vector<std::uint8_t>().swap(buffer);
  return Outcome::Success();
}

Outcome FilePieceStore::Load(std::uint32_t piece, LoadedPiece& loaded) {
  std::size_t bytes = 0;
  for (const Chunk& chunk : chunks_[piece]) bytes += chunk.bytes;
  loaded.ownRecords.resize(bytes);
  std::span<std::uint8_t> to(loaded.ownRecords);
  for (const Chunk& chunk : chunks_[piece]) {
    if (Outcome outcome = file_->Read(chunk.offset, to.first(chunk.bytes)); !outcome.Ok()) {
      return outcome;
    }
    to = to.subspan(chunk.bytes);
  }
  loaded.records = RecordView(loaded.ownRecords.data(), recordBytes_);
  std::vector<std::uint64_t> codes(bytes / recordBytes_);
  coder_.CodesOfRecords(loaded.ownRecords, recordBytes_, codes);
  loaded.ownPoints.resize(codes.size());
  for (std::size_t row = 0; row < codes.size(); ++row) loaded.ownPoints[row] = {codes[row], row};
  loaded.points = loaded.ownPoints;
  SortByCode(loaded.points, SortScratch());
  return Outcome::Success();
}

Outcome FilePieceStore::ReadRecords(std::uint32_t piece, std::uint64_t first,
                                    std::span<std::uint8_t> out) const {
  std::uint64_t skip = first * recordBytes_;
  for (const Chunk& chunk : chunks_[piece]) {
    if (out.empty()) break;
    if (skip >= chunk.bytes) {
      skip -= chunk.bytes;
      continue;
    }
    const auto bytes =
        static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), chunk.bytes - skip));
    Outcome outcome = file_->Read(chunk.offset + skip, out.first(bytes));
    if (!outcome.Ok()) return outcome;
    out = out.subspan(bytes);
    skip = 0;
  }
  return Outcome::Success();
}

Outcome DealIntoFile(const PointSet& points, const PieceTree& pieces, const PointCoder& coder,
                     const std::function<bool(std::uint64_t)>& report, FilePieceStore& store) {
  using Rows = std::pair<std::uint64_t, std::uint64_t>;
  std::uint64_t next = 0;
  FirstFailure failure;
  const auto read = [&](tbb::flow_control& control) {
    const std::uint64_t first = next;
    if (first >= points.GetPointCount() || !failure.HasNone()) control.stop();
    next = std::min(first + kRun, points.GetPointCount());
    return Rows(first, next - first);
  };
  const auto deal = [&](const Rows& rows) {
    return Deal(points, rows.first, rows.second, pieces, coder);
  };
  const auto append = [&](const DealtRun& run) {
    Outcome outcome = AppendRun(run, points.GetRecordBytes(), store);
    if (outcome.Ok() && !report(run.end)) outcome = Outcome::FromCode(oocpc::result::kStopped);
    if (!outcome.Ok()) failure.Note(std::move(outcome));
  };
  const std::size_t lines = 2 * static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
  tbb::parallel_pipeline(
      lines, tbb::make_filter<void, Rows>(tbb::filter_mode::serial_in_order, read) &
                 tbb::make_filter<Rows, DealtRun>(tbb::filter_mode::parallel, deal) &
                 tbb::make_filter<DealtRun, void>(tbb::filter_mode::serial_in_order, append));
  return failure.Get().Ok() ? store.Finish() : failure.Get();
}

}  // namespace tarnhost
