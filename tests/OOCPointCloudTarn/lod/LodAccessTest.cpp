// A point cloud's node caches: made once, shared, and what outlives what.
#include <thread>

#include "tests/OOCPointCloudTarn/lod/LodRig.h"
#include "tests/support/Latch.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;
using CachePointer = std::shared_ptr<OOCPCLODNodeCache>;

constexpr const char* kLod = OOCPCLODContainer::kStreamName;

class LodAccess : public testing::Test {
 protected:
  void Attach(std::uint64_t iterations = 3) {
    auto hooked = std::make_unique<HookedRepository>(LodRepository(SampleLodBlocks(iterations)));
    repository_ = hooked.get();
    log_ = repository_->GetInner().GetLog();
    ASSERT_EQ(cloud_->AttachDataRepository(hooked.release()), result::kOk);
  }
  TarnFrameworkAccess Access() { return TarnFrameworkAccess(*cloud_); }
  CachePointer Get(std::uint64_t iteration) {
    CachePointer cache;
    EXPECT_EQ(cloud_->GetLODNodeCache(iteration, cache), result::kOk);
    return cache;
  }
  static void ExpectFindsItsNodes(OOCPCLODNodeCache& cache) {
    EXPECT_EQ(Find(cache, 0), SampleNode(0));
    EXPECT_EQ(Find(cache, 1), SampleNode(1));
    EXPECT_EQ(Find(cache, 2), kNoNode);
  }

  std::unique_ptr<TarnOOCPointCloud> cloud_ = std::make_unique<TarnOOCPointCloud>();
  HookedRepository* repository_ = nullptr;
  std::shared_ptr<const FakeRepositoryLog> log_;
};

TEST_F(LodAccess, ReadsACacheOnce) {
  Attach();
  const CachePointer first = Get(1);
  ASSERT_NE(first, nullptr);
  ExpectFindsItsNodes(*first);
  OOCPCMetaDataContainer* container = nullptr;
  ASSERT_EQ(first->GetLevelContainer("DEF_POSITION", container), result::kOk);
  EXPECT_EQ(container->GetLevel(), 1u);
  const std::uint64_t opened = log_->opened;
  EXPECT_EQ(Get(1), first);
  EXPECT_EQ(log_->opened, opened);
  EXPECT_NE(Get(2), first);
  EXPECT_EQ(Access().LodNodeCacheMap().size(), 2u);
}

TEST_F(LodAccess, ReadsPastTheIterationCache) {
  Attach();
  Get(1);
  EXPECT_EQ(Access().IterationCache().size(), 0u) << "it is not filled";
  const auto wrong = std::make_shared<OOCPCUpdateIteration>();
  Access().IterationCache().insert({2, wrong});
  ExpectFindsItsNodes(*Get(2));
}

TEST_F(LodAccess, KeepsNothingOfAReadThatFails) {
  Attach();
  const auto before = std::make_shared<TarnOOCLODNodeCache>(nullptr, nullptr);
  CachePointer cache = before;
  EXPECT_EQ(cloud_->GetLODNodeCache(3, cache), result::kIndexOutOfRange);
  FakeStreamBehaviour& lod = repository_->GetInner().Behaviour(kLod);
  lod.shortRead = 2;
  EXPECT_EQ(cloud_->GetLODNodeCache(0, cache), result::kLodShortRead);
  lod.shortRead = FakeStreamBehaviour::kNever;
  repository_->GetInner().Behaviour(NodeStreamName(0)).absent = true;
  EXPECT_EQ(cloud_->GetLODNodeCache(0, cache), result::kNoLodStream);
  EXPECT_EQ(cache, before);
  EXPECT_EQ(Access().LodNodeCacheMap().size(), 0u);
  repository_->GetInner().Behaviour(NodeStreamName(0)).absent = false;
  ExpectFindsItsNodes(*Get(0));
}

TEST_F(LodAccess, NeedsUpdateIterations) {
  CachePointer cache;
  EXPECT_EQ(cloud_->GetLODNodeCache(0, cache), result::kNoUpdateIterations);
  EXPECT_EQ(cache, nullptr);
}

TEST_F(LodAccess, NeedsALodContainer) {
  auto repository = std::make_unique<FakeRepository>(
      MainStreamBuilder()
          .Chunk(chunk_type::kStaticPositions, PositionsPayload())
          .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
          .Chunk(chunk_type::kUpdateIterations, UpdateIterationsPayload(1))
          .Chunk(chunk_type::kRepositoryInformation, InformationPayload())
          .Bytes(),
      CompleteStreams(1));
  ASSERT_EQ(cloud_->AttachDataRepository(repository.release()), result::kOk);
  CachePointer cache;
  EXPECT_EQ(cloud_->GetLODNodeCache(0, cache), result::kNoLodStream);
}

TEST_F(LodAccess, NeedsTheStreamsOfEachColumn) {
  Attach();
  repository_->GetInner().Behaviour(oocpc::ColumnDataStreamName(1)).absent = true;
  CachePointer cache;
  EXPECT_EQ(cloud_->GetLODNodeCache(0, cache), result::kLodNoLevelContainer);
}

TEST_F(LodAccess, KeepsTheCacheOfTheFasterCaller) {
  Attach();
  CachePointer faster;
  bool nested = false;
  repository_->GetHooks()->onOpen = [&](const std::string& name) {
    if (name != kLod || std::exchange(nested, true)) return;
    faster = Get(1);
  };
  CachePointer slower;
  EXPECT_EQ(cloud_->GetLODNodeCache(1, slower), result::kNothingDone);
  ASSERT_NE(slower, nullptr);
  EXPECT_NE(slower, faster);
  ExpectFindsItsNodes(*slower);
  EXPECT_EQ(Get(1), faster);
}

