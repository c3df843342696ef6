// An opened cloud: what it tells, what it reads, and how it fails.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <set>

#include "host/cloud/Cloud.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;

TEST(CloudOpen, SaysThatAPlaceIsNoRepository) {
  const ScanFolder folder;
  std::unique_ptr<Cloud> cloud;
  const Outcome outcome = Cloud::Open(folder / "absent.tarn", cloud);
  EXPECT_EQ(outcome.code, result::kNotARepository);
  EXPECT_EQ(outcome.where, (folder / "absent.tarn").string());
  EXPECT_EQ(Cloud::Open(folder.Path(), cloud).code, result::kNotARepository);
  EXPECT_EQ(cloud, nullptr);
}

TEST(CloudOpen, SaysWhichStreamIsMissing) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  std::filesystem::remove(folder.Repository() / "DEF_COLUMN_3");
  std::unique_ptr<Cloud> cloud;
  const Outcome outcome = Cloud::Open(folder.Repository(), cloud);
  EXPECT_EQ(outcome.code, result::kStreamMissing);
  EXPECT_NE(outcome.what.find("DEF_COLUMN_3"), std::string::npos) << outcome.what;
}

TEST(CloudOpen, SaysWhichStreamIsCut) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  const auto file = folder.Repository() / "DEF_SOURCES";
  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
  std::unique_ptr<Cloud> cloud;
  const Outcome outcome = Cloud::Open(folder.Repository(), cloud);
  EXPECT_EQ(outcome.code, result::kStreamShort);
  EXPECT_NE(outcome.what.find("DEF_SOURCES"), std::string::npos) << outcome.what;
}

TEST(CloudOpen, SaysThatTheSourcesWereAltered) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  auto bytes = oocpctest::ReadFile(folder.Repository() / "DEF_SOURCES");
  bytes.back() ^= 1;
  oocpctest::WriteFile(folder.Repository() / "DEF_SOURCES", bytes);
  std::unique_ptr<Cloud> cloud;
  const Outcome outcome = Cloud::Open(folder.Repository(), cloud);
  EXPECT_EQ(outcome.code, result::kChecksumMismatch);
  EXPECT_NE(outcome.what.find("DEF_SOURCES"), std::string::npos) << outcome.what;
}

TEST(CloudOpen, IgnoresWhatLiesBehindCommittedLengths) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  for (const std::string& name : ScanFolder::ListOf(folder.Repository())) {
    if (name == "main") continue;
    auto bytes = oocpctest::ReadFile(folder.Repository() / name);
    bytes.insert(bytes.end(), {1, 2, 3});
    oocpctest::WriteFile(folder.Repository() / name, bytes);
  }
  EXPECT_EQ(folder.Open()->GetSources().size(), 1u);
}

TEST(Cloud, ListsItsColumnsInTheOrderOfTheRecord) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10, 0));
  const auto cloud = folder.Open();
  std::vector<std::string> names;
  for (const CloudColumn& column : cloud->GetColumns()) names.push_back(column.name);
  EXPECT_EQ(names, (std::vector<std::string>{"intensity", "return_number", "number_of_returns",
                                             "scan_direction_flag", "edge_of_flight_line",
                                             "classification", "synthetic", "key_point", "withheld",
                                             "scan_angle", "user_data", "point_source_id"}));
  EXPECT_EQ(cloud->GetTransform().scale, (oocpc::Vector3d{0.01, 0.02, 0.001}));
  EXPECT_EQ(cloud->GetTransform().offset, (oocpc::Vector3d{1000, -2000, 3}));
}

TEST(Cloud, NamesTheIterationsThatThereAre) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  const auto cloud = folder.Open();
  std::uint64_t newest = 99;
  ASSERT_TRUE(IsOk(cloud->FindNewestIteration(newest)));
  EXPECT_EQ(newest, 0u);
  OOCPCUpdateIteration record;
  const Outcome outcome = cloud->ReadIteration(1, record);
  EXPECT_EQ(outcome.code, result::kIndexOutOfRange);
  EXPECT_EQ(outcome.remedy, "iterations 0 to 0 are there");
  OOCPCOctreeAcceleratorNode root;
  EXPECT_EQ(cloud->ReadRoot(1, root).code, result::kIndexOutOfRange);
  EXPECT_EQ(cloud->ReadNode(1, root).code, result::kIndexOutOfRange);
}

