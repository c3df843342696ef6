// Points as records of their columns' values, one beside the other, whatever they came from.
#include "host/build/PackedRecords.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace tarnhost {

namespace {

constexpr std::size_t kPositionBytes = 3 * sizeof(std::int32_t);

std::vector<Dimension> ColumnsOf(const Cloud& cloud) {
  std::vector<Dimension> dimensions;
  for (const CloudColumn& column : cloud.GetColumns()) {
    dimensions.push_back({column.name, column.type, column.description});
  }
  return dimensions;
}

}  // namespace

PackedLayout::PackedLayout(const std::vector<Dimension>& dimensions)
    : recordBytes_(kPositionBytes) {
  for (const Dimension& dimension : dimensions) {
    fields_.push_back({recordBytes_, oocpc::ValueBytes(dimension.type)});
    recordBytes_ += fields_.back().bytes;
  }
}

void PackedLayout::PutPositions(const std::int32_t* xyz, std::size_t count,
                                std::uint8_t* records) const {
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(records + i * recordBytes_, xyz + 3 * i, kPositionBytes);
  }
}

void PackedLayout::Put(std::size_t dimension, const std::uint8_t* values, std::size_t count,
                       std::uint8_t* records) const {
  const Field& field = fields_[dimension];
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(records + i * recordBytes_ + field.offset, values + i * field.bytes, field.bytes);
  }
}

void PackedLayout::Extract(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                           std::uint8_t* values) const {
  const Field& field = fields_[dimension];
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(values + i * field.bytes, records + i * recordBytes_ + field.offset, field.bytes);
  }
}

struct NodeRecords::Readers {
  std::mutex mutex;
  std::vector<std::unique_ptr<BlockReader>> idle;
};

NodeRecords::NodeRecords(Cloud& cloud)
    : cloud_(cloud),
      dimensions_(ColumnsOf(cloud)),
      layout_(dimensions_),
      readers_(std::make_unique<Readers>()) {}

NodeRecords::~NodeRecords() = default;

Outcome NodeRecords::Borrow(std::unique_ptr<BlockReader>& reader) {
  const std::lock_guard<std::mutex> lock(readers_->mutex);
  if (!readers_->idle.empty()) {
    reader = std::move(readers_->idle.back());
    readers_->idle.pop_back();
    return Outcome::Success();
  }
  std::vector<std::string> names;
  for (const Dimension& dimension : dimensions_) names.push_back(dimension.name);
  reader = std::make_unique<BlockReader>();
  return BlockReader::Open(cloud_, names, *reader);
}

void NodeRecords::Return(std::unique_ptr<BlockReader> reader) {
  const std::lock_guard<std::mutex> lock(readers_->mutex);
  readers_->idle.push_back(std::move(reader));
}

Outcome NodeRecords::ReadPositions(const OOCPCOctreeAcceleratorNode& node,
                                   std::vector<std::int32_t>& xyz) {
  std::unique_ptr<BlockReader> reader;
  Outcome outcome = Borrow(reader);
  if (outcome.Ok()) outcome = reader->ReadPositions(node, xyz);
  if (outcome.Ok()) Return(std::move(reader));
  return outcome;
}

Outcome NodeRecords::Append(const OOCPCOctreeAcceleratorNode& node,
                            std::vector<std::uint8_t>& records) {
  std::unique_ptr<BlockReader> reader;
  std::vector<std::int32_t> xyz;
  Outcome outcome = Borrow(reader);
  if (outcome.Ok()) outcome = reader->ReadPositions(node, xyz);
  if (!outcome.Ok()) return outcome;
  const std::size_t begin = records.size();
  records.resize(begin + node.ownPointCount * layout_.GetRecordBytes());
  layout_.PutPositions(xyz.data(), node.ownPointCount, records.data() + begin);
  std::vector<std::uint8_t> values;
  for (std::size_t i = 0; i < dimensions_.size(); ++i) {
    outcome = reader->ReadColumn(i, node, values);
    if (!outcome.Ok()) return outcome;
    layout_.Put(i, values.data(), node.ownPointCount, records.data() + begin);
  }
  Return(std::move(reader));
  return outcome;
}

