// Values of blocks and of runs of points.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <random>

#include "host/cloud/Cloud.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::SyntheticCloud;

constexpr std::uint32_t kPoints = 60000;
const std::vector<std::string> kColumns{"intensity", "DEF_COLOR", "gps_time"};

/// Everything in storage order, block by block.
struct Whole {
  std::vector<std::int32_t> stored;
  std::vector<double> local;
  std::vector<std::vector<std::uint8_t>> columns;
};

class RangeReading : public testing::Test {
 protected:
  static void SetUpTestSuite() { street_ = std::make_unique<SyntheticCloud>(kPoints); }
  static void TearDownTestSuite() { street_.reset(); }
  void SetUp() override {
    ASSERT_NE(street_->cloud, nullptr);
    ASSERT_TRUE(IsOk(BlockReader::Open(*street_->cloud, kColumns, blocks_)));
    ASSERT_TRUE(IsOk(BlockReader::OpenLevel(*street_->cloud, 0, kColumns, level_)));
    ReadWhole();
  }

  void ReadWhole() {
    std::vector<OOCPCOctreeAcceleratorNode> nodes;
    ASSERT_TRUE(IsOk(street_->cloud->WalkNodes(0, [&](const OOCPCOctreeAcceleratorNode& node) {
      if (node.ownPointCount > 0) nodes.push_back(node);
      return Descend::kIntoChildren;
    })));
    std::ranges::sort(nodes, {}, &OOCPCOctreeAcceleratorNode::firstPoint);
    whole_.columns.resize(kColumns.size());
    for (const auto& node : nodes) {
      firsts_.push_back(node.firstPoint);
      std::vector<std::int32_t> stored;
      ASSERT_TRUE(IsOk(blocks_.ReadPositions(node, stored)));
      whole_.stored.insert(whole_.stored.end(), stored.begin(), stored.end());
      std::vector<double> local;
      ASSERT_TRUE(IsOk(blocks_.ReadLocalPositions(node, local)));
      whole_.local.insert(whole_.local.end(), local.begin(), local.end());
      for (std::size_t i = 0; i < kColumns.size(); ++i) {
        std::vector<std::uint8_t> values;
        ASSERT_TRUE(IsOk(blocks_.ReadColumn(i, node, values)));
        whole_.columns[i].insert(whole_.columns[i].end(), values.begin(), values.end());
      }
    }
    ASSERT_EQ(whole_.stored.size(), 3u * kPoints);
  }

  template <typename T>
  static std::vector<T> Part(const std::vector<T>& all, const PointRange& points) {
    const std::size_t size = all.size() / kPoints;
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(points.first * size);
    return {first, first + static_cast<std::ptrdiff_t>(points.count * size)};
  }

  void ExpectRange(BlockReader& reader, const PointRange& points) {
    SCOPED_TRACE(std::to_string(points.first) + " + " + std::to_string(points.count));
    std::vector<std::int32_t> stored{7};
    ASSERT_TRUE(IsOk(reader.ReadPositions(points, stored)));
    ASSERT_EQ(stored, Part(whole_.stored, points));
    std::vector<double> local{7};
    ASSERT_TRUE(IsOk(reader.ReadLocalPositions(points, local)));
    ASSERT_EQ(local, Part(whole_.local, points));
    for (std::size_t i = 0; i < kColumns.size(); ++i) {
      std::vector<std::uint8_t> values{7};
      ASSERT_TRUE(IsOk(reader.ReadColumn(i, points, values)));
      ASSERT_EQ(values, Part(whole_.columns[i], points)) << kColumns[i];
    }
  }

  static std::unique_ptr<SyntheticCloud> street_;
  BlockReader blocks_;
  BlockReader level_;
  Whole whole_;
  std::vector<std::uint64_t> firsts_;  ///< of the blocks
};

std::unique_ptr<SyntheticCloud> RangeReading::street_;

TEST_F(RangeReading, GivesWhatTheBlocksHoldWhereverARangeBegins) {
  std::mt19937 random(3);
  for (int round = 0; round < 40; ++round) {
    const std::uint32_t first = random() % kPoints;
    const std::uint32_t count = random() % (kPoints - first + 1);
    ExpectRange(round % 2 == 0 ? level_ : blocks_, {first, count});
  }
}

TEST_F(RangeReading, GoesAcrossTheBordersOfBlocks) {
  ASSERT_GT(firsts_.size(), 3u);
  for (std::size_t i = 1; i < firsts_.size(); ++i) {
    ExpectRange(level_, {firsts_[i] - 1, 2});
    ExpectRange(level_, {firsts_[i], 1});
    ExpectRange(level_, {firsts_[i] - 1, 1});
  }
  ExpectRange(level_, {0, kPoints});
}

TEST_F(RangeReading, GivesNothingForNoPoints) {
  ExpectRange(level_, {0, 0});
  ExpectRange(level_, {firsts_[1], 0});
  ExpectRange(level_, {kPoints, 0});
}

TEST_F(RangeReading, NamesTheRangeThatIsNotThere) {
  const PointRange beyond[] = {{kPoints, 1}, {kPoints - 1, 2}, {~std::uint64_t{0}, 0xFFFFFFFF}};
  for (const PointRange& points : beyond) {
    std::vector<std::int32_t> stored;
    const Outcome outcome = level_.ReadPositions(points, stored);
    EXPECT_EQ(outcome.code, result::kIndexOutOfRange);
    EXPECT_NE((outcome.what + outcome.where).find(std::to_string(points.first)), std::string::npos)
        << outcome.what << " " << outcome.where;
    std::vector<double> local;
    EXPECT_EQ(level_.ReadLocalPositions(points, local).code, result::kIndexOutOfRange);
    std::vector<std::uint8_t> values;
    const Outcome ofColumn = level_.ReadColumn(0, points, values);
    EXPECT_EQ(ofColumn.code, result::kIndexOutOfRange);
    EXPECT_NE((ofColumn.what + ofColumn.where).find("intensity"), std::string::npos);
  }
}

TEST_F(RangeReading, TellsAboutAnAlteredBlock) {
  const SyntheticCloud harmed(1000);
  ASSERT_NE(harmed.cloud, nullptr);
  const auto file = harmed.folder.Repository() / "DEF_COLUMN_0";
  auto bytes = oocpctest::ReadFile(file);
  bytes[bytes.size() / 2] ^= 0x10;
  oocpctest::WriteFile(file, bytes);
  BlockReader reader;
  const auto cloud = harmed.folder.Open();
  ASSERT_NE(cloud, nullptr);
  ASSERT_TRUE(IsOk(BlockReader::OpenLevel(*cloud, 0, {}, reader)));
  std::vector<std::int32_t> stored;
  EXPECT_EQ(reader.ReadPositions(PointRange{0, 1000}, stored).code, result::kChecksumMismatch);
}

TEST(LevelReader, NamesColumnsAndIterationsThatAreNotThere) {
  const SyntheticCloud street(1000);
  ASSERT_NE(street.cloud, nullptr);
  BlockReader reader;
  const Outcome outcome = BlockReader::OpenLevel(*street.cloud, 0, {"nonsense"}, reader);
  EXPECT_FALSE(outcome.Ok());
  EXPECT_NE((outcome.what + outcome.where).find("nonsense"), std::string::npos)
      << outcome.what << " " << outcome.where;
  EXPECT_FALSE(BlockReader::OpenLevel(*street.cloud, 5, {}, reader).Ok());
}

}  // namespace
}  // namespace tarnhost
