// Builds the streams of a new repository out of a set of points.
#include "host/build/RepositoryBuilder.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "OOCPointCloud/support/Bytes.h"
#include "host/build/LodBuilder.h"
#include "host/cloud/SourceRecord.h"

namespace tarnhost {

namespace {

/// Points handled at once where positions are read in a row.
constexpr std::uint64_t kRowPoints = 1u << 16;
/// Nodes gathered and encoded before their blocks are appended; bounds the memory of a build.
constexpr std::size_t kBatchNodes = 32;
/// Coordinates below this need no local frame: 32-bit floats tell them apart to a millimetre.
constexpr double kNearOrigin = 10000;

constexpr const char* kGenerator = "OOCPointCloudTarn 0.1.0";

std::uint64_t Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

/// The box of the points [begin, end) in the frame of `frameOffset`.
oocpc::Box3d BoxOf(const PointSet& points, const oocpc::Vector3d& frameOffset, std::uint64_t begin,
                   std::uint64_t end, oocpc::Box3d box) {
  std::vector<std::int32_t> xyz;
  for (; begin < end; begin += std::min(kRowPoints, end - begin)) {
    const std::uint64_t count = std::min(kRowPoints, end - begin);
    xyz.resize(3 * count);
    points.ReadPositions(begin, count, xyz.data());
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto position = LocalPosition(xyz.data() + 3 * i, points.GetTransform(), frameOffset);
      Extend(box, {position, position});
    }
  }
  return box;
}

oocpc::Box3d BoxOf(const PointSet& points, const oocpc::Vector3d& frameOffset) {
  using Range = tbb::blocked_range<std::uint64_t>;
  return tbb::parallel_reduce(
      Range(0, points.GetPointCount(), kRowPoints), EmptyBox(),
      [&](const Range& range, oocpc::Box3d box) {
        return BoxOf(points, frameOffset, range.begin(), range.end(), box);
      },
      [](oocpc::Box3d a, const oocpc::Box3d& b) {
        Extend(a, b);
        return a;
      });
}

}  // namespace

RepositoryBuilder::RepositoryBuilder(const PointSet& points, const ImportOptions& options,
                                     OOCPCRepositoryWriter& writer)
    : points_(points),
      options_(options),
      writer_(writer),
      timePoint_(options.timePoint ? *options.timePoint : Now()) {}

bool RepositoryBuilder::Report(const char* stage, std::uint64_t done) const {
  return !options_.progress || options_.progress({stage, done, points_.GetPointCount()});
}

Outcome RepositoryBuilder::Run(ImportReport& report) {
  FindFrame();
  std::vector<CodedPoint> coded;
  if (Outcome outcome = SortPoints(coded); !outcome.Ok()) return outcome;
  const OctreePlan plan = PlanOctree(std::move(coded));
  if (Outcome outcome = WriteBlocks(plan); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteNodes(); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteLod(plan); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteSources(); !outcome.Ok()) return outcome;
  if (Outcome outcome = WriteIteration(); !outcome.Ok()) return outcome;
  const HRESULT code = writer_.Commit(Describe());
  if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
  report.pointCount = points_.GetPointCount();
  report.nodeCount = nodes_.size();
  report.blockCount = blockCount_;
  report.storedBytes = writer_.GetTotalBytes();
  return Outcome::Success();
}

void RepositoryBuilder::FindFrame() {
  if (points_.GetPointCount() == 0) return;
  const oocpc::Box3d source = BoxOf(points_, {});
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const bool near =
        std::abs(source.min[axis]) < kNearOrigin && std::abs(source.max[axis]) < kNearOrigin;
    frameOffset_[axis] = near ? 0.0 : std::floor(source.min[axis] / 1000) * 1000;
  }
  const oocpc::Box3d local = BoxOf(points_, frameOffset_);
  cube_.min = local.min;
  double edge = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    edge = std::max(edge, local.max[axis] - local.min[axis]);
  }
  cube_.edge = edge > 0 ? edge : 1;
}

