// A query asked of nodes and of runs of points.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "host/select/BoundQuery.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::SyntheticCloud;

constexpr std::uint32_t kPoints = 40000;
constexpr const char* kTexts[] = {
    "#true()",
    "#false()",
    R"(#num{type=int}("classification", ==, 6))",
    R"(#and(#num{type=double}("z", >, 214), #num{type=int}("return_number", ==, 1)))",
    R"(#num{type=double}("gps_time", >, 0))",
    "#within{type=sphere}(500420, 4500300, 215, 40)",
};

class BoundToTheStreet : public testing::Test {
 protected:
  static void SetUpTestSuite() { street_ = std::make_unique<SyntheticCloud>(kPoints); }
  static void TearDownTestSuite() { street_.reset(); }
  void SetUp() override { ASSERT_NE(street_->cloud, nullptr); }

  std::unique_ptr<BoundQuery> Bind(const std::string& text) {
    std::unique_ptr<BoundQuery> query;
    EXPECT_TRUE(IsOk(BoundQuery::Open(*street_->cloud, {text}, query))) << text;
    return query;
  }
  /// Storage numbers of all points that a query selects, node by node.
  std::set<std::uint64_t> SelectedByNodes(BoundQuery& query) {
    std::set<std::uint64_t> selected;
    EXPECT_TRUE(IsOk(street_->cloud->WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
      std::vector<std::uint32_t> own;
      EXPECT_TRUE(IsOk(query.TestNode(node, own)));
      EXPECT_TRUE(std::ranges::is_sorted(own));
      for (const std::uint32_t point : own) selected.insert(node.firstPoint + point);
      return Descend::kIntoChildren;
    })));
    return selected;
  }

  static std::unique_ptr<SyntheticCloud> street_;
};

std::unique_ptr<SyntheticCloud> BoundToTheStreet::street_;

TEST_F(BoundToTheStreet, SelectsTheSameOfARangeAsOfTheNodesInIt) {
  std::mt19937 random(11);
  for (const char* text : kTexts) {
    SCOPED_TRACE(text);
    const auto query = Bind(text);
    ASSERT_NE(query, nullptr);
    const std::set<std::uint64_t> expected = SelectedByNodes(*query);
    for (int round = 0; round < 10; ++round) {
      PointRange points{random() % kPoints, 0};
      points.count = round == 0 ? 0 : random() % (kPoints - points.first + 1);
      if (round == 1) points = {0, kPoints};
      std::vector<std::uint32_t> selected{1, 2, 3};
      ASSERT_TRUE(IsOk(query->TestRange(points, selected)));
      std::vector<std::uint32_t> wanted;
      for (auto at = expected.lower_bound(points.first);
           at != expected.end() && *at < points.first + points.count; ++at) {
        wanted.push_back(static_cast<std::uint32_t>(*at - points.first));
      }
      ASSERT_EQ(selected, wanted) << points.first << " + " << points.count;
    }
  }
}

TEST_F(BoundToTheStreet, SelectsAllSomeOrNone) {
  EXPECT_EQ(SelectedByNodes(*Bind(kTexts[0])).size(), kPoints);
  EXPECT_EQ(SelectedByNodes(*Bind(kTexts[1])).size(), 0u);
  const std::size_t buildings = SelectedByNodes(*Bind(kTexts[2])).size();
  EXPECT_GT(buildings, 0u);
  EXPECT_LT(buildings, kPoints);
}

TEST_F(BoundToTheStreet, ClassifiesNodesWithoutReadingThem) {
  OOCPCOctreeAcceleratorNode root;
  ASSERT_TRUE(IsOk(street_->cloud->ReadRoot(0, root)));
  EXPECT_EQ(Bind("#true()")->Classify(root.Describe()), OOCPCIQuery::ClassifyResult::kAll);
  EXPECT_EQ(Bind("#false()")->Classify(root.Describe()), OOCPCIQuery::ClassifyResult::kNone);
}

TEST_F(BoundToTheStreet, FailsForARangeThatIsNotThere) {
  const auto query = Bind(kTexts[2]);
  ASSERT_NE(query, nullptr);
  std::vector<std::uint32_t> selected;
  EXPECT_EQ(query->TestRange({kPoints, 1}, selected).code, result::kIndexOutOfRange);
}

TEST_F(BoundToTheStreet, ShowsWhereATextIsWrong) {
  std::unique_ptr<BoundQuery> query;
  const Outcome outcome = BoundQuery::Open(*street_->cloud, {"#true("}, query);
  EXPECT_EQ(outcome.code, result::kQueryRejected);
  EXPECT_NE(outcome.where.find('^'), std::string::npos) << outcome.where;
  EXPECT_EQ(query, nullptr);
}

}  // namespace
}  // namespace tarnhost
