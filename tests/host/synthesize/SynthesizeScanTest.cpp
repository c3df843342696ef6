// The synthetic scan: exact in number, the same for every number of threads, and plausible.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <map>

#include "host/formats/LasScan.h"
#include "host/synthesize/SynthesizeScan.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using oocpctest::TemporaryFolder;
using oocpctest::brute::LasFile;
using tarnhost::Outcome;
using tarnhost::SynthesizeOptions;

Outcome Synthesize(const fs::path& output, std::uint64_t points, std::uint64_t seed = 1) {
  SynthesizeOptions options;
  options.output = output;
  options.pointCount = points;
  options.seed = seed;
  return tarnhost::SynthesizeScan(options);
}

/// A scan that several tests look at.
class SynthesizedScan : public testing::Test {
 protected:
  static constexpr std::uint64_t kPoints = 60000;

  static void SetUpTestSuite() {
    folder_ = std::make_unique<TemporaryFolder>();
    ASSERT_TRUE(Synthesize(*folder_ / "scan.las", kPoints).Ok());
    file_ = std::make_unique<LasFile>();
    ASSERT_TRUE(file_->Load(*folder_ / "scan.las"));
  }
  static void TearDownTestSuite() {
    file_.reset();
    folder_.reset();
  }

  static std::int64_t Integer(const char* name, std::uint64_t point) {
    return file_->GetValue(*file_->FindField(name), point).integer;
  }
  static double Number(const char* name, std::uint64_t point) {
    return file_->GetValue(*file_->FindField(name), point).number;
  }
  static std::map<std::int64_t, std::uint64_t> Histogram(const char* name) {
    std::map<std::int64_t, std::uint64_t> counts;
    for (std::uint64_t i = 0; i < kPoints; ++i) ++counts[Integer(name, i)];
    return counts;
  }

  static std::unique_ptr<TemporaryFolder> folder_;
  static std::unique_ptr<LasFile> file_;
};
std::unique_ptr<TemporaryFolder> SynthesizedScan::folder_;
std::unique_ptr<LasFile> SynthesizedScan::file_;

TEST_F(SynthesizedScan, IsLas14OfFormat7WithACoordinateSystem) {
  std::unique_ptr<tarnhost::LasScan> scan;
  ASSERT_TRUE(tarnhost::LasScan::Open(*folder_ / "scan.las", scan).Ok());
  const tarnhost::LasHeader& header = scan->GetHeader();
  EXPECT_EQ(header.versionMinor, 4);
  EXPECT_EQ(header.pointFormat, 7);
  EXPECT_EQ(header.scale, (std::array<double, 3>{0.001, 0.001, 0.001}));
  EXPECT_EQ(header.offset, (std::array<double, 3>{500000, 4500000, 0}));
  EXPECT_EQ(header.globalEncoding & 0x10, 0x10);
  ASSERT_EQ(header.records.size(), 1u);
  EXPECT_EQ(header.records[0].userId, "LASF_Projection");
  EXPECT_EQ(header.records[0].recordId, 2112);
  const auto payload = scan->GetLeadingBytes().subspan(header.records[0].payloadOffset);
  const std::string text(payload.begin(), payload.end() - 1);
  EXPECT_THAT(text, testing::StartsWith("PROJCS["));
  EXPECT_THAT(text, testing::EndsWith(R"(AUTHORITY["EPSG","32632"]])"));
  EXPECT_EQ(payload.back(), 0);
}

TEST_F(SynthesizedScan, StatesItsCountsAndBounds) {
  std::unique_ptr<tarnhost::LasScan> scan;
  ASSERT_TRUE(tarnhost::LasScan::Open(*folder_ / "scan.las", scan).Ok());
  EXPECT_EQ(scan->GetPointCount(), kPoints);
  auto returns = Histogram("return_number");
  for (std::size_t i = 0; i < 15; ++i) {
    EXPECT_EQ(scan->GetHeader().returnCounts[i], returns[static_cast<std::int64_t>(i) + 1]);
  }
  for (std::uint64_t i = 0; i < kPoints; ++i) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      ASSERT_GE(file_->GetSource(i, axis), scan->GetHeader().min[axis]);
      ASSERT_LE(file_->GetSource(i, axis), scan->GetHeader().max[axis]);
    }
  }
}

TEST_F(SynthesizedScan, HasWhatAStreetHas) {
  auto classes = Histogram("classification");
  for (const auto& [pointClass, least] : std::map<std::int64_t, std::uint64_t>{
           {2, 10000}, {3, 500}, {4, 300}, {5, 2000}, {6, 4000}, {11, 5000}, {64, 300}, {65, 10}}) {
    EXPECT_GE(classes[pointClass], least) << pointClass;
  }
  EXPECT_EQ(classes.size(), 8u);
  EXPECT_EQ(Histogram("point_source_id").size(), 4u);
}

