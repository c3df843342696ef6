// Walking the levels of detail of an iteration.
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "host/lod/LodTree.h"
#include "tests/support/PlainCloud.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::SyntheticCloud;

constexpr std::uint32_t kPoints = 60000;

/// Every node with its children, found by walking.
class LodTreeWalk : public testing::Test {
 protected:
  struct Family {
    LodNode node;
    std::vector<LodNode> children;
  };

  void SetUp() override {
    ASSERT_NE(street_.cloud, nullptr);
    ASSERT_TRUE(IsOk(LodTree::Open(*street_.cloud, 0, tree_)));
    LodNode root;
    ASSERT_TRUE(IsOk(tree_->ReadRoot(root)));
    for (std::vector<LodNode> waiting{root}; !waiting.empty();) {
      Family family{waiting.back(), {}};
      waiting.pop_back();
      ASSERT_TRUE(IsOk(tree_->ReadChildren(family.node, family.children)));
      waiting.insert(waiting.end(), family.children.begin(), family.children.end());
      families_.push_back(std::move(family));
    }
  }

  const SyntheticCloud street_{kPoints};
  std::unique_ptr<LodTree> tree_;
  std::vector<Family> families_;
};

TEST_F(LodTreeWalk, FindsEveryPointExactlyOnce) {
  std::vector<PointRange> ranges;
  for (const Family& family : families_) ranges.push_back(family.node.points);
  std::ranges::sort(ranges, {}, &PointRange::first);
  std::uint64_t next = 0;
  for (const PointRange& range : ranges) {
    EXPECT_EQ(range.first, next);
    EXPECT_GT(range.count, 0u);
    next += range.count;
  }
  EXPECT_EQ(next, kPoints);
  EXPECT_GT(families_.size(), 5u);
}

TEST_F(LodTreeWalk, GivesAnInnerNodeOneChildForEachOfTheOctree) {
  bool hasInner = false;
  for (const Family& family : families_) {
    const OOCPCOctreeAcceleratorNode& octreeNode = family.node.octreeNode;
    if (octreeNode.IsLeaf()) continue;
    hasInner = true;
    std::vector<std::uint64_t> expected;
    std::ranges::copy_if(octreeNode.children, std::back_inserter(expected),
                         [](std::uint64_t i) { return i != OOCPCOctreeAcceleratorNode::kNoChild; });
    std::vector<std::uint64_t> found;
    for (const LodNode& child : family.children) {
      found.push_back(child.nodeIndex);
      EXPECT_EQ(child.level, family.node.level + 1);
      EXPECT_EQ(child.octreeNode.level, child.level);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(family.node.points.count, octreeNode.ownPointCount);
  }
  EXPECT_TRUE(hasInner);
}

TEST_F(LodTreeWalk, GivesALeafItsFinerLevelsOneAfterTheOther) {
  std::map<std::uint64_t, std::uint64_t> pointsOfLeaf;
  bool hasFiner = false;
  for (const Family& family : families_) {
    const LodNode& node = family.node;
    if (!node.octreeNode.IsLeaf()) continue;
    pointsOfLeaf[node.nodeIndex] += node.points.count;
    ASSERT_LE(family.children.size(), 1u);
    if (family.children.empty()) continue;
    hasFiner = true;
    const LodNode& finer = family.children.front();
    EXPECT_EQ(finer.nodeIndex, node.nodeIndex);
    EXPECT_EQ(finer.level, node.level + 1);
    EXPECT_EQ(finer.points.first, node.points.first + node.points.count);
  }
  EXPECT_TRUE(hasFiner);
  for (const auto& [index, count] : pointsOfLeaf) {
    OOCPCOctreeAcceleratorNode leaf;
    ASSERT_TRUE(IsOk(street_.cloud->ReadNode(index, leaf)));
    EXPECT_EQ(count, leaf.ownPointCount) << index;
  }
}

TEST_F(LodTreeWalk, HalvesTheSpacingWithEachLevel) {
  EXPECT_GT(tree_->GetSpacing(0), 0);
  for (std::uint32_t level = 0; level < 20; ++level) {
    EXPECT_EQ(tree_->GetSpacing(level + 1), tree_->GetSpacing(level) / 2);
  }
  EXPECT_GT(tree_->GetSpacing(0xFFFFFFFF), 0);
  EXPECT_EQ(tree_->GetIteration(), 0u);
}

TEST_F(LodTreeWalk, FindsTheCoarsestLevelThatIsCloseEnough) {
  const double coarsest = tree_->GetSpacing(0);
  EXPECT_EQ(tree_->FindLevel(coarsest * 100), 0u);
  EXPECT_EQ(tree_->FindLevel(coarsest), 0u);
  EXPECT_EQ(tree_->FindLevel(coarsest * 0.99), 1u);
  EXPECT_EQ(tree_->FindLevel(coarsest / 2), 1u);
  EXPECT_EQ(tree_->FindLevel(coarsest / 8 * 1.01), 3u);
  EXPECT_EQ(tree_->FindLevel(1e-300), kDeepestLevel);
}

TEST(LodTree, IsARootAloneWhereThereIsOnePoint) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(1));
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  std::unique_ptr<LodTree> tree;
  ASSERT_TRUE(IsOk(LodTree::Open(*cloud, 0, tree)));
  LodNode root;
  ASSERT_TRUE(IsOk(tree->ReadRoot(root)));
  EXPECT_EQ(root.points.count, 1u);
  std::vector<LodNode> children(3);
  ASSERT_TRUE(IsOk(tree->ReadChildren(root, children)));
  EXPECT_TRUE(children.empty());
}

TEST(LodTree, SaysThatARepositoryHasNoLevelsOfDetail) {
  const auto cloud = oocpctest::MakePlainCloud();
  ASSERT_NE(cloud, nullptr);
  std::unique_ptr<LodTree> tree;
  const Outcome outcome = LodTree::Open(*cloud, 0, tree);
  EXPECT_EQ(outcome.code, result::kNoLodStream);
  EXPECT_EQ(outcome.where, "memory");
  EXPECT_NE(outcome.what.find("no level of detail"), std::string::npos) << outcome.what;
  EXPECT_NE(outcome.remedy.find("import"), std::string::npos) << outcome.remedy;
  EXPECT_EQ(tree, nullptr);
}

TEST(LodTree, NamesAnIterationThatIsNotThere) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(3));
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  std::unique_ptr<LodTree> tree;
  EXPECT_EQ(LodTree::Open(*cloud, 1, tree).code, result::kIndexOutOfRange);
  EXPECT_EQ(tree, nullptr);
}

}  // namespace
}  // namespace tarnhost
