// The level-of-detail records of a plan.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "host/build/LodBuilder.h"

namespace tarnhost {
namespace {

using Node = OOCPCOctreeAcceleratorNode;
using Record = OOCPCLODNodeRecord;

constexpr MortonCube kCube{{-4, 0, 100}, 512};

/// A plan, its octree nodes and what is built of them.
struct Lod {
  explicit Lod(const std::vector<std::uint64_t>& codes) {
    std::vector<CodedPoint> points;
    for (std::size_t i = 0; i < codes.size(); ++i) points.push_back({codes[i], i});
    std::sort(points.begin(), points.end());
    grid = SamplingGrid::Choose(CountCells(points));
    plan = PlanOctree(std::move(points));
    for (const PlannedNode& planned : plan.nodes) {
      Node node;
      std::copy(std::begin(planned.children), std::end(planned.children), node.children.begin());
      node.firstPoint = planned.firstPoint;
      node.blockId = planned.ownPointCount > 0 ? nodes.size() + 100 : Node::kNoBlock;
      node.level = planned.level;
      node.ownPointCount = planned.ownPointCount;
      node.indexInLevel = planned.indexInLevel;
      node.corner1 = {static_cast<double>(nodes.size()), 1, 2};
      node.corner2 = {3, 4, static_cast<double>(nodes.size())};
      nodes.push_back(node);
    }
    std::vector<LodTreeNode> tree;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const auto parts = plan.PartsOf(plan.nodes[i]);
      tree.push_back({i, nodes[i], {parts.begin(), parts.end()}});
    }
    const Outcome outcome = BuildLod(tree, kCube, grid, 3, built);
    EXPECT_TRUE(outcome.Ok()) << outcome.what;
    EXPECT_EQ(built.records.size() % Record::kBytes, 0u);
    for (std::size_t at = 0; at + Record::kBytes <= built.records.size(); at += Record::kBytes) {
      std::uint8_t bytes[Record::kBytes];
      std::copy_n(built.records.begin() + static_cast<std::ptrdiff_t>(at), sizeof(bytes), bytes);
      records.emplace_back();
      EXPECT_EQ(Record::Decode(bytes, records.back()), oocpc::result::kOk);
    }
  }

