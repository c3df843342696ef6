// What becomes of a background load that fails, or that cannot be started, and what it leaves.
#include <pthread.h>

#include <latch>
#include <optional>
#include <system_error>
#include <thread>

#include "tests/OOCPointCloudTarn/lod/LodRig.h"
#include "tests/support/NothrowAllocation.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

const std::string kNodes = NodeStreamName(7);

class BackgroundFailures : public LodCaches {
 protected:
  void SetUp() override { rig.PutWithNodes(SampleLodBlock(10)); }

  void ExpectAFailedLoad() {
    const FoundNode failed{result::kLodShortRead, FoundNode().value, FoundNode().word};
    ASSERT_EQ(rig.Load(true), result::kOk);
    EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kLodShortRead);
    EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kLodShortRead);
    EXPECT_EQ(Find(*rig.cache, 0), failed) << "also for a node that was loaded";
    EXPECT_EQ(Find(*rig.cache, 9), failed);
    EXPECT_FALSE(rig.cache->ReleaseFinishedWorker());
    EXPECT_NE(rig.Inside().Worker(), nullptr);
  }
};

TEST_F(BackgroundFailures, AreToldAboutAStreamThatIsCut) {
  Bytes records = SampleNodeRecords(6);
  records.resize(records.size() - 50);
  rig.Streams().Add(kNodes, records);
  ExpectAFailedLoad();
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 5u);
}

TEST_F(BackgroundFailures, AreToldAboutAReadThatFails) {
  rig.Streams().Behaviour(kNodes).shortRead = 4;
  ExpectAFailedLoad();
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 4u);
}

TEST_F(BackgroundFailures, AreForgottenByAReset) {
  rig.Streams().Behaviour(kNodes).shortRead = 4;
  ExpectAFailedLoad();
  rig.Streams().Behaviour(kNodes).shortRead = FakeStreamBehaviour::kNever;
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 0), kNoNode);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  ASSERT_EQ(rig.Load(false), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 9), SampleNode(9));
}

TEST_F(BackgroundFailures, OfTheFirstRecordAreTheCallers) {
  rig.Streams().Behaviour(kNodes).shortRead = 0;
  EXPECT_EQ(rig.Load(true), result::kLodShortRead);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(Find(*rig.cache, 0), kNoNode);
}

TEST_F(BackgroundFailures, IncludeAWorkerThatCannotBeMade) {
  nothrowAllocationsLeft = 0;
  const HRESULT code = rig.Load(true);
  nothrowAllocationsLeft = -1;
  EXPECT_EQ(code, result::kWorkerNotCreated);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(Find(*rig.cache, 0), SampleNode(0)) << "the first record was read";
  EXPECT_EQ(rig.Load(true), result::kOk);
}

#ifdef __GLIBC__
/// While this lives, threads get a stack that no address space has room for.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 60);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;
  ~NoMoreThreads() {
    pthread_setattr_default_np(&before_);
    pthread_attr_destroy(&before_);
  }

 private:
  pthread_attr_t before_;
};

TEST_F(BackgroundFailures, IncludeAThreadThatCannotBeStarted) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer loses count of threads that cannot be started";
#endif
  std::optional<std::error_code> raised;
  {
    const NoMoreThreads noMore;
    try {
      EXPECT_EQ(rig.Load(true), result::kOk) << "no error was raised";
    } catch (const std::system_error& error) {
      raised = error.code();
    }
  }
  ASSERT_TRUE(raised.has_value());
  EXPECT_EQ(*raised, std::errc::resource_unavailable_try_again);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_FALSE(rig.Inside().IsBusy());
  EXPECT_EQ(rig.Load(true), result::kOk) << "the lock was let go";
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
}
#endif

TEST_F(BackgroundFailures, IncludeAWaitOnTheThreadItself) {
  std::optional<std::error_code> raised;
  rig.Hooks().onRead = [&](const std::string& name, std::uint64_t number) {
    if (name != kNodes || number != 2) return;
    try {
      rig.cache->WaitForNodeLoading();
    } catch (const std::system_error& error) {
      raised = error.code();
    }
  };
  ASSERT_EQ(rig.Load(true), result::kOk);
  // Not before the other wait: on this thread the worker is joined for good.
  while (rig.Inside().Worker()->GetStatus() == TarnOOCLODNodeWorker::kRunning) {
    std::this_thread::yield();
  }
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
  ASSERT_TRUE(raised.has_value());
  EXPECT_EQ(*raised, std::errc::resource_deadlock_would_occur);
  EXPECT_FALSE(rig.Inside().IsBusy());
  EXPECT_EQ(Find(*rig.cache, 9), SampleNode(9)) << "the load went on";
}

class WorkerDestruction : public LodCaches {
 protected:
  void SetUp() override {
    rig.PutWithNodes(SampleLodBlock(2));
    rig.Hooks().onDelete = [this](const std::string& name) { rig.events->Add("delete " + name); };
    ASSERT_EQ(rig.Load(true), result::kOk);
    EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kFail);
    EXPECT_TRUE(rig.events->Get().empty()) << "the worker keeps all four";
  }
  const std::vector<std::string> kInOrder{"delete clone DEF_COLOR", "delete clone DEF_POSITION",
                                          "delete " + kNodes, "delete DEF_LOD"};
};

TEST_F(WorkerDestruction, TakesClonesFirstAndTheLodStreamLast) {
  EXPECT_TRUE(rig.cache->ReleaseFinishedWorker());
  EXPECT_EQ(rig.events->Get(), kInOrder);
}

TEST_F(WorkerDestruction, ComesBeforeTheLevelContainersGo) {
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  const auto events = rig.events->Get();
  ASSERT_EQ(events.size(), 6u);
  EXPECT_EQ(std::vector<std::string>(events.begin(), events.begin() + 4), kInOrder);
}

TEST_F(WorkerDestruction, ComesFirstAlsoInTheDestructor) {
  rig.cache.reset();
  const auto events = rig.events->Get();
  ASSERT_EQ(events.size(), 6u);
  EXPECT_EQ(std::vector<std::string>(events.begin(), events.begin() + 4), kInOrder);
}

}  // namespace
