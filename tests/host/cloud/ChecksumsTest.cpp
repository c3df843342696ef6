// Checksums: as documented, whatever the order, and the same for a scan and for its cloud.
#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "host/build/Append.h"
#include "host/cloud/Checksums.h"
#include "host/cloud/Export.h"
#include "host/common/Hash64.h"
#include "tests/support/LazFiles.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/ScanSums.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using Bytes = std::vector<std::uint8_t>;

std::uint64_t HashOf(std::string_view text) {
  return Hash64({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

TEST(Hash64, GivesThePublishedValues) {
  EXPECT_EQ(HashOf(""), 0xEF46DB3751D8E999u);
  EXPECT_EQ(HashOf("a"), 0xD24EC4F1A98C6E5Bu);
  EXPECT_EQ(HashOf("abc"), 0x44BC2CF5AD770999u);
  EXPECT_EQ(HashOf("Nobody inspects the spammish repetition"), 0xFBCEA83C8A378BF1u);
}

using oocpctest::SumsOf;

Checksums SumsOf(const ScanFolder& folder, std::uint64_t iteration = 0) {
  Checksums sums;
  EXPECT_TRUE(IsOk(SumCloud(*folder.Open(), iteration, {}, sums)));
  return sums;
}

TEST(Checksums, AreSumsOfTheHashesOfStoredValues) {
  const ScanFolder folder;
  LasBuilder builder;
  builder.format = 0;
  builder.pointCount = 3;
  const Bytes file = builder.Build();
  const Checksums sums = SumsOf(folder.Add("scan.las", file));
  std::uint64_t positions = 0;
  std::uint64_t intensities = 0;
  std::uint64_t sources = 0;
  const std::size_t begin = LasBuilder::Get<std::uint32_t>(file, 96);
  for (std::size_t i = 0; i < 3; ++i) {
    const std::uint8_t* const record = file.data() + begin + i * 20;
    positions += Hash64({record, 12});
    intensities += Hash64({record + 12, 2});
    sources += Hash64({record + 18, 2});
  }
  EXPECT_EQ(sums.pointCount, 3u);
  EXPECT_EQ(sums.dimensions.front(),
            (std::pair<std::string, std::uint64_t>("DEF_POSITION", positions)));
  EXPECT_EQ(sums.dimensions[1], (std::pair<std::string, std::uint64_t>("intensity", intensities)));
  EXPECT_EQ(sums.dimensions.back(),
            (std::pair<std::string, std::uint64_t>("point_source_id", sources)));
}

TEST(Checksums, AreThoseOfTheValuesInTheOrderOfTheDimensionsForWholePoints) {
  const ScanFolder folder;
  LasBuilder builder;
  builder.format = 0;
  builder.pointCount = 1;
  const Bytes file = builder.Build();
  const std::uint8_t* const record = file.data() + LasBuilder::Get<std::uint32_t>(file, 96);
  Bytes values(record, record + 14);
  const auto bits = [&](std::size_t at, unsigned shift, unsigned count) {
    values.push_back(static_cast<std::uint8_t>(record[at] >> shift & ((1u << count) - 1)));
  };
  bits(14, 0, 3);
  bits(14, 3, 3);
  bits(14, 6, 1);
  bits(14, 7, 1);
  bits(15, 0, 5);
  bits(15, 5, 1);
  bits(15, 6, 1);
  bits(15, 7, 1);
  values.insert(values.end(), record + 16, record + 20);
  EXPECT_EQ(SumsOf(folder.Add("scan.las", file)).records, Hash64(values));
}

TEST(Checksums, AreTheSameForAScanItsCloudAndItsExports) {
  for (const unsigned format : {1u, 5u, 7u, 10u}) {
    LasBuilder builder;
    builder.format = format;
    builder.pointCount = 40000;
    builder.extraBytes = 11;
    builder.Describe({LasBuilder::Descriptor(10, "Height")});
    const Bytes file = builder.Build();
    const ScanFolder folder;
    const auto las = folder.Add("scan.las", file);
    const auto laz = folder.Add("scan.laz", oocpctest::CompressLas(file, {{7000}}).bytes);
    const Checksums expected = SumsOf(las);
    EXPECT_TRUE(SumsOf(laz) == expected);
    folder.Import({laz});
    EXPECT_TRUE(SumsOf(folder) == expected);
    for (const char* name : {"out.las", "out.laz"}) {
      std::uint64_t count = 0;
      ASSERT_TRUE(IsOk(ExportLas(*folder.Open(), 0, folder / name, {}, count)));
      EXPECT_TRUE(SumsOf(folder / name) == expected) << name;
    }
  }
}

TEST(Checksums, LeaveOutWhatAnImportAdds) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(500));
  ImportOptions options = folder.Options({scan});
  options.keepOrder = true;
  options.nameSources = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(options, report)));
  EXPECT_TRUE(SumsOf(folder) == SumsOf(scan));
}

