// Builds the streams of a new repository out of a set of points.
#include "host/build/RepositoryBuilder.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/parallel_reduce.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>

#include "OOCPointCloud/support/Bytes.h"
#include "host/build/FirstFailure.h"
#include "host/build/LodBuilder.h"
#include "host/build/TemporaryDisk.h"
#include "host/cloud/SourceRecord.h"
#include "host/common/SharedProgress.h"
#include "host/common/System.h"

namespace tarnhost {

namespace {

constexpr std::uint64_t kLeastMemory = 64u << 20;
/// Coordinates below this need no local frame: 32-bit floats tell them apart to a millimetre.
constexpr double kNearOrigin = 10000;

constexpr const char* kGenerator = "OOCPointCloudTarn 0.1.0";

std::size_t ThreadCount() {
  return static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
}

using PointRows = tbb::blocked_range<std::uint64_t>;

}  // namespace

std::uint64_t MemoryFor(const ImportOptions& options) {
  return std::max(options.memoryBytes == 0 ? GetMachineMemoryBytes() / 4 : options.memoryBytes,
                  kLeastMemory);
}

std::uint64_t CurrentTimePoint() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

PointCoder CoderFor(const StoredBox& box, const PositionTransform& transform) {
  PointCoder coder;
  coder.transform = transform;
  const oocpc::Box3d source = BoxInFrame(box, transform, {});
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const bool near =
        std::abs(source.min[axis]) < kNearOrigin && std::abs(source.max[axis]) < kNearOrigin;
    coder.frameOffset[axis] = near ? 0.0 : std::floor(source.min[axis] / 1000) * 1000;
  }
  const oocpc::Box3d local = BoxInFrame(box, transform, coder.frameOffset);
  coder.cube.min = local.min;
  double edge = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    edge = std::max(edge, local.max[axis] - local.min[axis]);
  }
  coder.cube.edge = edge > 0 ? edge : 1;
  return coder;
}

RepositoryBuilder::RepositoryBuilder(PointSet& points, const ImportOptions& options,
                                     std::filesystem::path temporaryFolder,
                                     OOCPCRepositoryWriter& writer)
    : points_(points),
      options_(options),
      temporaryFolder_(std::move(temporaryFolder)),
      writer_(writer),
      memoryBytes_(MemoryFor(options)),
      plan_(MemoryPlan::Make(memoryBytes_, points.GetRecordBytes(), ThreadCount())),
      timePoint_(options.timePoint ? *options.timePoint : CurrentTimePoint()),
      pieces_(plan_.mostPiecePoints) {
  coder_.transform = points.GetTransform();
}

RepositoryBuilder::RepositoryBuilder(PointSet& points, const ImportOptions& options,
                                     std::filesystem::path temporaryFolder,
                                     OOCPCRepositoryWriter& writer, AppendBase& base)
    : RepositoryBuilder(points, options, std::move(temporaryFolder), writer) {
  base_ = &base;
  coder_ = base.coder;
  grid_ = base.grid;
  bytesBefore_ = writer.GetTotalBytes();
}

bool RepositoryBuilder::Report(const char* stage, std::uint64_t done) const {
  return !options_.progress || options_.progress({stage, done, points_.GetPointCount()});
}

/// With no more threads than the memory is enough for.
Outcome RepositoryBuilder::Run(ImportReport& report) {
  return tbb::task_arena(static_cast<int>(plan_.threads)).execute([&] { return Build(report); });
}

