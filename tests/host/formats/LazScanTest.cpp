// LAZ files opened as scans: what was compressed comes out again, and damage is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/formats/LasScan.h"
#include "host/formats/laz/LazScan.h"
#include "tests/support/LazFiles.h"
#include "tests/support/NodeReaders.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::CompressLas;
using oocpctest::LasBuilder;
using oocpctest::LazFile;
using oocpctest::LazOptions;
using oocpctest::SmoothScan;
using oocpctest::TemporaryFolder;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

/// All records, decoded chunk by chunk; none when a chunk is damaged.
Bytes RecordsOf(const LazScan& scan, std::uint32_t parts = laz::kAllParts) {
  Bytes records(scan.GetPointCount() * scan.GetRecordBytes());
  laz::ChunkDecoder decoder(scan.GetLazLayout());
  for (std::size_t i = 0; i < scan.GetChunks().size(); ++i) {
    std::uint8_t* to = records.data() + scan.GetChunks()[i].firstPoint * scan.GetRecordBytes();
    if (!scan.DecodeChunk(i, decoder, to, parts).Ok()) return {};
  }
  return records;
}

Bytes RecordsOf(const ScanFile& scan) {
  Bytes records(scan.GetPointCount() * scan.GetRecordBytes());
  scan.ReadRecords(0, scan.GetPointCount(), records.data());
  return records;
}

Bytes Copy(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

class LazScanTest : public ::testing::Test {
 protected:
  Outcome Open(const Bytes& file) {
    oocpctest::WriteFile(folder_ / "scan.laz", file);
    scan_.reset();
    return LazScan::Open(folder_ / "scan.laz", scan_);
  }

  void ExpectRefused(const Bytes& file, HRESULT code, const std::string& what) {
    const Outcome outcome = Open(file);
    EXPECT_EQ(outcome.code, code);
    EXPECT_THAT(outcome.what, HasSubstr(what));
    EXPECT_EQ(outcome.where, (folder_ / "scan.laz").string());
    EXPECT_EQ(scan_, nullptr);
  }

  /// Opens a sound table of damaged chunks: the scan opens, the first bad chunk is named.
  void ExpectDamagedChunk(const Bytes& file, const std::string& what) {
    const Outcome opened = Open(file);
    ASSERT_TRUE(opened.Ok()) << opened.what;
    ScanWorkspace workspace{1u << 30, folder_.Path(), {}};
    const Outcome outcome = scan_->Prepare(workspace);
    EXPECT_EQ(outcome.code, result::kScanContradictory);
    EXPECT_THAT(outcome.what, HasSubstr(what));
  }

  void ExpectSame(const Bytes& las, const LazOptions& options) {
    const Outcome opened = Open(CompressLas(las, options).bytes);
    ASSERT_TRUE(opened.Ok()) << opened.what;
    oocpctest::WriteFile(folder_ / "scan.las", las);
    std::unique_ptr<LasScan> plain;
    ASSERT_TRUE(LasScan::Open(folder_ / "scan.las", plain).Ok());
    EXPECT_TRUE(RecordsOf(*plain) == RecordsOf(*scan_)) << "records differ";
    EXPECT_EQ(Copy(plain->GetLeadingBytes()), Copy(scan_->GetLeadingBytes()));
    EXPECT_EQ(Copy(plain->GetTrailingBytes()), Copy(scan_->GetTrailingBytes()));
  }

  TemporaryFolder folder_;
  std::unique_ptr<LazScan> scan_;
};

class LazFormat : public LazScanTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(LazFormat, GivesBackRandomPoints) {
  LasBuilder builder;
  builder.format = GetParam();
  builder.pointCount = 700;
  ExpectSame(builder.Build(), {{300}});
}

TEST_P(LazFormat, GivesBackSmoothPointsWithExtraBytes) {
  ExpectSame(SmoothScan(GetParam(), 3000, 5), {{1000}});
}

TEST_P(LazFormat, GivesBackChunksOfAnySize) {
  ExpectSame(SmoothScan(GetParam(), 2000), {{1, 500, 2, 300, 10000}, true});
}

TEST_P(LazFormat, GivesBackPointsThatAreAllTheSame) {
  LasBuilder builder;
  builder.format = GetParam();
  builder.pointCount = 500;
  builder.extraBytes = 2;
  Bytes file = builder.Build();
  const auto at = file.begin() + LasBuilder::Get<std::uint32_t>(file, 96);
  const auto stride = static_cast<std::ptrdiff_t>(builder.PointBytes());
  for (int i = 1; i < 500; ++i) std::copy_n(at, stride, at + i * stride);
  ExpectSame(file, {{200}});
  if (GetParam() < 6) return;
  // No layers but the first one, which is always there.
  const Bytes laz = oocpctest::ReadFile(folder_ / "scan.laz");
  const std::size_t sizesAt = scan_->GetChunks()[0].offset + builder.PointBytes() + 4;
  EXPECT_NE(LasBuilder::Get<std::uint32_t>(laz, sizesAt), 0u);
  for (std::size_t i = 1; i < scan_->GetLazLayout().CountLayers(); ++i) {
    EXPECT_EQ(LasBuilder::Get<std::uint32_t>(laz, sizesAt + 4 * i), 0u) << i;
  }
}

TEST_P(LazFormat, GivesBackBothVersionsOfLayers) {
  if (GetParam() < 6) return;
  for (const unsigned version : {3u, 4u}) {
    ExpectSame(SmoothScan(GetParam(), 1500, 2), {{600}, false, version});
    EXPECT_EQ(scan_->GetLazLayout().version, version);
  }
}

TEST_P(LazFormat, TellsAChunkThatWasCut) {
  LazFile file = CompressLas(SmoothScan(GetParam(), 900), {{300}});
  // A chunk whose last bytes are those of another.
  const auto& chunk = file.chunks[1];
  const auto end = file.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.offset + chunk.bytes);
  std::fill(end - static_cast<std::ptrdiff_t>(chunk.bytes) / 2, end, std::uint8_t{0x77});
  ExpectDamagedChunk(file.bytes, "chunk 2 of 3 is damaged (points 301 to 600)");
}

