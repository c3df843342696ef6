// Which level-of-detail nodes a picture gets.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "host/render/NodeChoice.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

using oocpc::Box3d;
using oocpc::Vector3d;
using oocpctest::IsOk;
using oocpctest::SyntheticCloud;

constexpr std::uint64_t kPoints = 120000;
constexpr PictureSize kLarge{3000, 2000};

class NodeChoice : public testing::Test {
 protected:
  static void SetUpTestSuite() { street_ = std::make_unique<SyntheticCloud>(kPoints); }
  static void TearDownTestSuite() { street_.reset(); }

  void SetUp() override {
    ASSERT_NE(street_->cloud, nullptr);
    ASSERT_TRUE(IsOk(LodTree::Open(*street_->cloud, 0, tree_)));
    LodNode root;
    ASSERT_TRUE(IsOk(tree_->ReadRoot(root)));
    rootPoints_ = root.points.count;
    box_ = {root.octreeNode.corner1, root.octreeNode.corner2};
  }

  [[nodiscard]] Camera FromAbove(PictureSize size) const {
    return Camera::Fit(View::kTop, box_, std::vector<Vector3d>{box_.min, box_.max}, size);
  }
  /// From just above the western end of the street along it.
  [[nodiscard]] Camera AlongTheStreet() const {
    const double y = (box_.min[1] + box_.max[1]) / 2;
    const double z = box_.max[2] + 2;
    return *Camera::Look({{box_.min[0], y, z}, {box_.max[0], y, box_.min[2]}}, box_, kLarge);
  }
  std::vector<ChosenNode> Choose(const Camera& camera, std::uint64_t budget = kPoints) const {
    std::vector<ChosenNode> chosen;
    EXPECT_TRUE(IsOk(ChooseNodes(*tree_, camera, budget, chosen)));
    return chosen;
  }
  static std::uint64_t CountPoints(const std::vector<ChosenNode>& chosen) {
    std::uint64_t count = 0;
    for (const ChosenNode& node : chosen) count += node.node.points.count;
    return count;
  }

  static std::unique_ptr<SyntheticCloud> street_;
  std::unique_ptr<LodTree> tree_;
  std::uint32_t rootPoints_ = 0;
  Box3d box_{};
};

std::unique_ptr<SyntheticCloud> NodeChoice::street_;

TEST_F(NodeChoice, TakesEverythingWhereThePictureAndTheBudgetAreLarge) {
  EXPECT_EQ(CountPoints(Choose(FromAbove({16000, 16000}))), kPoints);
}

TEST_F(NodeChoice, StaysWithinTheBudget) {
  const Camera camera = FromAbove({16000, 16000});
  std::uint64_t before = 0;
  for (std::uint64_t budget = 0; budget <= kPoints; budget += 9973) {
    const std::uint64_t count = CountPoints(Choose(camera, budget));
    EXPECT_LE(count, std::max<std::uint64_t>(budget, rootPoints_))
        << "the coarsest level is always there";
    EXPECT_GE(count, before);
    before = count;
  }
  EXPECT_EQ(Choose(camera, 0).size(), 1u);
  EXPECT_EQ(Choose(camera, rootPoints_).size(), 1u);
}

TEST_F(NodeChoice, PutsParentsBeforeTheirChildren) {
  const std::vector<ChosenNode> chosen = Choose(AlongTheStreet());
  ASSERT_GT(chosen.size(), 5u);
  EXPECT_EQ(chosen[0].parent, -1);
  for (std::size_t i = 1; i < chosen.size(); ++i) {
    ASSERT_GE(chosen[i].parent, 0);
    ASSERT_LT(static_cast<std::size_t>(chosen[i].parent), i);
    const ChosenNode& parent = chosen[static_cast<std::size_t>(chosen[i].parent)];
    EXPECT_EQ(chosen[i].node.level, parent.node.level + 1);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_GE(chosen[i].box.min[axis], parent.box.min[axis]);
      EXPECT_LE(chosen[i].box.max[axis], parent.box.max[axis]);
    }
  }
}

TEST_F(NodeChoice, LeavesOutWhatIsNotInView) {
  const double x = (box_.min[0] + box_.max[0]) / 2;
  const double y = (box_.min[1] + box_.max[1]) / 2;
  const Vector3d eye{x, y, box_.max[2] + 20};
  const auto camera = Camera::Look({eye, {x, y, 0}}, box_, {400, 300});
  ASSERT_TRUE(camera);
  const std::vector<ChosenNode> some = Choose(*camera);
  double nearest = 0;
  for (const ChosenNode& node : some) EXPECT_TRUE(camera->Sees(node.box, nearest));
  EXPECT_GT(some.size(), 1u);
  EXPECT_LT(CountPoints(some), kPoints);
  const auto away = Camera::Look({eye, {x, y, eye[2] + 100}}, box_, {400, 300});
  ASSERT_TRUE(away);
  EXPECT_TRUE(Choose(*away).empty());
}