TEST(Cloud, WalksParentsBeforeChildrenAndNoFurtherThanTold) {
  const ScanFolder folder;
  const ImportReport report = folder.ImportBytes(ScanOf(60000, 0));
  const auto cloud = folder.Open();
  std::uint64_t nodes = 0;
  std::uint64_t points = 0;
  std::set<std::pair<std::uint32_t, std::uint64_t>> seen;
  ASSERT_TRUE(IsOk(cloud->WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
    ++nodes;
    points += node.ownPointCount;
    EXPECT_TRUE(node.level == 0 || seen.count({node.level - 1, node.indexInLevel / 8}) == 1);
    seen.insert({node.level, node.indexInLevel});
    return Descend::kIntoChildren;
  })));
  EXPECT_EQ(nodes, report.nodeCount);
  EXPECT_EQ(points, 60000u);
  for (const Descend descend : {Descend::kPastSubtree, Descend::kStop}) {
    nodes = 0;
    ASSERT_TRUE(IsOk(cloud->WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode&) {
      ++nodes;
      return descend;
    })));
    EXPECT_EQ(nodes, 1u);
  }
}

TEST(Cloud, ReadsStreamsWhole) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  const auto cloud = folder.Open();
  std::vector<std::uint8_t> bytes;
  ASSERT_TRUE(IsOk(cloud->ReadStream("DEF_OCTREE", bytes)));
  EXPECT_EQ(bytes, oocpctest::ReadFile(folder.Repository() / "DEF_OCTREE"));
  EXPECT_EQ(cloud->ReadStream("DEF_NOTHING", bytes).code, result::kStreamMissing);
}

TEST(BlockReader, ReadsStoredAndLocalPositionsAndColumns) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  const auto cloud = folder.Open();
  OOCPCOctreeAcceleratorNode root;
  ASSERT_TRUE(IsOk(cloud->ReadRoot(0, root)));
  BlockReader reader;
  ASSERT_TRUE(IsOk(BlockReader::Open(*cloud, {"gps_time", "intensity"}, reader)));
  ASSERT_EQ(reader.GetColumnCount(), 2u);
  std::vector<std::int32_t> stored;
  std::vector<double> local;
  std::vector<std::uint8_t> times;
  ASSERT_TRUE(IsOk(reader.ReadPositions(root, stored)));
  ASSERT_TRUE(IsOk(reader.ReadLocalPositions(root, local)));
  ASSERT_TRUE(IsOk(reader.ReadColumn(0, root, times)));
  EXPECT_EQ(times.size(), 80u);
  ASSERT_EQ(stored.size(), 30u);
  ASSERT_EQ(local.size(), 30u);
  for (std::size_t i = 0; i < 30; ++i) {
    const double source = stored[i] * cloud->GetTransform().scale[i % 3];
    EXPECT_EQ(local[i],
              source + cloud->GetTransform().offset[i % 3] - cloud->GetFrameOffset()[i % 3]);
  }
}

TEST(BlockReader, RefusesAColumnThatIsNotThereAndABlockThatIsNotTheNodes) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  const auto cloud = folder.Open();
  BlockReader reader;
  EXPECT_FALSE(BlockReader::Open(*cloud, {"no_such_column"}, reader).Ok());
  ASSERT_TRUE(IsOk(BlockReader::Open(*cloud, {"intensity"}, reader)));
  OOCPCOctreeAcceleratorNode node;
  ASSERT_TRUE(IsOk(cloud->ReadRoot(0, node)));
  std::vector<std::int32_t> xyz;
  std::vector<std::uint8_t> values;
  node.ownPointCount = 11;
  EXPECT_EQ(reader.ReadPositions(node, xyz).code, result::kBadRecord);
  EXPECT_EQ(reader.ReadColumn(0, node, values).code, result::kBadRecord);
  node.blockId = 1;
  EXPECT_EQ(reader.ReadPositions(node, xyz).code, result::kIndexOutOfRange);
  node.ownPointCount = 0;
  EXPECT_TRUE(IsOk(reader.ReadPositions(node, xyz)));
  EXPECT_TRUE(xyz.empty());
}

}  // namespace
}  // namespace tarnhost
