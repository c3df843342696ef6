// Statistics of a scan file, compared with those of its repository.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>

#include "host/cloud/Statistics.h"
#include "tests/support/LazFiles.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;

ScanWorkspace Workspace() { return {std::uint64_t{1} << 30, {}, {}}; }

/// Facts and statistics of a scan file.
CloudFacts FactsOfScan(const std::filesystem::path& path) {
  CloudFacts facts;
  std::unique_ptr<ScanFile> scan;
  EXPECT_TRUE(IsOk(OpenScan(path, scan)));
  if (scan == nullptr) return facts;
  CollectScanFacts(*scan, facts);
  ScanWorkspace workspace = Workspace();
  EXPECT_TRUE(IsOk(AddScanStatistics(*scan, workspace, {}, facts)));
  return facts;
}

void ExpectSameStatistics(const CloudFacts& scan, const CloudFacts& cloud) {
  EXPECT_EQ(scan.oddities, cloud.oddities);
  ASSERT_EQ(scan.dimensions.size(), cloud.dimensions.size());
  for (std::size_t i = 0; i < scan.dimensions.size(); ++i) {
    SCOPED_TRACE(scan.dimensions[i].name);
    EXPECT_EQ(scan.dimensions[i].name, cloud.dimensions[i].name);
    EXPECT_EQ(scan.dimensions[i].minimum, cloud.dimensions[i].minimum);
    EXPECT_EQ(scan.dimensions[i].maximum, cloud.dimensions[i].maximum);
    ASSERT_EQ(scan.dimensions[i].mean.size(), cloud.dimensions[i].mean.size());
    for (std::size_t c = 0; c < scan.dimensions[i].mean.size(); ++c) {
      // The points are added up in another order.
      const double mean = cloud.dimensions[i].mean[c];
      if (std::isnan(mean) && std::isnan(scan.dimensions[i].mean[c])) continue;
      EXPECT_NEAR(scan.dimensions[i].mean[c], mean, 1e-9 * std::abs(mean));
    }
  }
}

TEST(ScanStatistics, AreThoseOfTheRepository) {
  // More points than are taken at once; among them return numbers above the number of returns.
  const auto file = ScanOf(150000, 7);
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", file);
  folder.Import({scan});
  CloudFacts cloud;
  ASSERT_TRUE(IsOk(CollectFacts(*folder.Open(), 0, true, cloud)));
  ASSERT_EQ(cloud.oddities.size(), 1u);
  ExpectSameStatistics(FactsOfScan(scan), cloud);
  ExpectSameStatistics(FactsOfScan(folder.Add("scan.laz", oocpctest::CompressLas(file).bytes)),
                       cloud);
}

TEST(ScanStatistics, LeaveOutTexts) {
  const ScanFolder folder;
  const std::string text = "x,y,z,kind,height\n1,2,3,tree,1.5\n4,5,6,wall,3.5\n";
  const CloudFacts facts = FactsOfScan(folder.Add("scan.csv", {text.begin(), text.end()}));
  ASSERT_EQ(facts.dimensions.size(), 2u);
  EXPECT_TRUE(facts.dimensions[0].mean.empty());
  EXPECT_TRUE(facts.dimensions[0].minimum.empty());
  EXPECT_EQ(facts.dimensions[1].mean, std::vector<double>{2.5});
}

TEST(ScanStatistics, AreNoneOfAScanWithoutPoints) {
  const ScanFolder folder;
  const CloudFacts facts = FactsOfScan(folder.Add("scan.las", ScanOf(0)));
  for (const DimensionFacts& dimension : facts.dimensions) EXPECT_TRUE(dimension.minimum.empty());
}

TEST(ScanStatistics, EndWhenStopped) {
  const ScanFolder folder;
  std::unique_ptr<ScanFile> scan;
  ASSERT_TRUE(IsOk(OpenScan(folder.Add("scan.las", ScanOf(100)), scan)));
  CloudFacts facts;
  CollectScanFacts(*scan, facts);
  ScanWorkspace workspace = Workspace();
  const auto stop = [](const ProgressReport&) { return false; };
  EXPECT_EQ(AddScanStatistics(*scan, workspace, stop, facts).code, oocpc::result::kStopped);
}

}  // namespace
}  // namespace tarnhost