INSTANTIATE_TEST_SUITE_P(Formats, LazFormat, ::testing::Range(0u, 11u));

TEST_F(LazScanTest, ReadsScansWithoutPoints) {
  LasBuilder builder;
  builder.pointCount = 0;
  builder.extendedRecords.push_back({"x", 1, Bytes(9)});
  ExpectSame(builder.Build(), {});
}

TEST_F(LazScanTest, ReadsEveryFormatAndVersionOfTheReferenceFiles) {
  const auto folder = oocpctest::TestDataFolder() / "laz";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no " << folder;
  int pairs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".laz") continue;
    SCOPED_TRACE(entry.path().string());
    std::filesystem::path las = entry.path();
    las.replace_extension(".las");
    std::unique_ptr<LazScan> scan;
    const Outcome opened = LazScan::Open(entry.path(), scan);
    ASSERT_TRUE(opened.Ok()) << opened.what;
    std::unique_ptr<LasScan> plain;
    ASSERT_TRUE(LasScan::Open(las, plain).Ok());
    EXPECT_TRUE(RecordsOf(*plain) == RecordsOf(*scan)) << "records differ";
    ++pairs;
  }
  EXPECT_EQ(pairs, 16);
}

TEST_F(LazScanTest, AgreesWithAnIndependentReader) {
  if (!oocpctest::HasNodeReaders()) GTEST_SKIP() << "laz-perf for node is not installed";
  const auto scans = oocpctest::TestLazScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& path : scans) {
    SCOPED_TRACE(path.string());
    std::unique_ptr<LazScan> scan;
    const Outcome opened = LazScan::Open(path, scan);
    ASSERT_TRUE(opened.Ok()) << opened.what;
    const unsigned format = scan->GetHeader().pointFormat;
    // The other reader knows no wave packets, no version 4, and no file without points.
    if (format == 4 || format == 5 || format > 8 || scan->GetLazLayout().version == 4) continue;
    if (scan->GetPointCount() == 0) continue;
    ASSERT_TRUE(oocpctest::RunNodeReader("read_laz.js", {path, folder_ / "records"}));
    EXPECT_TRUE(oocpctest::ReadFile(folder_ / "records") == RecordsOf(*scan)) << "records differ";
  }
}