TEST_F(NodeChoice, GoesNoFurtherThanPixelsShow) {
  const std::vector<ChosenNode> chosen = Choose(FromAbove({40, 40}));
  EXPECT_FALSE(chosen.empty());
  EXPECT_LT(CountPoints(chosen), kPoints);
  EXPECT_LT(chosen.size(), Choose(FromAbove(kLarge)).size());
}

TEST_F(NodeChoice, TakesFinerNodesNearTheEyeThanFarAway) {
  // With half the points in the budget, the near half of the street gets most of them.
  const std::vector<ChosenNode> chosen = Choose(AlongTheStreet(), kPoints / 2);
  std::map<bool, std::uint64_t> points;
  std::map<bool, std::uint32_t> finest;
  const double middle = (box_.min[0] + box_.max[0]) / 2;
  for (const ChosenNode& node : chosen) {
    if (node.parent < 0) continue;
    const bool isNear = (node.box.min[0] + node.box.max[0]) / 2 < middle;
    points[isNear] += node.node.points.count;
    finest[isNear] = std::max(finest[isNear], node.node.level);
  }
  EXPECT_GT(points[true], points[false] * 3 / 2);
  EXPECT_GE(finest[true], finest[false]);
}

TEST_F(NodeChoice, GoesByTheSizeAtWhichTheDistanceOfThePointsShows) {
  const Camera camera = AlongTheStreet();
  const auto sizeOf = [&](const LodNode& node) {
    double depth = 0;
    const oocpc::Box3d box{node.octreeNode.corner1, node.octreeNode.corner2};
    return camera.Sees(box, depth) ? tree_->GetSpacing(node.level) / camera.UnitsPerPixel(depth)
                                   : 0;
  };
  const std::vector<ChosenNode> chosen = Choose(camera, kPoints / 2);
  ASSERT_GT(chosen.size(), 3u);
  std::set<std::pair<std::uint64_t, std::uint32_t>> names;
  for (const ChosenNode& node : chosen) names.insert({node.node.nodeIndex, node.node.level});
  EXPECT_EQ(names.size(), chosen.size());
  const double smallest = sizeOf(chosen.back().node);
  int waiting = 0;
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    EXPECT_GE(sizeOf(chosen[i].node), sizeOf(chosen[std::min(i + 1, chosen.size() - 1)].node));
    std::vector<LodNode> children;
    ASSERT_TRUE(IsOk(tree_->ReadChildren(chosen[i].node, children)));
    for (const LodNode& child : children) {
      if (names.contains({child.nodeIndex, child.level})) continue;
      EXPECT_LE(sizeOf(child), smallest);
      ++waiting;
    }
  }
  EXPECT_GT(waiting, 0);
}

TEST_F(NodeChoice, KnowsHowDenselyEachPartIsDrawn) {
  constexpr std::size_t kCells =
      std::size_t{ChosenNode::kCells} * ChosenNode::kCells * ChosenNode::kCells;
  const std::vector<ChosenNode> all = Choose(FromAbove({16000, 16000}));
  for (const ChosenNode& node : all) {
    ASSERT_EQ(node.spacings.size(), kCells);
    for (const float spacing : node.spacings) EXPECT_GT(spacing, 0);
    if (node.parent < 0) continue;
    const ChosenNode& parent = all[static_cast<std::size_t>(node.parent)];
    // A leaf may be up to three times as sparse as its level.
    const double most = 3.001 * tree_->GetSpacing(node.node.level);
    EXPECT_LE(parent.spacings[parent.CellOf(node.box.min.data())], most);
    EXPECT_LE(parent.spacings[parent.CellOf(node.box.max.data())], most);
  }
  const std::vector<ChosenNode> root = Choose(FromAbove({16000, 16000}), rootPoints_);
  ASSERT_EQ(root.size(), 1u);
  for (const float spacing : root[0].spacings) {
    EXPECT_EQ(spacing, static_cast<float>(tree_->GetSpacing(0)));
  }
}

TEST(ChosenNodeCells, CoverABoxAlsoWhereItIsFlat) {
  ChosenNode node;
  node.box = {{10, 20, 5}, {18, 36, 5}};
  node.cellsPerUnit = {1, 0.5, 0};
  const Vector3d least{10, 20, 5};
  const Vector3d greatest{18, 36, 5};
  const Vector3d inside{12.5, 27, 5};
  EXPECT_EQ(node.CellOf(least.data()), 0u);
  EXPECT_EQ(node.CellOf(greatest.data()), 7u + 8u * 7u);
  EXPECT_EQ(node.CellOf(inside.data()), 2u + 8u * 3u);
}

}  // namespace
}  // namespace tarnhost
