// Update-iteration chunks, and reading records by index.
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/TestRepositories.h"

namespace {

using oocpctest::Bytes;
using oocpctest::FakeRepository;
using Container = OOCPCUpdateIterationContainer;
namespace result = oocpc::result;

constexpr auto kType = oocpc::chunk_type::kUpdateIterations;

Bytes ChunkOf(std::uint64_t count) {
  OOCPCUpdateIterationDescription description;
  description.iterationCount = count;
  return description.EncodeChunk();
}

HRESULT Load(Container& container, const Bytes& payload) {
  return container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

Bytes Records(std::uint64_t count) {
  Bytes stream;
  for (std::uint64_t i = 0; i < count; ++i) {
    OOCPCUpdateIteration iteration;
    iteration.timePoint = 1000 + i;
    iteration.Stream(stream);
  }
  return stream;
}

TEST(UpdateIterationChunk, IsByteForByteAsDocumented) {
  EXPECT_EQ(ChunkOf(5),
            oocpctest::BytesOf("01 00 50 00 01 00 00 00 05 00 00 00 00 00 00 00 9E D6 4B F6"));
}

TEST(UpdateIterationChunk, IsLoadedByTheContainer) {
  Container container(nullptr, kType);
  EXPECT_EQ(container.GetIterationCount(), 0u);
  ASSERT_EQ(Load(container, ChunkOf(5)), result::kOk);
  EXPECT_EQ(container.GetIterationCount(), 5u);
  EXPECT_EQ(container.GetRecordSize(), 80u);
  EXPECT_EQ(container.GetStreamVersion(), 1u);
  EXPECT_EQ(container.GetChunkType(), kType);
  EXPECT_FALSE(container.IsMetaData());
}

TEST(UpdateIterationChunk, IsRefusedWhenDamagedOrNewer) {
  oocpctest::ExpectPayloadIsGuarded(ChunkOf(5), [](const Bytes& payload) {
    Container container(nullptr, kType);
    const HRESULT code = Load(container, payload);
    EXPECT_EQ(container.GetIterationCount() == 0, oocpc::Failed(code));
    return code;
  });
}

TEST(UpdateIterationChunk, IsRefusedWithRecordsOfAnotherSize) {
  Container container(nullptr, kType);
  EXPECT_EQ(Load(container, oocpctest::Resealed(ChunkOf(5), 2, {0, 0})), result::kBadRecord);
  EXPECT_EQ(Load(container, oocpctest::Resealed(ChunkOf(5), 2, {79, 0})), result::kBadRecord);
  EXPECT_EQ(Load(container, oocpctest::Resealed(ChunkOf(5), 2, {80, 1})), result::kBadRecord);
}

TEST(UpdateIterationChunk, IsRefusedWithRecordsOfAnotherVersion) {
  Container container(nullptr, kType);
  EXPECT_EQ(Load(container, oocpctest::Resealed(ChunkOf(5), 4, {0})), result::kBadRecord);
  const Bytes newer = oocpctest::Resealed(ChunkOf(5), 4, {2});
  EXPECT_EQ(Load(container, newer), result::kUnknownVersion);
  EXPECT_EQ(Container::IsEligibleChunk({newer.data(), 20, kType}), result::kNothingDone);
}

TEST(UpdateIterationChunk, IsRefusedWithACountWhoseBytesWouldWrap) {
  Container container(nullptr, kType);
  EXPECT_EQ(Load(container, ChunkOf(~std::uint64_t{0})), result::kBadRecord);
  EXPECT_EQ(Load(container, ChunkOf(~std::uint64_t{0} / 80 + 1)), result::kBadRecord);
  EXPECT_EQ(Load(container, ChunkOf(~std::uint64_t{0} / 80)), result::kOk);
}

TEST(UpdateIterationChunk, CompetesByVersionThenOrder) {
  oocpctest::ExpectEligibility<Container>(ChunkOf(5), kType);
  oocpctest::ExpectNewerThenLaterWins<Container>(ChunkOf(5), kType);
}

class IterationReading : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Load(container_, ChunkOf(4)), result::kOk); }

  HRESULT Read(std::uint64_t index, std::uint64_t count = 4) {
    return container_.ReadUpdateIterations(index, count, record_);
  }

  FakeRepository repository_{Bytes{}, {{Container::kStreamName, Records(4)}}};
  Container container_{&repository_, kType};
  std::uint8_t record_[OOCPCUpdateIteration::kRecordBytes]{};
};

