// Clouds in memory with columns of every type, put together by hand.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "OOCPointCloud/columns/ComponentTypes.h"
#include "OOCPointCloud/support/Bytes.h"
#include "tests/host/select/SelectFixture.h"
#include "tests/support/SmallRepository.h"

namespace oocpctest {

struct HandMadeColumn {
  std::string name;
  oocpc::ColumnType type;
  ByteVector values;  ///< of all points, one after the other
};

/// What a cloud is made of. Points are dealt to the nodes in their order: `nodes` states how many
/// the root and then each of its children (at most eight) gets.
struct HandMadeRecipe {
  std::array<double, 3> scale{0.01, 0.01, 0.01};
  std::array<double, 3> offset{};
  std::array<double, 3> frameOffset{};
  std::vector<std::int32_t> xyz;
  std::vector<HandMadeColumn> columns;
  std::vector<std::string> strings;
  std::vector<std::uint32_t> nodes;
  /// Alters a block before it is written; column 0 are the positions.
  std::function<void(std::uint32_t column, oocpc::EncodedBlock&)> alter;

  [[nodiscard]] std::size_t GetCount() const { return xyz.size() / 3; }
  [[nodiscard]] double GetSource(std::size_t point, std::size_t axis) const {
    const double scaled = xyz[3 * point + axis] * scale[axis];
    return scaled + offset[axis];
  }
  [[nodiscard]] double GetLocal(std::size_t point, std::size_t axis) const {
    return GetSource(point, axis) - frameOffset[axis];
  }
};

class HandMadeCloud {
 public:
  explicit HandMadeCloud(HandMadeRecipe recipe) : recipe_(std::move(recipe)) {
    const auto streams = std::make_shared<OOCPCMemoryStreams>();
    OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
    WriteBlocks(writer);
    ByteVector dictionary;
    for (const std::string& text : recipe_.strings) {
      OOCPCStringRepositoryContainer::EncodeString(text, dictionary);
    }
    Append(writer, OOCPCStringRepositoryContainer::kStreamName, dictionary);
    Append(writer, tarnhost::SourceRecord::kStreamName, {});
    WriteTree(writer);
    EXPECT_EQ(writer.Commit(Catalogue()), 0);
    EXPECT_TRUE(Succeeded(tarnhost::Cloud::Attach(std::make_unique<OOCPCMemoryRepository>(streams),
                                                  "memory", cloud)));
  }

  std::unique_ptr<tarnhost::Cloud> cloud;

 private:
  static void Append(OOCPCRepositoryWriter& writer, const char* stream, const ByteVector& bytes) {
    std::uint64_t position = 0;
    EXPECT_EQ(writer.Append(stream, bytes, position), 0);
  }

  void WriteColumn(OOCPCRepositoryWriter& writer, std::uint32_t id, oocpc::ColumnType type,
                   const std::uint8_t* values) const {
    std::uint64_t first = 0;
    for (const std::uint32_t count : recipe_.nodes) {
      if (count == 0) continue;
      const std::size_t bytes = oocpc::ValueBytes(type);
      auto block = oocpc::EncodeBlock(type, {values + first * bytes, count * bytes});
      if (recipe_.alter) recipe_.alter(id, block);
      EXPECT_EQ(writer.AppendBlock(id, block, first), 0);
      first += count;
    }
    // A column without a point still has its streams.
    if (first == 0) {
      Append(writer, oocpc::ColumnDataStreamName(id).c_str(), {});
      Append(writer, oocpc::ColumnTableStreamName(id).c_str(), {});
    }
  }

  void WriteBlocks(OOCPCRepositoryWriter& writer) const {
    ByteVector positions;
    for (const std::int32_t number : recipe_.xyz) oocpc::AppendLittleEndian(positions, number);
    WriteColumn(writer, 0, {oocpc::ValueType::kInt32, 3}, positions.data());
    for (std::size_t i = 0; i < recipe_.columns.size(); ++i) {
      const HandMadeColumn& column = recipe_.columns[i];
      WriteColumn(writer, static_cast<std::uint32_t>(i + 1), column.type, column.values.data());
    }
  }