TEST_F(LazScanTest, IsReadByAnIndependentReader) {
  if (!oocpctest::HasNodeReaders()) GTEST_SKIP() << "laz-perf for node is not installed";
  for (const unsigned format : {0u, 1u, 2u, 3u, 6u, 7u, 8u}) {
    SCOPED_TRACE(format);
    const Bytes las = SmoothScan(format, 2500, 3);
    oocpctest::WriteFile(folder_ / "scan.laz", CompressLas(las, {{1000}}).bytes);
    ASSERT_TRUE(
        oocpctest::RunNodeReader("read_laz.js", {folder_ / "scan.laz", folder_ / "records"}));
    const auto begin = las.begin() + LasBuilder::Get<std::uint32_t>(las, 96);
    const Bytes read = oocpctest::ReadFile(folder_ / "records");
    ASSERT_EQ(read.size(), 2500 * (LasBuilder::FormatBytes(format) + 3));
    EXPECT_TRUE(std::equal(read.begin(), read.end(), begin)) << "records differ";
  }
}

TEST_F(LazScanTest, LeavesOutLayersThatAreNotWanted) {
  const Bytes las = SmoothScan(8, 1000, 2);
  ASSERT_TRUE(Open(CompressLas(las, {{400}}).bytes).Ok());
  const Bytes all = RecordsOf(*scan_);
  const Bytes some = RecordsOf(*scan_, laz::kPartZ | laz::kPartNir);
  ASSERT_EQ(some.size(), all.size());
  const std::size_t stride = scan_->GetRecordBytes();
  for (std::size_t i = 0; i < 1000; ++i) {
    const std::size_t first = i - i % 400;
    const std::uint8_t* record = some.data() + i * stride;
    ASSERT_EQ(std::memcmp(record, all.data() + i * stride, 12), 0) << i;
    ASSERT_EQ(std::memcmp(record + 36, all.data() + i * stride + 36, 2), 0) << i;
    // Intensity and extra bytes are those of the chunk's first point.
    ASSERT_EQ(std::memcmp(record + 12, all.data() + first * stride + 12, 2), 0) << i;
    ASSERT_EQ(std::memcmp(record + 38, all.data() + first * stride + 38, 2), 0) << i;
  }
}

TEST_F(LazScanTest, PreparesInMemoryAndInAFile) {
  const Bytes las = SmoothScan(3, 2000, 1);
  for (const std::uint64_t memory : {std::uint64_t{1} << 30, std::uint64_t{100}}) {
    ASSERT_TRUE(Open(CompressLas(las, {{150}}).bytes).Ok());
    ScanWorkspace workspace{memory, folder_.Path(), {}};
    std::uint64_t told = 0;
    workspace.progress = [&](std::uint64_t points) {
      told = std::max(told, points);
      return true;
    };
    ASSERT_TRUE(scan_->Prepare(workspace).Ok());
    EXPECT_EQ(told, 2000u);
    const std::uint64_t bytes = 2000 * scan_->GetRecordBytes();
    EXPECT_EQ(workspace.memoryBytes, memory >= bytes ? memory - bytes : memory);
    const Bytes records = RecordsOf(*scan_);
    EXPECT_TRUE(RecordsOf(static_cast<const ScanFile&>(*scan_)) == records);
    EXPECT_TRUE(RecordsOf(static_cast<const ScanFile&>(*scan_)) == records) << "read again";
    std::vector<std::int32_t> xyz(3 * 10);
    scan_->ReadPositions(1990, 10, xyz.data());
    EXPECT_EQ(std::memcmp(xyz.data(), records.data() + 1990 * scan_->GetRecordBytes(), 12), 0);
    scan_->Release();
    // Beside the scan nothing is left in the folder.
    const std::filesystem::directory_iterator left(folder_.Path());
    EXPECT_EQ(std::distance(begin(left), end(left)), 1);
  }
}

