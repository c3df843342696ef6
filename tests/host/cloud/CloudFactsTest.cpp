// What is told about a cloud, compared with what its scan holds.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "host/cloud/CloudFacts.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::brute::LasFile;

CloudFacts FactsOf(const ScanFolder& folder, bool statistics = false) {
  CloudFacts facts;
  const auto cloud = folder.Open();
  EXPECT_TRUE(IsOk(CollectFacts(*cloud, 0, statistics, facts)));
  return facts;
}

double AsDouble(const Number& number) {
  return std::visit([](auto value) { return static_cast<double>(value); }, number);
}

TEST(CloudFacts, CountsNodesPointsAndBytes) {
  const ScanFolder folder;
  const auto file = ScanOf(30000);
  const ImportReport report = folder.ImportBytes(file);
  const CloudFacts facts = FactsOf(folder);
  EXPECT_EQ(facts.pointCount, 30000u);
  EXPECT_EQ(facts.nodeCount, report.nodeCount);
  EXPECT_EQ(facts.depth, 2u);
  EXPECT_EQ(facts.storedBytes, report.storedBytes);
  EXPECT_EQ(facts.lasBytes, file.size());
  ASSERT_EQ(facts.iterations.size(), 1u);
  EXPECT_EQ(facts.iterations[0].timePoint, 7u);
  EXPECT_EQ(facts.iterations[0].addedPointCount, 30000u);
}

TEST(CloudFacts, ListsTheLevelsOfDetail) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(30000));
  const CloudFacts facts = FactsOf(folder);
  ASSERT_GE(facts.levels.size(), 2u);
  std::uint64_t points = 0;
  for (std::size_t i = 0; i < facts.levels.size(); ++i) {
    EXPECT_EQ(facts.levels[i].level, i);
    EXPECT_EQ(facts.levels[i].spacing, facts.levels[0].spacing / static_cast<double>(1u << i));
    EXPECT_GT(facts.levels[i].pointCount, 0u);
    points += facts.levels[i].pointCount;
  }
  EXPECT_EQ(points, 30000u);
  EXPECT_EQ(facts.levels[0].nodeCount, 1u);
  EXPECT_GT(facts.levels[0].spacing, 0);
  const auto cloud = folder.Open();
  OOCPCOctreeAcceleratorNode root;
  ASSERT_TRUE(IsOk(cloud->ReadRoot(0, root)));
  EXPECT_EQ(facts.levels[0].pointCount, root.ownPointCount);
  EXPECT_EQ(facts.levels[1].nodeCount, facts.nodeCount - 1) << "all others are of level 1";
}

TEST(CloudFacts, ListsNoLevelsWhereThereAreNone) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100));
  const auto place = folder.Repository() / "DEF_UPDATE_ITERATIONS";
  const auto bytes = oocpctest::ReadFile(place);
  OOCPCUpdateIteration record;
  ASSERT_EQ(record.Unstream(1, bytes.data(), static_cast<std::uint16_t>(bytes.size())), 0u);
  record.lodPayload = {0, 0};
  std::vector<std::uint8_t> again;
  record.Stream(again);
  oocpctest::WriteFile(place, again);
  EXPECT_TRUE(FactsOf(folder).levels.empty());
}

class DamagedLevels : public ::testing::TestWithParam<const char*> {};

TEST_P(DamagedLevels, AreToldByName) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100));
  auto bytes = oocpctest::ReadFile(folder.Repository() / GetParam());
  bytes[30] ^= 1;
  oocpctest::WriteFile(folder.Repository() / GetParam(), bytes);
  const auto cloud = folder.Open();
  std::vector<LevelFacts> levels;
  const Outcome outcome = CollectLevels(*cloud, 0, levels);
  EXPECT_EQ(outcome.code, oocpc::result::kChecksumMismatch);
  EXPECT_NE(outcome.where.find(GetParam()), std::string::npos) << outcome.where;
}

INSTANTIATE_TEST_SUITE_P(Streams, DamagedLevels,
                         ::testing::Values("DEF_LOD", "DEF_OCTREE_LOD_NODES_0"));