Outcome RepositoryBuilder::SortPoints(std::vector<CodedPoint>& coded) const {
  if (!Report("reading", 0)) return Outcome::FromCode(oocpc::result::kStopped);
  coded.resize(points_.GetPointCount());
  using Range = tbb::blocked_range<std::uint64_t>;
  tbb::parallel_for(Range(0, coded.size(), kRowPoints), [&](const Range& range) {
    std::vector<std::int32_t> xyz(3 * range.size());
    points_.ReadPositions(range.begin(), range.size(), xyz.data());
    for (std::uint64_t i = range.begin(); i < range.end(); ++i) {
      const auto position =
          LocalPosition(xyz.data() + 3 * (i - range.begin()), points_.GetTransform(), frameOffset_);
      coded[i] = {cube_.CodeOf(position), i};
    }
  });
  if (!Report("sorting", 0)) return Outcome::FromCode(oocpc::result::kStopped);
  tbb::parallel_sort(coded.begin(), coded.end());
  if (!Report("sorting", coded.size())) return Outcome::FromCode(oocpc::result::kStopped);
  return Outcome::Success();
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

Outcome RepositoryBuilder::WriteBlocks(const OctreePlan& plan) {
  if (Outcome outcome = CreateColumns(); !outcome.Ok()) return outcome;
  const BlockBuilder builder(points_, frameOffset_);
  nodes_.reserve(plan.nodes.size());
  std::vector<BuiltBlock> blocks(kBatchNodes);
  for (std::size_t begin = 0; begin < plan.nodes.size(); begin += kBatchNodes) {
    const std::size_t count = std::min(kBatchNodes, plan.nodes.size() - begin);
    const auto batch = std::span(plan.nodes).subspan(begin, count);
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
      if (batch[i].ownPointCount == 0) return;
      builder.Build(std::span(plan.order).subspan(batch[i].firstPoint, batch[i].ownPointCount),
                    plan.PartsOf(batch[i]), blocks[i]);
    });
    Outcome outcome = AppendBlocks(batch, std::span(blocks).first(count));
    if (!outcome.Ok()) return outcome;
    if (!Report("writing", batch.back().firstPoint + batch.back().ownPointCount)) {
      return Outcome::FromCode(oocpc::result::kStopped);
    }
  }
  return Outcome::Success();
}

Outcome RepositoryBuilder::AppendBlocks(std::span<const PlannedNode> batch,
                                        std::span<const BuiltBlock> blocks) {
  for (std::size_t i = 0; i < batch.size(); ++i) {
    AddNode(batch[i], batch[i].ownPointCount == 0 ? EmptyBox() : blocks[i].box);
    if (batch[i].ownPointCount == 0) continue;
    for (std::size_t column = 0; column < blocks[i].columns.size(); ++column) {
      const HRESULT code = writer_.AppendBlock(static_cast<std::uint32_t>(column),
                                               blocks[i].columns[column], batch[i].firstPoint);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
    }
    ++blockCount_;
  }
  return Outcome::Success();
}

void RepositoryBuilder::AddNode(const PlannedNode& planned, const oocpc::Box3d& ownBox) {
  OOCPCOctreeAcceleratorNode node;
  std::copy(std::begin(planned.children), std::end(planned.children), node.children.begin());
  node.firstPoint = planned.firstPoint;
  if (planned.ownPointCount > 0) node.blockId = blockCount_;
  node.level = planned.level;
  node.ownPointCount = planned.ownPointCount;
  node.indexInLevel = planned.indexInLevel;
  node.subtreePointCount = planned.subtreePointCount;
  oocpc::Box3d box = ownBox;
  for (const std::uint64_t child : planned.children) {
    if (child != PlannedNode::kNoChild) Extend(box, {nodes_[child].corner1, nodes_[child].corner2});
  }
  if (planned.subtreePointCount == 0) box = {};
  node.corner1 = box.min;
  node.corner2 = box.max;
  nodes_.push_back(node);
}

Outcome RepositoryBuilder::WriteNodes() {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(nodes_.size() * OOCPCOctreeAcceleratorNode::kBytes);
  for (const OOCPCOctreeAcceleratorNode& node : nodes_) node.Encode(bytes);
  std::uint64_t position = 0;
  const HRESULT code = writer_.Append(OOCPCAcceleratorContainer::kStreamName, bytes, position);
  return oocpc::Failed(code) ? Outcome::FromCode(code, options_.output.string())
                             : Outcome::Success();
}

Outcome RepositoryBuilder::WriteLod(const OctreePlan& plan) {
  BuiltLod lod;
  if (Outcome outcome = BuildLod(plan, nodes_, cube_, 0, lod); !outcome.Ok()) return outcome;
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

Outcome RepositoryBuilder::WriteIteration() {
  OOCPCUpdateIteration iteration;
  iteration.timePoint = timePoint_;
  iteration.acceleratorPayload = {0, nodes_.size() * OOCPCOctreeAcceleratorNode::kBytes};
  iteration.lodPayload = lodPayload_;
  iteration.pointCount = points_.GetPointCount();
  iteration.addedPointCount = points_.GetPointCount();
  iteration.blockCount = blockCount_;
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
