// Builds the streams of a new repository out of a set of points.
#include "host/build/RepositoryBuilder.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/parallel_reduce.h>
#include <tbb/task_arena.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <mutex>

#include "OOCPointCloud/support/Bytes.h"
#include "host/build/LodBuilder.h"
#include "host/cloud/SourceRecord.h"

namespace tarnhost {

namespace {

/// Points read at once.
constexpr std::uint64_t kRowPoints = 1u << 15;
/// Bounds of the points of a piece. Fewer would make more nodes above them than are worth it; more
/// would not fit into the caches of the processors.
constexpr std::uint64_t kFewestPiecePoints = 1u << 17;
constexpr std::uint64_t kMostPiecePoints = 1u << 20;
/// What building a point takes besides its record: its code, sorted and sampled, and its values.
constexpr std::uint64_t kBuildBytes = 96;
constexpr std::uint64_t kLeastMemory = 64u << 20;
/// Coordinates below this need no local frame: 32-bit floats tell them apart to a millimetre.
constexpr double kNearOrigin = 10000;

constexpr const char* kGenerator = "OOCPointCloudTarn 0.1.0";

std::uint64_t Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

/// A quarter of the machine's memory.
std::uint64_t DefaultMemory() {
  const auto pages = static_cast<std::uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
  return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 4;
}

std::size_t ThreadCount() {
  return static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
}

/// The least and the greatest stored integers.
struct StoredBox {
  std::array<std::int32_t, 3> least;
  std::array<std::int32_t, 3> greatest;
  StoredBox() {
    least.fill(std::numeric_limits<std::int32_t>::max());
    greatest.fill(std::numeric_limits<std::int32_t>::min());
  }
  void Extend(const std::int32_t* xyz, const std::int32_t* end) {
    for (; xyz < end; xyz += 3) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        least[axis] = std::min(least[axis], xyz[axis]);
        greatest[axis] = std::max(greatest[axis], xyz[axis]);
      }
    }
  }
};

using PointRows = tbb::blocked_range<std::uint64_t>;

StoredBox FindBox(const PointSet& points) {
  return tbb::parallel_reduce(
      PointRows(0, points.GetPointCount(), kRowPoints), StoredBox(),
      [&](const PointRows& range, StoredBox box) {
        std::vector<std::int32_t> xyz(3 * range.size());
        points.ReadPositions(range.begin(), range.size(), xyz.data());
        box.Extend(xyz.data(), xyz.data() + xyz.size());
        return box;
      },
      [](StoredBox a, const StoredBox& b) {
        a.Extend(b.least.data(), b.least.data() + 3);
        a.Extend(b.greatest.data(), b.greatest.data() + 3);
        return a;
      });
}

/// The box in the frame of an offset. Coordinates are monotonic functions of their integers.
oocpc::Box3d BoxInFrame(const StoredBox& stored, const PositionTransform& transform,
                        const oocpc::Vector3d& frameOffset) {
  oocpc::Box3d box = EmptyBox();
  for (const auto& corner : {stored.least, stored.greatest}) {
    const auto position = LocalPosition(corner.data(), transform, frameOffset);
    Extend(box, {position, position});
  }
  return box;
}

/// The first failure of several threads.
class FirstFailure {
 public:
  void Note(Outcome outcome) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (outcome_.Ok()) outcome_ = std::move(outcome);
  }
  [[nodiscard]] bool HasNone() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return outcome_.Ok();
  }
  [[nodiscard]] const Outcome& Get() const { return outcome_; }

 private:
  std::mutex mutex_;
  Outcome outcome_;
};

}  // namespace

RepositoryBuilder::RepositoryBuilder(PointSet& points, const ImportOptions& options,
                                     std::filesystem::path temporaryFolder,
                                     OOCPCRepositoryWriter& writer)
    : points_(points),
      options_(options),
      temporaryFolder_(std::move(temporaryFolder)),
      writer_(writer),
      memoryBytes_(
          std::max(options.memoryBytes == 0 ? DefaultMemory() : options.memoryBytes, kLeastMemory)),
      timePoint_(options.timePoint ? *options.timePoint : Now()),
      pieces_(MostPointsOfPiece()) {}

bool RepositoryBuilder::Report(const char* stage, std::uint64_t done) const {
  return !options_.progress || options_.progress({stage, done, points_.GetPointCount()});
}

