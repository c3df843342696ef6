// The order and the box of a block, and points of several scans seen as one set.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <numeric>

#include "host/build/BlockBuilder.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;

Outcome JoinFiles(const std::vector<std::filesystem::path>& files, PointSet& set) {
  std::vector<std::unique_ptr<ScanFile>> scans;
  for (const auto& file : files) {
    scans.emplace_back();
    if (Outcome outcome = OpenScan(file, scans.back()); !outcome.Ok()) return outcome;
  }
  return PointSet::Join(std::move(scans), set);
}

LasBuilder BuilderOf(std::uint32_t count, unsigned seed = 1) {
  LasBuilder builder;
  builder.format = 1;
  builder.pointCount = count;
  builder.seed = seed;
  return builder;
}

std::vector<std::uint64_t> Numbers(std::uint64_t count) {
  std::vector<std::uint64_t> numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0u);
  return numbers;
}

std::vector<std::uint8_t> RecordsOf(const PointSet& set) {
  std::vector<std::uint8_t> records(set.GetPointCount() * set.GetRecordBytes());
  set.ReadRecords(0, set.GetPointCount(), records.data());
  return records;
}

RecordView ViewOf(const std::vector<std::uint8_t>& records, const PointSet& set) {
  return {records.data(), set.GetRecordBytes()};
}

std::vector<std::int32_t> PositionsOf(const BuiltBlock& block, std::size_t count) {
  std::vector<std::uint8_t> bytes;
  const oocpc::EncodedBlock& positions = block.columns.at(0);
  EXPECT_EQ(oocpc::DecodeBlock(positions.entry, positions.bytes, bytes), oocpc::result::kOk);
  std::vector<std::int32_t> xyz(3 * count);
  EXPECT_EQ(bytes.size(), 4 * xyz.size());
  std::memcpy(xyz.data(), bytes.data(), std::min(bytes.size(), 4 * xyz.size()));
  return xyz;
}

TEST(BlockBuilder, PutsPointsIntoTheOrderOfTheirTimesAndNoNumbersLast) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> times{5, nan, 2, 5, -1, nan, 2};
  auto file = BuilderOf(7).Build();
  const std::size_t at = LasBuilder::Get<std::uint32_t>(file, 96);
  for (std::int32_t i = 0; i < 7; ++i) {
    LasBuilder::Put(file, at + 28 * static_cast<std::size_t>(i), i);
    LasBuilder::Put(file, at + 28 * static_cast<std::size_t>(i) + 20,
                    times[static_cast<std::size_t>(i)]);
  }
  const ScanFolder folder;
  PointSet set;
  ASSERT_TRUE(IsOk(JoinFiles({folder.Add("a.las", file)}, set)));
  const std::vector<std::uint8_t> records = RecordsOf(set);
  BuiltBlock block;
  BlockBuilder(set, {}).Build(ViewOf(records, set), Numbers(7), std::vector<std::uint32_t>{7},
                              block);
  const auto xyz = PositionsOf(block, 7);
  std::vector<std::int32_t> order;
  for (std::size_t i = 0; i < 7; ++i) order.push_back(xyz[3 * i]);
  EXPECT_EQ(order, (std::vector<std::int32_t>{4, 2, 6, 0, 3, 1, 5}));
}

TEST(BlockBuilder, OrdersEachPartForItself) {
  const std::vector<double> times{5, 4, 3, 9, 1, 2, 0};
  auto file = BuilderOf(7).Build();
  const std::size_t at = LasBuilder::Get<std::uint32_t>(file, 96);
  for (std::int32_t i = 0; i < 7; ++i) {
    LasBuilder::Put(file, at + 28 * static_cast<std::size_t>(i), i);
    LasBuilder::Put(file, at + 28 * static_cast<std::size_t>(i) + 20,
                    times[static_cast<std::size_t>(i)]);
  }
  const ScanFolder folder;
  PointSet set;
  ASSERT_TRUE(IsOk(JoinFiles({folder.Add("a.las", file)}, set)));
  const std::vector<std::uint8_t> records = RecordsOf(set);
  BuiltBlock block;
  BlockBuilder(set, {}).Build(ViewOf(records, set), Numbers(7),
                              std::vector<std::uint32_t>{3, 0, 2, 2}, block);
  const auto xyz = PositionsOf(block, 7);
  std::vector<std::int32_t> order;
  for (std::size_t i = 0; i < 7; ++i) order.push_back(xyz[3 * i]);
  EXPECT_EQ(order, (std::vector<std::int32_t>{2, 1, 0, 4, 3, 6, 5}));
}

