// The fakes that other tests rely on do what they say.
#include <gtest/gtest.h>

#include <array>

#include "tests/support/FailingStore.h"
#include "tests/support/TestRepositories.h"

namespace {

using oocpctest::Bytes;
using oocpctest::FakeRepository;
using oocpctest::MainStreamBuilder;

using StreamPointer = std::unique_ptr<OOCPCIInputStream>;

TEST(MainStreamBuilder, PutsHeaderChunksAndFragmentsInOrder) {
  const Bytes bytes = MainStreamBuilder().Chunk(2, {7, 8}).ChunkHead(3, 100).Raw({9}).Bytes();
  ASSERT_EQ(bytes.size(), 67u + 8 + 2 + 8 + 1);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 5), (Bytes{'V', 'q', 'P', 'C', 1}));
  EXPECT_EQ(Bytes(bytes.begin() + 67, bytes.end()),
            (Bytes{2, 0, 0, 0, 2, 0, 0, 0, 7, 8, 3, 0, 0, 0, 100, 0, 0, 0, 9}));
  EXPECT_TRUE(MainStreamBuilder::NoHeader().Bytes().empty());
}

TEST(FakeRepository, GivesItsStreamsAndCountsThem) {
  auto repository =
      std::make_unique<FakeRepository>(Bytes{1, 2, 3}, std::map<std::string, Bytes>{{"A", {4, 5}}});
  const auto log = repository->GetLog();
  StreamPointer main(repository->CreateInputStream());
  const StreamPointer named(repository->CreateInputStream("A"));
  EXPECT_EQ(repository->CreateInputStream("B"), nullptr);
  std::array<std::uint8_t, 8> read{};
  EXPECT_EQ(main->Read(read.data(), 8), 3u);
  EXPECT_EQ(read[2], 3);
  EXPECT_EQ(named->GetLength(), 2u);
  EXPECT_EQ(named->SetPosition(3), oocpc::result::kSeekOutOfRange);
  EXPECT_EQ(log->opened, 2u);
  EXPECT_FALSE(log->AllStreamsDestroyed());
  main.reset();
  EXPECT_EQ(log->destroyed, 1u);
  repository.reset();
  EXPECT_TRUE(log->repositoryDestroyed);
}

TEST(FakeRepository, MisbehavesAsItWasTold) {
  FakeRepository repository(Bytes(10, 1), {{"A", Bytes(10, 2)}, {"B", Bytes(10, 3)}});
  repository.Behaviour().startPosition = 4;
  repository.Behaviour("A").shortRead = 1;
  repository.Behaviour("A").setPositionResult = oocpc::result::kIoError;
  repository.Behaviour("B").usable = false;
  std::array<std::uint8_t, 16> read{};
  const StreamPointer main(repository.CreateInputStream());
  EXPECT_EQ(main->GetPosition(), 4u);
  EXPECT_EQ(main->Read(read.data(), 16), 6u);
  const StreamPointer a(repository.CreateInputStream("A"));
  EXPECT_EQ(a->SetPosition(1), oocpc::result::kIoError);
  EXPECT_EQ(a->Read(read.data(), 2), 2u);
  EXPECT_EQ(a->Read(read.data(), 4), 2u);
  EXPECT_EQ(a->Read(read.data(), 4), 4u);
  const StreamPointer b(repository.CreateInputStream("B"));
  EXPECT_FALSE(b->IsUsable());
  EXPECT_EQ(b->Read(read.data(), 1), 0u);
  repository.Behaviour("B").absent = true;
  EXPECT_EQ(repository.CreateInputStream("B"), nullptr);
}

TEST(FakeRepository, ShortensOneReadOverAllStreams) {
  FakeRepository repository(Bytes(10, 1), {{"A", Bytes(10, 2)}});
  repository.ShortenRead(1);
  std::array<std::uint8_t, 16> read{};
  const StreamPointer main(repository.CreateInputStream());
  const StreamPointer a(repository.CreateInputStream("A"));
  EXPECT_EQ(main->Read(read.data(), 4), 4u);
  EXPECT_EQ(a->Read(read.data(), 4), 2u);
  EXPECT_EQ(main->Read(read.data(), 4), 4u);
  EXPECT_EQ(repository.GetLog()->reads, 3u);
}

TEST(FakeRepository, AnswersInformationAsItWasTold) {
  FakeRepository repository(Bytes{});
  OOCPCRepositoryInformation information;
  information.creationTime = 7;
  repository.AnswerInformationWith(oocpc::result::kCatalogueMismatch);
  EXPECT_EQ(repository.SetRepositoryInformation(&information), oocpc::result::kCatalogueMismatch);
  EXPECT_EQ(repository.GetRepositoryInformation().creationTime, 0u);
  repository.AnswerInformationWith(oocpc::result::kNothingDone);
  EXPECT_EQ(repository.SetRepositoryInformation(&information), oocpc::result::kNothingDone);
  EXPECT_EQ(repository.GetRepositoryInformation().creationTime, 7u);
  EXPECT_EQ(repository.GetLog()->informationCalls, 2u);
}

TEST(FailingStore, FailsFromThePlannedOperationOnAndTearsTheFirstAppendOnly) {
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  const auto plan = std::make_shared<oocpctest::StorePlan>();
  plan->failAt = 1;
  plan->code = oocpc::result::kNoSpace;
  plan->tearAppends = true;
  oocpctest::FailingStore store(std::make_unique<OOCPCMemoryStreamStore>(streams), plan);
  EXPECT_EQ(store.Append("A", Bytes{1}), oocpc::result::kOk);
  EXPECT_EQ(store.Append("A", Bytes{2, 3}), oocpc::result::kNoSpace);
  EXPECT_EQ(store.Append("A", Bytes{4, 5}), oocpc::result::kNoSpace);
  EXPECT_EQ(store.Sync("A"), oocpc::result::kNoSpace);
  EXPECT_EQ(*streams->named.at("A"), (Bytes{1, 2}));
  EXPECT_EQ(plan->operations, 4u);
  EXPECT_EQ(plan->afterFailure, 2u);
}

}  // namespace