TEST(CloudFacts, GivesTheRangesAndMeansOfTheScan) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(30000, 6));
  folder.Import({scan});
  LasFile las;
  ASSERT_TRUE(las.Load(scan));
  const CloudFacts facts = FactsOf(folder, true);
  for (const char* name : {"intensity", "return_number", "scan_angle", "classification"}) {
    const auto* field = las.FindField(name);
    ASSERT_NE(field, nullptr);
    double least = 1e300;
    double greatest = -1e300;
    double sum = 0;
    for (std::uint64_t i = 0; i < 30000; ++i) {
      const double value = las.GetValue(*field, i).number;
      least = std::min(least, value);
      greatest = std::max(greatest, value);
      sum += value;
    }
    const auto found = std::ranges::find(facts.dimensions, name, &DimensionFacts::name);
    ASSERT_NE(found, facts.dimensions.end());
    EXPECT_EQ(AsDouble(found->minimum.at(0)), least) << name;
    EXPECT_EQ(AsDouble(found->maximum.at(0)), greatest) << name;
    EXPECT_EQ(found->mean.at(0), sum / 30000) << name;
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double greatest = -1e300;
    for (std::uint64_t i = 0; i < 30000; ++i) greatest = std::max(greatest, las.GetSource(i, axis));
    EXPECT_EQ(facts.bounds.max[axis], greatest);
  }
}

TEST(CloudFacts, TellsOfReturnNumbersAboveTheNumberOfReturns) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(100, 6));
  folder.Import({scan});
  LasFile las;
  ASSERT_TRUE(las.Load(scan));
  int odd = 0;
  for (std::uint64_t i = 0; i < 100; ++i) {
    const unsigned returns = las.GetRecord(i)[14];
    odd += (returns & 15u) > returns >> 4 ? 1 : 0;
  }
  ASSERT_GT(odd, 0);
  EXPECT_EQ(FactsOf(folder, true).oddities,
            (std::vector<std::string>{std::to_string(odd) +
                                      " points have a return number above their number of "
                                      "returns"}));
  EXPECT_TRUE(FactsOf(folder, false).oddities.empty());
}

TEST(CloudFacts, HasNoRangesOfACloudWithoutPoints) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(0));
  const CloudFacts facts = FactsOf(folder, true);
  EXPECT_EQ(facts.pointCount, 0u);
  EXPECT_EQ(facts.dimensions.size(), 14u);
  for (const DimensionFacts& dimension : facts.dimensions) {
    EXPECT_TRUE(dimension.minimum.empty());
    EXPECT_TRUE(dimension.mean.empty());
  }
}

TEST(CloudFacts, DescribesItsSources) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", ScanOf(4)), folder.Add("b.las", ScanOf(5))});
  const CloudFacts facts = FactsOf(folder);
  ASSERT_EQ(facts.sources.size(), 2u);
  EXPECT_EQ(facts.sources[1].fileName, "b.las");
  EXPECT_EQ(facts.sources[1].pointCount, 5u);
  ASSERT_TRUE(facts.sources[1].las.has_value());
  EXPECT_EQ(facts.sources[1].las->generatingSoftware, "LasBuilder");
  EXPECT_EQ(facts.sources[1].las->pointCount, 5u);
}

std::vector<std::uint8_t> GeoKeys(std::vector<std::uint16_t> numbers) {
  std::vector<std::uint8_t> bytes;
  for (const std::uint16_t number : numbers) {
    bytes.push_back(static_cast<std::uint8_t>(number));
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
  }
  return bytes;
}

std::string CoordinateSystemOf(const LasBuilder& builder) {
  const ScanFolder folder;
  folder.ImportBytes(builder.Build());
  return FactsOf(folder).coordinateSystem;
}

TEST(CoordinateSystem, IsTheWktOfThePlainOrTheExtendedRecords) {
  LasBuilder plain;
  plain.records.push_back({"LASF_Projection", 2112, {'W', 'K', 'T', 0, 'x'}});
  EXPECT_EQ(CoordinateSystemOf(plain), "WKT");
  LasBuilder extended;
  extended.extendedRecords.push_back({"LASF_Projection", 2112, {'F', 'A', 'R', 0}});
  EXPECT_EQ(CoordinateSystemOf(extended), "FAR");
}

TEST(CoordinateSystem, IsTheProjectedElseTheGeographicCodeOfTheGeoKeys) {
  LasBuilder las;
  las.records.push_back(
      {"LASF_Projection", 34735, GeoKeys({1, 1, 0, 2, 2048, 0, 1, 4269, 3072, 0, 1, 2992})});
  EXPECT_EQ(CoordinateSystemOf(las), "EPSG:2992");
  las.records[0].payload = GeoKeys({1, 1, 0, 2, 2048, 0, 1, 4269, 3072, 0, 1, 32767});
  EXPECT_EQ(CoordinateSystemOf(las), "EPSG:4269");
  las.records[0].payload = GeoKeys({1, 1, 0, 9, 1024});
  EXPECT_EQ(CoordinateSystemOf(las), "");
}

}  // namespace
}  // namespace tarnhost
