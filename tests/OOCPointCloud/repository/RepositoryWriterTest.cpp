// Writing, committing and going on; and what survives when any single operation fails.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "tests/support/FailingStore.h"
#include "tests/support/SmallRepository.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Streams = std::shared_ptr<OOCPCMemoryStreams>;
using oocpc::result::kOk;
using oocpctest::CheckRepository;
using oocpctest::ReadAndDelete;
using oocpctest::SmallCatalogue;

std::unique_ptr<OOCPCRepositoryWriter> WriterOf(const Streams& streams) {
  return std::make_unique<OOCPCRepositoryWriter>(std::make_unique<OOCPCMemoryStreamStore>(streams));
}

std::uint64_t MustAppend(OOCPCRepositoryWriter& writer, const std::string& stream,
                         const Bytes& bytes) {
  std::uint64_t position = 0;
  EXPECT_EQ(writer.Append(stream, bytes, position), kOk);
  return position;
}

TEST(RepositoryWriter, SaysWhereAppendedBytesBegin) {
  const auto writer = WriterOf(std::make_shared<OOCPCMemoryStreams>());
  EXPECT_EQ(MustAppend(*writer, "A", {1, 2, 3}), 0u);
  EXPECT_EQ(MustAppend(*writer, "B", {1}), 0u);
  EXPECT_EQ(MustAppend(*writer, "A", {4}), 3u);
  EXPECT_EQ(writer->GetLength("A"), 4u);
  EXPECT_EQ(writer->GetLength("C"), 0u);
  EXPECT_EQ(writer->GetTotalBytes(), 5u);
}

TEST(RepositoryWriter, CommitsWhatARepositoryAccepts) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  const auto writer = WriterOf(streams);
  MustAppend(*writer, "A", {1, 2, 3});
  MustAppend(*writer, "EMPTY", {});
  ASSERT_EQ(writer->Commit(SmallCatalogue()), kOk);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3}));
  EXPECT_EQ(repository.GetRepositoryInformation().streams.size(), 2u);
  EXPECT_EQ(repository.GetRepositoryInformation().generator, "test");
}

TEST(RepositoryWriter, ShowsNothingBeforeACommit) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  const auto writer = WriterOf(streams);
  MustAppend(*writer, "A", {1, 2, 3});
  ASSERT_EQ(writer->Commit(SmallCatalogue()), kOk);
  MustAppend(*writer, "A", {4});
  MustAppend(*writer, "B", {5});
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3}));
  EXPECT_EQ(repository.CreateInputStream("B"), nullptr);
}

TEST(RepositoryWriter, SyncsOnlyStreamsThatGrew) {
  const auto plan = std::make_shared<oocpctest::StorePlan>();
  OOCPCRepositoryWriter writer(std::make_unique<oocpctest::FailingStore>(
      std::make_unique<OOCPCMemoryStreamStore>(std::make_shared<OOCPCMemoryStreams>()), plan));
  MustAppend(writer, "A", {1});
  MustAppend(writer, "B", {1});
  ASSERT_EQ(writer.Commit(SmallCatalogue()), kOk);
  MustAppend(writer, "A", {1});
  const std::uint64_t before = plan->operations;
  ASSERT_EQ(writer.Commit(SmallCatalogue()), kOk);
  EXPECT_EQ(plan->operations - before, 2u);  // one sync and the main stream
}

TEST(RepositoryWriter, PutsABlockAndItsEntryIntoTheColumnsStreams) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  const auto writer = WriterOf(streams);
  oocpc::EncodedBlock block;
  block.bytes = {1, 2, 3, 4, 5};
  block.entry.storedBytes = 5;
  block.entry.valueCount = 5;
  ASSERT_EQ(writer->AppendBlock(3, block, 0), kOk);
  ASSERT_EQ(writer->AppendBlock(3, block, block.entry.valueCount), kOk);
  EXPECT_EQ(writer->GetLength(oocpc::ColumnDataStreamName(3)), 10u);
  Bytes expected;
  block.entry.Encode(expected);
  block.entry.offsetBytes = 5;
  block.entry.firstValue = 5;
  block.entry.Encode(expected);
  EXPECT_EQ(*streams->named.at(oocpc::ColumnTableStreamName(3)), expected);
}

TEST(RepositoryWriter, RefusesNamesThatNoStreamHas) {
  const auto writer = WriterOf(std::make_shared<OOCPCMemoryStreams>());
  std::uint64_t position = 0;
  EXPECT_EQ(writer->Append("../x", Bytes{1}, position), oocpc::result::kBadStreamName);
}