Outcome RepositoryBuilder::Build(ImportReport& report) {
  if (Outcome outcome = CheckMemory(); !outcome.Ok()) return outcome;
  if (!FitsIntoMemory()) {
    const std::uint64_t disk = CountScratchDisk(points_.GetScans(), memoryBytes_ / 2) +
                               CountSortingDisk(points_.GetPointCount(), points_.GetRecordBytes());
    Outcome outcome = AnnounceTemporaryDisk(options_, temporaryFolder_, disk);
    if (!outcome.Ok()) return outcome;
  }
  if (Outcome outcome = PreparePoints(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CountPoints(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckExisting(); !outcome.Ok()) return outcome;
  const BlockBuilder blocks(points_, coder_.frameOffset);
  NodeEmitter emitter(blocks, points_.GetRecordBytes(), writer_, options_.output.string(),
                      base_ == nullptr ? StreamEnds{} : base_->ends,
                      base_ == nullptr ? nullptr : base_->tree);
  if (Outcome outcome = DealPoints(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckExisting(); !outcome.Ok()) return outcome;
  if (Outcome outcome = SampleTop(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CreateColumns(); !outcome.Ok()) return outcome;
  if (Outcome outcome = BuildPieces(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckExisting(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckPoints(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteNodes(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteLod(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteSources(); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteNewStrings(); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteIteration(emitter); !outcome.Ok()) return outcome;
  const HRESULT code = writer_.Commit(base_ == nullptr ? Describe() : DescribeAppended());
  if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
  report.pointCount = points_.GetPointCount() - (base_ == nullptr ? 0 : base_->dissolvedCount);
  report.nodeCount = emitter.GetNodes().size();
  report.blockCount =
      emitter.GetEnds().blockCount - (base_ == nullptr ? 0 : base_->ends.blockCount);
  report.storedBytes = writer_.GetTotalBytes() - bytesBefore_;
  return Outcome::Success();
}

/// What fits into memory as a whole is used where it was decompressed; else it is given back before
/// pieces are built, which then take that memory.
Outcome RepositoryBuilder::PreparePoints() {
  ScanWorkspace workspace{memoryBytes_ / 2, temporaryFolder_, {}};
  workspace.progress = [this](std::uint64_t done) { return Report("decoding", done); };
  return points_.Prepare(workspace);
}

/// Records, codes, and points sorted by them at once.
bool RepositoryBuilder::FitsIntoMemory() const {
  const std::uint64_t bytes = points_.GetRecordBytes() + sizeof(std::uint64_t) + sizeof(CodedPoint);
  return points_.GetPointCount() * bytes <= memoryBytes_ / 2;
}

/// Points can be so long that those of a single node take more than was allowed. Nobody who has not
/// set a limit is held up by it.
Outcome RepositoryBuilder::CheckMemory() const {
  if (options_.memoryBytes == 0 || plan_.leastMemoryBytes <= memoryBytes_ || FitsIntoMemory()) {
    return Outcome::Success();
  }
  return Outcome::Failure(oocpc::result::kOutOfMemory,
                          "points of " + std::to_string(points_.GetRecordBytes()) + " bytes need " +
                              std::to_string(plan_.leastMemoryBytes) + " bytes of memory, and " +
                              std::to_string(memoryBytes_) + " are allowed",
                          options_.output.string(), "allow more memory");
}

Outcome RepositoryBuilder::CountPoints() {
  if (points_.GetPointCount() == 0) {
    (void)pieces_.EndRound();
    grid_ = SamplingGrid::Choose(pieces_.GetCellCounts());
    return Outcome::Success();
  }
  RecordView mapped;
  if (FitsIntoMemory()) {
    codes_ = std::make_unique_for_overwrite<std::uint64_t[]>(points_.GetPointCount());
    if (!points_.GetMappedRecords(mapped)) {
      // Not cleared: the threads that fill it are the first to touch its pages.
      copiedRecords_ = std::make_unique_for_overwrite<std::uint8_t[]>(points_.GetPointCount() *
                                                                      points_.GetRecordBytes());
    }
  }
  StoredBox box;
  // Where nothing is stated, the first count finds the box.
  if (!points_.GetStatedBox(box)) box = {};
  for (bool isKnown = base_ != nullptr; !isKnown;) {
    coder_ = CoderFor(box, points_.GetTransform());
    StoredBox found;
    if (!CountCodes(found)) return Outcome::FromCode(oocpc::result::kStopped);
    isKnown = found == box;
    box = found;
    if (!isKnown) pieces_.Reset();
  }
  if (base_ != nullptr && !CountCodes(box)) return Outcome::FromCode(oocpc::result::kStopped);
  while (pieces_.EndRound()) {
    if (!CountCodes(box)) return Outcome::FromCode(oocpc::result::kStopped);
  }
  if (base_ == nullptr || base_->tree == nullptr) {
    grid_ = SamplingGrid::Choose(pieces_.GetCellCounts());
  }
  return Outcome::Success();
}

/// Counts all points, and gives their box; false when it was stopped.
bool RepositoryBuilder::CountCodes(StoredBox& found) {
  const std::size_t recordBytes = points_.GetRecordBytes();
  SharedProgress progress([this](std::uint64_t done) { return Report("reading", done); });
  const auto count = [&](const PointRows& range, StoredBox box) {
    if (!progress.GoesOn()) return box;
    // Not cleared: both are overwritten as a whole.
    const auto xyz = std::make_unique_for_overwrite<std::int32_t[]>(3 * range.size());
    const auto ownCodes =
        std::make_unique_for_overwrite<std::uint64_t[]>(codes_ ? 0 : range.size());
    const std::span<std::uint64_t> codes(codes_ ? codes_.get() + range.begin() : ownCodes.get(),
                                         range.size());
    if (copiedRecords_ == nullptr) {
      points_.ReadPositions(range.begin(), range.size(), xyz.get());
    } else {
      std::uint8_t* const records = copiedRecords_.get() + range.begin() * recordBytes;
      if (!areCopied_) points_.ReadRecords(range.begin(), range.size(), records);
      for (std::size_t i = 0; i < range.size(); ++i) {
        std::memcpy(xyz.get() + 3 * i, records + i * recordBytes, 3 * sizeof(std::int32_t));
      }
    }
    box.Extend(xyz.get(), range.size());
    coder_.CodesOf(xyz.get(), codes);
    pieces_.Count(codes);
    progress.Add(range.size());
    return box;
  };
  const auto join = [](StoredBox a, const StoredBox& b) {
    a.Extend(b);
    return a;
  };
  // Runs of one size: what they are read into should not grow with the cloud.
  found = tbb::parallel_reduce(PointRows(0, points_.GetPointCount(), plan_.rowPoints), StoredBox(),
                               count, join, tbb::simple_partitioner());
  areCopied_ = true;
  if (copiedRecords_ != nullptr) points_.Release();  // nothing of the scans' points is read again
  return progress.GoesOn();
}

Outcome RepositoryBuilder::DealPoints() {
  if (!Report("sorting", 0)) return Outcome::FromCode(oocpc::result::kStopped);
  return codes_ ? DealInMemory() : DealThroughFile();
}

Outcome RepositoryBuilder::DealInMemory() {
  RecordView records;
  if (copiedRecords_ == nullptr) {
    (void)points_.GetMappedRecords(records);
  } else {
    records = RecordView(copiedRecords_.get(), points_.GetRecordBytes());
  }
  store_ = std::make_unique<MemoryPieceStore>(
      std::span<const std::uint64_t>(codes_.get(), points_.GetPointCount()), pieces_,
      std::move(records));
  codes_.reset();
  candidates_ = std::make_unique<CandidateStore>(pieces_.GetPieces().size());
  return Outcome::Success();
}

Outcome RepositoryBuilder::DealThroughFile() {
  const std::size_t count = pieces_.GetPieces().size();
  const std::uint64_t buffer = std::clamp<std::uint64_t>(
      memoryBytes_ / 4 / std::max<std::size_t>(count, 1), 1u << 12, 1u << 22);
  std::unique_ptr<TemporaryFile> records;
  std::unique_ptr<TemporaryFile> candidates;
  Outcome outcome = TemporaryFile::Create(temporaryFolder_, records);
  if (outcome.Ok()) outcome = TemporaryFile::Create(temporaryFolder_, candidates);
  if (!outcome.Ok()) return outcome;
  auto store = std::make_unique<FilePieceStore>(std::move(records), count, points_.GetRecordBytes(),
                                                buffer, coder_);
  candidates_ = std::make_unique<CandidateStore>(count, std::move(candidates));
  const auto report = [&](std::uint64_t done) { return Report("sorting", done); };
  outcome = DealIntoFile(points_, pieces_, coder_, plan_.rowPoints, report, *store);
  points_.Release();
  pieces_.EndFinding();
  fileStore_ = store.get();
  store_ = std::move(store);
  return outcome;
}

Outcome RepositoryBuilder::SampleTop() {
  const std::vector<Piece>& pieces = pieces_.GetPieces();
  const ExistingTree* const existing = base_ == nullptr ? nullptr : base_->tree;
  FirstFailure failure;
  std::mutex putting;
  const auto sample = [&](std::size_t i) {
    if (pieces[i].level == 0 || !failure.HasNone()) return;
    std::vector<LevelCandidates> candidates;
    Outcome outcome;
    if (IsTooLarge(pieces[i])) {
      candidates = CandidatesOfEqualPoints(pieces[i], grid_, existing);
    } else {
      LoadedPiece loaded;
      outcome = store_->Load(static_cast<std::uint32_t>(i), loaded);
      if (outcome.Ok()) candidates = FindCandidates(pieces[i], loaded.points, grid_, existing);
    }
    const std::lock_guard<std::mutex> lock(putting);
    if (outcome.Ok()) outcome = candidates_->Put(i, candidates);
    if (!outcome.Ok()) failure.Note(std::move(outcome));
  };
  const std::size_t threads = std::min(plan_.piecesAtOnce, ThreadCount());
  tbb::task_arena(static_cast<int>(threads)).execute([&] {
    tbb::parallel_for(std::size_t{0}, pieces.size(), sample);
  });
  return failure.Get();
}

Outcome RepositoryBuilder::BuildPieces(NodeEmitter& emitter) {
  const std::vector<Piece>& pieces = pieces_.GetPieces();
  if (pieces.empty()) {
    BuiltPiece root;
    root.plan = PlanOctree({});
    root.blocks.resize(1);
    return emitter.Emit({}, root);
  }
  ExistingTree* const existing = base_ == nullptr ? nullptr : base_->tree;
  const PieceBuilder builder(emitter.GetBlocks(), grid_, existing);
  TopLevels top(pieces, *candidates_, grid_, existing);
  FirstFailure failure;
  std::uint32_t next = 0;
  struct Started {
    std::uint32_t piece = 0;
    std::vector<TakenPoint> taken;
    std::vector<std::uint64_t> above;
  };
  struct Numbered {
    std::uint32_t piece = 0;
    std::shared_ptr<BuiltPiece> built;  ///< none of a piece that is too large for it
    std::vector<TakenPoint> taken;      ///< of such a piece
  };
  const auto start = [&](tbb::flow_control& control) {
    Started started{next, {}, {}};
    if (next >= pieces.size() || !failure.HasNone()) {
      control.stop();
    } else if (Outcome outcome = top.Next(started.taken, started.above); !outcome.Ok()) {
      failure.Note(std::move(outcome));
      control.stop();
    }
    ++next;
    return started;
  };
  const auto build = [&](const Started& started) {
    if (IsTooLarge(pieces[started.piece])) return Numbered{started.piece, nullptr, started.taken};
    auto built = std::make_shared<BuiltPiece>();
    LoadedPiece loaded;
    Outcome outcome = store_->Load(started.piece, loaded);
    if (outcome.Ok()) {
      *built = builder.Build(pieces[started.piece], loaded, started.taken, started.above);
    } else {
      failure.Note(std::move(outcome));
    }
    return Numbered{started.piece, std::move(built), {}};
  };
  const auto emit = [&](const Numbered& built) {
    if (!failure.HasNone()) return;
    Outcome outcome = built.built == nullptr ? EmitTooLarge(built.piece, built.taken, emitter)
                                             : emitter.Emit(pieces[built.piece], *built.built);
    if (outcome.Ok() &&
        !Report("writing", std::min(emitter.GetWrittenPoints(), points_.GetPointCount()))) {
      outcome = Outcome::FromCode(oocpc::result::kStopped);
    }
    if (!outcome.Ok()) failure.Note(std::move(outcome));
  };
  tbb::parallel_pipeline(
      plan_.piecesAtOnce,
      tbb::make_filter<void, Started>(tbb::filter_mode::serial_in_order, start) &
          tbb::make_filter<Started, Numbered>(tbb::filter_mode::parallel, build) &
          tbb::make_filter<Numbered, void>(tbb::filter_mode::serial_in_order, emit));
  return failure.Get().Ok() ? emitter.Finish() : failure.Get();
}

/// Only where no Morton bit tells points apart are there more than are built at once.
bool RepositoryBuilder::IsTooLarge(const Piece& piece) const {
  return fileStore_ != nullptr && piece.level == kMortonBits &&
         piece.pointCount > plan_.mostPiecePoints;
}

/// Adds the points of a piece that a former root above it holds on to: the first that are left.
void RepositoryBuilder::AddHeld(const Piece& piece, std::vector<TakenPoint>& taken) const {
  if (base_ == nullptr || base_->tree == nullptr) return;
  std::uint64_t held = base_->tree->CountHeld(piece.indexInLevel, piece.level, piece.indexInLevel);
  std::vector<std::uint32_t> gone(taken.size());
  std::ranges::transform(taken, gone.begin(), &TakenPoint::index);
  std::ranges::sort(gone);
  for (std::uint32_t index = 0; held > 0 && index < piece.pointCount; ++index) {
    if (std::ranges::binary_search(gone, index)) continue;
    taken.push_back({base_->tree->GetGrowth(), piece.indexInLevel, index});
    --held;
  }
}

Outcome RepositoryBuilder::EmitTooLarge(std::uint32_t number, std::span<const TakenPoint> taken,
                                        NodeEmitter& emitter) const {
  const std::size_t recordBytes = points_.GetRecordBytes();
  EqualPoints points;
  points.takenRecords.resize(kMortonBits);
  std::vector<TakenPoint> takenOrHeld(taken.begin(), taken.end());
  AddHeld(pieces_.GetPieces()[number], takenOrHeld);
  points.count = pieces_.GetPieces()[number].pointCount - takenOrHeld.size();
  std::vector<std::uint32_t> gone;
  for (const TakenPoint& point : takenOrHeld) {
    auto& records = points.takenRecords[point.level];
    records.resize(records.size() + recordBytes);
    Outcome outcome =
        fileStore_->ReadRecords(number, point.index, std::span(records).last(recordBytes));
    if (!outcome.Ok()) return outcome;
    gone.push_back(point.index);
  }
  std::ranges::sort(gone);
  // Those that were taken are some of the first: behind them all rows follow one another.
  const auto rowOf = [&](std::uint64_t place) {
    for (const std::uint32_t row : gone) place += row <= place ? 1 : 0;
    return place;
  };
  points.read = [&](std::uint64_t first, std::uint64_t count, std::vector<std::uint8_t>& records) {
    records.resize(count * recordBytes);
    std::uint64_t done = 0;
    for (; done < count && !gone.empty() && rowOf(first + done) <= gone.back(); ++done) {
      Outcome outcome = fileStore_->ReadRecords(
          number, rowOf(first + done), std::span(records).subspan(done * recordBytes, recordBytes));
      if (!outcome.Ok()) return outcome;
    }
    return fileStore_->ReadRecords(number, rowOf(first + done),
                                   std::span(records).subspan(done * recordBytes));
  };
  return emitter.EmitEqual(pieces_.GetPieces()[number], points);
}

/// What could not be read of the points that are there already.
Outcome RepositoryBuilder::CheckExisting() const {
  if (base_ == nullptr) return Outcome::Success();
  if (base_->dissolved != nullptr) {
    if (Outcome outcome = base_->dissolved->GetFailure(); !outcome.Ok()) return outcome;
  }
  return base_->tree == nullptr ? Outcome::Success() : base_->tree->GetFailure();
}

/// Nothing is committed that has lost a point.
Outcome RepositoryBuilder::CheckPoints(const NodeEmitter& emitter) const {
  const std::uint64_t before = base_ == nullptr ? 0 : base_->pointCount - base_->dissolvedCount;
  const std::uint64_t built = emitter.GetNodes().back().subtreePointCount;
  if (!emitter.Clashes() && built == before + points_.GetPointCount()) return Outcome::Success();
  return Outcome::Failure(oocpc::result::kBadRecord,
                          "the octree that was built holds " + std::to_string(built) +
                              " points in place of " +
                              std::to_string(before + points_.GetPointCount()),
                          options_.output.string(),
                          "nothing was written; tarn verify tells whether the repository is sound");
}

Outcome RepositoryBuilder::CreateColumns() {
  if (base_ != nullptr) return Outcome::Success();
  // A cloud without points has columns, too: empty ones.
  for (std::uint32_t column = 0; column <= points_.GetDimensions().size(); ++column) {
    for (const std::string& stream :
         {oocpc::ColumnDataStreamName(column), oocpc::ColumnTableStreamName(column)}) {
      std::uint64_t position = 0;
      const HRESULT code = writer_.Append(stream, {}, position);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
    }
  }
  return Outcome::Success();
}

Outcome RepositoryBuilder::WriteNodes(const NodeEmitter& emitter) {
  std::vector<std::uint8_t> bytes;
  const auto& nodes = emitter.GetNodes();
  bytes.reserve(nodes.size() * OOCPCOctreeAcceleratorNode::kBytes);
  for (const OOCPCOctreeAcceleratorNode& node : nodes) node.Encode(bytes);
  std::uint64_t position = 0;
  const HRESULT code = writer_.Append(OOCPCAcceleratorContainer::kStreamName, bytes, position);
  return oocpc::Failed(code) ? Outcome::FromCode(code, options_.output.string())
                             : Outcome::Success();
}

Outcome RepositoryBuilder::WriteLod(const NodeEmitter& emitter) {
  BuiltLod lod;
  const std::uint64_t iteration = base_ == nullptr ? 0 : base_->iterationCount;
  if (Outcome outcome = BuildLod(emitter.ListTree(), coder_.cube, grid_, iteration, lod);
      !outcome.Ok()) {
    return outcome;
  }
  std::vector<std::uint8_t> block;
  lod.block.Encode(block);
  std::uint64_t position = 0;
  HRESULT code =
      writer_.Append(OOCPCLODNodeStreamName(lod.block.nodeStreamId), lod.records, position);
  if (!oocpc::Failed(code)) {
    code = writer_.Append(OOCPCLODContainer::kStreamName, block, lodPayload_.beginBytes);
  }
  lodPayload_.endBytes = lodPayload_.beginBytes + block.size();
  return oocpc::Failed(code) ? Outcome::FromCode(code, options_.output.string())
                             : Outcome::Success();
}

Outcome RepositoryBuilder::WriteSources() {
  const std::string stream =
      base_ == nullptr ? SourceRecord::kStreamName : FindSourceStream(base_->catalogue.information);
  for (const auto& scan : points_.GetScans()) {
    if (base_ != nullptr && base_->dissolvedCount > 0 && scan == points_.GetScans().back()) break;
    const SourceRecord record{scan->GetPath().filename().string(), scan->GetPointCount(),
                              scan->GetLeadingBytes(), scan->GetTrailingBytes()};
    const std::vector<std::uint8_t> head = record.EncodeHead();
    const std::span<const std::uint8_t> parts[] = {head, record.leadingBytes, record.trailingBytes};
    for (const auto part : parts) {
      std::uint64_t position = 0;
      const HRESULT code = writer_.Append(stream, part, position);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
    }
  }
  return Outcome::Success();
}

Outcome RepositoryBuilder::WriteNewStrings() {
  if (points_.GetNewStrings().empty()) return Outcome::Success();
  std::vector<std::uint8_t> strings;
  for (const std::string& text : points_.GetNewStrings()) {
    OOCPCStringRepositoryContainer::EncodeString(text, strings);
  }
  std::uint64_t position = 0;
  const HRESULT code =
      writer_.Append(OOCPCStringRepositoryContainer::kStreamName, strings, position);
  return oocpc::Failed(code) ? Outcome::FromCode(code, options_.output.string())
                             : Outcome::Success();
}

/// The dictionary with the texts that are new.
void RepositoryBuilder::DescribeStrings(OOCPCCatalogue& catalogue) const {
  const std::size_t added = points_.GetNewStrings().size();
  if (added == 0) return;
  const std::uint64_t before = base_ == nullptr ? 0 : base_->stringCount;
  catalogue.SetChunk(oocpc::chunk_type::kStringRepository,
                     OOCPCStringRepositoryContainer::EncodeChunk(before + added));
}

Outcome RepositoryBuilder::WriteIteration(const NodeEmitter& emitter) {
  OOCPCUpdateIteration iteration;
  iteration.timePoint = timePoint_;
  const StreamEnds before = base_ == nullptr ? StreamEnds{} : base_->ends;
  iteration.acceleratorPayload = {before.nodeCount * OOCPCOctreeAcceleratorNode::kBytes,
                                  emitter.GetEnds().nodeCount * OOCPCOctreeAcceleratorNode::kBytes};
  iteration.lodPayload = lodPayload_;
  iteration.pointCount = emitter.GetNodes().back().subtreePointCount;
  iteration.addedPointCount = iteration.pointCount - (base_ == nullptr ? 0 : base_->pointCount);
  iteration.blockCount = emitter.GetEnds().blockCount;
  iteration.addedBytes =
      writer_.GetTotalBytes() - bytesBefore_ + OOCPCUpdateIteration::kRecordBytes;
  std::vector<std::uint8_t> record;
  iteration.Stream(record);
  std::uint64_t position = 0;
  const HRESULT code = writer_.Append(OOCPCUpdateIterationContainer::kStreamName, record, position);
  return oocpc::Failed(code) ? Outcome::FromCode(code, options_.output.string())
                             : Outcome::Success();
}

OOCPCCatalogue RepositoryBuilder::Describe() const {
  namespace chunk_type = oocpc::chunk_type;
  OOCPCCatalogue catalogue;
  catalogue.identity = MakeIdentity();
  DescribeCube(catalogue);
  OOCPCPositionsDescription positions;
  positions.scale = points_.GetTransform().scale;
  positions.offset = points_.GetTransform().offset;
  catalogue.chunks.emplace_back(chunk_type::kStaticPositions, positions.EncodeChunk());
  std::uint32_t columnId = 0;
  for (const Dimension& dimension : points_.GetDimensions()) {
    const OOCPCMetaDataDescription description{dimension.name, dimension.type, ++columnId,
                                               dimension.description};
    catalogue.chunks.emplace_back(chunk_type::kStaticMetaData, description.EncodeChunk());
  }
  DescribeStrings(catalogue);
  DescribeIterations(1, catalogue);
  catalogue.information.creationTime = timePoint_;
  catalogue.information.generator = kGenerator;
  return catalogue;
}

OOCPCCatalogue RepositoryBuilder::DescribeAppended() {
  OOCPCCatalogue catalogue = std::move(base_->catalogue);
  DescribeCube(catalogue);
  DescribeStrings(catalogue);
  DescribeIterations(base_->iterationCount + 1, catalogue);
  return catalogue;
}

void RepositoryBuilder::DescribeCube(OOCPCCatalogue& catalogue) const {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    catalogue.mortonSeed[axis] = coder_.cube.min[axis];
    catalogue.mortonSeed[axis + 3] = coder_.cube.min[axis] + coder_.cube.edge;
  }
  OOCPCAcceleratorDescription accelerator;
  accelerator.cubeMin = coder_.cube.min;
  accelerator.cubeEdge = coder_.cube.edge;
  catalogue.SetChunk(oocpc::chunk_type::kAccelerator1, accelerator.EncodeChunk());
  catalogue.information.localFrameOffset = coder_.frameOffset;
}

void RepositoryBuilder::DescribeIterations(std::uint64_t count, OOCPCCatalogue& catalogue) {
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = count;
  catalogue.SetChunk(oocpc::chunk_type::kUpdateIterations, iterations.EncodeChunk());
  OOCPCLODDescription levelOfDetail;
  levelOfDetail.blockCount = count;
  catalogue.SetChunk(oocpc::chunk_type::kLevelOfDetail, levelOfDetail.EncodeChunk());
}

std::array<std::uint8_t, 16> RepositoryBuilder::MakeIdentity() const {
  // Two runs of FNV-1a (64 bits, offset basis and prime as published by its authors) over what the
  // repository is made of, started differently.
  std::array<std::uint64_t, 2> hashes{0xCBF29CE484222325u, 0x84222325CBF29CE4u};
  const auto mix = [&](std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) {
      for (std::uint64_t& hash : hashes) hash = (hash ^ byte) * 0x100000001B3u;
    }
  };
  std::vector<std::uint8_t> facts;
  oocpc::AppendLittleEndian(facts, timePoint_);
  for (const auto& scan : points_.GetScans()) {
    oocpc::AppendLittleEndian(facts, scan->GetPointCount());
    oocpc::AppendText(facts, scan->GetPath().filename().string());
    mix(scan->GetLeadingBytes());
  }
  mix(facts);
  std::array<std::uint8_t, 16> identity;
  std::memcpy(identity.data(), hashes.data(), identity.size());
  return identity;
}

}  // namespace tarnhost
