// Reading a column's values by their numbers, across its blocks.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <numeric>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::BlockEntry;
using oocpc::ColumnReader;
using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::ColumnBuilder;
using oocpctest::FakeRepository;
using oocpctest::ValuesAsBytes;
namespace result = oocpc::result;

constexpr ColumnType kType{ValueType::kInt32, 1};
constexpr const char* kData = "DEF_COLUMN_4";
constexpr const char* kTable = "DEF_COLUMN_4_BLOCKS";
const std::size_t kEntryBytes = BlockEntry::RecordBytes(kType);
constexpr std::uint64_t kCount = 9;

/// The values 100 to 108 in blocks of 3, 1, 0, 4 and 1.
ColumnBuilder FiveBlocks() {
  ColumnBuilder column;
  std::int32_t next = 100;
  for (const int size : {3, 1, 0, 4, 1}) {
    std::vector<std::int32_t> values(static_cast<std::size_t>(size));
    std::iota(values.begin(), values.end(), next);
    next += size;
    column.Block(kType, ValuesAsBytes(values));
  }
  return column;
}

Bytes ValuesFrom(std::uint64_t first, std::uint64_t count) {
  std::vector<std::int32_t> values;
  for (std::uint64_t i = first; i < first + count; ++i) {
    values.push_back(static_cast<std::int32_t>(100 + i));
  }
  return ValuesAsBytes(values);
}

class ColumnValueReading : public testing::Test {
 protected:
  ColumnValueReading() { FiveBlocks().AddTo(repository_, 4); }
  /// Renumbers a block in the table.
  void SetFirstValue(std::uint64_t blockId, std::uint64_t firstValue) {
    Bytes table = FiveBlocks().GetTable();
    const auto at = static_cast<std::ptrdiff_t>(blockId * kEntryBytes);
    BlockEntry entry;
    ASSERT_EQ(
        BlockEntry::Decode(std::span(table).subspan(blockId * kEntryBytes, kEntryBytes), entry),
        result::kOk);
    entry.firstValue = firstValue;
    Bytes changed;
    entry.Encode(changed);
    std::copy(changed.begin(), changed.end(), table.begin() + at);
    repository_.Add(kTable, table);
  }
  HRESULT Read(std::uint64_t first, std::uint64_t count) {
    return reader_.ReadValues(first, count, values_);
  }

  FakeRepository repository_{Bytes{}};
  ColumnReader reader_{&repository_, 4, kType};
  Bytes values_;
};

TEST_F(ColumnValueReading, GivesEveryRange) {
  for (std::uint64_t first = 0; first < kCount; ++first) {
    for (std::uint64_t count = 1; count <= kCount - first; ++count) {
      ASSERT_EQ(Read(first, count), result::kOk) << first << " " << count;
      ASSERT_EQ(values_, ValuesFrom(first, count)) << first << " " << count;
    }
  }
}

TEST_F(ColumnValueReading, GivesNothingForNoValues) {
  for (const std::uint64_t first : {std::uint64_t{0}, kCount, ~std::uint64_t{0}}) {
    values_ = {1, 2, 3};
    EXPECT_EQ(Read(first, 0), result::kOk);
    EXPECT_TRUE(values_.empty());
  }
  repository_.Behaviour(kData).absent = true;
  ColumnReader other(&repository_, 4, kType);
  EXPECT_EQ(other.ReadValues(0, 0, values_), result::kStreamMissing) << "still opens the streams";
}

TEST_F(ColumnValueReading, RefusesValuesBehindTheEnd) {
  EXPECT_EQ(Read(kCount, 1), result::kIndexOutOfRange);
  EXPECT_EQ(Read(kCount - 1, 2), result::kIndexOutOfRange);
  EXPECT_EQ(Read(0, kCount + 1), result::kIndexOutOfRange);
  EXPECT_EQ(Read(1, ~std::uint64_t{0}), result::kIndexOutOfRange);
  EXPECT_EQ(Read(~std::uint64_t{0}, 1), result::kIndexOutOfRange);
  EXPECT_EQ(Read(~std::uint64_t{0}, ~std::uint64_t{0}), result::kIndexOutOfRange);
  repository_.Add(kTable, {});
  ColumnReader empty(&repository_, 4, kType);
  EXPECT_EQ(empty.ReadValues(0, 1, values_), result::kIndexOutOfRange);
}