TEST(BlockBuilder, BoundsItsPointsTightlyInTheLocalFrame) {
  auto file = BuilderOf(3).Build();
  oocpctest::PlacePoints(file, {{100, -200, 3000}, {-100, 50, 4000}, {0, 0, 3500}});
  const ScanFolder folder;
  PointSet set;
  ASSERT_TRUE(IsOk(JoinFiles({folder.Add("a.las", file)}, set)));
  const std::vector<std::uint8_t> records = RecordsOf(set);
  BuiltBlock block;
  BlockBuilder(set, {1000, -2000, 0})
      .Build(ViewOf(records, set), Numbers(3), std::vector<std::uint32_t>{3}, block);
  // Scale 0.01, 0.02, 0.001; offset 1000, -2000, 3.
  EXPECT_EQ(block.box.min, (oocpc::Vector3d{-100 * 0.01 + 1000 - 1000, -200 * 0.02 - 2000 + 2000,
                                            3000 * 0.001 + 3 - 0}));
  EXPECT_EQ(block.box.max, (oocpc::Vector3d{100 * 0.01 + 1000 - 1000, 50 * 0.02 - 2000 + 2000,
                                            4000 * 0.001 + 3 - 0}));
}

TEST(BlockBuilder, MakesABlockForThePositionsAndEachDimension) {
  const ScanFolder folder;
  PointSet set;
  ASSERT_TRUE(IsOk(JoinFiles({folder.Add("a.las", BuilderOf(20).Build())}, set)));
  const std::vector<std::uint8_t> records = RecordsOf(set);
  BuiltBlock block;
  BlockBuilder(set, {}).Build(ViewOf(records, set), Numbers(20), std::vector<std::uint32_t>{20},
                              block);
  ASSERT_EQ(block.columns.size(), set.GetDimensions().size() + 1);
  for (const oocpc::EncodedBlock& column : block.columns) EXPECT_EQ(column.entry.valueCount, 20u);
}

TEST(BlockBuilder, KeepsWhatFiltersAskForMostLight) {
  // Next to no entropy, and yet values that take all bits in most runs of 128.
  constexpr std::uint32_t kPoints = 4096;
  auto file = BuilderOf(kPoints).Build();
  const std::size_t begin = LasBuilder::Get<std::uint32_t>(file, 96);
  for (std::uint32_t i = 0; i < kPoints; ++i) {
    const auto value = static_cast<std::uint8_t>(i % 64 != 0 ? 9 : i % 128 == 0 ? 0 : 0xFF);
    for (const std::size_t at : {12u, 13u, 14u, 15u, 17u, 18u, 19u}) {
      LasBuilder::Put(file, begin + std::size_t{28} * i + at, value);
    }
  }
  const ScanFolder folder;
  PointSet set;
  ASSERT_TRUE(IsOk(JoinFiles({folder.Add("a.las", file)}, set)));
  const std::vector<std::uint8_t> records = RecordsOf(set);
  BuiltBlock block;
  BlockBuilder(set, {}).Build(ViewOf(records, set), Numbers(kPoints),
                              std::vector<std::uint32_t>{kPoints}, block);
  std::map<std::string, oocpc::BlockEncoding> encodings;
  for (std::size_t i = 0; i < set.GetDimensions().size(); ++i) {
    encodings[set.GetDimensions()[i].name] = block.columns.at(i + 1).entry.encoding;
  }
  using oocpc::BlockEncoding;
  for (const char* name : {"classification", "intensity", "return_number", "number_of_returns"}) {
    EXPECT_EQ(encodings.at(name), BlockEncoding::kRuns) << name;
  }
  EXPECT_EQ(encodings.at("user_data"), BlockEncoding::kResiduals);
  EXPECT_EQ(encodings.at("point_source_id"), BlockEncoding::kResiduals);
}

