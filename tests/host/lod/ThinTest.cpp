// Even samples of a cloud, written as scan files.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "host/formats/LasScan.h"
#include "host/lod/LodTree.h"
#include "host/lod/Thin.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/PlainCloud.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::SyntheticCloud;
using oocpctest::brute::LasFile;

/// The point records of a LAS file as a sorted list of byte strings.
std::vector<std::string> RecordsOf(const std::filesystem::path& path) {
  LasFile file;
  EXPECT_TRUE(file.Load(path));
  std::vector<std::string> records;
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    const std::uint8_t* record = file.GetRecord(i);
    records.emplace_back(record, record + file.GetRecordBytes());
  }
  std::ranges::sort(records);
  return records;
}

ThinReport Thin(Cloud& cloud, const ThinOptions& options, const std::filesystem::path& output) {
  ThinReport report;
  EXPECT_TRUE(IsOk(ThinLas(cloud, options, output, report)));
  return report;
}

ThinOptions ToLevel(std::uint32_t level) {
  ThinOptions options;
  options.level = level;
  return options;
}

ThinOptions ToSpacing(double spacing) {
  ThinOptions options;
  options.spacing = spacing;
  return options;
}

class ThinnedStreet : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(street_.cloud, nullptr);
    ASSERT_TRUE(IsOk(LodTree::Open(*street_.cloud, 0, tree_)));
  }
  [[nodiscard]] std::filesystem::path Output() const { return street_.folder / "thin.las"; }
  ThinReport Write(const ThinOptions& options) { return Thin(*street_.cloud, options, Output()); }

  /// Points of the levels up to each, counted by walking.
  std::vector<std::uint64_t> CountLevels() const {
    LodNode root;
    EXPECT_TRUE(IsOk(tree_->ReadRoot(root)));
    std::vector<std::uint64_t> counts;
    for (std::vector<LodNode> level{root}; !level.empty();) {
      counts.push_back(counts.empty() ? 0 : counts.back());
      std::vector<LodNode> next;
      for (const LodNode& node : level) {
        counts.back() += node.points.count;
        std::vector<LodNode> children;
        EXPECT_TRUE(IsOk(tree_->ReadChildren(node, children)));
        next.insert(next.end(), children.begin(), children.end());
      }
      level = next;
    }
    return counts;
  }

  const SyntheticCloud street_{60000};
  std::unique_ptr<LodTree> tree_;
};

TEST_F(ThinnedStreet, HoldsTheLevelsUpToTheWantedOneAndAtTheFinestEverything) {
  const std::vector<std::uint64_t> counts = CountLevels();
  ASSERT_GE(counts.size(), 3u);
  const std::vector<std::string> all = RecordsOf(street_.Scan());
  std::vector<std::string> coarser;
  for (std::uint32_t level = 0; level < counts.size(); ++level) {
    const ThinReport report = Write(ToLevel(level));
    const std::vector<std::string> records = RecordsOf(Output());
    EXPECT_EQ(report.level, level);
    EXPECT_EQ(report.spacing, tree_->GetSpacing(level));
    EXPECT_EQ(report.pointCount, counts[level]);
    ASSERT_EQ(records.size(), counts[level]);
    EXPECT_GT(records.size(), coarser.size());
    EXPECT_TRUE(std::ranges::includes(records, coarser)) << level;
    EXPECT_TRUE(std::ranges::includes(all, records)) << level;
    coarser = records;
  }
  EXPECT_EQ(coarser, all);
}

TEST_F(ThinnedStreet, HasAtMostOnePointInACellOfItsGrid) {
  std::shared_ptr<OOCPCLODNodeCache> cache;
  ASSERT_EQ(street_.cloud->GetPointCloud().GetLODNodeCache(0, cache), result::kOk);
  double centre[3];
  ASSERT_TRUE(cache->GetCentre(centre));
  const ThinReport report = Write(ToLevel(0));
  LasFile file;
  ASSERT_TRUE(file.Load(Output()));
  std::set<std::array<double, 3>> cells;
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    std::array<double, 3> cell;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double local = file.GetSource(i, axis) - street_.cloud->GetFrameOffset()[axis];
      cell[axis] = std::floor((local - centre[axis]) / report.spacing);
    }
    cells.insert(cell);
  }
  EXPECT_GT(cells.size(), 1000u);
  EXPECT_EQ(cells.size(), file.GetPointCount());
}