TEST_F(LazScanTest, StopsWhenAskedTo) {
  ASSERT_TRUE(Open(CompressLas(SmoothScan(0, 500), {{50}}).bytes).Ok());
  ScanWorkspace workspace{0, folder_.Path(), [](std::uint64_t) { return false; }};
  EXPECT_EQ(scan_->Prepare(workspace).code, result::kStopped);
}

TEST_F(LazScanTest, TellsThatThereIsNoPlaceForTheRecords) {
  ASSERT_TRUE(Open(CompressLas(SmoothScan(0, 500), {{50}}).bytes).Ok());
  ScanWorkspace workspace{0, folder_ / "missing", {}};
  EXPECT_EQ(scan_->Prepare(workspace).code, result::kIoError);
}

TEST_F(LazScanTest, FindsATableAtTheEndOfTheFile) {
  LasBuilder builder;
  builder.pointCount = 500;
  LazOptions options{{200}};
  options.table = LazOptions::kAtTheEnd;
  ExpectSame(builder.Build(), options);
}

TEST_F(LazScanTest, WalksTheChunksWhereTheTableIsMissing) {
  for (const unsigned format : {1u, 7u}) {
    SCOPED_TRACE(format);
    LasBuilder builder;
    builder.format = format;
    builder.pointCount = 500;
    LazOptions options{{200}};
    options.table = LazOptions::kMissing;
    ExpectSame(builder.Build(), options);
    EXPECT_EQ(scan_->GetChunks().size(), 3u);
  }
}

TEST_F(LazScanTest, WalksLayeredChunksOfAnySize) {
  LasBuilder builder;
  builder.format = 6;
  builder.pointCount = 500;
  LazOptions options{{200, 7, 900}, true};
  options.table = LazOptions::kMissing;
  ExpectSame(builder.Build(), options);
}

TEST_F(LazScanTest, RefusesPointwiseChunksOfAnySizeWithoutATable) {
  LasBuilder builder;
  builder.pointCount = 500;
  LazOptions options{{200, 7, 900}, true};
  options.table = LazOptions::kMissing;
  ExpectRefused(CompressLas(builder.Build(), options).bytes, result::kScanTruncated,
                "the chunk table is missing, and chunks of varying size");
}

TEST_F(LazScanTest, SaysHowManyPointsOfACutFileAreThere) {
  for (const unsigned format : {0u, 6u}) {
    LasBuilder builder;
    builder.format = format;
    builder.pointCount = 500;
    LazFile file = CompressLas(builder.Build(), {{200}});
    file.bytes.resize(file.chunks[2].offset + 30);
    ExpectRefused(file.bytes, result::kScanTruncated,
                  "of the 500 points only the first 400 could be found");
  }
}

TEST_F(LazScanTest, RefusesAFileThatEndsWhereItsPointsBegin) {
  LazFile file = CompressLas(SmoothScan(0, 50));
  LasBuilder::Put(file.bytes, 243, std::uint32_t{0});
  file.bytes.resize(file.pointsOffset + 4);
  ExpectRefused(file.bytes, result::kScanTruncated, "the file ends where its points begin");
}