TEST(RepositoryWriterResuming, CutsWhatAnInterruptedWriterLeft) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  {
    const auto writer = WriterOf(streams);
    MustAppend(*writer, "A", {1, 2, 3});
    ASSERT_EQ(writer->Commit(SmallCatalogue()), kOk);
    MustAppend(*writer, "A", {66});
    MustAppend(*writer, "B", {66});
  }
  OOCPCMemoryRepository committed(streams);
  ASSERT_EQ(CheckRepository(committed), kOk);
  const auto writer = WriterOf(streams);
  ASSERT_EQ(writer->Resume(committed.GetRepositoryInformation()), kOk);
  EXPECT_EQ(MustAppend(*writer, "A", {4}), 3u);
  EXPECT_EQ(MustAppend(*writer, "B", {5}), 0u);
  ASSERT_EQ(writer->Commit(SmallCatalogue()), kOk);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("B")), (Bytes{5}));
}

TEST(RepositoryWriterResuming, KeepsStreamsThatItDoesNotTouch) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  MustAppend(*WriterOf(streams), "A", {1});
  OOCPCRepositoryInformation committed;
  committed.streams = {{"A", 1}};
  const auto writer = WriterOf(streams);
  ASSERT_EQ(writer->Resume(committed), kOk);
  ASSERT_EQ(writer->Commit(SmallCatalogue()), kOk);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1}));
}

TEST(RepositoryWriterResuming, RefusesAStreamThatLacksCommittedBytes) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  OOCPCRepositoryInformation committed;
  committed.streams = {{"A", 1}};
  const auto writer = WriterOf(streams);
  EXPECT_EQ(writer->Resume(committed), oocpc::result::kStreamShort);
  EXPECT_EQ(writer->Commit(SmallCatalogue()), oocpc::result::kStreamShort);
}

TEST(RepositoryWriterOpening, GoesOnAtTheCommittedLengthsWithTheCommittedCatalogue) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  {
    const auto writer = WriterOf(streams);
    MustAppend(*writer, "A", {1, 2, 3});
    OOCPCCatalogue catalogue = SmallCatalogue();
    catalogue.SetChunk(0x12345, {7});
    ASSERT_EQ(writer->Commit(catalogue), kOk);
    MustAppend(*writer, "A", {66});
  }
  OOCPCCatalogue catalogue;
  std::unique_ptr<OOCPCRepositoryWriter> writer;
  ASSERT_EQ(OOCPCRepositoryWriter::OpenExisting(std::make_unique<OOCPCMemoryStreamStore>(streams),
                                                catalogue, writer),
            kOk);
  EXPECT_EQ(writer->GetLength("A"), 3u);
  EXPECT_EQ(MustAppend(*writer, "A", {4}), 3u);
  const OOCPCCatalogue small = SmallCatalogue();
  EXPECT_EQ(catalogue.identity, small.identity);
  EXPECT_EQ(catalogue.mortonSeed, small.mortonSeed);
  EXPECT_EQ(catalogue.information.generator, small.information.generator);
  ASSERT_FALSE(catalogue.chunks.empty());
  EXPECT_EQ(catalogue.chunks.back().type, 0x12345u);
  catalogue.SetChunk(0x12345, {8, 9});
  EXPECT_EQ(catalogue.chunks.back().payload, (Bytes{8, 9}));
  ASSERT_EQ(writer->Commit(catalogue), kOk);
  OOCPCMemoryRepository repository(streams);
  ASSERT_EQ(CheckRepository(repository), kOk);
  EXPECT_EQ(ReadAndDelete(repository.CreateInputStream("A")), (Bytes{1, 2, 3, 4}));
}

TEST(RepositoryWriterOpening, RefusesWhatIsNoRepository) {
  OOCPCCatalogue catalogue;
  std::unique_ptr<OOCPCRepositoryWriter> writer;
  EXPECT_EQ(OOCPCRepositoryWriter::OpenExisting(
                std::make_unique<OOCPCMemoryStreamStore>(std::make_shared<OOCPCMemoryStreams>()),
                catalogue, writer),
            oocpc::result::kNotARepository);
  EXPECT_EQ(writer, nullptr);
}