TEST(Checksums, ChangeWithASingleBit) {
  const ScanFolder folder;
  Bytes file = ScanOf(500);
  const Checksums before = SumsOf(folder.Add("a.las", file));
  file.back() ^= 1;  // blue of the last point
  const Checksums after = SumsOf(folder.Add("b.las", file));
  for (std::size_t i = 0; i < before.dimensions.size(); ++i) {
    const bool isColor = before.dimensions[i].first == "DEF_COLOR";
    EXPECT_EQ(before.dimensions[i] != after.dimensions[i], isColor) << before.dimensions[i].first;
  }
  EXPECT_NE(before.records, after.records);
}

TEST(Checksums, OfWholePointsTellValuesThatChangedPlaces) {
  const ScanFolder folder;
  Bytes file = ScanOf(2);
  const Checksums before = SumsOf(folder.Add("a.las", file));
  const std::size_t begin = LasBuilder::Get<std::uint32_t>(file, 96);
  std::swap_ranges(file.begin() + static_cast<std::ptrdiff_t>(begin + 12),
                   file.begin() + static_cast<std::ptrdiff_t>(begin + 14),
                   file.begin() + static_cast<std::ptrdiff_t>(begin + 34 + 12));
  const Checksums after = SumsOf(folder.Add("b.las", file));
  EXPECT_EQ(before.dimensions, after.dimensions);
  EXPECT_NE(before.records, after.records);
}

TEST(Checksums, AreThoseOfAnIteration) {
  const ScanFolder folder;
  const auto first = folder.Add("a.las", ScanOf(30000));
  folder.Import({first});
  ImportOptions options = folder.Options({folder.Add("b.las", ScanOf(20000))});
  options.timePoint = 1000;
  ImportReport report;
  ASSERT_TRUE(IsOk(AppendScans(options, report)));
  EXPECT_TRUE(SumsOf(folder, 0) == SumsOf(first));
  const Checksums all = SumsOf(folder, 1);
  EXPECT_EQ(all.pointCount, 50000u);
  EXPECT_EQ(all.records, SumsOf(first).records + SumsOf(folder / "b.las").records);
}

TEST(Checksums, OfNoPointsAreZero) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(0));
  folder.Import({scan});
  EXPECT_TRUE(SumsOf(folder) == SumsOf(scan));
  EXPECT_EQ(SumsOf(scan).records, 0u);
}

TEST(Checksums, TellAnAlteredColumnAndStopWhenAskedTo) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(100));
  Checksums sums;
  const auto stop = [](const ProgressReport&) { return false; };
  EXPECT_EQ(SumCloud(*folder.Open(), 0, stop, sums).code, result::kStopped);
  EXPECT_EQ(SumCloud(*folder.Open(), 1, {}, sums).code, result::kIndexOutOfRange);
  auto bytes = oocpctest::ReadFile(folder.Repository() / "DEF_COLUMN_1");
  bytes[0] ^= 1;
  oocpctest::WriteFile(folder.Repository() / "DEF_COLUMN_1", bytes);
  EXPECT_EQ(SumCloud(*folder.Open(), 0, {}, sums).code, result::kChecksumMismatch);
}

}  // namespace
}  // namespace tarnhost
