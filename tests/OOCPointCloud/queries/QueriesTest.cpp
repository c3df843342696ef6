// What each query contains, how it reads a position, and what the base answers.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/QueryBuilders.h"

namespace {

using oocpctest::BytesOfValues;
using oocpctest::kAnd;
using oocpctest::kXor;
using oocpctest::SatisfiesRecord;
using Classification = OOCPCIQuery::ClassifyResult;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

class PlainQuery final : public OOCPCIQuery {
 public:
  using OOCPCIQuery::OOCPCIQuery;
};

TEST(QueryBase, SatisfiesNothingAndKnowsNoNode) {
  PlainQuery query({"a"}, kXor);
  EXPECT_EQ(query.Reset(), oocpc::result::kOk);
  EXPECT_EQ(query.GetDescriptor(), +OOCPCIQuery::kDefaultDescriptor);
  EXPECT_FALSE(query.Satisfy("x", 1u));
  EXPECT_FALSE(SatisfiesRecord(query, "x"));
  const double corner[3] = {0, 0, 0};
  EXPECT_EQ(query.ClassifyNode(corner, corner), Classification::kSome);
  EXPECT_EQ(query.ClassifyNode(OOCPointCloudNode{}), Classification::kSome);
  EXPECT_EQ(query.MakeNodeAccelerator({}), nullptr);
  EXPECT_EQ(query.GetBitwiseOperator(), kXor);
}

TEST(QueryBase, GivesItsNamesInOrderAndAnEmptyOneBehindTheLast) {
  const PlainQuery query({"a", "b c"}, kAnd);
  EXPECT_EQ(query.GetNumberOfMetadata(), 2u);
  EXPECT_EQ(query.GetMetaName(0).ConvertToChar(), "a");
  EXPECT_EQ(query.GetMetaName(1).ConvertToChar(), "b c");
  EXPECT_TRUE(query.GetMetaName(2).IsEmpty());
  EXPECT_TRUE(query.GetMetaName(~std::uint64_t{0}).IsEmpty());
}

TEST(QueryBase, AsksTheAcceleratorFirst) {
  std::string log;
  const oocpctest::ProbeQuery no('n', false, &log);
  OOCPCIQuery::NodeAccelerator all(Classification::kAll);
  OOCPCIQuery::NodeAccelerator none(Classification::kNone);
  OOCPCIQuery::NodeAccelerator some(Classification::kSome);
  EXPECT_TRUE(no.Satisfy(nullptr, nullptr, &all));
  EXPECT_TRUE(no.Satisfy(static_cast<const char*>(nullptr), 0u, &all));
  const oocpctest::ProbeQuery yes('y', true, &log, {}, true);
  EXPECT_FALSE(yes.Satisfy(nullptr, nullptr, &none));
  EXPECT_FALSE(yes.Satisfy(static_cast<const char*>(nullptr), 0u, &none));
  EXPECT_EQ(log, "");
  EXPECT_TRUE(yes.Satisfy(nullptr, nullptr, &some));
  EXPECT_TRUE(yes.Satisfy(nullptr, nullptr, nullptr));
  EXPECT_TRUE(yes.Satisfy(static_cast<const char*>(nullptr), 0u, &some));
  EXPECT_FALSE(no.Satisfy(static_cast<const char*>(nullptr), 0u, nullptr));
  EXPECT_EQ(log, "yy");
}

TEST(ConstantQueries, NeedNoRecord) {
  EXPECT_TRUE(OOCPCAllPointsQuery(kAnd).Satisfy(nullptr, nullptr));
  EXPECT_FALSE(OOCPCNoPointsQuery(kAnd).Satisfy(nullptr, nullptr));
  EXPECT_EQ(OOCPCAllPointsQuery(kAnd).GetNumberOfMetadata(), 0u);
  EXPECT_EQ(OOCPCNoPointsQuery(kAnd).GetNumberOfMetadata(), 0u);
}

TEST(Descriptors, TellWhatIsReadAndWhatItCosts) {
  const float three[3] = {};
  const double two[2] = {};
  const float planes[6][4] = {};
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCAllPointsQuery(kAnd).GetDescriptor()), 0);
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCNoPointsQuery(kAnd).GetDescriptor()), 0);
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCInsideSphereQuery(kAnd, three, 1).GetDescriptor()), 2);
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCInsideBoxQuery(kAnd, three, three).GetDescriptor()), 2);
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCInside2DBoxQuery(kAnd, two, two).GetDescriptor()), 2);
  EXPECT_EQ(OOCPCIQuery::CostOf(OOCPCInsideFrustumQuery(kAnd, planes).GetDescriptor()), 6);
  EXPECT_EQ(OOCPCIQuery::CostOf(PlainQuery({}, kAnd).GetDescriptor()), 8);
}