// Appends to two streams and commits, telling the first failure.
HRESULT WriteSecondState(OOCPCRepositoryWriter& writer,
                         const OOCPCRepositoryInformation& committed) {
  std::uint64_t position = 0;
  HRESULT first = writer.Resume(committed);
  const auto note = [&first](HRESULT code) {
    if (!oocpc::Failed(first)) {
      first = code;
    } else {
      EXPECT_EQ(code, first);  // a failed writer repeats its first failure
    }
  };
  note(writer.Append("A", Bytes{4, 5}, position));
  note(writer.Append("B", Bytes{6, 7}, position));
  note(writer.Append("A", Bytes{8, 9}, position));
  note(writer.Commit(SmallCatalogue()));
  return first;
}

// What one interrupted run did.
struct Outcome {
  HRESULT code = kOk;
  std::uint64_t operations = 0;
};

// Commits A = 1 2 3, then runs WriteSecondState with one failing operation, and checks that the
// first state, or after success the second, is what a reader finds.
template <typename MakeStore, typename MakeRepository>
Outcome Interrupt(const MakeStore& makeStore, const MakeRepository& makeRepository,
                  std::uint64_t failAt, bool tear) {
  {
    OOCPCRepositoryWriter writer(makeStore());
    MustAppend(writer, "A", {1, 2, 3});
    EXPECT_EQ(writer.Commit(SmallCatalogue()), kOk);
    MustAppend(writer, "A", {66});  // so that Resume has something to cut
    MustAppend(writer, "B", {66});
  }
  const auto first = makeRepository();
  EXPECT_EQ(CheckRepository(*first), kOk);

  const auto plan = std::make_shared<oocpctest::StorePlan>();
  plan->failAt = failAt;
  plan->code = oocpc::result::kNoSpace;
  plan->tearAppends = tear;
  HRESULT code = kOk;
  {
    OOCPCRepositoryWriter writer(std::make_unique<oocpctest::FailingStore>(makeStore(), plan));
    code = WriteSecondState(writer, first->GetRepositoryInformation());
  }
  EXPECT_EQ(plan->afterFailure, 0u) << failAt;

  const auto repository = makeRepository();
  EXPECT_EQ(CheckRepository(*repository), kOk) << failAt;
  const bool failed = oocpc::Failed(code);
  EXPECT_EQ(ReadAndDelete(repository->CreateInputStream("A")),
            failed ? (Bytes{1, 2, 3}) : (Bytes{1, 2, 3, 4, 5, 8, 9}))
      << failAt;
  EXPECT_EQ(ReadAndDelete(repository->CreateInputStream("B")), failed ? Bytes{} : (Bytes{6, 7}));
  return {code, plan->operations};
}

template <typename Run>
void InterruptEverywhere(const Run& run) {
  for (const bool tear : {false, true}) {
    const std::uint64_t operations = run(oocpctest::StorePlan::kNever, tear).operations;
    ASSERT_GE(operations, 9u);  // 2 to resume, 2 to find B, 3 appends, 2 syncs, main: none missed
    for (std::uint64_t failAt = 0; failAt < operations; ++failAt) {
      const Outcome outcome = run(failAt, tear);
      EXPECT_EQ(outcome.code, oocpc::result::kNoSpace) << failAt;
      EXPECT_EQ(outcome.operations, failAt + 1);
    }
  }
}

TEST(InterruptedCommit, LeavesTheEarlierStateInMemoryWhereverItFails) {
  InterruptEverywhere([](std::uint64_t failAt, bool tear) {
    const auto streams = std::make_shared<OOCPCMemoryStreams>();
    return Interrupt([&] { return std::make_unique<OOCPCMemoryStreamStore>(streams); },
                     [&] { return std::make_unique<OOCPCMemoryRepository>(streams); }, failAt,
                     tear);
  });
}

TEST(InterruptedCommit, LeavesTheEarlierStateInAFolderWhereverItFails) {
  InterruptEverywhere([](std::uint64_t failAt, bool tear) {
    const oocpctest::TemporaryFolder folder;
    const auto makeStore = [&] {
      std::unique_ptr<OOCPCFolderStreamStore> store;
      EXPECT_EQ(OOCPCFolderStreamStore::Open(folder.Path(), store), kOk);
      return store;
    };
    const auto makeRepository = [&] {
      std::unique_ptr<OOCPCFolderRepository> repository;
      EXPECT_EQ(OOCPCFolderRepository::Open(folder.Path(), repository), kOk);
      return repository;
    };
    return Interrupt(makeStore, makeRepository, failAt, tear);
  });
}

}  // namespace
