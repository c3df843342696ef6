// LAZ files and memory: reading takes no more than some runs of points, whatever the file states,
// and writing tells where there is too little.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/formats/laz/LazPointWriter.h"
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

Bytes RecordsIn(const Bytes& las) {
  const auto begin = las.begin() + LasBuilder::Get<std::uint32_t>(las, 96);
  const auto bytes = std::size_t{LasBuilder::Get<std::uint16_t>(las, 105)} *
                     LasBuilder::Get<std::uint64_t>(las, 247);
  return {begin, begin + static_cast<std::ptrdiff_t>(bytes)};
}

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

TEST_F(LazMemory, IsBoundedWhereALargeChunkIsDecodedIntoAFile) {
  for (unsigned format = 0; format < 11; ++format) {
    SCOPED_TRACE(format);
    constexpr std::uint32_t kPoints = 70'000;
    const Bytes las = SmoothScan(format, kPoints, 5);
    ASSERT_TRUE(OpenLimited(CompressLas(las, {{kPoints}}).bytes).Ok());
    ASSERT_EQ(scan_->GetChunks().size(), 1u);
    ASSERT_GT(scan_->GetScratchBytes(), kMostBytes) << "more than a run";
    ScanWorkspace workspace{100, folder_.Path(), {}};
    {
      const AllocationLimit limit(kMostBytes);
      const Outcome outcome = scan_->Prepare(workspace);
      ASSERT_TRUE(outcome.Ok()) << outcome.what;
    }
    Bytes records(kPoints * scan_->GetRecordBytes());
    scan_->ReadRecords(0, kPoints, records.data());
    EXPECT_TRUE(records == RecordsIn(las)) << "records differ";
  }
}

TEST_F(LazMemory, IsBoundedWhereALargeChunkIsDamaged) {
  LazFile file = CompressLas(SmoothScan(3, 70'000), {{70'000}});
  const auto end = file.bytes.begin() + static_cast<std::ptrdiff_t>(file.tableAt);
  std::fill(end - 1000, end, std::uint8_t{0x77});
  ASSERT_TRUE(OpenLimited(file.bytes).Ok());
  ScanWorkspace workspace{100, folder_.Path(), {}};
  const AllocationLimit limit(kMostBytes);
  const Outcome outcome = scan_->Prepare(workspace);
  EXPECT_EQ(outcome.code, result::kScanContradictory);
  EXPECT_THAT(outcome.what, HasSubstr("chunk 1 of 1 is damaged (points 1 to 70000)"));
}

/// Records that hardly get any shorter.
Bytes RandomRecords(unsigned format, std::uint32_t count) {
  LasBuilder builder;
  builder.format = format;
  builder.pointCount = count;
  return RecordsIn(builder.Build());
}

TEST_F(LazMemory, ThatIsUsedUpFailsTheWritingOfChunksOfAnySize) {
  // Too little for an encoder, or for the records alone.
  for (const std::size_t most : {std::size_t{4096}, std::size_t{1} << 19}) {
    for (const unsigned format : {1u, 7u}) {
      SCOPED_TRACE(std::to_string(most) + " bytes, format " + std::to_string(format));
      const Bytes records = RandomRecords(format, 30'000);
      ASSERT_GT(records.size(), most);
      std::unique_ptr<OutputFile> file;
      ASSERT_TRUE(OutputFile::Create(folder_ / "out.laz", file).Ok());
      laz::LazPointWriter writer(
          *file, laz::LazLayoutFor(static_cast<std::uint8_t>(format), records.size() / 30'000,
                                   laz::kVariableChunks));
      ASSERT_TRUE(writer.Begin().Ok());
      ASSERT_TRUE(writer.Append(records).Ok());
      Outcome outcome;
      {
        const AllocationLimit limit(most);
        ASSERT_TRUE(writer.EndChunk().Ok()) << "the chunk is compressed later";
        outcome = writer.Finish();
      }
      EXPECT_EQ(outcome.code, result::kOutOfMemory);
      EXPECT_EQ(outcome.where, (folder_ / "out.laz").string());
      EXPECT_EQ(writer.Finish().code, result::kOutOfMemory) << "a chunk is missing";
      EXPECT_TRUE(writer.GetChunks().empty());
    }
  }
}

TEST_F(LazMemory, ThatIsUsedUpFailsTheWritingOfChunksOfOneSize) {
  constexpr std::uint32_t kChunkPoints = 30'000;
  const Bytes records = RandomRecords(0, kChunkPoints);
  std::unique_ptr<OutputFile> file;
  ASSERT_TRUE(OutputFile::Create(folder_ / "out.laz", file).Ok());
  laz::LazPointWriter writer(*file,
                             laz::LazLayoutFor(0, records.size() / kChunkPoints, kChunkPoints));
  ASSERT_TRUE(writer.Begin().Ok());
  // Enough to take records over, but not for the bytes that they are compressed to.
  const AllocationLimit limit(records.size());
  Outcome outcome;
  for (int i = 0; i < 1000 && outcome.Ok(); ++i) outcome = writer.Append(records);
  EXPECT_EQ(outcome.code, result::kOutOfMemory);
  EXPECT_TRUE(writer.GetChunks().empty());
}

}  // namespace
}  // namespace tarnhost