TEST(PositionQuery, ReadsThreeFloatsOrThreeDoublesAndNothingElse) {
  const float centre[3] = {1, 2, 3};
  const OOCPCInsideSphereQuery query(kAnd, centre, 0.5f);
  EXPECT_EQ(query.GetNumberOfMetadata(), 1u);
  EXPECT_EQ(query.GetMetaName(0).ConvertToChar(), "DEF_POSITION");
  EXPECT_TRUE(SatisfiesRecord(query, BytesOfValues(1.0f, 2.0f, 3.5f)));
  EXPECT_TRUE(SatisfiesRecord(query, BytesOfValues(1.0, 2.0, 3.5)));
  EXPECT_FALSE(SatisfiesRecord(query, BytesOfValues(1.0, 2.0, 3.6)));
  const std::string bytes = BytesOfValues(1.0, 2.0, 3.0);
  for (const unsigned size : {0u, 4u, 11u, 13u, 16u, 23u, 25u}) {
    const char* const records[] = {bytes.data()};
    EXPECT_FALSE(query.Satisfy(records, &size)) << size;
  }
}

TEST(PositionQuery, ReadsAtAnyAlignment) {
  const float first[3] = {0, 0, 0};
  const float second[3] = {1, 1, 1};
  const OOCPCInsideBoxQuery query(kAnd, first, second);
  for (const auto& position : {BytesOfValues(0.5, 0.5, 1.0), BytesOfValues(0.5f, 0.5f, 1.0f)}) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
      const std::string shifted = std::string(shift, 'x') + position;
      const char* const records[] = {shifted.data() + shift};
      const unsigned sizes[] = {static_cast<unsigned>(position.size())};
      EXPECT_TRUE(query.Satisfy(records, sizes));
    }
  }
}

TEST(PositionQuery, IsNotSatisfiedWithoutRecordsSizesOrPosition) {
  const float three[3] = {};
  const OOCPCInsideSphereQuery query(kAnd, three, 1);
  const char* const records[] = {nullptr};
  const unsigned sizes[] = {12};
  EXPECT_FALSE(query.Satisfy(nullptr, sizes));
  EXPECT_FALSE(query.Satisfy(records, nullptr));
  EXPECT_FALSE(query.Satisfy(records, sizes));
  EXPECT_FALSE(query.Satisfy(records[0], 12u));
}

TEST(Sphere, IsClosedAndEmptyWithANegativeRadius) {
  const float centre[3] = {0, 0, 0};
  const OOCPCInsideSphereQuery unit(kAnd, centre, 1);
  EXPECT_TRUE(unit.Contains({1, 0, 0}));
  EXPECT_FALSE(unit.Contains({std::nextafter(1.0, 2.0), 0, 0}));
  EXPECT_FALSE(OOCPCInsideSphereQuery(kAnd, centre, -1).Contains({0, 0, 0}));
  EXPECT_TRUE(OOCPCInsideSphereQuery(kAnd, centre, 0).Contains({0, 0, 0}));
  EXPECT_TRUE(OOCPCInsideSphereQuery(kAnd, centre, -0.0f).Contains({0, 0, 0}));
  const double corner[3] = {0, 0, 0};
  EXPECT_EQ(OOCPCInsideSphereQuery(kAnd, centre, -1).ClassifyNode(corner, corner),
            Classification::kNone);
}

