// Keeps the points of pieces until they are built: in memory, or in a temporary file.
#include "host/build/PieceStore.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/build/FirstFailure.h"
#include "host/build/RecordPacking.h"

namespace tarnhost {

namespace {

/// Points that are dealt at once in memory.
constexpr std::uint64_t kRun = 1u << 15;

/// What a thread sorts with.
std::vector<CodedPoint>& SortScratch() {
  thread_local std::vector<CodedPoint> scratch;
  return scratch;
}

/// What a thread reads chunks into.
std::vector<std::uint8_t>& ReadScratch() {
  thread_local std::vector<std::uint8_t> scratch;
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
  std::unique_ptr<std::uint8_t[]> bytes;
  std::span<const std::uint8_t> records;
  std::vector<GroupedRows::Group> groups;
};

DealtRun Deal(const PointSet& points, std::uint64_t first, std::uint64_t count,
              const PieceTree& pieces, const PointCoder& coder) {
  const std::size_t recordBytes = points.GetRecordBytes();
  // Not cleared: each of the two is overwritten as a whole.
  const std::size_t bytes = count * recordBytes;
  const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
  const std::span<const std::uint8_t> records(buffer.get(), bytes);
  points.ReadRecords(first, count, buffer.get());
  std::vector<std::uint64_t> codes(count);
  coder.CodesOfRecords(records, recordBytes, codes);
  std::vector<std::uint32_t> pieceOf(count);
  for (std::size_t i = 0; i < count; ++i) pieceOf[i] = pieces.FindPiece(codes[i]);
  GroupedRows grouped = GroupByPiece(pieceOf);
  DealtRun run{first + count,
               std::make_unique_for_overwrite<std::uint8_t[]>(bytes),
               {},
               std::move(grouped.groups)};
  run.records = {run.bytes.get(), bytes};
  std::uint8_t* to = run.bytes.get();
  for (const std::uint32_t row : grouped.rows) {
    CopyRecord(to, records.data() + row * recordBytes, recordBytes);
    to += recordBytes;
  }
  return run;
}

Outcome AppendRun(const DealtRun& run, std::size_t recordBytes, FilePieceStore& store) {
  for (std::size_t i = 0; i < run.groups.size(); ++i) {
    const std::size_t begin = run.groups[i].begin * recordBytes;
    const std::size_t end =
        i + 1 < run.groups.size() ? run.groups[i + 1].begin * recordBytes : run.records.size();
    Outcome outcome = store.Append(run.groups[i].piece, run.records.subspan(begin, end - begin));
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
  const std::size_t records = buffer.size() / recordBytes_;
  const RecordPacking packing(buffer, recordBytes_);
  const std::size_t headBytes = RecordPacking::GetEncodedBytes(recordBytes_);
  if (headBytes + records * packing.GetPackedBytes() < buffer.size()) {
    packed_.clear();
    packing.Encode(packed_);
    packed_.resize(headBytes + records * packing.GetPackedBytes());
    packing.Pack(buffer, std::span(packed_).subspan(headBytes));
  } else {
    packed_.swap(buffer);
  }
  Chunk chunk{0, static_cast<std::uint32_t>(packed_.size()), static_cast<std::uint32_t>(records)};
  if (Outcome outcome = file_->Append(packed_, chunk.offset); !outcome.Ok()) return outcome;
  chunks_[piece].push_back(chunk);
  std::vector<std::uint8_t>().swap(buffer);
  return Outcome::Success();
}

Outcome FilePieceStore::ReadChunk(const Chunk& chunk, std::uint64_t first,
                                  std::span<std::uint8_t> out) const {
  if (chunk.bytes == chunk.records * recordBytes_) {
    return file_->Read(chunk.offset + first * recordBytes_, out);
  }
  const std::size_t headBytes = RecordPacking::GetEncodedBytes(recordBytes_);
  const std::size_t packedBytes = (chunk.bytes - headBytes) / chunk.records;
  const bool isWhole = first == 0 && out.size() == chunk.records * recordBytes_;
  std::vector<std::uint8_t>& bytes = ReadScratch();
  bytes.resize(isWhole ? chunk.bytes : headBytes);
  if (Outcome outcome = file_->Read(chunk.offset, bytes); !outcome.Ok()) return outcome;
  const auto packing = RecordPacking::Decode(std::span(bytes).first(headBytes), recordBytes_);
  // What is not as it was written would lead out of the chunk.
  if (packing.GetPackedBytes() != packedBytes) {
    return Outcome::FromCode(oocpc::result::kIoError, file_->GetPath().string());
  }
  if (!isWhole) {
    bytes.resize(headBytes + out.size() / recordBytes_ * packedBytes);
    Outcome outcome = file_->Read(chunk.offset + headBytes + first * packedBytes,
                                  std::span(bytes).subspan(headBytes));
    if (!outcome.Ok()) return outcome;
  }
  packing.Unpack(std::span(bytes).subspan(headBytes), out);
  return Outcome::Success();
}

/// Lets the disk fetch what a thread is going to load while this one works.
void FilePieceStore::ReadAhead(std::uint32_t piece) const {
  const auto threads = static_cast<std::uint32_t>(tbb::this_task_arena::max_concurrency());
  if (chunks_.size() - piece <= threads) return;
  for (const Chunk& chunk : chunks_[piece + threads]) file_->ReadAhead(chunk.offset, chunk.bytes);
}

Outcome FilePieceStore::Load(std::uint32_t piece, LoadedPiece& loaded) {
  ReadAhead(piece);
  std::size_t count = 0;
  for (const Chunk& chunk : chunks_[piece]) count += chunk.records;
  // Not cleared: all of it is read into.
  loaded.ownRecords = std::make_unique_for_overwrite<std::uint8_t[]>(count * recordBytes_);
  const std::span<const std::uint8_t> records(loaded.ownRecords.get(), count * recordBytes_);
  std::uint8_t* to = loaded.ownRecords.get();
  for (const Chunk& chunk : chunks_[piece]) {
    const std::size_t bytes = chunk.records * recordBytes_;
    if (Outcome outcome = ReadChunk(chunk, 0, {to, bytes}); !outcome.Ok()) return outcome;
    to += bytes;
  }
  loaded.records = RecordView(records.data(), recordBytes_);
  const auto codes = std::make_unique_for_overwrite<std::uint64_t[]>(count);
  coder_.CodesOfRecords(records, recordBytes_, {codes.get(), count});
  loaded.ownPoints = std::make_unique_for_overwrite<CodedPoint[]>(count);
  for (std::size_t row = 0; row < count; ++row) loaded.ownPoints[row] = {codes[row], row};
  loaded.points = {loaded.ownPoints.get(), count};
  SortByCode(loaded.points, SortScratch());
  return Outcome::Success();
}

Outcome FilePieceStore::ReadRecords(std::uint32_t piece, std::uint64_t first,
                                    std::span<std::uint8_t> out) const {
  for (const Chunk& chunk : chunks_[piece]) {
    if (out.empty()) break;
    if (first >= chunk.records) {
      first -= chunk.records;
      continue;
    }
    const std::uint64_t here =
        std::min<std::uint64_t>(out.size() / recordBytes_, chunk.records - first);
    Outcome outcome = ReadChunk(chunk, first, out.first(here * recordBytes_));
    if (!outcome.Ok()) return outcome;
    out = out.subspan(here * recordBytes_);
    first = 0;
  }
  return Outcome::Success();
}

Outcome DealIntoFile(const PointSet& points, const PieceTree& pieces, const PointCoder& coder,
                     std::uint64_t rowPoints, const std::function<bool(std::uint64_t)>& report,
                     FilePieceStore& store) {
  using Rows = std::pair<std::uint64_t, std::uint64_t>;
  std::uint64_t next = 0;
  FirstFailure failure;
  const auto read = [&](tbb::flow_control& control) {
    const std::uint64_t first = next;
    if (first >= points.GetPointCount() || !failure.HasNone()) control.stop();
    next = std::min(first + rowPoints, points.GetPointCount());
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