TEST(PointSet, NumbersThePointsOfAllScansThrough) {
  const ScanFolder folder;
  const auto a = BuilderOf(4, 1).Build();
  const auto none = BuilderOf(0).Build();
  const auto b = BuilderOf(3, 2).Build();
  PointSet set;
  ASSERT_TRUE(IsOk(
      JoinFiles({folder.Add("a.las", a), folder.Add("n.las", none), folder.Add("b.las", b)}, set)));
  ASSERT_EQ(set.GetPointCount(), 7u);
  std::vector<std::int32_t> expected;
  for (const auto* file : {&a, &b}) {
    const std::size_t at = LasBuilder::Get<std::uint32_t>(*file, 96);
    const std::size_t count = file == &a ? 4 : 3;
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        expected.push_back(LasBuilder::Get<std::int32_t>(*file, at + 28 * i + 4 * axis));
      }
    }
  }
  std::vector<std::int32_t> read(21);
  set.ReadPositions(0, 7, read.data());
  EXPECT_EQ(read, expected);

  const std::vector<std::uint64_t> points{6, 0, 4, 3};
  const std::vector<std::uint8_t> records = RecordsOf(set);
  std::vector<std::uint8_t> gathered(4 * set.GetRecordBytes());
  RecordView mapped;
  ASSERT_TRUE(set.GetMappedRecords(mapped));
  mapped.Gather(points, gathered.data());
  std::vector<std::uint8_t> intensities(8);
  set.ExtractDimension(0, gathered.data(), points.size(), intensities.data());
  ASSERT_EQ(set.GetDimensions()[0].name, "intensity");
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_EQ(LasBuilder::Get<std::int32_t>(records, 28 * points[i] + 4 * axis),
                expected[3 * points[i] + axis]);
    }
    const auto& file = points[i] < 4 ? a : b;
    const std::size_t record =
        LasBuilder::Get<std::uint32_t>(file, 96) + 28 * (points[i] < 4 ? points[i] : points[i] - 4);
    EXPECT_EQ(LasBuilder::Get<std::uint16_t>(intensities, 2 * i),
              LasBuilder::Get<std::uint16_t>(file, record + 12));
  }
}

struct Difference {
  const char* what;
  void (*change)(LasBuilder&);
};

class PointSetRefusal : public ::testing::TestWithParam<Difference> {};

TEST_P(PointSetRefusal, NamesTheScanThatIsLaidOutInAnotherWay) {
  const ScanFolder folder;
  LasBuilder other = BuilderOf(2);
  GetParam().change(other);
  PointSet set;
  const Outcome outcome = JoinFiles(
      {folder.Add("a.las", BuilderOf(2).Build()), folder.Add("odd.las", other.Build())}, set);
  EXPECT_EQ(outcome.code, oocpc::result::kScansDiffer);
  EXPECT_EQ(outcome.where, (folder / "odd.las").string());
  EXPECT_NE(outcome.what.find("a.las"), std::string::npos) << outcome.what;
}

INSTANTIATE_TEST_SUITE_P(
    Differences, PointSetRefusal,
    ::testing::Values(Difference{"Scale", [](LasBuilder& las) { las.scale[0] = 0.5; }},
                      Difference{"Offset", [](LasBuilder& las) { las.offset[2] = 4; }},
                      Difference{"Format", [](LasBuilder& las) { las.format = 0; }},
                      Difference{"ExtraBytes", [](LasBuilder& las) { las.extraBytes = 1; }}),
    [](const auto& info) { return std::string(info.param.what); });

TEST(PointSet, JoinsScansWhoseRecordsDiffer) {
  const ScanFolder folder;
  LasBuilder other = BuilderOf(2);
  other.records.push_back({"LASF_Projection", 2112, {'W', 'K', 'T'}});
  other.minor = 2;
  PointSet set;
  EXPECT_TRUE(IsOk(JoinFiles(
      {folder.Add("a.las", BuilderOf(2).Build()), folder.Add("b.las", other.Build())}, set)));
  EXPECT_EQ(set.GetPointCount(), 4u);
}

}  // namespace
}  // namespace tarnhost