Outcome RepositoryBuilder::Run(ImportReport& report) {
  if (Outcome outcome = PreparePoints(); !outcome.Ok()) return outcome;
  FindFrame();
  const BlockBuilder blocks(points_, frameOffset_);
  NodeEmitter emitter(blocks, points_.GetRecordBytes(), writer_, options_.output.string());
  if (Outcome outcome = CountPoints(); !outcome.Ok()) return outcome;
  if (Outcome outcome = DealPoints(); !outcome.Ok()) return outcome;
  points_.Release();
  if (Outcome outcome = SampleTop(); !outcome.Ok()) return outcome;
  if (Outcome outcome = CreateColumns(); !outcome.Ok()) return outcome;
  if (Outcome outcome = BuildPieces(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteNodes(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteLod(emitter); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteSources(); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteIteration(emitter); !outcome.Ok()) return outcome;
  const HRESULT code = writer_.Commit(Describe());
  if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
  report.pointCount = points_.GetPointCount();
  report.nodeCount = emitter.GetNodes().size();
  report.blockCount = emitter.GetBlockCount();
  report.storedBytes = writer_.GetTotalBytes();
  return Outcome::Success();
}

/// What is decompressed here is given back before pieces are built, which then take that memory.
Outcome RepositoryBuilder::PreparePoints() {
  ScanWorkspace workspace{memoryBytes_ / 2, temporaryFolder_, {}};
  workspace.progress = [this](std::uint64_t done) { return Report("decompressing", done); };
  return points_.Prepare(workspace);
}

void RepositoryBuilder::FindFrame() {
  if (points_.GetPointCount() == 0) return;
  const StoredBox stored = FindBox(points_);
  const oocpc::Box3d source = BoxInFrame(stored, points_.GetTransform(), {});
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const bool near =
        std::abs(source.min[axis]) < kNearOrigin && std::abs(source.max[axis]) < kNearOrigin;
    frameOffset_[axis] = near ? 0.0 : std::floor(source.min[axis] / 1000) * 1000;
  }
  const oocpc::Box3d local = BoxInFrame(stored, points_.GetTransform(), frameOffset_);
  cube_.min = local.min;
  double edge = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    edge = std::max(edge, local.max[axis] - local.min[axis]);
  }
  cube_.edge = edge > 0 ? edge : 1;
}

std::uint64_t RepositoryBuilder::CodeOf(const std::int32_t* xyz) const {
  return cube_.CodeOf(LocalPosition(xyz, points_.GetTransform(), frameOffset_));
}

std::uint64_t RepositoryBuilder::MostPointsOfPiece() const {
  const std::uint64_t bytes = (points_.GetRecordBytes() + kBuildBytes) * (ThreadCount() + 1);
  return std::clamp(memoryBytes_ / 2 / bytes, kFewestPiecePoints, kMostPiecePoints);
}

Outcome RepositoryBuilder::CountPoints() {
  do {
    if (!Report("reading", 0)) return Outcome::FromCode(oocpc::result::kStopped);
    tbb::parallel_for(PointRows(0, points_.GetPointCount(), kRowPoints),
                      [&](const PointRows& range) {
                        std::vector<std::int32_t> xyz(3 * range.size());
                        points_.ReadPositions(range.begin(), range.size(), xyz.data());
                        for (std::uint64_t i = 0; i < range.size(); ++i) {
                          pieces_.Count(CodeOf(xyz.data() + 3 * i));
                        }
                      });
  } while (pieces_.EndRound());
  grid_ = SamplingGrid::Choose(pieces_.GetCellCounts());
  return Outcome::Success();
}

Outcome RepositoryBuilder::OpenPieceStore() {
  const std::uint64_t count = pieces_.GetPieces().size();
  const std::uint64_t bytes = points_.GetPointCount() * points_.GetRecordBytes();
  if (bytes <= memoryBytes_ / 2) {
    std::vector<std::size_t> expected;
    for (const Piece& piece : pieces_.GetPieces()) {
      expected.push_back(piece.pointCount * points_.GetRecordBytes());
    }
    store_ = MakeMemoryPieceStore(std::move(expected));
    return Outcome::Success();
  }
  const std::uint64_t buffer = std::clamp<std::uint64_t>(
      memoryBytes_ / 4 / std::max<std::uint64_t>(count, 1), 1u << 14, 1u << 22);
  return MakeFilePieceStore(temporaryFolder_, count, buffer, store_);
}

