// What LAZ files may take of memory: never more than some runs of points, whatever they state.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/formats/laz/LazScan.h"
#include "tests/support/AllocationLimit.h"
#include "tests/support/LazFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::AllocationLimit;
using oocpctest::CompressLas;
using oocpctest::LasBuilder;
using oocpctest::LazFile;
using oocpctest::LazOptions;
using oocpctest::SmoothScan;
using oocpctest::TemporaryFolder;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

/// A run of points, and what else there is to hold.
constexpr std::size_t kMostBytes = (std::size_t{1} << 20) + (std::size_t{1} << 18);

class LazMemory : public ::testing::Test {
 protected:
  Outcome OpenLimited(const Bytes& file) {
    oocpctest::WriteFile(folder_ / "scan.laz", file);
    const AllocationLimit limit(kMostBytes);
    return LazScan::Open(folder_ / "scan.laz", scan_);
  }

  TemporaryFolder folder_;
  std::unique_ptr<LazScan> scan_;
};

/// A file without a chunk table that states many points and has some bytes for them.
Bytes Boasting(std::uint32_t points, std::size_t bytes, std::uint8_t byte) {
  LasBuilder builder;
  builder.pointCount = 1;
  LazOptions options{{0x7FFFFFFF}};
  options.table = LazOptions::kMissing;
  LazFile file = CompressLas(builder.Build(), options);
  file.bytes.resize(file.pointsOffset + 8);
  file.bytes.resize(file.bytes.size() + bytes, byte);
  LasBuilder::Put(file.bytes, 107, points);
  LasBuilder::Put(file.bytes, 247, std::uint64_t{points});
  return file.bytes;
}

TEST_F(LazMemory, IsBoundedWhereAFileWithoutATableStatesManyPoints) {
  const Outcome outcome = OpenLimited(Boasting(10'000'000, 50'000, 0));
  EXPECT_TRUE(outcome.Ok()) << outcome.what;
  EXPECT_EQ(scan_->GetPointCount(), 10'000'000u);
}

TEST_F(LazMemory, IsBoundedAndTimeShortWhereThereAreNotThatManyPoints) {
  const Outcome outcome = OpenLimited(Boasting(100'000'000, 50'000, 0x5A));
  EXPECT_EQ(outcome.code, result::kScanTruncated);
  EXPECT_THAT(outcome.what, HasSubstr("of the 100000000 points only the first 0 could be found"));
}

TEST_F(LazMemory, SufficesToFindTheEndsOfLargeChunks) {
  const Bytes las = SmoothScan(3, 100'000, 2);
  LazOptions options{{70'000}};
  options.table = LazOptions::kMissing;
  ASSERT_TRUE(OpenLimited(CompressLas(las, options).bytes).Ok());
  ASSERT_EQ(scan_->GetChunks().size(), 2u);
  EXPECT_EQ(scan_->GetChunks()[1].points, 30'000u);
}

}  // namespace
}  // namespace tarnhost
