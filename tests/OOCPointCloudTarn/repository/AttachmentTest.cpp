// Attaching repositories: what is installed, what is refused, and what a failure leaves behind.
#include <gtest/gtest.h>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"
#include "tests/support/NothrowAllocation.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

/// Attaches a main stream with the streams of a complete cloud.
HRESULT Attach(TarnOOCPointCloud& cloud, const MainStreamBuilder& main) {
  return cloud.AttachDataRepository(new FakeRepository(main.Bytes(), CompleteStreams()));
}

HRESULT AttachAlone(const MainStreamBuilder& main) {
  TarnOOCPointCloud cloud;
  return Attach(cloud, main);
}

MainStreamBuilder WithAccelerator() {
  MainStreamBuilder main;
  main.Chunk(chunk_type::kAccelerator1, AcceleratorPayload());
  return main;
}

MainStreamBuilder WithAcceleratorAndPositions() {
  return WithAccelerator().Chunk(chunk_type::kStaticPositions, PositionsPayload());
}

TEST(Attachment, StartsDetachedWithADefaultHeader) {
  TarnOOCPointCloud cloud;
  const TarnFrameworkAccess access(cloud);
  EXPECT_EQ(cloud.GetDataRepository(), nullptr);
  EXPECT_EQ(HeaderBytes(access.Header()), HeaderBytes());
  EXPECT_FALSE(access.HasMortonSeed());
  std::uint64_t index = 9;
  std::int32_t value = 9;
  access.GetSeedPlacement(index, value);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(value, -1);
}

TEST(Attachment, GivesCachesEightBucketsAndALoadOfFour) {
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  EXPECT_EQ(access.IterationCache().unsafe_bucket_count(), 8u);
  EXPECT_EQ(access.OriginCache().unsafe_bucket_count(), 8u);
  EXPECT_EQ(access.LodNodeCacheMap().unsafe_bucket_count(), 8u);
  EXPECT_EQ(access.IterationCache().max_load_factor(), 4.0F);
  EXPECT_EQ(access.OriginCache().max_load_factor(), 4.0F);
  EXPECT_EQ(access.LodNodeCacheMap().max_load_factor(), 4.0F);
}