Outcome RepositoryBuilder::DealPoints() {
  if (Outcome outcome = OpenPieceStore(); !outcome.Ok()) return outcome;
  const std::size_t recordBytes = points_.GetRecordBytes();
  struct Dealt {
    std::uint64_t end = 0;
    std::vector<std::uint32_t> pieces;               // that have records, ascending
    std::vector<std::vector<std::uint8_t>> records;  // of each
  };
  std::uint64_t next = 0;
  FirstFailure failure;
  const auto read = [&](tbb::flow_control& control) {
    const std::uint64_t first = next;
    if (first >= points_.GetPointCount() || !failure.HasNone()) control.stop();
    next = std::min(first + kRowPoints, points_.GetPointCount());
    return std::pair(first, next - first);
  };
  const auto deal = [&](std::pair<std::uint64_t, std::uint64_t> rows) {
    Dealt dealt;
    dealt.end = rows.first + rows.second;
    std::vector<std::uint8_t> records(rows.second * recordBytes);
    points_.ReadRecords(rows.first, rows.second, records.data());
    std::vector<std::pair<std::uint32_t, std::uint32_t>> order(rows.second);
    for (std::uint32_t i = 0; i < order.size(); ++i) {
      std::int32_t xyz[3];
      std::memcpy(xyz, records.data() + i * recordBytes, sizeof(xyz));
      order[i] = {pieces_.FindPiece(CodeOf(xyz)), i};
    }
    std::ranges::sort(order);
    for (const auto& [piece, row] : order) {
      if (dealt.pieces.empty() || dealt.pieces.back() != piece) {
        dealt.pieces.push_back(piece);
        dealt.records.emplace_back();
      }
      const std::uint8_t* record = records.data() + row * recordBytes;
      dealt.records.back().insert(dealt.records.back().end(), record, record + recordBytes);
    }
    return dealt;
  };
  const auto append = [&](const Dealt& dealt) {
    for (std::size_t i = 0; i < dealt.pieces.size(); ++i) {
      Outcome outcome = store_->Append(dealt.pieces[i], dealt.records[i]);
      if (!outcome.Ok()) return failure.Note(std::move(outcome));
    }
    if (!Report("sorting", dealt.end)) failure.Note(Outcome::FromCode(oocpc::result::kStopped));
  };
  const std::size_t lines = 2 * ThreadCount();
  using Rows = std::pair<std::uint64_t, std::uint64_t>;
  tbb::parallel_pipeline(
      lines, tbb::make_filter<void, Rows>(tbb::filter_mode::serial_in_order, read) &
                 tbb::make_filter<Rows, Dealt>(tbb::filter_mode::parallel, deal) &
                 tbb::make_filter<Dealt, void>(tbb::filter_mode::serial_in_order, append));
  return failure.Get().Ok() ? store_->Finish() : failure.Get();
}

Outcome RepositoryBuilder::LoadPiece(std::uint32_t piece, std::vector<std::uint8_t>& scratch,
                                     std::span<const std::uint8_t>& records,
                                     std::vector<CodedPoint>& points) const {
  Outcome outcome = store_->Load(piece, scratch, records);
  if (outcome.Ok()) {
    points =
        SortRecords(records, points_.GetRecordBytes(), points_.GetTransform(), frameOffset_, cube_);
  }
  return outcome;
}

Outcome RepositoryBuilder::SampleTop() {
  const std::vector<Piece>& pieces = pieces_.GetPieces();
  taken_.resize(pieces.size());
  if (pieces.size() < 2) return Outcome::Success();
  std::vector<PieceCandidates> candidates(pieces.size());
  FirstFailure failure;
  tbb::parallel_for(std::size_t{0}, pieces.size(), [&](std::size_t i) {
    if (!failure.HasNone()) return;
    std::vector<std::uint8_t> scratch;
    std::span<const std::uint8_t> records;
    std::vector<CodedPoint> points;
    Outcome outcome = LoadPiece(static_cast<std::uint32_t>(i), scratch, records, points);
    if (!outcome.Ok()) return failure.Note(std::move(outcome));
    candidates[i] = FindCandidates(pieces[i], points, grid_);
  });
  if (!failure.Get().Ok()) return failure.Get();
  taken_ = TopLevels::Take(pieces, candidates, grid_);
  return Outcome::Success();
}

