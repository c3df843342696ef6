// Loading nodes on a background thread: what is there when, and how it ends.
#include <thread>

#include "tests/OOCPointCloudTarn/lod/LodRig.h"
#include "tests/support/Latch.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

const std::string kNodes = NodeStreamName(7);

class BackgroundLoading : public LodCaches {
 protected:
  /// Puts a block and its nodes in place and holds the background thread at its first record until
  /// Go().
  void HoldAtRecord1(std::uint32_t records) {
    rig.PutWithNodes(SampleLodBlock(records));
    rig.Hooks().onRead = [this](const std::string& name, std::uint64_t number) {
      if (name == kNodes && number == 1) go_.Wait();
    };
  }
  void Go() { go_.CountDown(); }

  Latch go_{1};
};

TEST_F(BackgroundLoading, HasTheFirstNodeAtOnceAndTheOthersLater) {
  HoldAtRecord1(3);
  ASSERT_EQ(rig.Load(true), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 0), SampleNode(0));
  EXPECT_EQ(Find(*rig.cache, 1), kNoNode);
  EXPECT_EQ(Find(*rig.cache, 2), kNoNode);
  EXPECT_EQ(rig.Inside().Worker()->GetStatus(), TarnOOCLODNodeWorker::kRunning);
  Go();
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail) << "also when all went well";
  EXPECT_EQ(rig.Inside().Worker()->GetStatus(), TarnOOCLODNodeWorker::kFinished);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(Find(*rig.cache, i), SampleNode(i));
}

TEST_F(BackgroundLoading, IsWaitedForAnyNumberOfTimes) {
  rig.PutWithNodes(SampleLodBlock(3));
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail) << "there is no worker";
  ASSERT_EQ(rig.Load(true), result::kOk);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_NE(rig.Inside().Worker(), nullptr) << "waiting does not destroy it";
  EXPECT_TRUE(rig.cache->ReleaseFinishedWorker());
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_FALSE(rig.Inside().IsBusy());
}

TEST_F(BackgroundLoading, IsReleasedWhenItHasEnded) {
  EXPECT_TRUE(rig.cache->ReleaseFinishedWorker()) << "there is none";
  HoldAtRecord1(3);
  ASSERT_EQ(rig.Load(true), result::kOk);
  EXPECT_FALSE(rig.cache->ReleaseFinishedWorker()) << "it runs";
  Go();
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_TRUE(rig.cache->ReleaseFinishedWorker());
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.cache->ReleaseFinishedWorker());
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(Find(*rig.cache, 2), SampleNode(2)) << "the nodes stay";
}

TEST_F(BackgroundLoading, OfOneRecordEndsAtOnce) {
  rig.PutWithNodes(SampleLodBlock(1));
  ASSERT_EQ(rig.Load(true), result::kOk);
  ASSERT_NE(rig.Inside().Worker(), nullptr);
  EXPECT_EQ(Find(*rig.cache, 0), SampleNode(0));
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_EQ(rig.Inside().Worker()->GetStatus(), TarnOOCLODNodeWorker::kFinished);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 1u);
}

TEST_F(BackgroundLoading, OfNoRecordsReadsTheFirstAllTheSame) {
  rig.Put(SampleLodBlock(0));
  rig.Streams().Add(kNodes, SampleNodeRecords(2));
  ASSERT_EQ(rig.Load(true), result::kOk);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 1u);
  rig.Streams().Add(kNodes, {});
  EXPECT_EQ(rig.Load(true), result::kLodShortRead);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
}

TEST_F(BackgroundLoading, LetsManyThreadsLookNodesUpMeanwhile) {
  constexpr std::uint32_t kNodeCount = 5000;
  constexpr int kThreads = 8;
  HoldAtRecord1(kNodeCount);
  ASSERT_EQ(rig.Load(true), result::kOk);
  Latch started(kThreads);
  std::atomic<int> mistakes{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      started.CountDown();
      const auto first = static_cast<std::uint32_t>(t) * 997;
      for (std::uint32_t i = 0; i < kNodeCount; ++i) {
        const std::uint32_t number = (first + i) % kNodeCount;
        FoundNode found = Find(*rig.cache, number);
        while (found == kNoNode) {
          std::this_thread::yield();
          found = Find(*rig.cache, number);
        }
        if (found != SampleNode(number)) ++mistakes;
        if (Find(*rig.cache, number, 6) != kNoNode) ++mistakes;
      }
    });
  }
  started.Wait();
  Go();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mistakes, 0);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), kNodeCount);
}

TEST_F(BackgroundLoading, IsWaitedForByManyThreadsAtOnce) {
  HoldAtRecord1(100);
  ASSERT_EQ(rig.Load(true), result::kOk);
  std::atomic<int> answered{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      if (rig.cache->WaitForNodeLoading() == result::kFail) ++answered;
      OOCPCMetaDataContainer* container = nullptr;
      if (rig.cache->GetLevelContainer("DEF_COLOR", container) == result::kOk) ++answered;
    });
  }
  Go();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(answered, 8);
}

/// Holds the background thread at record 3 until it was asked to stop.
class BackgroundStopping : public LodCaches {
 protected:
  static constexpr std::uint32_t kRecords = 1000;

  void SetUp() override {
    rig.PutWithNodes(SampleLodBlock(kRecords));
    rig.Hooks().onRead = [this](const std::string& name, std::uint64_t number) {
      if (name != kNodes) return;
      ++nodesRead_;
      if (number != 3 || held_.IsOpen()) return;
      held_.CountDown();
      loaded_.Wait();
      while (!TarnLodCacheAccess::IsStopRequested(*worker_)) std::this_thread::yield();
    };
    ASSERT_EQ(rig.Load(true), result::kOk);
    worker_ = rig.Inside().Worker();
    loaded_.CountDown();
    held_.Wait();
  }

  Latch loaded_{1};
  const TarnOOCLODNodeWorker* worker_ = nullptr;
  Latch held_{1};
  std::atomic<std::uint32_t> nodesRead_{0};
};

TEST_F(BackgroundStopping, IsWhatTheDestructorDoes) {
  rig.cache.reset();
  EXPECT_LE(nodesRead_, 4u);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(BackgroundStopping, IsWhatResetDoes) {
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  EXPECT_LE(nodesRead_, 4u);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(Find(*rig.cache, 0), kNoNode);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
}

TEST_F(BackgroundStopping, IsWhatLoadingAnewDoes) {
  EXPECT_EQ(rig.Load(false), result::kOk);
  EXPECT_LE(nodesRead_, 4 + kRecords);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), kRecords);
  EXPECT_EQ(Find(*rig.cache, kRecords - 1), SampleNode(kRecords - 1));
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(BackgroundStopping, IsWhatLoadingAnewInTheBackgroundDoes) {
  EXPECT_EQ(rig.Load(true), result::kOk);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  EXPECT_LE(nodesRead_, 4 + kRecords);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), kRecords);
}

TEST_F(BackgroundStopping, IsWhatAnotherStartDoes) {
  EXPECT_EQ(rig.cache->StartNodeLoading(nullptr, false), result::kOk);
  EXPECT_LE(nodesRead_, 4 + kRecords);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_EQ(Find(*rig.cache, kRecords - 1), SampleNode(kRecords - 1));
}

}  // namespace