TEST(Attachment, InstallsEverythingThatARepositoryHolds) {
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  FakeRepository* const repository = CompleteRepository().release();
  ASSERT_EQ(cloud.AttachDataRepository(repository), result::kOk);
  EXPECT_EQ(cloud.GetDataRepository(), repository);
  EXPECT_NE(access.Accelerator(), nullptr);
  EXPECT_NE(access.UpdateIterations(), nullptr);
  ASSERT_NE(access.Lod(), nullptr);
  EXPECT_STREQ(access.Lod()->GetName(), "");
  EXPECT_EQ(access.Accelerator()->GetChunkType(), 0x10000u);
  EXPECT_TRUE(access.HasMortonSeed());
  EXPECT_EQ(access.MortonSeed(), (std::array<double, 6>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(cloud.GetMetaDataNames(),
            (std::list<std::string>{"gps_time", "intensity", "DEF_POSITION"}));
  EXPECT_EQ(cloud.GetUpdateIterationCount(), 3u);
  EXPECT_EQ(repository->GetRepositoryInformation().generator, "test");
  ASSERT_NE(repository->GetStringRepository(), nullptr);
  EXPECT_EQ(repository->GetStringRepository()->GetCount(), 1u);
  EXPECT_EQ(cloud.GetContainer(OOCPCStringRepositoryContainer::kStreamName), nullptr);
  EXPECT_TRUE(repository->GetLog()->AllStreamsDestroyed());
}

TEST(Attachment, LaysMetaDataOutPositionsFirst) {
  TarnOOCPointCloud cloud;
  ASSERT_EQ(cloud.AttachDataRepository(CompleteRepository().release()), result::kOk);
  OOCPCMetaDataInfo& info = TarnFrameworkAccess(cloud).MetaDataInfo();
  EXPECT_EQ(info.GetMetaDataOffset("DEF_POSITION"), 0u);
  EXPECT_EQ(info.GetMetaDataSize("DEF_POSITION"), 24u);
  EXPECT_EQ(info.GetTotalMetaDataSize(), 24u + 2 + 8);
  EXPECT_EQ(info.GetMetaDataOffset("intensity") + info.GetMetaDataOffset("gps_time"),
            24u + std::min(24 + 2, 24 + 8))
      << "one behind the positions, the other behind that";
}

TEST(Attachment, KeepsSettings) {
  TarnOOCPointCloud cloud;
  cloud.GetSettings().pointBudget = 5;
  EXPECT_EQ(cloud.AttachDataRepository(nullptr), result::kNothingDone);
  const TarnOOCPointCloud copy = cloud;
  EXPECT_EQ(copy.GetSettings().pointBudget, 5u);
}

TEST(Attachment, OfNullLeavesADetachedCloudDetached) {
  TarnOOCPointCloud cloud;
  EXPECT_EQ(cloud.AttachDataRepository(nullptr), result::kNothingDone);
  EXPECT_EQ(cloud.GetDataRepository(), nullptr);
}

TEST(Attachment, OfNullDestroysTheFormerRepository) {
  TarnOOCPointCloud cloud;
  auto repository = CompleteRepository();
  const auto log = repository->GetLog();
  ASSERT_EQ(cloud.AttachDataRepository(repository.release()), result::kOk);
  EXPECT_EQ(cloud.AttachDataRepository(nullptr), result::kNothingDone);
  EXPECT_TRUE(log->repositoryDestroyed);
  EXPECT_EQ(cloud.GetDataRepository(), nullptr);
}

TEST(Attachment, WithoutDataDoesNothingButStaysAttached) {
  TarnOOCPointCloud cloud;
  auto* const repository = new FakeRepository(Bytes{});
  EXPECT_EQ(cloud.AttachDataRepository(repository), result::kNothingDone);
  EXPECT_EQ(cloud.GetDataRepository(), repository);
  EXPECT_EQ(repository->GetLog()->informationCalls, 0u);
}

TEST(Attachment, StopsQuietlyWhereTheParseEndedOnARejection) {
  TarnOOCPointCloud cloud;
  EXPECT_EQ(Attach(cloud, WithAcceleratorAndPositions().Chunk(chunk_type::kLevelOfDetail,
                                                              OfNewerVersion(LodPayload()))),
            result::kNothingDone);
  EXPECT_EQ(TarnFrameworkAccess(cloud).Accelerator(), nullptr);
}

TEST(Attachment, ResetsTheHeaderWhenDetached) {
  OOCPointCloudFileHeader header;
  header.version = 0;
  header.data5.fill(5);
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  EXPECT_EQ(Attach(cloud, MainStreamBuilder(header)), result::kNoAccelerator);
  EXPECT_EQ(HeaderBytes(access.Header()), HeaderBytes(header));
  access.SetSeedPlacement(4, 5);
  access.SetMortonSeed({1, 1, 1, 1, 1, 1});
  EXPECT_EQ(access.DestroyDataRepository(), result::kOk);
  EXPECT_EQ(cloud.GetDataRepository(), nullptr);
  EXPECT_EQ(HeaderBytes(access.Header()), HeaderBytes());
  std::uint64_t index = 9;
  std::int32_t value = 9;
  access.GetSeedPlacement(index, value);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(value, -1);
  EXPECT_FALSE(access.HasMortonSeed());
  EXPECT_EQ(access.MortonSeed()[0], 1.0);
}

TEST(Attachment, PassesOnWhyARepositoryRefusesItsInformation) {
  TarnOOCPointCloud cloud;
  auto repository = CompleteRepository();
  repository->AnswerInformationWith(result::kCatalogueMismatch);
  OOCPCIDataRepository* const attached = repository.get();
  EXPECT_EQ(cloud.AttachDataRepository(repository.release()), result::kCatalogueMismatch);
  EXPECT_EQ(cloud.GetDataRepository(), attached);
  EXPECT_TRUE(cloud.GetMetaDataNames().empty());
}

TEST(Attachment, GoesOnWhenTheRepositoryAnswersPositively) {
  TarnOOCPointCloud cloud;
  auto repository = CompleteRepository();
  repository->AnswerInformationWith(1);
  EXPECT_EQ(cloud.AttachDataRepository(repository.release()), result::kOk);
}

TEST(Attachment, NeedsPositions) {
  EXPECT_EQ(AttachAlone(WithAccelerator()), result::kNoPositions);
}

TEST(Attachment, NeedsAnAccelerator) {
  EXPECT_EQ(AttachAlone(MainStreamBuilder().Chunk(2, PositionsPayload())), result::kNoAccelerator);
}

TEST(Attachment, NeedsNeitherIterationsNorLevelOfDetail) {
  TarnOOCPointCloud cloud;
  EXPECT_EQ(Attach(cloud, WithAcceleratorAndPositions()), result::kOk);
  EXPECT_EQ(TarnFrameworkAccess(cloud).UpdateIterations(), nullptr);
  EXPECT_EQ(TarnFrameworkAccess(cloud).Lod(), nullptr);
  EXPECT_FALSE(TarnFrameworkAccess(cloud).HasMortonSeed());
}

TEST(Attachment, RefusesSecondPositions) {
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(2, PositionsPayload("OTHER"))),
            result::kSecondPositions);
}