TEST_F(ThinnedStreet, GoesToTheCoarsestLevelThatIsCloseEnough) {
  const double coarsest = tree_->GetSpacing(0);
  EXPECT_EQ(Write(ToSpacing(coarsest * 3)).level, 0u);
  EXPECT_EQ(Write(ToSpacing(coarsest)).level, 0u);
  const ThinReport report = Write(ToSpacing(coarsest * 0.6));
  EXPECT_EQ(report.level, 1u);
  EXPECT_EQ(report.spacing, coarsest / 2);
}

TEST_F(ThinnedStreet, NamesTheFinestLevelThatThereIsWhenAskedToGoFurther) {
  const std::vector<std::uint64_t> counts = CountLevels();
  for (const ThinOptions& options : {ToLevel(1000), ToSpacing(1e-9)}) {
    const ThinReport report = Write(options);
    EXPECT_EQ(report.level, counts.size() - 1);
    EXPECT_EQ(report.spacing, tree_->GetSpacing(report.level));
    EXPECT_EQ(report.pointCount, counts.back());
  }
}

TEST_F(ThinnedStreet, StatesItsOwnCountsAndBounds) {
  Write(ToLevel(0));
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(IsOk(LasScan::Open(Output(), scan)));
  LasFile file;
  ASSERT_TRUE(file.Load(Output()));
  const LasHeader& header = scan->GetHeader();
  EXPECT_EQ(header.pointCount, file.GetPointCount());
  std::array<std::uint64_t, 15> returns{};
  oocpctest::brute::Triple least{1e300, 1e300, 1e300};
  oocpctest::brute::Triple greatest{-1e300, -1e300, -1e300};
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    const auto number = file.GetValue(*file.FindField("return_number"), i).integer;
    ++returns.at(static_cast<std::size_t>(number) - 1);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      least[axis] = std::min(least[axis], file.GetSource(i, axis));
      greatest[axis] = std::max(greatest[axis], file.GetSource(i, axis));
    }
  }
  EXPECT_EQ(header.returnCounts, returns);
  EXPECT_EQ(header.min, least);
  EXPECT_EQ(header.max, greatest);
}

TEST_F(ThinnedStreet, StopsOnRequestAndLeavesNoFile) {
  ThinOptions options = ToLevel(5);
  int told = 0;
  options.progress = [&](const ProgressReport& report) {
    EXPECT_STREQ(report.stage, "writing");
    EXPECT_EQ(report.total, 60000u);
    return ++told < 3;
  };
  const auto before = street_.folder.List();
  ThinReport report;
  EXPECT_EQ(ThinLas(*street_.cloud, options, Output(), report).code, result::kStopped);
  EXPECT_EQ(told, 3);
  EXPECT_EQ(street_.folder.List(), before);
}

TEST(Thin, KeepsEveryByteOfRecordsWithAllThatAFormatHas) {
  LasBuilder builder;
  builder.format = 10;
  builder.extraBytes = 5;
  builder.pointCount = 30000;
  std::vector<std::uint8_t> bytes = builder.Build();
  oocpctest::PlacePoints(bytes, oocpctest::RandomPositions(builder.pointCount, 1000000));
  const ScanFolder folder;
  folder.ImportBytes(bytes);
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  Thin(*cloud, ToLevel(60), folder / "all.las");
  const auto all = RecordsOf(folder / "all.las");
  EXPECT_EQ(all, RecordsOf(folder / "scan.las"));
  Thin(*cloud, ToLevel(0), folder / "few.las");
  const auto few = RecordsOf(folder / "few.las");
  EXPECT_GT(few.size(), 0u);
  EXPECT_LT(few.size(), all.size());
  EXPECT_TRUE(std::ranges::includes(all, few));
}

TEST(Thin, WritesAnEmptyCloudAsAnEmptyScan) {
  const ScanFolder folder;
  folder.ImportBytes(oocpctest::ScanOf(0));
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  EXPECT_EQ(Thin(*cloud, ToLevel(2), folder / "empty.las").pointCount, 0u);
  EXPECT_EQ(RecordsOf(folder / "empty.las").size(), 0u);
}

TEST(Thin, FailsWithoutAFileWhereItCannotBeDone) {
  const oocpctest::TemporaryFolder folder;
  const auto plain = oocpctest::MakePlainCloud();
  ASSERT_NE(plain, nullptr);
  ThinReport report;
  EXPECT_EQ(ThinLas(*plain, ToLevel(0), folder / "out.las", report).code, result::kNoLodStream);
  ThinOptions options;
  options.iteration = 7;
  EXPECT_EQ(ThinLas(*plain, options, folder / "out.las", report).code, result::kIndexOutOfRange);
  EXPECT_FALSE(std::filesystem::exists(folder / "out.las"));
}

}  // namespace
}  // namespace tarnhost