TEST_F(ColumnValueReading, RefusesATableWithAGap) {
  SetFirstValue(3, 5);
  EXPECT_EQ(Read(3, 2), result::kBadRecord);
  EXPECT_EQ(Read(4, 1), result::kIndexOutOfRange) << "nobody has that value";
  EXPECT_EQ(Read(0, 4), result::kOk) << "what comes before can be read";
}

TEST_F(ColumnValueReading, RefusesATableWithAnOverlap) {
  SetFirstValue(1, 2);
  EXPECT_EQ(Read(1, 3), result::kBadRecord);
  SetFirstValue(4, 0);
  ColumnReader other(&repository_, 4, kType);
  EXPECT_EQ(other.ReadValues(7, 2, values_), result::kIndexOutOfRange)
      << "the last block says that it begins before the value and has fewer";
}

TEST_F(ColumnValueReading, RefusesATableThatDoesNotBeginAt0) {
  SetFirstValue(0, 1);
  EXPECT_EQ(Read(0, 1), result::kIndexOutOfRange);
}

TEST_F(ColumnValueReading, ReadsOneBlockAloneWhereItHasAll) {
  const auto log = repository_.GetLog();
  ASSERT_EQ(Read(4, 4), result::kOk);
  EXPECT_EQ(values_, ValuesFrom(4, 4));
  repository_.Behaviour(kData).shortRead = 1;
  ColumnReader other(&repository_, 4, kType);
  EXPECT_EQ(other.ReadValues(4, 4, values_), result::kOk) << "one read of the data is enough";
  EXPECT_EQ(other.ReadValues(3, 2, values_), result::kStreamShort);
}

TEST_F(ColumnValueReading, PassesOnWhatIsWrongWithABlock) {
  Bytes data = FiveBlocks().GetData();
  data[0] ^= 1;
  repository_.Add(kData, data);
  EXPECT_EQ(Read(0, 3), result::kChecksumMismatch);
  EXPECT_EQ(Read(2, 4), result::kChecksumMismatch);
  EXPECT_EQ(Read(3, 6), result::kOk);
  Bytes table = FiveBlocks().GetTable();
  table[2 * kEntryBytes] ^= 1;
  repository_.Add(kTable, table);
  ColumnReader other(&repository_, 4, kType);
  EXPECT_EQ(other.ReadValues(3, 6, values_), result::kChecksumMismatch);
}

TEST_F(ColumnValueReading, NeedsTheStreams) {
  ColumnReader none(nullptr, 4, kType);
  EXPECT_EQ(none.ReadValues(0, 1, values_), result::kNoRepository);
  for (const char* name : {kData, kTable}) {
    repository_.Behaviour(name).absent = true;
    ColumnReader reader(&repository_, 4, kType);
    EXPECT_EQ(reader.ReadValues(0, 1, values_), result::kStreamMissing) << name;
    EXPECT_EQ(reader.Open(), result::kStreamMissing) << name;
    repository_.Behaviour(name).absent = false;
    EXPECT_EQ(reader.Open(), result::kOk) << name;
  }
}

TEST(ColumnOpening, KeepsTheStreamsAliveWithoutTheRepository) {
  auto repository = std::make_unique<FakeRepository>(Bytes{});
  FiveBlocks().AddTo(*repository, 4);
  const auto log = repository->GetLog();
  ColumnReader reader(repository.get(), 4, kType);
  EXPECT_EQ(reader.Open(), result::kOk);
  EXPECT_EQ(reader.Open(), result::kOk);
  EXPECT_EQ(log->opened, 2u) << "once each";
  repository.reset();
  Bytes values;
  EXPECT_EQ(reader.ReadValues(2, 6, values), result::kOk);
  EXPECT_EQ(values, ValuesFrom(2, 6));
}

}  // namespace