TEST_F(IterationReading, GivesTheRecordOfAnIndex) {
  for (const std::uint64_t index : {3u, 0u, 2u}) {
    ASSERT_EQ(Read(index), result::kOk);
    OOCPCUpdateIteration iteration;
    ASSERT_EQ(
        iteration.Unstream(container_.GetStreamVersion(), record_, container_.GetRecordSize()),
        result::kOk);
    EXPECT_EQ(iteration.timePoint, 1000 + index);
  }
  EXPECT_TRUE(repository_.GetLog()->AllStreamsDestroyed());
}

TEST_F(IterationReading, RefusesIndicesBehindTheCount) {
  EXPECT_EQ(Read(4), result::kIndexOutOfRange);
  EXPECT_EQ(Read(~std::uint64_t{0}), result::kIndexOutOfRange);
  EXPECT_EQ(Read(2, 2), result::kIndexOutOfRange);
  EXPECT_EQ(Read(4, 5), result::kIndexOutOfRange) << "the chunk's own count holds, too";
}

TEST_F(IterationReading, RefusesACountThatTheStreamDoesNotHold) {
  EXPECT_EQ(Read(0, 5), result::kStreamShort);
  EXPECT_EQ(Read(0, ~std::uint64_t{0}), result::kStreamShort);
  Bytes cut = Records(4);
  cut.pop_back();
  repository_.Add(Container::kStreamName, cut);
  EXPECT_EQ(Read(0), result::kStreamShort);
}

TEST_F(IterationReading, LeavesTheBufferAloneWhenItFails) {
  Bytes altered = Records(4);
  altered[80 + 3] ^= 1;
  repository_.Add(Container::kStreamName, altered);
  record_[0] = 123;
  EXPECT_EQ(Read(1), result::kChecksumMismatch);
  EXPECT_EQ(record_[0], 123);
  EXPECT_EQ(Read(2), result::kOk);
}

TEST_F(IterationReading, ReportsStreamsThatFail) {
  EXPECT_EQ(container_.ReadUpdateIterations(0, 4, nullptr), result::kFail);
  repository_.Behaviour(Container::kStreamName).shortRead = 0;
  EXPECT_EQ(Read(0), result::kStreamShort);
  repository_.Behaviour(Container::kStreamName).usable = false;
  EXPECT_EQ(Read(0), result::kIoError);
  repository_.Behaviour(Container::kStreamName).absent = true;
  EXPECT_EQ(Read(0), result::kStreamMissing);
  Container homeless(nullptr, kType);
  ASSERT_EQ(Load(homeless, ChunkOf(4)), result::kOk);
  EXPECT_EQ(homeless.ReadUpdateIterations(0, 4, record_), result::kNoRepository);
  EXPECT_TRUE(repository_.GetLog()->AllStreamsDestroyed());
}

TEST_F(IterationReading, WorksFromOneContainerAndItsCloneOnTwoThreads) {
  const std::unique_ptr<Container> clone(container_.Clone());
  EXPECT_EQ(clone->GetIterationCount(), 4u);
  EXPECT_EQ(clone->GetChunkType(), kType);
  const auto work = [](const Container* container) {
    for (std::uint64_t i = 0; i < 400; ++i) {
      std::uint8_t record[OOCPCUpdateIteration::kRecordBytes];
      ASSERT_EQ(container->ReadUpdateIterations(i % 4, 4, record), result::kOk);
      OOCPCUpdateIteration iteration;
      ASSERT_EQ(iteration.Unstream(1, record, sizeof(record)), result::kOk);
      ASSERT_EQ(iteration.timePoint, 1000 + i % 4);
    }
  };
  std::thread first(work, &container_);
  std::thread second(work, &container_);
  std::thread third(work, clone.get());
  first.join();
  second.join();
  third.join();
}

}  // namespace
