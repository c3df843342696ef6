// Reading a column's blocks through a repository's streams.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <thread>

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

Bytes FirstBlock() { return ValuesAsBytes({5, -6, 7}); }
Bytes SecondBlock() { return ValuesAsBytes({1000000, 1000000}); }

ColumnBuilder TwoBlocks() {
  return ColumnBuilder().Block(kType, FirstBlock()).Block(kType, SecondBlock());
}

std::unique_ptr<FakeRepository> MakeRepository(const ColumnBuilder& column = TwoBlocks()) {
  auto repository = std::make_unique<FakeRepository>(Bytes{});
  column.AddTo(*repository, 4);
  return repository;
}

TEST(ColumnReading, GivesBlocksInAnyOrder) {
  const auto repository = MakeRepository();
  ColumnReader reader(repository.get(), 4, kType);
  std::uint64_t count = 0;
  EXPECT_EQ(reader.GetBlockCount(count), result::kOk);
  EXPECT_EQ(count, 2u);
  Bytes values;
  EXPECT_EQ(reader.ReadBlock(1, values), result::kOk);
  EXPECT_EQ(values, SecondBlock());
  EXPECT_EQ(reader.ReadBlock(0, values), result::kOk);
  EXPECT_EQ(values, FirstBlock());
  BlockEntry entry;
  EXPECT_EQ(reader.ReadEntry(1, entry), result::kOk);
  EXPECT_EQ(entry.valueCount, 2u);
}

TEST(ColumnReading, OpensEachStreamOnce) {
  const auto repository = MakeRepository();
  const auto log = repository->GetLog();
  {
    ColumnReader reader(repository.get(), 4, kType);
    EXPECT_EQ(log->opened, 0u) << "nothing is opened before it is needed";
    Bytes values;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(reader.ReadBlock(0, values), result::kOk);
    EXPECT_EQ(log->opened, 2u);
  }
  EXPECT_TRUE(log->AllStreamsDestroyed());
}

TEST(ColumnReading, RefusesBlocksThatAreNotThere) {
  const auto repository = MakeRepository();
  ColumnReader reader(repository.get(), 4, kType);
  Bytes values;
  BlockEntry entry;
  EXPECT_EQ(reader.ReadBlock(2, values), result::kIndexOutOfRange);
  EXPECT_EQ(reader.ReadEntry(~std::uint64_t{0}, entry), result::kIndexOutOfRange);
  // The size of an entry times this index is 0 modulo 2^64.
  ASSERT_EQ(BlockEntry::RecordBytes(kType) % 4, 0u);
  EXPECT_EQ(reader.ReadEntry(std::uint64_t{1} << 62, entry), result::kIndexOutOfRange);
}

TEST(ColumnReading, NeedsARepository) {
  ColumnReader reader(nullptr, 4, kType);
  std::uint64_t count = 0;
  EXPECT_EQ(reader.GetBlockCount(count), result::kNoRepository);
}

TEST(ColumnReading, MissesEitherStream) {
  for (const char* name : {kData, kTable}) {
    const auto repository = MakeRepository();
    repository->Behaviour(name).absent = true;
    ColumnReader reader(repository.get(), 4, kType);
    Bytes values;
    EXPECT_EQ(reader.ReadBlock(0, values), result::kStreamMissing) << name;
    repository->Behaviour(name).absent = false;
    EXPECT_EQ(reader.ReadBlock(0, values), result::kOk) << "a later try may find it";
  }
}

TEST(ColumnReading, ReportsStreamsThatCanNotBeReadFrom) {
  for (const char* name : {kData, kTable}) {
    const auto repository = MakeRepository();
    repository->Behaviour(name).usable = false;
    ColumnReader reader(repository.get(), 4, kType);
    Bytes values;
    EXPECT_EQ(reader.ReadBlock(0, values), result::kIoError) << name;
  }
}

TEST(ColumnReading, ReportsShortReadsAndFailedSeeks) {
  for (const char* name : {kData, kTable}) {
    for (const bool shortRead : {false, true}) {
      const auto repository = MakeRepository();
      if (shortRead) repository->Behaviour(name).shortRead = 0;
      if (!shortRead) repository->Behaviour(name).setPositionResult = result::kIoError;
      ColumnReader reader(repository.get(), 4, kType);
      Bytes values;
      EXPECT_EQ(reader.ReadBlock(0, values), result::kStreamShort) << name;
    }
  }
}

TEST(ColumnReading, RefusesATableWithAFractionOfARecord) {
  const auto repository = MakeRepository();
  Bytes table = TwoBlocks().GetTable();
  table.pop_back();
  repository->Add(kTable, table);
  ColumnReader reader(repository.get(), 4, kType);
  std::uint64_t count = 77;
  EXPECT_EQ(reader.GetBlockCount(count), result::kBadRecord);
  EXPECT_EQ(count, 77u);
}