Outcome RepositoryBuilder::BuildPieces(NodeEmitter& emitter) {
  const std::vector<Piece>& pieces = pieces_.GetPieces();
  if (pieces.empty()) {
    BuiltPiece root;
    root.plan = PlanOctree({});
    root.blocks.resize(1);
    return emitter.Emit({}, root);
  }
  const PieceBuilder builder(emitter.GetBlocks(), grid_, points_.GetRecordBytes());
  FirstFailure failure;
  std::uint32_t next = 0;
  using Numbered = std::pair<std::uint32_t, std::shared_ptr<BuiltPiece>>;
  const auto start = [&](tbb::flow_control& control) {
    if (next >= pieces.size() || !failure.HasNone()) control.stop();
    return next++;
  };
  const auto build = [&](std::uint32_t piece) {
    auto built = std::make_shared<BuiltPiece>();
    std::vector<std::uint8_t> scratch;
    std::span<const std::uint8_t> records;
    std::vector<CodedPoint> points;
    Outcome outcome = LoadPiece(piece, scratch, records, points);
    if (outcome.Ok()) {
      *built = builder.Build(pieces[piece], records, std::move(points), taken_[piece]);
      store_->Drop(piece);
    } else {
      failure.Note(std::move(outcome));
    }
    return Numbered(piece, std::move(built));
  };
  const auto emit = [&](const Numbered& built) {
    if (!failure.HasNone()) return;
    Outcome outcome = emitter.Emit(pieces[built.first], *built.second);
    if (outcome.Ok() && !Report("writing", emitter.GetPointCount())) {
      outcome = Outcome::FromCode(oocpc::result::kStopped);
    }
    if (!outcome.Ok()) failure.Note(std::move(outcome));
  };
  const std::size_t lines = ThreadCount() + 1;
  tbb::parallel_pipeline(
      lines, tbb::make_filter<void, std::uint32_t>(tbb::filter_mode::serial_in_order, start) &
                 tbb::make_filter<std::uint32_t, Numbered>(tbb::filter_mode::parallel, build) &
                 tbb::make_filter<Numbered, void>(tbb::filter_mode::serial_in_order, emit));
  return failure.Get().Ok() ? emitter.Finish() : failure.Get();
}

Outcome RepositoryBuilder::CreateColumns() {
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
  if (Outcome outcome = BuildLod(emitter.GetPlan(), emitter.GetNodes(), cube_, grid_, 0, lod);
      !outcome.Ok())
    return outcome;
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
  for (const auto& scan : points_.GetScans()) {
    const SourceRecord record{scan->GetPath().filename().string(), scan->GetPointCount(),
                              scan->GetLeadingBytes(), scan->GetTrailingBytes()};
    const std::vector<std::uint8_t> head = record.EncodeHead();
    const std::span<const std::uint8_t> parts[] = {head, record.leadingBytes, record.trailingBytes};
    for (const auto part : parts) {
      std::uint64_t position = 0;
      const HRESULT code = writer_.Append(SourceRecord::kStreamName, part, position);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
    }
  }
  return Outcome::Success();
}

Outcome RepositoryBuilder::WriteIteration(const NodeEmitter& emitter) {
  OOCPCUpdateIteration iteration;
  iteration.timePoint = timePoint_;
  iteration.acceleratorPayload = {0,
                                  emitter.GetNodes().size() * OOCPCOctreeAcceleratorNode::kBytes};
  iteration.lodPayload = lodPayload_;
  iteration.pointCount = points_.GetPointCount();
  iteration.addedPointCount = points_.GetPointCount();
  iteration.blockCount = emitter.GetBlockCount();
  iteration.addedBytes = writer_.GetTotalBytes() + OOCPCUpdateIteration::kRecordBytes;
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
  for (std::size_t axis = 0; axis < 3; ++axis) {
    catalogue.mortonSeed[axis] = cube_.min[axis];
    catalogue.mortonSeed[axis + 3] = cube_.min[axis] + cube_.edge;
  }
  OOCPCAcceleratorDescription accelerator;
  accelerator.cubeMin = cube_.min;
  accelerator.cubeEdge = cube_.edge;
  catalogue.chunks.emplace_back(chunk_type::kAccelerator1, accelerator.EncodeChunk());
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
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = 1;
  catalogue.chunks.emplace_back(chunk_type::kUpdateIterations, iterations.EncodeChunk());
  OOCPCLODDescription levelOfDetail;
  levelOfDetail.blockCount = 1;
  catalogue.chunks.emplace_back(chunk_type::kLevelOfDetail, levelOfDetail.EncodeChunk());
  catalogue.information.creationTime = timePoint_;
  catalogue.information.localFrameOffset = frameOffset_;
  catalogue.information.generator = kGenerator;
  return catalogue;
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
