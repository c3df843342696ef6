// Which point goes into which node, compared with a plain grid.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <utility>

#include "host/build/MortonCube.h"
#include "host/build/OctreePlan.h"

namespace tarnhost {
namespace {

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
  std::set<std::uint64_t> withParent;
  for (std::size_t i = 0; i < plan.nodes.size(); ++i) {
    const PlannedNode& node = plan.nodes[i];
    EXPECT_EQ(node.firstPoint, next);
    next += node.ownPointCount;
    EXPECT_LE(node.ownPointCount, kCapacity);
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

/// Points of each cell of a level.
std::map<std::uint64_t, std::vector<std::uint64_t>> CellsOf(const std::vector<std::uint64_t>& codes,
                                                            unsigned level) {
  std::map<std::uint64_t, std::vector<std::uint64_t>> cells;
  for (std::uint64_t i = 0; i < codes.size(); ++i) {
    cells[codes[i] >> (3 * (kMortonBits - level))].push_back(i);
  }
  return cells;
}

/// Squared distance from the centre of the cell, in units of half a finest cell.
double DistanceFromCentre(std::uint64_t code, unsigned level) {
  const double edge = static_cast<double>(1u << (kMortonBits - level));
  double sum = 0;
  for (unsigned axis = 0; axis < 3; ++axis) {
    const auto cell = CollectBits(code >> axis) % (1u << (kMortonBits - level));
    const double distance = static_cast<double>(cell) + 0.5 - edge / 2;
    sum += distance * distance;
  }
  return sum;
}

TEST(OctreePlan, SamplesThePointNearestToTheCentreOfEachCellOfTheFinestGridThatFits) {
  auto codes = RandomCodes(60000);
  for (std::size_t i = 0; i < 20000; ++i) codes[i] = codes[i + 20000];  // ties
  const OctreePlan plan = PlanOctree(Coded(codes));
  unsigned level = 0;
  while (level < 7 && CellsOf(codes, level + 1).size() <= kCapacity) ++level;
  std::set<std::uint64_t> expected;
  for (const auto& [cell, points] : CellsOf(codes, level)) {
    std::vector<std::pair<std::pair<double, std::uint64_t>, std::uint64_t>> ranked;
    for (const std::uint64_t point : points) {
      ranked.push_back({{DistanceFromCentre(codes[point], level), codes[point]}, point});
    }
    expected.insert(std::min_element(ranked.begin(), ranked.end())->second);
  }
  const PlannedNode& root = plan.nodes.back();
  const auto begin = plan.order.begin() + static_cast<std::ptrdiff_t>(root.firstPoint);
  EXPECT_EQ(std::set<std::uint64_t>(begin, begin + root.ownPointCount), expected);
  EXPECT_LE(root.ownPointCount, kCapacity);
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
  auto codes = RandomCodes(60000, 20);
  for (std::size_t i = 0; i < codes.size(); i += 2) codes[i] |= std::uint64_t{7} << 60;
  CheckPlan(PlanOctree(Coded(codes)), codes);
}

}  // namespace
}  // namespace tarnhost