TEST_F(SynthesizedScan, HasRisingTimes) {
  double last = 0;
  for (std::uint64_t i = 0; i < kPoints; ++i) {
    const double time = Number("gps_time", i);
    ASSERT_GE(time, last);
    ASSERT_TRUE(time > last || Integer("return_number", i) > 1);
    last = time;
  }
}

TEST_F(SynthesizedScan, HasWholePulses) {
  std::uint64_t several = 0;
  for (std::uint64_t i = 0; i < kPoints;) {
    const std::int64_t count = Integer("number_of_returns", i);
    ASSERT_GE(count, 1);
    ASSERT_LE(i + static_cast<std::uint64_t>(count), kPoints);
    several += count > 1 ? 1 : 0;
    for (std::int64_t k = 1; k <= count; ++k, ++i) {
      ASSERT_EQ(Integer("return_number", i), k);
      ASSERT_EQ(Integer("number_of_returns", i), count);
    }
  }
  EXPECT_GT(several, 1000u);
}

TEST_F(SynthesizedScan, HasMoreThanOneReturnOnlyOnPulsesThroughLeaves) {
  for (std::uint64_t i = 0; i < kPoints; ++i) {
    const bool notLast = Integer("return_number", i) < Integer("number_of_returns", i);
    const std::int64_t pointClass = Integer("classification", i);
    if (notLast) {
      ASSERT_TRUE(pointClass >= 3 && pointClass <= 5) << pointClass;
    }
  }
}

TEST_F(SynthesizedScan, HasBrightPaintDarkRoadsAndGreenLeaves) {
  double road = 0, grass = 0, roads = 0, grounds = 0, greener = 0, leaves = 0;
  for (std::uint64_t i = 0; i < kPoints; ++i) {
    const std::int64_t pointClass = Integer("classification", i);
    if (Integer("point_source_id", i) > 2) continue;
    if (pointClass == 11) road += Number("intensity", i), ++roads;
    if (pointClass == 2) grass += Number("intensity", i), ++grounds;
    if (pointClass == 5) greener += Number("green", i) > Number("red", i) ? 1 : 0, ++leaves;
  }
  EXPECT_LT(road / roads, 0.6 * grass / grounds);
  EXPECT_GT(greener / leaves, 0.9);
}

TEST_F(SynthesizedScan, KeepsGroundBelowRoofs) {
  double ground = 0, grounds = 0, building = 0, buildings = 0;
  for (std::uint64_t i = 0; i < kPoints; ++i) {
    if (Integer("classification", i) == 2) ground += file_->GetSource(i, 2), ++grounds;
    if (Integer("classification", i) == 6) building += file_->GetSource(i, 2), ++buildings;
  }
  EXPECT_GT(building / buildings, ground / grounds + 2);
}

TEST(SynthesizeScan, WritesExactlySoManyPoints) {
  TemporaryFolder folder;
  for (const std::uint64_t points : {0, 1, 2, 3, 10, 999, 16385, 40001}) {
    ASSERT_TRUE(Synthesize(folder / "scan.las", points).Ok());
    LasFile file;
    ASSERT_TRUE(file.Load(folder / "scan.las"));
    EXPECT_EQ(file.GetPointCount(), points);
    EXPECT_EQ(file.GetPointsEnd(), file.GetBytes().size());
  }
}

TEST(SynthesizeScan, DoesNotDependOnTheNumberOfThreads) {
  TemporaryFolder folder;
  {
    const tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    ASSERT_TRUE(Synthesize(folder / "one.las", 50000).Ok());
  }
  const tbb::global_control four(tbb::global_control::max_allowed_parallelism, 4);
  ASSERT_TRUE(Synthesize(folder / "four.las", 50000).Ok());
  EXPECT_TRUE(oocpctest::ReadFile(folder / "one.las") == oocpctest::ReadFile(folder / "four.las"));
}

TEST(SynthesizeScan, DependsOnTheSeed) {
  TemporaryFolder folder;
  ASSERT_TRUE(Synthesize(folder / "a.las", 1000, 1).Ok());
  ASSERT_TRUE(Synthesize(folder / "b.las", 1000, 2).Ok());
  EXPECT_FALSE(oocpctest::ReadFile(folder / "a.las") == oocpctest::ReadFile(folder / "b.las"));
}

TEST(SynthesizeScan, StopsWhenAskedAndLeavesNothing) {
  TemporaryFolder folder;
  SynthesizeOptions options;
  options.output = folder / "scan.las";
  options.pointCount = 1000;
  std::uint64_t told = 0;
  options.progress = [&](const tarnhost::ProgressReport& report) {
    told = report.total;
    return false;
  };
  EXPECT_EQ(tarnhost::SynthesizeScan(options).code, oocpc::result::kStopped);
  EXPECT_EQ(told, 1000u);
  EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(SynthesizeScan, SaysThatThereIsNoSuchFolder) {
  TemporaryFolder folder;
  EXPECT_EQ(Synthesize(folder / "no" / "scan.las", 10).code, oocpc::result::kIoError);
}

}  // namespace