TEST(Attachment, RefusesBrokenContainers) {
  Bytes broken = PositionsPayload();
  broken.back() ^= 1;
  EXPECT_EQ(AttachAlone(WithAccelerator().Chunk(2, broken)), result::kChecksumMismatch);
  EXPECT_EQ(AttachAlone(WithAccelerator().Chunk(2)), result::kBadRecord);
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(1, broken)), result::kChecksumMismatch);
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(chunk_type::kStringRepository, broken)),
            result::kChecksumMismatch);
}

TEST(Attachment, RefusesTheSameMetaDataNameTwice) {
  TarnOOCPointCloud cloud;
  EXPECT_EQ(Attach(cloud, WithAcceleratorAndPositions()
                              .Chunk(1, MetaDataPayload("a"))
                              .Chunk(1, MetaDataPayload("a"))),
            result::kDuplicateContainer);
  EXPECT_NE(cloud.GetContainer("a"), nullptr) << "what was installed before stays";
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(1, MetaDataPayload("DEF_POSITION"))),
            result::kDuplicateContainer);
}

TEST(Attachment, RefusesADirectChunkThatNothingReads) {
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(0x200, {1})),
            result::kUnknownMetaDataChunk);
}

TEST(Attachment, IgnoresChunksOfUnknownTypes) {
  EXPECT_EQ(AttachAlone(WithAcceleratorAndPositions().Chunk(0x77, {1}).Chunk(0x18000)),
            result::kOk);
}

TEST(Attachment, OfTheSameRepositoryReadsItAnew) {
  TarnOOCPointCloud cloud;
  OOCPCIDataRepository* const repository = CompleteRepository().release();
  ASSERT_EQ(cloud.AttachDataRepository(repository), result::kOk);
  ASSERT_EQ(cloud.AttachDataRepository(repository), result::kOk);
  std::uint64_t time = 0;
  EXPECT_EQ(cloud.GetTimePoint(0, time), result::kOk);
}

TEST(Attachment, KeepsFormerCoreContainersUntilTheCloudIsGone) {
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  ASSERT_EQ(cloud.AttachDataRepository(CompleteRepository(3).release()), result::kOk);
  const OOCPCAcceleratorContainer* const former = access.Accelerator();
  ASSERT_EQ(cloud.AttachDataRepository(CompleteRepository(1).release()), result::kOk);
  EXPECT_NE(access.Accelerator(), former);
  EXPECT_EQ(former->GetChunkType(), 0x10000u) << "still there";
  EXPECT_EQ(cloud.GetUpdateIterationCount(), 1u);
}