TEST_F(LazScanTest, RefusesTablesThatContradictTheFile) {
  const Bytes las = SmoothScan(3, 900);
  const LazFile sound = CompressLas(las, {{300}});
  LazFile file = sound;
  LasBuilder::Put(file.bytes, file.tableAt, std::uint32_t{1});
  ExpectRefused(file.bytes, result::kScanContradictory, "version 1 of the chunk table");
  file = sound;
  LasBuilder::Put(file.bytes, file.tableAt + 4, std::uint32_t{0xFFFFFFFF});
  ExpectRefused(file.bytes, result::kScanContradictory, "4294967295 chunks, more than");
  file = sound;
  LasBuilder::Put(file.bytes, file.tableAt + 4, std::uint32_t{0});
  ExpectRefused(file.bytes, result::kScanContradictory,
                "the chunks hold 0 points, but the header states 900");
  file = sound;
  LasBuilder::Put(file.bytes, file.tableAt + 4, std::uint32_t{2});
  ExpectRefused(file.bytes, result::kScanContradictory,
                "the chunks hold 600 points, but the header states 900");
  file = sound;
  std::fill_n(file.bytes.begin() + static_cast<std::ptrdiff_t>(file.tableAt) + 8, 4,
              std::uint8_t{0xFE});
  ExpectRefused(file.bytes, result::kScanContradictory, "would lie outside the points");
}

TEST_F(LazScanTest, RefusesMorePointsThanAChunkCanHold) {
  LazFile file = CompressLas(SmoothScan(0, 50), {{0x7FFFFFFF}});
  LasBuilder::Put(file.bytes, 107, std::uint32_t{2000000000});
  LasBuilder::Put(file.bytes, 247, std::uint64_t{2000000000});
  ExpectRefused(file.bytes, result::kScanContradictory, "states a chunk of 2000000000 points in ");
  LasBuilder::Put(file.bytes, 247, ~std::uint64_t{0});
  ExpectRefused(file.bytes, result::kScanContradictory, "beyond all files");
}

TEST_F(LazScanTest, TellsLayersThatDoNotFitTheirChunk) {
  const LazFile sound = CompressLas(SmoothScan(6, 900), {{300}});
  const std::size_t counts = sound.chunks[1].offset + 30;
  LazFile file = sound;
  LasBuilder::Put(file.bytes, counts, std::uint32_t{301});
  ExpectDamagedChunk(file.bytes, "chunk 2 of 3 is damaged");
  file = sound;
  LasBuilder::Put(file.bytes, counts + 4, std::uint32_t{0xFFFFFFFF});
  ExpectDamagedChunk(file.bytes, "chunk 2 of 3 is damaged");
  file = sound;
  LasBuilder::Put(file.bytes, counts + 8,
                  LasBuilder::Get<std::uint32_t>(file.bytes, counts + 8) - 1);
  ExpectDamagedChunk(file.bytes, "chunk 2 of 3 is damaged");
}

/// Where the payload of the record that tells the compression begins.
std::size_t PayloadAt(const LazFile& file) {
  const std::string user = laz::kLazUserId;
  const auto found = std::search(file.bytes.begin(), file.bytes.end(), user.begin(), user.end());
  return static_cast<std::size_t>(found - file.bytes.begin()) - 2 + 54;
}