TEST(Box, IsClosedAndTakesItsCornersInAnyOrder) {
  const float a[3] = {5, 0, 7};
  const float b[3] = {1, 3, -7};
  const OOCPCInsideBoxQuery query(kAnd, a, b);
  EXPECT_TRUE(query.Contains({1, 0, -7}));
  EXPECT_TRUE(query.Contains({5, 3, 7}));
  EXPECT_FALSE(query.Contains({std::nextafter(5.0, 6.0), 3, 7}));
  EXPECT_FALSE(query.Contains({5, std::nextafter(0.0, -1.0), 7}));
  EXPECT_FALSE(query.Contains({5, 3, 7.5}));
}

TEST(Box2D, KeepsDoublesAndLeavesZOpen) {
  const double a[2] = {0.3, 0.4};
  const double b[2] = {0.1, 0.2};
  const OOCPCInside2DBoxQuery query(kAnd, a, b);
  EXPECT_TRUE(query.Contains({0.1, 0.4, 1e300}));
  EXPECT_TRUE(query.Contains({0.3, 0.2, -1e300}));
  EXPECT_FALSE(query.Contains({std::nextafter(0.3, 1.0), 0.2, 0}));
  EXPECT_FALSE(query.Contains({0.2, std::nextafter(0.2, 0.0), 0}));
}

TEST(Frustum, IsInsideOfAllSixClosedPlanes) {
  // The cube from -1 to 1.
  const float planes[6][4] = {{1, 0, 0, 1},  {-1, 0, 0, 1}, {0, 1, 0, 1},
                              {0, -1, 0, 1}, {0, 0, 1, 1},  {0, 0, -1, 1}};
  const OOCPCInsideFrustumQuery query(kAnd, planes);
  EXPECT_TRUE(query.Contains({0, 0, 0}));
  EXPECT_TRUE(query.Contains({1, -1, 1}));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    for (const double beyond : {1.5, -1.5}) {
      oocpc::Vector3d position{0, 0, 0};
      position[axis] = beyond;
      EXPECT_FALSE(query.Contains(position)) << axis << " " << beyond;
    }
  }
}

TEST(Geometry, SatisfiesNothingWithANaN) {
  const float good3[3] = {0, 0, 0};
  const float bad3[3] = {0, kNaN, 0};
  const double good2[2] = {0, 0};
  const double bad2[2] = {kNaN, 0};
  float planes[6][4] = {};
  EXPECT_TRUE(OOCPCInsideFrustumQuery(kAnd, planes).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideFrustumQuery(kAnd, planes).Contains({0, 0, kNaN}));
  planes[5][2] = kNaN;
  EXPECT_FALSE(OOCPCInsideFrustumQuery(kAnd, planes).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideSphereQuery(kAnd, bad3, 1).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideSphereQuery(kAnd, good3, kNaN).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideSphereQuery(kAnd, good3, 1).Contains({0, 0, kNaN}));
  EXPECT_FALSE(OOCPCInsideBoxQuery(kAnd, good3, bad3).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideBoxQuery(kAnd, bad3, good3).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInsideBoxQuery(kAnd, good3, good3).Contains({0, kNaN, 0}));
  EXPECT_FALSE(OOCPCInside2DBoxQuery(kAnd, good2, bad2).Contains({0, 0, 0}));
  EXPECT_FALSE(OOCPCInside2DBoxQuery(kAnd, good2, good2).Contains({0, 0, kNaN}));
}

TEST(Geometry, GivesItsConstantsBack) {
  const float a[3] = {1, 2, 3};
  const float b[3] = {4, 5, 6};
  const double c[2] = {7, 8};
  EXPECT_EQ(OOCPCInsideSphereQuery(kAnd, a, 9).GetCentre(), (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(OOCPCInsideSphereQuery(kAnd, a, 9).GetRadius(), 9);
  EXPECT_EQ(OOCPCInsideBoxQuery(kAnd, a, b).GetFirst(), (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(OOCPCInsideBoxQuery(kAnd, a, b).GetSecond(), (std::array<float, 3>{4, 5, 6}));
  EXPECT_EQ(OOCPCInside2DBoxQuery(kAnd, c, c).GetFirst(), (std::array<double, 2>{7, 8}));
  EXPECT_EQ(OOCPCInside2DBoxQuery(kAnd, c, c).GetSecond(), (std::array<double, 2>{7, 8}));
}

}  // namespace
