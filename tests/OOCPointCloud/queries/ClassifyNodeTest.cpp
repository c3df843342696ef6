// Node classification against brute force: "all" and "none" must hold for every position of the
// box, to the last bit, whatever the constants are.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>

#include "tests/support/QueryBuilders.h"

namespace {

using oocpc::Vector3d;
using oocpctest::kAnd;
using Classification = OOCPCIQuery::ClassifyResult;
using Random = std::mt19937_64;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

int Pick(Random& random, int count) { return static_cast<int>(random() % unsigned(count)); }

/// Mostly coordinates of a scene; sometimes lattice points that fall on edges, tiny, huge, odd
/// ones.
double AnyNumber(Random& random, bool withOdd) {
  switch (Pick(random, withOdd ? 12 : 8)) {
    case 0:
      return Pick(random, 9) - 4;
    case 1:
      return (Pick(random, 9) - 4) * 0.1;
    case 2:
      return std::ldexp(1.0 + Pick(random, 100), -1000);
    case 3:
      return std::ldexp(double(Pick(random, 9) - 4), 125);
    case 8:
      return kNaN;
    case 9:
      return kInfinity;
    case 10:
      return -kInfinity;
    case 11:
      return std::ldexp(double(Pick(random, 9) - 4), 1019);
    default:
      return std::uniform_real_distribution<double>(-10, 10)(random);
  }
}

float AnyConstant(Random& random, bool withOdd) {
  return static_cast<float>(AnyNumber(random, withOdd));
}

struct Box {
  Vector3d min, max;
};

Box AnyBox(Random& random, bool withOdd) {
  Box box{};
  const int shape = Pick(random, 4);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double a = AnyNumber(random, false);
    double b = AnyNumber(random, false);
    if (withOdd && Pick(random, 6) == 0) b = AnyNumber(random, true);
    if (shape == 1) b = a;
    if (shape == 2) b = std::nextafter(a, kInfinity);
    if (shape == 3) b = a + std::abs(b) * 1e-3;
    if (a > b) std::swap(a, b);
    box.min[axis] = a;
    box.max[axis] = b;
  }
  return box;
}

/// A coordinate of the closed interval: its ends, their neighbours, something between, a hint.
double Within(Random& random, double low, double high, double hint) {
  double value = low;
  switch (Pick(random, 6)) {
    case 0:
      value = low;
      break;
    case 1:
      value = high;
      break;
    case 2:
      value = std::nextafter(low, kInfinity);
      break;
    case 3:
      value = std::nextafter(high, -kInfinity);
      break;
    case 4:
      value = hint;
      break;
    default:
      value = low + (high - low) * std::uniform_real_distribution<double>(0, 1)(random);
  }
  return low <= value && value <= high ? value : low;
}

std::unique_ptr<OOCPCPositionQuery> AnySphere(Random& random, bool odd) {
  const float centre[3] = {AnyConstant(random, odd), AnyConstant(random, odd),
                           AnyConstant(random, odd)};
  const float radius =
      Pick(random, 8) == 0 ? AnyConstant(random, odd) : std::abs(AnyConstant(random, odd)) * 2;
  return std::make_unique<OOCPCInsideSphereQuery>(kAnd, centre, radius);
}

std::unique_ptr<OOCPCPositionQuery> AnyBoxQuery(Random& random, bool odd) {
  float a[3], b[3];
  for (float& number : a) number = AnyConstant(random, odd);
  for (float& number : b) number = AnyConstant(random, odd);
  return std::make_unique<OOCPCInsideBoxQuery>(kAnd, a, b);
}

std::unique_ptr<OOCPCPositionQuery> Any2DBox(Random& random, bool odd) {
  const double a[2] = {AnyNumber(random, odd), AnyNumber(random, odd)};
  const double b[2] = {AnyNumber(random, odd), AnyNumber(random, odd)};
  return std::make_unique<OOCPCInside2DBoxQuery>(kAnd, a, b);
}