TEST(ColumnReading, RefusesAnAlteredEntry) {
  const auto repository = MakeRepository();
  Bytes table = TwoBlocks().GetTable();
  table[BlockEntry::RecordBytes(kType) + 9] ^= 1;
  repository->Add(kTable, table);
  ColumnReader reader(repository.get(), 4, kType);
  Bytes values;
  EXPECT_EQ(reader.ReadBlock(1, values), result::kChecksumMismatch);
  EXPECT_EQ(reader.ReadBlock(0, values), result::kOk);
}

TEST(ColumnReading, RefusesAnEntryOfAnotherTypeThatIsAsLong) {
  const auto repository = MakeRepository();
  const ColumnType unsignedType{ValueType::kUInt32, 1};
  ASSERT_EQ(BlockEntry::RecordBytes(unsignedType), BlockEntry::RecordBytes(kType));
  ColumnReader reader(repository.get(), 4, unsignedType);
  BlockEntry entry;
  EXPECT_EQ(reader.ReadEntry(0, entry), result::kBadRecord);
  EXPECT_EQ(entry.valueCount, 0u) << "as it was";
}

TEST(ColumnReading, RefusesAlteredData) {
  const Bytes data = TwoBlocks().GetData();
  for (std::size_t at = 0; at < data.size(); ++at) {
    const auto repository = MakeRepository();
    Bytes altered = data;
    altered[at] ^= 0x10;
    repository->Add(kData, altered);
    ColumnReader reader(repository.get(), 4, kType);
    Bytes values;
    const HRESULT first = reader.ReadBlock(0, values);
    const HRESULT second = reader.ReadBlock(1, values);
    EXPECT_EQ(std::min(first, second), result::kChecksumMismatch) << at;
    EXPECT_EQ(std::max(first, second), result::kOk) << at;
  }
}

TEST(ColumnReading, RefusesBlocksOutsideTheDataStream) {
  oocpc::EncodedBlock block = oocpc::EncodeBlock(kType, FirstBlock());
  for (const std::uint64_t offset : {std::uint64_t{1}, ~std::uint64_t{0}}) {
    Bytes table;
    block.entry.offsetBytes = offset;
    block.entry.Encode(table);
    FakeRepository repository(Bytes{}, {{kData, block.bytes}, {kTable, table}});
    ColumnReader reader(&repository, 4, kType);
    Bytes values;
    EXPECT_EQ(reader.ReadBlock(0, values), result::kStreamShort) << offset;
  }
}

TEST(ColumnReading, RefusesToAllocateWhatTheStreamDoesNotHold) {
  oocpc::EncodedBlock block = oocpc::EncodeBlock(kType, FirstBlock());
  block.entry.storedBytes = 0xFFFFFFFF;
  Bytes table;
  block.entry.Encode(table);
  FakeRepository repository(Bytes{}, {{kData, block.bytes}, {kTable, table}});
  ColumnReader reader(&repository, 4, kType);
  Bytes values;
  EXPECT_EQ(reader.ReadBlock(0, values), result::kStreamShort);
  EXPECT_EQ(values.capacity(), 0u);
}

TEST(ColumnReading, ReportsTheColumnsOwnTypeWhenABlockDoesNotFitIt) {
  const auto repository = MakeRepository();
  ColumnReader reader(repository.get(), 4, {ValueType::kUInt8, 1});
  Bytes values;
  EXPECT_EQ(reader.ReadBlock(0, values), result::kBadRecord);
}

TEST(ColumnReading, WorksOnMemoryThatTheStreamLends) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  oocpc::EncodedBlock block = oocpc::EncodeBlock(kType, FirstBlock());
  Bytes table;
  block.entry.Encode(table);
  OOCPCMemoryStreamStore store(streams);
  ASSERT_EQ(store.Append(kData, block.bytes), result::kOk);
  ASSERT_EQ(store.Append(kTable, table), result::kOk);
  OOCPCMemoryRepository repository(streams);
  ColumnReader reader(&repository, 4, kType);
  Bytes values;
  EXPECT_EQ(reader.ReadBlock(0, values), result::kOk);
  EXPECT_EQ(values, FirstBlock());
}

TEST(ColumnReading, WorksWithOneReaderAThread) {
  const auto repository = MakeRepository();
  const auto work = [&repository] {
    ColumnReader reader(repository.get(), 4, kType);
    Bytes values;
    for (int i = 0; i < 200; ++i) {
      ASSERT_EQ(reader.ReadBlock(0, values), result::kOk);
      ASSERT_EQ(values, FirstBlock());
      ASSERT_EQ(reader.ReadBlock(1, values), result::kOk);
      ASSERT_EQ(values, SecondBlock());
    }
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
}

}  // namespace