namespace {

/// Reading a scan cannot fail, reading blocks can: what fails is kept, and reads as zeros.
class NodeScan final : public ScanFile, public FallibleSource {
 public:
  NodeScan(Cloud& cloud, std::vector<OOCPCOctreeAcceleratorNode> nodes)
      : path_(cloud.GetPath()),
        transform_(cloud.GetTransform()),
        records_(cloud),
        nodes_(std::move(nodes)) {
    for (const auto& node : nodes_) ends_.push_back(GetPointCount() + node.ownPointCount);
  }

  const std::filesystem::path& GetPath() const override { return path_; }
  std::uint64_t GetPointCount() const override { return ends_.empty() ? 0 : ends_.back(); }
  const PositionTransform& GetTransform() const override { return transform_; }
  const std::vector<Dimension>& GetDimensions() const override { return records_.GetDimensions(); }
  std::size_t GetRecordBytes() const override { return records_.GetLayout().GetRecordBytes(); }

  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override {
    std::vector<std::int32_t> all;
    ForEachNode(first, count, [&](const auto& node, std::uint64_t begin, std::uint64_t points) {
      Note(records_.ReadPositions(node, all));
      all.resize(3 * std::size_t{node.ownPointCount});
      std::copy_n(all.begin() + static_cast<std::ptrdiff_t>(3 * begin), 3 * points, xyz);
      xyz += 3 * points;
    });
  }
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override {
    std::vector<std::uint8_t> all;
    const std::size_t bytes = GetRecordBytes();
    ForEachNode(first, count, [&](const auto& node, std::uint64_t begin, std::uint64_t points) {
      all.clear();
      Note(records_.Append(node, all));
      all.resize(node.ownPointCount * bytes);
      std::copy_n(all.begin() + static_cast<std::ptrdiff_t>(begin * bytes), points * bytes, out);
      out += points * bytes;
    });
  }
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override {
    records_.GetLayout().Extract(dimension, records, count, out);
  }
  std::span<const std::uint8_t> GetLeadingBytes() const override { return {}; }
  std::span<const std::uint8_t> GetTrailingBytes() const override { return {}; }

  Outcome GetFailure() const override {
    const std::lock_guard<std::mutex> lock(mutex_);
    return failure_;
  }

 private:
  void Note(Outcome outcome) const {
    if (outcome.Ok()) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (failure_.Ok()) failure_ = std::move(outcome);
  }

  template <typename Visit>
  void ForEachNode(std::uint64_t first, std::uint64_t count, const Visit& visit) const {
    while (count > 0) {
      const auto place = std::ranges::upper_bound(ends_, first) - ends_.begin();
      const auto& node = nodes_[static_cast<std::size_t>(place)];
      const std::uint64_t end = ends_[static_cast<std::size_t>(place)];
      const std::uint64_t begin = node.ownPointCount - (end - first);
      const std::uint64_t points = std::min(count, end - first);
      visit(node, begin, points);
      first += points;
      count -= points;
    }
  }

  std::filesystem::path path_;
  PositionTransform transform_;
  mutable NodeRecords records_;
  std::vector<OOCPCOctreeAcceleratorNode> nodes_;
  std::vector<std::uint64_t> ends_;
  mutable std::mutex mutex_;
  mutable Outcome failure_;
};

}  // namespace

std::unique_ptr<ScanFile> PackNodes(Cloud& cloud, std::vector<OOCPCOctreeAcceleratorNode> nodes,
                                    const FallibleSource*& failures) {
  auto scan = std::make_unique<NodeScan>(cloud, std::move(nodes));
  failures = scan.get();
  return scan;
}

}  // namespace tarnhost