TEST(Attachment, ThatFailsKeepsFormerCoreContainersInPlace) {
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  ASSERT_EQ(cloud.AttachDataRepository(CompleteRepository(3).release()), result::kOk);
  const OOCPCAcceleratorContainer* const former = access.Accelerator();
  EXPECT_EQ(Attach(cloud, MainStreamBuilder()), result::kNoAccelerator);
  EXPECT_EQ(access.Accelerator(), former);
  EXPECT_EQ(cloud.GetUpdateIterationCount(), 3u);
  OOCPCOctreeAcceleratorNode node;
  EXPECT_EQ(cloud.GetOOCNode(0, node), result::kNoRepository) << "its repository is gone";
}

TEST(Attachment, SurvivesAFailureAtEveryRead) {
  HRESULT code = result::kFail;
  std::uint64_t read = 0;
  for (; code != result::kOk; ++read) {
    ASSERT_LT(read, 100u);
    TarnOOCPointCloud cloud;
    auto repository = CompleteRepository();
    repository->ShortenRead(read);
    const auto log = repository->GetLog();
    code = cloud.AttachDataRepository(repository.release());
    EXPECT_TRUE(log->AllStreamsDestroyed()) << read;
    EXPECT_NE(cloud.GetDataRepository(), nullptr) << read;
    const std::uint64_t bodyReads = 20;  // ten chunks of head and payload
    if (read == 0) {
      EXPECT_EQ(code, result::kNothingDone) << "the header";
    }
    if (read >= 1 && read <= bodyReads && read % 2 == 0) {
      EXPECT_EQ(code, result::kChunkPayloadShort) << read;
    }
    if (read >= 1 && read < 12 && read % 2 == 1) {
      EXPECT_EQ(code, result::kNoAccelerator) << read << ": ends before the accelerator's head";
    }
  }
  EXPECT_GT(read, 13u);
}

TEST(Attachment, FailsWhereTheDictionaryCannotBeRead) {
  auto repository = CompleteRepository();
  repository->Behaviour(OOCPCStringRepositoryContainer::kStreamName).shortRead = 0;
  TarnOOCPointCloud cloud;
  EXPECT_EQ(cloud.AttachDataRepository(repository.release()), result::kStreamShort);
}

TEST(Attachment, ReportsThatMemoryRanOut) {
  for (int left = 0; left < 4; ++left) {
    TarnOOCPointCloud cloud;
    auto repository = CompleteRepository();
    nothrowAllocationsLeft = left;
    const HRESULT code = cloud.AttachDataRepository(repository.release());
    nothrowAllocationsLeft = -1;
    EXPECT_EQ(code, result::kContainerNotAllocated) << left;
  }
  for (int left = 4; left < 7; ++left) {
    TarnOOCPointCloud cloud;
    auto repository = CompleteRepository();
    nothrowAllocationsLeft = left;
    const HRESULT code = cloud.AttachDataRepository(repository.release());
    nothrowAllocationsLeft = -1;
    EXPECT_EQ(code, result::kUnknownMetaDataChunk) << left;
  }
}

TEST(Attachment, ReportsAnAcceleratorThatCannotBeCloned) {
#if defined(_WIN32)
  GTEST_SKIP() << "the DLL that clones it has an allocation function of its own";
#endif
  TarnOOCPointCloud cloud;
  ASSERT_EQ(cloud.AttachDataRepository(CompleteRepository().release()), result::kOk);
  OOCPCOctreeAcceleratorNode node;
  nothrowAllocationsLeft = 0;
  const HRESULT ofNode = cloud.GetOOCNode(0, node);
  const HRESULT ofRoot = cloud.GetOOCRootNode(0, node);
  nothrowAllocationsLeft = -1;
  EXPECT_EQ(ofNode, result::kAcceleratorNotCloned);
  EXPECT_EQ(ofRoot, result::kAcceleratorNotCloned);
  EXPECT_EQ(cloud.GetOOCNode(0, node), result::kOk);
}

}  // namespace