  SamplingGrid grid;
  OctreePlan plan;
  std::vector<Node> nodes;
  BuiltLod built;
  std::vector<Record> records;
};

std::vector<std::uint64_t> RandomCodes(std::size_t count, unsigned bits = 63) {
  std::mt19937_64 random(9);
  std::vector<std::uint64_t> codes(count);
  for (std::uint64_t& code : codes) code = random() >> (64 - bits);
  return codes;
}

/// What holds for every cloud.
void Check(const Lod& lod) {
  ASSERT_EQ(lod.built.block.entries.size(), lod.records.size());
  ASSERT_FALSE(lod.records.empty());
  std::map<std::pair<std::uint32_t, std::uint32_t>, const Record*> byPlace;
  for (const Record& record : lod.records) {
    EXPECT_TRUE(byPlace.insert({{record.level, record.indexInLevel}, &record}).second)
        << "level " << record.level << " has the index " << record.indexInLevel << " twice";
  }
  std::uint32_t finest = 0;
  std::map<std::uint64_t, std::uint32_t> next;  // of each octree node's points
  std::map<std::uint64_t, std::uint32_t> levels;
  for (std::size_t i = 0; i < lod.records.size(); ++i) {
    const Record& record = lod.records[i];
    EXPECT_GE(record.level, finest) << "level after level";
    finest = std::max(finest, record.level);
    EXPECT_EQ(lod.built.block.entries[i].childMask, record.childMask);
    EXPECT_EQ(lod.built.block.entries[i].nodeIndex, record.nodeIndex);
    ASSERT_LT(record.nodeIndex, lod.nodes.size());
    const Node& node = lod.nodes[record.nodeIndex];
    EXPECT_EQ(record.corner1, node.corner1);
    EXPECT_EQ(record.corner2, node.corner2);
    EXPECT_EQ(record.blockId, node.blockId);
    EXPECT_EQ(record.level, node.level + record.levelsInLeaf);
    EXPECT_EQ(record.levelsInLeaf, levels[record.nodeIndex]++);
    EXPECT_EQ(record.firstInBlock, next[record.nodeIndex]);
    EXPECT_EQ(record.firstPoint, node.firstPoint + record.firstInBlock);
    next[record.nodeIndex] += record.pointCount;
    if (record.level > 10) {
      EXPECT_EQ(record.indexInLevel, record.nodeIndex);
    } else {
      EXPECT_EQ(record.indexInLevel, node.indexInLevel << (3 * record.levelsInLeaf));
    }
  }
  EXPECT_EQ(lod.built.block.levelCount, finest + 1);
  for (std::size_t i = 0; i < lod.nodes.size(); ++i) {
    EXPECT_EQ(next[i], lod.nodes[i].ownPointCount) << "node " << i;
    EXPECT_EQ(levels[i], lod.plan.nodes[i].partCount) << "node " << i;
  }
  // Every record but the root is among the children that its parent's mask announces.
  std::map<const Record*, unsigned> announced;
  for (const Record& record : lod.records) {
    if (record.level == 0) {
      EXPECT_EQ(record.parentIndex, 0u);
      continue;
    }
    const auto parent = byPlace.find({record.level - 1, record.parentIndex});
    ASSERT_NE(parent, byPlace.end());
    const Node& node = lod.nodes[record.nodeIndex];
    const Record& above = *parent->second;
    if (record.levelsInLeaf > 0) {
      EXPECT_EQ(above.nodeIndex, record.nodeIndex);
    } else {
      EXPECT_EQ(lod.nodes[above.nodeIndex].children[node.indexInLevel % 8], record.nodeIndex);
    }
    announced[&above] |= record.levelsInLeaf > 0 ? 1u : 1u << node.indexInLevel % 8;
  }
  for (const Record& record : lod.records) EXPECT_EQ(record.childMask, announced[&record]);
}

TEST(LodBuilder, DescribesEveryLevelOfARandomCloud) {
  const Lod lod(RandomCodes(100000));
  Check(lod);
  EXPECT_GT(lod.nodes.size(), 8u);
}

TEST(LodBuilder, DescribesASingleLeafAndAnEmptyCloud) {
  auto codes = RandomCodes(5000);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] >>= 30;  // a dense corner
  const Lod leaf(codes);
  Check(leaf);
  EXPECT_EQ(leaf.nodes.size(), 1u);
  EXPECT_GT(leaf.records.size(), 1u);
  const Lod empty({});
  Check(empty);
  EXPECT_EQ(empty.records.size(), 1u);
  EXPECT_EQ(empty.records[0].pointCount, 0u);
}

TEST(LodBuilder, NumbersNodesByTheirOctreeNodeWhereMortonCodesDoNotFit) {
  // Two small clusters at the ends of the cube make a deep tree.
  auto codes = RandomCodes(70000, 24);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{0xFFFFFF} << 39;
  const Lod lod(codes);
  Check(lod);
  EXPECT_GT(lod.built.block.levelCount, Record::kDeepestMortonLevel + 2);
  EXPECT_TRUE(std::ranges::any_of(lod.records, [](const Record& record) {
    return record.level > Record::kDeepestMortonLevel && record.levelsInLeaf == 0;
  }));
}

TEST(LodBuilder, DescribesPointsThatNothingTellsApart) {
  Check(Lod(std::vector<std::uint64_t>(60000, 12345)));
}

TEST(LodBuilder, StatesScaleCentreAndStream) {
  const Lod lod(RandomCodes(1000));
  const OOCPCLODBlock& block = lod.built.block;
  EXPECT_EQ(block.nodeStreamId, 3u);
  EXPECT_EQ(block.centre, (oocpc::Vector3d{252, 256, 356}));
  ASSERT_EQ(lod.grid.gridBits, 7u);
  EXPECT_EQ(block.scale, 4.0) << "the edge of the cube in 128 cells";
}

TEST(LodBuilder, PutsTheNodesOfALevelAlongTheMortonCurve) {
  const Lod lod(RandomCodes(200000));
  for (std::size_t i = 1; i < lod.records.size(); ++i) {
    const Record& before = lod.records[i - 1];
    const Record& record = lod.records[i];
    ASSERT_LE(record.level, Record::kDeepestMortonLevel);
    if (before.level != record.level) continue;
    EXPECT_LT(before.indexInLevel, record.indexInLevel);
  }
}

}  // namespace
}  // namespace tarnhost