std::unique_ptr<OOCPCPositionQuery> AnyFrustum(Random& random, bool odd) {
  float planes[6][4];
  for (auto& plane : planes) {
    // Half of the planes are wide open, so that whole boxes get inside now and then.
    const bool open = Pick(random, 2) == 0;
    for (float& number : plane) number = AnyConstant(random, odd);
    if (Pick(random, 4) == 0) plane[Pick(random, 3)] = 0;
    if (open) plane[3] = 1e30f;
  }
  return std::make_unique<OOCPCInsideFrustumQuery>(kAnd, planes);
}

using MakeQuery = std::function<std::unique_ptr<OOCPCPositionQuery>(Random&, bool)>;

/// Counts how often each answer came, so that a test can tell that all of them were tried.
struct Tally {
  int none = 0, some = 0, all = 0;
};

Tally CompareWithBruteForce(const MakeQuery& make, bool odd, unsigned seed) {
  Random random(seed);
  Tally tally;
  for (int round = 0; round < 6000; ++round) {
    const auto query = make(random, odd);
    const Box box = AnyBox(random, odd);
    const Classification answer = query->ClassifyNode(box.min.data(), box.max.data());
    ++(answer == Classification::kNone   ? tally.none
       : answer == Classification::kSome ? tally.some
                                         : tally.all);
    EXPECT_EQ(query->ClassifyNode(oocpctest::NodeOf(box.min, box.max)), answer);
    for (int i = 0; i < 40 && answer != Classification::kSome; ++i) {
      Vector3d position;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        position[axis] = Within(random, box.min[axis], box.max[axis], AnyNumber(random, false));
      }
      if (!(box.min[0] <= position[0] && box.min[1] <= position[1] && box.min[2] <= position[2])) {
        continue;  // a NaN bound: no position lies in such a box
      }
      EXPECT_EQ(query->Contains(position), answer == Classification::kAll)
          << "seed " << seed << " round " << round;
    }
  }
  return tally;
}

class ClassifyNode : public testing::TestWithParam<std::pair<const char*, MakeQuery>> {};

TEST_P(ClassifyNode, HoldsForEveryPositionOfTheBox) {
  const Tally tally = CompareWithBruteForce(GetParam().second, false, 1);
  EXPECT_GT(tally.none, 100);
  EXPECT_GT(tally.some, 100);
  EXPECT_GT(tally.all, 20);
}

TEST_P(ClassifyNode, HoldsWithNaNAndInfiniteConstantsAndBounds) {
  const Tally tally = CompareWithBruteForce(GetParam().second, true, 2);
  EXPECT_GT(tally.none, 100);
  EXPECT_GT(tally.some, 20);
}

TEST_P(ClassifyNode, KnowsNothingOfABoxThatIsNone) {
  Random random(3);
  const auto query = GetParam().second(random, false);
  const Vector3d nan{kNaN, 0, 0};
  const Vector3d low{-1, -1, -1};
  const Vector3d high{1, 1, 1};
  EXPECT_EQ(query->ClassifyNode(nan.data(), high.data()), Classification::kSome);
  EXPECT_EQ(query->ClassifyNode(low.data(), nan.data()), Classification::kSome);
  EXPECT_EQ(query->ClassifyNode(high.data(), low.data()), Classification::kSome);
}

INSTANTIATE_TEST_SUITE_P(Geometry, ClassifyNode,
                         testing::Values(std::pair<const char*, MakeQuery>{"Sphere", AnySphere},
                                         std::pair<const char*, MakeQuery>{"Box", AnyBoxQuery},
                                         std::pair<const char*, MakeQuery>{"Box2D", Any2DBox},
                                         std::pair<const char*, MakeQuery>{"Frustum", AnyFrustum}),
                         [](const auto& info) { return std::string(info.param.first); });