TEST_F(LodAccess, ServesManyThreadsAtOnce) {
  constexpr int kThreads = 8;
  constexpr std::uint64_t kIterations = 16;
  Attach(kIterations);
  Latch start(kThreads);
  std::atomic<int> mistakes{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      start.ArriveAndWait();
      for (std::uint64_t i = 0; i < kIterations; ++i) {
        CachePointer cache;
        const HRESULT code = cloud_->GetLODNodeCache(i, cache);
        if (code != result::kOk && code != result::kNothingDone) ++mistakes;
        if (cache == nullptr || Find(*cache, 1) != SampleNode(1)) ++mistakes;
        CachePointer later;
        if (cloud_->GetLODNodeCache(i, later) != result::kOk) ++mistakes;
        // Either this thread's cache is the one that is kept, or it was told that it is not.
        if ((later == cache) != (code == result::kOk)) ++mistakes;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mistakes, 0);
  EXPECT_EQ(Access().LodNodeCacheMap().size(), kIterations);
}

TEST_F(LodAccess, KeepsCachesWhenTheRepositoryIsDetached) {
  Attach();
  const CachePointer cache = Get(1);
  Access().DestroyDataRepository();
  EXPECT_TRUE(log_->repositoryDestroyed);
  EXPECT_EQ(Get(1), cache);
  ExpectFindsItsNodes(*cache);
  CachePointer other;
  EXPECT_EQ(cloud_->GetLODNodeCache(2, other), result::kNoRepository);
  EXPECT_EQ(cache->LoadLODPayload({0, 66}, false), result::kNoLodStream);
  EXPECT_EQ(cache->WalkUpdateIterations("DEF_POSITION", 1), result::kLodNoRepository);
}

TEST_F(LodAccess, ReadsNothingFromAFormerRepository) {
  Attach();
  const CachePointer cache = Get(1);
  Attach(2);
  EXPECT_EQ(cache->LoadLODPayload({0, 66}, false), result::kNoLodStream);
  EXPECT_EQ(cache->WalkUpdateIterations("DEF_POSITION", 1), result::kNoLodStream);
  ExpectFindsItsNodes(*cache);
  EXPECT_EQ(cache->SetLODContainer(Access().Lod()), result::kOk);
  EXPECT_EQ(cache->WalkUpdateIterations("DEF_POSITION", 1), result::kOk) << "the new one's";
}

TEST_F(LodAccess, LeavesCachesTheirNodesWhenTheCloudIsGone) {
  Attach();
  const CachePointer cache = Get(1);
  cloud_.reset();
  ExpectFindsItsNodes(*cache);
  EXPECT_EQ(cache->GetScale(), 0.25);
  EXPECT_FALSE(cache->HasLODContainer());
  EXPECT_EQ(cache->LoadLODPayload({0, 66}, false), result::kLodNoOwner);
  EXPECT_EQ(cache->WalkUpdateIterations("DEF_POSITION", 1), result::kLodNoOwner);
  EXPECT_EQ(cache->StartNodeLoading(nullptr, false), result::kLodNoRepository);
  OOCPCMetaDataContainer* container = nullptr;
  EXPECT_EQ(cache->GetLevelContainer("DEF_COLOR", container), result::kOk);
  Bytes values;
  EXPECT_EQ(container->ReadPoints(1, 1, values), result::kOk);
  EXPECT_EQ(values, ValuesAsBytes<std::uint16_t>({22}));
}

TEST_F(LodAccess, EndsABackgroundLoadWithTheLastHolder) {
  Attach();
  CachePointer cache = Get(1);
  const std::uint64_t begin = SampleLodBlock().Whole().size();
  ASSERT_EQ(cache->LoadLODPayload({begin, 2 * begin}, true), result::kOk);
  cloud_.reset();
  EXPECT_EQ(cache->WaitForNodeLoading(), result::kFail);
  ExpectFindsItsNodes(*cache);
  cache.reset();
  EXPECT_TRUE(log_->AllStreamsDestroyed());
}

TEST_F(LodAccess, SharesCachesWithCopies) {
  Attach();
  const CachePointer cache = Get(1);
  TarnOOCPointCloud copy(*cloud_);
  TarnOOCPointCloud assigned;
  assigned = *cloud_;
  for (TarnOOCPointCloud* const cloud : {&copy, &assigned}) {
    CachePointer shared;
    EXPECT_EQ(cloud->GetLODNodeCache(1, shared), result::kOk);
    EXPECT_EQ(shared, cache);
    CachePointer own;
    EXPECT_EQ(cloud->GetLODNodeCache(2, own), result::kOk);
    EXPECT_NE(own, Get(2)) << "read after the copy was made";
  }
  cloud_.reset();
  CachePointer shared;
  EXPECT_EQ(copy.GetLODNodeCache(1, shared), result::kOk);
  EXPECT_EQ(shared, cache);
  ExpectFindsItsNodes(*shared);
  EXPECT_EQ(shared->LoadLODPayload({0, 66}, false), result::kLodNoOwner);
  CachePointer fresh;
  EXPECT_EQ(copy.GetLODNodeCache(0, fresh), result::kOk);
  ExpectFindsItsNodes(*fresh);
}

}  // namespace