  void Enclose(OOCPCOctreeAcceleratorNode& node, std::size_t first, std::size_t count) const {
    if (count == 0) return;
    const double infinity = std::numeric_limits<double>::infinity();
    node.corner1 = {infinity, infinity, infinity};
    node.corner2 = {-infinity, -infinity, -infinity};
    for (std::size_t i = first; i < first + count; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        node.corner1[axis] = std::min(node.corner1[axis], recipe_.GetLocal(i, axis));
        node.corner2[axis] = std::max(node.corner2[axis], recipe_.GetLocal(i, axis));
      }
    }
  }

  void WriteTree(OOCPCRepositoryWriter& writer) const {
    ByteVector nodes;
    OOCPCOctreeAcceleratorNode root;
    std::uint64_t first = recipe_.nodes[0];
    std::uint64_t block = recipe_.nodes[0] == 0 ? 0 : 1;
    for (std::size_t i = 1; i < recipe_.nodes.size(); ++i) {
      OOCPCOctreeAcceleratorNode child;
      child.level = 1;
      child.indexInLevel = i - 1;
      child.ownPointCount = recipe_.nodes[i];
      child.subtreePointCount = child.ownPointCount;
      child.firstPoint = first;
      if (child.ownPointCount > 0) child.blockId = block++;
      Enclose(child, first, child.ownPointCount);
      first += child.ownPointCount;
      root.children[i - 1] = i - 1;
      child.Encode(nodes);
    }
    root.ownPointCount = recipe_.nodes[0];
    root.subtreePointCount = first;
    if (root.ownPointCount > 0) root.blockId = 0;
    Enclose(root, 0, first);
    root.Encode(nodes);
    Append(writer, OOCPCAcceleratorContainer::kStreamName, nodes);
    OOCPCUpdateIteration iteration;
    iteration.acceleratorPayload = {recipe_.nodes.size() - 1, nodes.size()};
    iteration.pointCount = first;
    iteration.addedPointCount = first;
    iteration.blockCount = block;
    ByteVector record;
    iteration.Stream(record);
    Append(writer, OOCPCUpdateIterationContainer::kStreamName, record);
  }

  [[nodiscard]] OOCPCCatalogue Catalogue() const {
    namespace chunk_type = oocpc::chunk_type;
    OOCPCCatalogue catalogue;
    catalogue.information.localFrameOffset = recipe_.frameOffset;
    OOCPCAcceleratorDescription accelerator;
    accelerator.cubeEdge = 1000000;
    catalogue.chunks.emplace_back(chunk_type::kAccelerator1, accelerator.EncodeChunk());
    OOCPCPositionsDescription positions;
    positions.scale = recipe_.scale;
    positions.offset = recipe_.offset;
    catalogue.chunks.emplace_back(chunk_type::kStaticPositions, positions.EncodeChunk());
    for (std::size_t i = 0; i < recipe_.columns.size(); ++i) {
      const OOCPCMetaDataDescription description{recipe_.columns[i].name, recipe_.columns[i].type,
                                                 static_cast<std::uint32_t>(i + 1), ""};
      catalogue.chunks.emplace_back(chunk_type::kStaticMetaData, description.EncodeChunk());
    }
    catalogue.chunks.emplace_back(
        chunk_type::kStringRepository,
        OOCPCStringRepositoryContainer::EncodeChunk(recipe_.strings.size()));
    OOCPCUpdateIterationDescription iterations;
    iterations.iterationCount = 1;
    catalogue.chunks.emplace_back(chunk_type::kUpdateIterations, iterations.EncodeChunk());
    return catalogue;
  }

  HandMadeRecipe recipe_;
};

/// Marks the selected points by their numbers in storage order.
class MarkingSink final : public tarnhost::SelectionSink {
 public:
  tarnhost::Outcome Begin(tarnhost::Cloud&) override { return tarnhost::Outcome::Success(); }
  tarnhost::Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                            std::span<const std::uint32_t> points,
                            tarnhost::SinkPart* /*part*/) override {
    for (const std::uint32_t point : points) {
      const std::size_t at = node.firstPoint + point;
      if (marks.size() <= at) marks.resize(at + 1, false);
      EXPECT_FALSE(marks[at]) << "point " << at << " came twice";
      marks[at] = true;
    }
    return tarnhost::Outcome::Success();
  }
  tarnhost::Outcome End(const tarnhost::SelectReport&) override {
    return tarnhost::Outcome::Success();
  }
  /// Of `count` points.
  [[nodiscard]] std::vector<bool> Get(std::size_t count) const {
    std::vector<bool> all = marks;
    all.resize(count, false);
    return all;
  }

  std::vector<bool> marks;
};

}  // namespace oocpctest