/// A query and a one-point box: the classification has no reason not to decide.
TEST(ClassifyNodeOfOnePoint, AlwaysDecidesFiniteConstants) {
  Random random(4);
  const MakeQuery makers[] = {AnySphere, AnyBoxQuery, Any2DBox, AnyFrustum};
  for (int round = 0; round < 20000; ++round) {
    const auto query = makers[round % 4](random, false);
    const Vector3d at{AnyNumber(random, false), AnyNumber(random, false), AnyNumber(random, false)};
    EXPECT_EQ(query->ClassifyNode(at.data(), at.data()),
              query->Contains(at) ? Classification::kAll : Classification::kNone);
  }
}

TEST(ClassifyNodeOfSphere, FindsTheTouchingPointBetweenTheCorners) {
  const float centre[3] = {0, 0, 0};
  const OOCPCInsideSphereQuery query(kAnd, centre, 1);
  const Vector3d touching[] = {{1, -5, -5}, {2, 5, 5}};
  EXPECT_EQ(query.ClassifyNode(touching[0].data(), touching[1].data()), Classification::kSome);
  const Vector3d beside[] = {{std::nextafter(1.0, 2.0), -5, -5}, {2, 5, 5}};
  EXPECT_EQ(query.ClassifyNode(beside[0].data(), beside[1].data()), Classification::kNone);
}

TEST(ClassifyNodeOfSphere, TakesTheWholeCircumscribedCube) {
  const float centre[3] = {1, 2, 3};
  const OOCPCInsideSphereQuery query(kAnd, centre, 3);
  const Vector3d cube[] = {{0, 0, 1}, {2, 4, 5}};
  EXPECT_EQ(query.ClassifyNode(cube[0].data(), cube[1].data()), Classification::kAll);
}

TEST(ClassifyNodeOfConstants, IsKnownForAnyBox) {
  const Vector3d nan{kNaN, kNaN, kNaN};
  EXPECT_EQ(OOCPCAllPointsQuery(kAnd).ClassifyNode(nan.data(), nan.data()), Classification::kAll);
  EXPECT_EQ(OOCPCNoPointsQuery(kAnd).ClassifyNode(nan.data(), nan.data()), Classification::kNone);
  EXPECT_EQ(OOCPCAllPointsQuery(kAnd).ClassifyNode(OOCPointCloudNode{}), Classification::kAll);
  EXPECT_EQ(OOCPCNoPointsQuery(kAnd).ClassifyNode(OOCPointCloudNode{}), Classification::kNone);
}

TEST(NodeAccelerator, HoldsTheClassificationOfItsNode) {
  const float first[3] = {0, 0, 0};
  const float second[3] = {10, 10, 10};
  const OOCPCInsideBoxQuery query(kAnd, first, second);
  const std::pair<OOCPointCloudNode, Classification> cases[] = {
      {oocpctest::NodeOf({1, 1, 1}, {2, 2, 2}), Classification::kAll},
      {oocpctest::NodeOf({-1, 1, 1}, {2, 2, 2}), Classification::kSome},
      {oocpctest::NodeOf({11, 1, 1}, {12, 2, 2}), Classification::kNone}};
  for (const auto& [node, expected] : cases) {
    const std::unique_ptr<OOCPCIQuery::NodeAccelerator> made(query.MakeNodeAccelerator(node));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetResult(), expected);
  }
}

TEST(NodeAccelerator, OfConstantsSaysAllOrNone) {
  const std::unique_ptr<OOCPCIQuery::NodeAccelerator> all(
      OOCPCAllPointsQuery(kAnd).MakeNodeAccelerator({}));
  const std::unique_ptr<OOCPCIQuery::NodeAccelerator> none(
      OOCPCNoPointsQuery(kAnd).MakeNodeAccelerator({}));
  EXPECT_EQ(all->GetResult(), Classification::kAll);
  EXPECT_EQ(none->GetResult(), Classification::kNone);
}

}  // namespace
