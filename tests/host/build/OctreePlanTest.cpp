// Which point goes into which node, compared with a plain grid.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <utility>

#include "host/build/MortonCube.h"
#include "host/build/OctreePlan.h"
#include "tests/support/ReferencePlan.h"

namespace tarnhost {
namespace {

using oocpctest::ReferencePlan;

constexpr std::uint32_t kCapacity = OctreePlan::kNodeCapacity;

std::vector<CodedPoint> Coded(const std::vector<std::uint64_t>& codes) {
  std::vector<CodedPoint> points;
  for (std::size_t i = 0; i < codes.size(); ++i) points.push_back({codes[i], i});
  std::sort(points.begin(), points.end());
  return points;
}

std::vector<std::uint64_t> RandomCodes(std::size_t count, unsigned bits = 63) {
  std::mt19937_64 random(3);
  std::vector<std::uint64_t> codes(count);
  for (std::uint64_t& code : codes) code = random() >> (64 - bits);
  return codes;
}

/// What holds for every plan.
void CheckPlan(const OctreePlan& plan, const std::vector<std::uint64_t>& codes) {
  std::vector<std::uint64_t> order = plan.order;
  std::sort(order.begin(), order.end());
  ASSERT_EQ(order.size(), codes.size());
  for (std::size_t i = 0; i < order.size(); ++i) ASSERT_EQ(order[i], i) << "each point once";

  ASSERT_FALSE(plan.nodes.empty());
  EXPECT_EQ(plan.nodes.back().level, 0u);
  EXPECT_EQ(plan.nodes.back().subtreePointCount, codes.size());
  std::uint64_t next = 0;
  std::uint64_t nextPart = 0;
  std::set<std::uint64_t> withParent;
  for (std::size_t i = 0; i < plan.nodes.size(); ++i) {
    const PlannedNode& node = plan.nodes[i];
    EXPECT_EQ(node.firstPoint, next);
    next += node.ownPointCount;
    ASSERT_GE(node.partCount, 1u);
    EXPECT_EQ(node.firstPart, nextPart);
    nextPart += node.partCount;
    const auto parts = plan.PartsOf(node);
    EXPECT_EQ(std::accumulate(parts.begin(), parts.end(), 0u), node.ownPointCount);
    const bool isLeaf = std::ranges::all_of(
        node.children, [](std::uint64_t child) { return child == PlannedNode::kNoChild; });
    EXPECT_TRUE(!isLeaf || node.subtreePointCount <= kCapacity);
    EXPECT_TRUE(isLeaf || node.partCount == 1);
    std::uint64_t total = node.ownPointCount;
    for (std::size_t octant = 0; octant < 8; ++octant) {
      const std::uint64_t child = node.children[octant];
      if (child == PlannedNode::kNoChild) continue;
      ASSERT_LT(child, i);
      EXPECT_TRUE(withParent.insert(child).second);
      EXPECT_EQ(plan.nodes[child].level, node.level + 1);
      EXPECT_EQ(plan.nodes[child].indexInLevel, node.indexInLevel * 8 + octant);
      total += plan.nodes[child].subtreePointCount;
    }
    EXPECT_EQ(total, node.subtreePointCount);
    for (std::uint64_t k = 0; k < node.ownPointCount && node.level <= kMortonBits; ++k) {
      const std::uint64_t code = codes[plan.order[node.firstPoint + k]];
      ASSERT_EQ(code >> (3 * (kMortonBits - node.level)), node.indexInLevel)
          << "a point lies in the cell of its node";
    }
  }
  EXPECT_EQ(withParent.size() + 1, plan.nodes.size());
  EXPECT_EQ(nextPart, plan.parts.size());
}

/// What holds as long as Morton bits tell points apart: the levels are those of a plain grid.
void CheckLevels(const OctreePlan& plan, const std::vector<std::uint64_t>& codes) {
  const ReferencePlan reference(codes);
  EXPECT_EQ(SamplingGrid::Choose(CountCells(Coded(codes))).gridBits, reference.GetGridBits());
  std::map<std::pair<std::uint32_t, std::uint64_t>, std::set<std::uint64_t>> samples;
  for (const PlannedNode& node : plan.nodes) {
    std::uint64_t next = node.firstPoint;
    std::uint32_t level = node.level;
    for (const std::uint32_t count : plan.PartsOf(node)) {
      for (const std::uint64_t end = next + count; next < end; ++next) {
        samples[{level, node.indexInLevel}].insert(plan.order[next]);
      }
      ++level;
    }
  }
  EXPECT_EQ(samples.size(), reference.GetSamples().size());
  for (const auto& [place, points] : reference.GetSamples()) {
    EXPECT_TRUE(samples[place] == points)
        << "level " << place.first << ", node " << place.second << ": " << samples[place].size()
        << " points, expected " << points.size();
  }
}

void CheckAll(const std::vector<std::uint64_t>& codes) {
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  CheckLevels(plan, codes);
}

std::uint64_t CodeOf(std::uint64_t x, std::uint64_t y, std::uint64_t z) {
  return SpreadBits(x) | SpreadBits(y) << 1 | SpreadBits(z) << 2;
}

TEST(OctreePlan, GivesAnEmptyRootForNoPoints) {
  const OctreePlan plan = PlanOctree({});
  CheckPlan(plan, {});
  ASSERT_EQ(plan.nodes.size(), 1u);
  EXPECT_EQ(plan.nodes[0].ownPointCount, 0u);
}

TEST(OctreePlan, KeepsASinglePointInTheRoot) {
  const OctreePlan plan = PlanOctree(Coded({12345}));
  CheckPlan(plan, {12345});
  EXPECT_EQ(plan.nodes.size(), 1u);
}

TEST(OctreePlan, KeepsAsManyPointsAsANodeHoldsInOneLeaf) {
  const auto codes = RandomCodes(kCapacity);
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  EXPECT_EQ(plan.nodes.size(), 1u);
}

TEST(OctreePlan, SplitsOnePointMoreThanANodeHolds) {
  const auto codes = RandomCodes(kCapacity + 1);
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  EXPECT_GT(plan.nodes.size(), 1u);
}

TEST(OctreePlan, PutsEveryPointIntoTheCellOfItsNode) {
  auto codes = RandomCodes(150000);
  for (std::size_t i = 0; i < codes.size(); i += 3) codes[i] >>= 31;  // a dense corner
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  EXPECT_GT(plan.nodes.back().ownPointCount, 1000u);
}

TEST(OctreePlan, SamplesEachLevelOnOneGrid) {
  auto codes = RandomCodes(60000);
  for (std::size_t i = 0; i < 20000; ++i) codes[i] = codes[i + 20000];  // ties
  CheckAll(codes);
}

TEST(OctreePlan, SamplesADenseCornerOnTheSameGrid) {
  auto codes = RandomCodes(100000);
  for (std::size_t i = 0; i < codes.size(); i += 3) codes[i] >>= 31;
  CheckAll(codes);
}

TEST(OctreePlan, DividesALeafIntoLevelsThatTogetherAreItsPoints) {
  std::vector<std::uint64_t> codes;
  for (std::uint64_t i = 0; i < 150 * 130; ++i) {
    codes.push_back(CodeOf(i % 150 * 4000, i / 150 * 4000, 5));
  }
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  CheckLevels(plan, codes);
  ASSERT_EQ(plan.nodes.size(), 1u);
  const auto parts = plan.PartsOf(plan.nodes[0]);
  ASSERT_GE(parts.size(), 2u);
}

TEST(OctreePlan, LetsALastSixteenthJoinTheLevelBefore) {
  // A cell each for 1500 points, and 100 more that share their cells on every grid.
  std::vector<std::uint64_t> codes;
  for (std::uint64_t i = 0; i < 1500; ++i)
    codes.push_back(CodeOf(i << 10, (i * 7 % 1500) << 10, 0));
  for (std::uint64_t i = 0; i < 100; ++i) codes.push_back(codes[i]);
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  CheckLevels(plan, codes);
  ASSERT_EQ(plan.nodes.size(), 1u);
  EXPECT_GT(plan.PartsOf(plan.nodes[0]).back(), 100u);
}

TEST(OctreePlan, KeepsSamplesOfATiltedPlaneApart) {
  std::vector<std::uint64_t> codes;
  for (std::uint64_t y = 0; y < 300; ++y) {
    for (std::uint64_t x = 0; x < 300; ++x) {
      codes.push_back(CodeOf(x * 5000, y * 5000, x * 1700 + y * 900));
    }
  }
  CheckAll(codes);
}

TEST(OctreePlan, SamplesADenseNodeAsFinelyAsItsNeighbours) {
  // One octant is dense, the others nearly empty, so the grid is as fine as it gets.
  std::vector<std::uint64_t> codes;
  constexpr unsigned kShift = kMortonBits - 8;
  for (std::uint64_t x = 0; x < 46; ++x) {
    for (std::uint64_t y = 0; y < 46; ++y) {
      for (std::uint64_t z = 0; z < 46; ++z) {
        codes.insert(codes.end(), 3, CodeOf(x << kShift, y << kShift, z << kShift));
      }
    }
  }
  for (std::uint64_t octant = 1; octant < 8; ++octant) codes.push_back(octant << 60);
  CheckAll(codes);
  EXPECT_EQ(SamplingGrid::Choose(CountCells(Coded(codes))).gridBits, 7u);
  const OctreePlan plan = PlanOctree(Coded(codes));
  const PlannedNode& dense = plan.nodes[plan.nodes.back().children[0]];
  EXPECT_GT(dense.ownPointCount, 3 * kCapacity);
}

TEST(OctreePlan, ChoosesACoarserGridForAFilledCube) {
  const auto codes = RandomCodes(100000);
  EXPECT_LT(SamplingGrid::Choose(CountCells(Coded(codes))).gridBits, 7u);
  CheckAll(codes);
}

TEST(OctreePlan, SamplesALine) {
  std::vector<std::uint64_t> codes;
  for (std::uint64_t i = 0; i < 60000; ++i) codes.push_back(CodeOf(i * 34, 5, 1000));
  CheckAll(codes);
}

TEST(OctreePlan, DividesPointsThatAreAllEqual) {
  CheckAll(std::vector<std::uint64_t>(1000, 0x123456789ABCDEFu));
  const std::vector<std::uint64_t> codes(kCapacity + 5, 0x123456789ABCDEFu);
  CheckPlan(PlanOctree(Coded(codes)), codes);
}

TEST(OctreePlan, DealsPointsThatNoBitTellsApartByCount) {
  const std::vector<std::uint64_t> codes(3 * kCapacity, 0x7000000000000001u);
  const OctreePlan plan = PlanOctree(Coded(codes));
  CheckPlan(plan, codes);
  std::uint32_t deepest = 0;
  for (const PlannedNode& node : plan.nodes) deepest = std::max(deepest, node.level);
  EXPECT_EQ(deepest, kMortonBits + 1);
}

TEST(OctreePlan, KeepsTwoFarClustersApart) {
  auto codes = RandomCodes(30000, 20);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{7} << 60;
  CheckAll(codes);
}

TEST(OctreePlan, TakesACoarserGridWhereAPartOfTheCloudHasTooManyCells) {
  auto codes = RandomCodes(500000, 30);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{7} << 60;
  const auto points = Coded(codes);
  const CellCounts cells = CountCells(points);
  // On the finest grid, which two cells suggest, each cluster's node would have half of these.
  ASSERT_EQ(cells[11], 2u);
  ASSERT_GT(cells[11 + 7], 2 * OctreePlan::kMostSamples);
  const OctreePlan plan = PlanOctree(points);
  CheckPlan(plan, codes);
  std::uint32_t most = 0;
  for (const PlannedNode& node : plan.nodes) most = std::max(most, node.ownPointCount);
  EXPECT_LE(most, OctreePlan::kMostSamples);
  EXPECT_GT(most, OctreePlan::kMostSamples / 16);
}

}  // namespace
}  // namespace tarnhost