TEST_F(LazScanTest, RefusesOtherCompressions) {
  const LazFile sound = CompressLas(SmoothScan(3, 60));
  const std::size_t at = PayloadAt(sound);
  const auto with = [&](std::size_t offset, std::uint16_t value) {
    LazFile file = sound;
    LasBuilder::Put(file.bytes, at + offset, value);
    return file.bytes;
  };
  ExpectRefused(with(0, 0), result::kScanUnsupported, "LAZ compressor 0 is not known");
  ExpectRefused(with(0, 4), result::kScanUnsupported, "LAZ compressor 4 is not known");
  ExpectRefused(with(2, 1), result::kScanUnsupported, "LAZ entropy coder 1 is not known");
  ExpectRefused(with(34, 2), result::kScanUnsupported, "LAZ item type 2 is not known");
  ExpectRefused(with(38, 1), result::kScanUnsupported,
                "version 1 of the LAZ item POINT10 cannot be read");
  ExpectRefused(with(44, 3), result::kScanUnsupported,
                "version 3 of the LAZ item GPSTIME11 cannot be read");
  ExpectRefused(with(0, 3), result::kScanContradictory, "POINT10 does not go with the compressor");
  ExpectRefused(with(42, 9), result::kScanContradictory, "GPSTIME11 states 9 bytes");
  ExpectRefused(with(32, 9), result::kScanContradictory, "is cut short");
  ExpectRefused(with(32, 2), result::kScanContradictory,
                "describes point records of 28 bytes, but the header states 34");
  Bytes zero = sound.bytes;
  LasBuilder::Put(zero, at + 12, std::uint32_t{0});
  ExpectRefused(zero, result::kScanContradictory, "chunks of no points");
  Bytes both = sound.bytes;
  both[104] |= 0x40u;
  ExpectRefused(both, result::kScanUnsupported, "a scheme that is not known");
  Bytes other = sound.bytes;
  other[at - 54 + 2] = 'L';
  ExpectRefused(other, result::kScanContradictory, "no record tells how");
  Bytes format = sound.bytes;
  format[104] = 0x80u | 1u;
  ExpectRefused(format, result::kScanContradictory, "does not describe points of format 1");
}

TEST_F(LazScanTest, RefusesItemsInAnotherOrderOrOfMixedVersions) {
  LazFile file = CompressLas(SmoothScan(3, 60));
  const std::size_t at = PayloadAt(file) + 34;
  std::swap_ranges(file.bytes.begin() + static_cast<std::ptrdiff_t>(at) + 6,
                   file.bytes.begin() + static_cast<std::ptrdiff_t>(at) + 12,
                   file.bytes.begin() + static_cast<std::ptrdiff_t>(at) + 12);
  ExpectRefused(file.bytes, result::kScanContradictory, "in no order of a point record");
  file = CompressLas(SmoothScan(7, 60));
  LasBuilder::Put(file.bytes, PayloadAt(file) + 44, std::uint16_t{4});
  ExpectRefused(file.bytes, result::kScanUnsupported, "different versions");
}

TEST_F(LazScanTest, ReadsPointsThatAreNotInChunks) {
  // The oldest compressor: one run of points, with neither a table nor its place.
  LasBuilder builder;
  builder.format = 1;
  builder.pointCount = 300;
  const Bytes las = builder.Build();
  LazFile file = CompressLas(las, {{300}});
  file.bytes.resize(file.tableAt);
  file.bytes.erase(file.bytes.begin() + static_cast<std::ptrdiff_t>(file.pointsOffset),
                   file.bytes.begin() + static_cast<std::ptrdiff_t>(file.pointsOffset) + 8);
  LasBuilder::Put(file.bytes, PayloadAt(file), std::uint16_t{1});
  ASSERT_TRUE(Open(file.bytes).Ok());
  const Bytes records = RecordsOf(*scan_);
  EXPECT_TRUE(std::equal(records.begin(), records.end(),
                         las.begin() + LasBuilder::Get<std::uint32_t>(las, 96)));
}

TEST_F(LazScanTest, KeepsBytesBetweenThePointsAndTheTable) {
  const Bytes las = SmoothScan(0, 100);
  LazFile file = CompressLas(las);
  const Bytes between{1, 2, 3, 4, 5};
  file.bytes.insert(file.bytes.begin() + static_cast<std::ptrdiff_t>(file.tableAt), between.begin(),
                    between.end());
  LasBuilder::Put(file.bytes, file.pointsOffset, std::uint64_t{file.tableAt + 5});
  LasBuilder::Put(file.bytes, 235, LasBuilder::Get<std::uint64_t>(file.bytes, 235) + 5);
  ASSERT_TRUE(Open(file.bytes).Ok());
  const Bytes trailing = Copy(scan_->GetTrailingBytes());
  EXPECT_TRUE(std::equal(between.begin(), between.end(), trailing.begin()));
  EXPECT_EQ(scan_->GetHeader().records.back().userId, "someone else");
}

}  // namespace
}  // namespace tarnhost
