// Update iterations, octree nodes and origins: reading, caching, racing.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

/// Forwards to another repository; calls `onOpen` once, when the stream of that name is opened.
class InterruptedRepository final : public OOCPCIDataRepository {
 public:
  InterruptedRepository(std::unique_ptr<FakeRepository> repository, std::string name)
      : repository_(std::move(repository)), name_(std::move(name)) {}
  void OnOpen(std::function<void()> onOpen) { onOpen_ = std::move(onOpen); }

  OOCPCIInputStream* CreateInputStream() override { return repository_->CreateInputStream(); }
  OOCPCIInputStream* CreateInputStream(std::string_view name) override {
    if (name == name_ && onOpen_ != nullptr) std::exchange(onOpen_, nullptr)();
    return repository_->CreateInputStream(name);
  }
  HRESULT SetRepositoryInformation(const OOCPCRepositoryInformation* information) override {
    return repository_->SetRepositoryInformation(information);
  }
  const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return repository_->GetRepositoryInformation();
  }

 private:
  std::unique_ptr<FakeRepository> repository_;
  std::string name_;
  std::function<void()> onOpen_;
};

class Iterations : public testing::Test {
 protected:
  void Attach(std::unique_ptr<FakeRepository> repository) {
    log_ = repository->GetLog();
    ASSERT_EQ(cloud_.AttachDataRepository(repository.release()), result::kOk);
  }

  TarnOOCPointCloud cloud_;
  TarnFrameworkAccess access_{cloud_};
  std::shared_ptr<const FakeRepositoryLog> log_;
};

TEST_F(Iterations, AreNoneWithoutARepository) {
  EXPECT_EQ(cloud_.GetUpdateIterationCount(), 0u);
  std::uint64_t time = 9;
  EXPECT_EQ(cloud_.GetTimePoint(0, time), result::kNoUpdateIterations);
  EXPECT_EQ(time, 9u);
  OOCPCUpdItrAcceleratorPayload payload{8, 9};
  EXPECT_EQ(access_.GetPayload(0, payload), result::kNoUpdateIterations);
  EXPECT_EQ(payload.sizeBytes, 9u);
  OOCPCUpdItrLODPayload lodPayload{8, 9};
  EXPECT_EQ(access_.GetLODPayload(0, lodPayload), result::kNoUpdateIterations);
  EXPECT_EQ(lodPayload.endBytes, 9u);
  std::vector<unsigned long long> times{1};
  EXPECT_EQ(cloud_.GetTimePoints(0, 1, times), result::kNoUpdateIterations);
  EXPECT_EQ(times.size(), 1u);
  OOCPCOctreeAcceleratorNode node;
  EXPECT_EQ(cloud_.GetOOCRootNode(0, node), result::kNoUpdateIterations);
}

TEST_F(Iterations, GiveTimesAndPayloads) {
  Attach(CompleteRepository(3));
  std::uint64_t time = 0;
  EXPECT_EQ(cloud_.GetTimePoint(2, time), result::kOk);
  EXPECT_EQ(time, 102u);
  OOCPCUpdItrAcceleratorPayload payload;
  EXPECT_EQ(access_.GetPayload(1, payload), result::kOk);
  EXPECT_EQ(payload.beginBytes, 160u);
  EXPECT_EQ(payload.sizeBytes, 320u);
  OOCPCUpdItrLODPayload lodPayload;
  EXPECT_EQ(access_.GetLODPayload(1, lodPayload), result::kOk);
  EXPECT_EQ(lodPayload.beginBytes, 10u);
  EXPECT_EQ(lodPayload.endBytes, 20u);
}

TEST_F(Iterations, GiveNoTimesForAnEmptyRange) {
  std::vector<unsigned long long> times{1, 2};
  EXPECT_EQ(cloud_.GetTimePoints(5, 5, times), result::kOk);
  EXPECT_EQ(cloud_.GetTimePoints(6, 5, times), result::kOk);
  EXPECT_EQ(times, (std::vector<unsigned long long>{1, 2}));
}

TEST_F(Iterations, AppendTimesBehindWhatIsThere) {
  Attach(CompleteRepository(3));
  std::vector<unsigned long long> times{1, 2};
  EXPECT_EQ(cloud_.GetTimePoints(0, 3, times), result::kOk);
  EXPECT_EQ(times, (std::vector<unsigned long long>{1, 2, 100, 101, 102}));
}

TEST_F(Iterations, KeepTheTimesBeforeAFailure) {
  auto repository = CompleteRepository(4);
  Bytes records = IterationRecords(4);
  records[2 * OOCPCUpdateIteration::kRecordBytes] ^= 1;
  repository->Add(OOCPCUpdateIterationContainer::kStreamName, records);
  Attach(std::move(repository));
  std::vector<unsigned long long> times;
  EXPECT_EQ(cloud_.GetTimePoints(0, 4, times), result::kChecksumMismatch);
  EXPECT_EQ(times, (std::vector<unsigned long long>{100, 101}));
  EXPECT_EQ(access_.IterationCache().size(), 2u) << "a failure is not remembered";
}

TEST_F(Iterations, BehindTheCountAreRefusedByTheContainer) {
  Attach(CompleteRepository(3));
  std::uint64_t time = 9;
  EXPECT_EQ(cloud_.GetTimePoint(3, time), result::kIndexOutOfRange);
  EXPECT_EQ(cloud_.GetTimePoint(~std::uint64_t{0}, time), result::kIndexOutOfRange);
  EXPECT_EQ(time, 9u);
}

TEST_F(Iterations, LeaveTheOutObjectAloneOnFailure) {
  Attach(CompleteRepository(1));
  const auto before = std::make_shared<OOCPCUpdateIteration>();
  auto iteration = before;
  EXPECT_EQ(access_.GetIteration(1, iteration), result::kIndexOutOfRange);
  EXPECT_EQ(iteration, before);
}

TEST_F(Iterations, AreReadOnce) {
  Attach(CompleteRepository(3));
  std::shared_ptr<OOCPCUpdateIteration> first;
  std::shared_ptr<OOCPCUpdateIteration> second;
  ASSERT_EQ(access_.GetIteration(1, first), result::kOk);
  const std::uint64_t reads = log_->reads;
  ASSERT_EQ(access_.GetIteration(1, second), result::kOk);
  EXPECT_EQ(first, second);
  EXPECT_EQ(log_->reads, reads);
}

TEST_F(Iterations, OfARecordThatSaysNothingAreKept) {
  // Sealed, so that it can be read, and contradicting itself, so that it cannot be decoded.
  Bytes record(OOCPCUpdateIteration::kRecordBytes - 4, 0xFF);
  oocpc::AppendChecksum(record);
  auto repository = CompleteRepository(1);
  repository->Add(OOCPCUpdateIterationContainer::kStreamName, record);
  Attach(std::move(repository));
  std::uint64_t time = 9;
  EXPECT_EQ(cloud_.GetTimePoint(0, time), result::kOk);
  EXPECT_EQ(time, 0u);
}

TEST_F(Iterations, AnswerFromTheCacheAfterADetachment) {
  Attach(CompleteRepository(3));
  std::shared_ptr<OOCPCUpdateIteration> iteration;
  ASSERT_EQ(access_.GetIteration(1, iteration), result::kOk);
  access_.DestroyDataRepository();
  std::uint64_t time = 0;
  EXPECT_EQ(cloud_.GetTimePoint(1, time), result::kOk);
  EXPECT_EQ(time, 101u);
  EXPECT_EQ(cloud_.GetTimePoint(2, time), result::kNoRepository) << "it was not read before";
  EXPECT_EQ(cloud_.GetUpdateIterationCount(), 3u);
}

TEST_F(Iterations, OfTheFormerRepositoryAnswerAfterANewAttachment) {
  Attach(CompleteRepository(3));
  std::uint64_t time = 0;
  ASSERT_EQ(cloud_.GetTimePoint(1, time), result::kOk);
  auto other = CompleteRepository(2);
  OOCPCUpdateIteration iteration;
  iteration.timePoint = 500;
  Bytes records;
  iteration.Stream(records);
  iteration.Stream(records);
  other->Add(OOCPCUpdateIterationContainer::kStreamName, records);
  Attach(std::move(other));
  EXPECT_EQ(cloud_.GetTimePoint(1, time), result::kOk);
  EXPECT_EQ(time, 101u);
  EXPECT_EQ(cloud_.GetTimePoint(0, time), result::kOk);
  EXPECT_EQ(time, 500u);
}

TEST_F(Iterations, InsertedMeanwhileStayInTheCache) {
  auto repository = std::make_unique<InterruptedRepository>(
      CompleteRepository(3), OOCPCUpdateIterationContainer::kStreamName);
  std::shared_ptr<OOCPCUpdateIteration> faster;
  repository->OnOpen([&] { EXPECT_EQ(access_.GetIteration(1, faster), result::kOk); });
  ASSERT_EQ(cloud_.AttachDataRepository(repository.release()), result::kOk);
  std::shared_ptr<OOCPCUpdateIteration> slower;
  EXPECT_EQ(access_.GetIteration(1, slower), result::kOk);
  EXPECT_NE(slower, faster);
  EXPECT_EQ(slower->timePoint, faster->timePoint);
  std::shared_ptr<OOCPCUpdateIteration> later;
  EXPECT_EQ(access_.GetIteration(1, later), result::kOk);
  EXPECT_EQ(later, faster);
}

TEST_F(Iterations, GiveTheLastNodeAsTheirRoot) {
  Attach(CompleteRepository(10));
  OOCPCOctreeAcceleratorNode node;
  ASSERT_EQ(cloud_.GetOOCRootNode(9, node), result::kOk);
  EXPECT_EQ(node.subtreePointCount, 9u) << "1600 bytes of nodes";
  ASSERT_EQ(cloud_.GetOOCNode(3, node), result::kOk);
  EXPECT_EQ(node.subtreePointCount, 3u);
  EXPECT_EQ(cloud_.GetOOCNode(10, node), result::kIndexOutOfRange);
  EXPECT_EQ(cloud_.GetOOCNode(~std::uint64_t{0}, node), result::kIndexOutOfRange);
}

TEST_F(Iterations, WithoutAWholeNodeHaveNoRoot) {
  OOCPCUpdateIteration iteration;
  iteration.acceleratorPayload.sizeBytes = 159;
  Bytes record;
  iteration.Stream(record);
  auto repository = CompleteRepository(1);
  repository->Add(OOCPCUpdateIterationContainer::kStreamName, record);
  Attach(std::move(repository));
  OOCPCOctreeAcceleratorNode node;
  EXPECT_EQ(cloud_.GetOOCRootNode(0, node), result::kIndexOutOfRange);
}

TEST_F(Iterations, NeedAnAcceleratorForTheirNodes) {
  OOCPCOctreeAcceleratorNode node;
  EXPECT_EQ(cloud_.GetOOCNode(0, node), result::kNoAcceleratorContainer);
  access_.IterationCache().insert({0, std::make_shared<OOCPCUpdateIteration>()});
  EXPECT_EQ(cloud_.GetOOCRootNode(0, node), result::kNoAcceleratorContainer);
  double origin[3] = {7, 8, 9};
  EXPECT_EQ(cloud_.GetOrigin(0, origin), result::kFail);
  EXPECT_EQ(origin[0], 7.0);
}

TEST_F(Iterations, HaveTheirOriginInTheMiddleOfTheRootBox) {
  Attach(CompleteRepository(2));
  double origin[3] = {};
  ASSERT_EQ(cloud_.GetOrigin(0, origin), result::kOk);
  EXPECT_EQ(origin[0], 1.0);
  EXPECT_EQ(origin[1], 2.0);
  EXPECT_EQ(origin[2], 3.0);
  const std::uint64_t reads = log_->reads;
  double again[3] = {};
  EXPECT_EQ(cloud_.GetOrigin(0, again), result::kOk);
  EXPECT_EQ(again[2], 3.0);
  EXPECT_EQ(log_->reads, reads);
  access_.DestroyDataRepository();
  EXPECT_EQ(cloud_.GetOrigin(0, again), result::kOk);
  EXPECT_EQ(cloud_.GetOrigin(1, again), result::kFail);
}

TEST_F(Iterations, HideWhyAnOriginCannotBeRead) {
  Attach(CompleteRepository(1));
  double origin[3] = {7, 8, 9};
  EXPECT_EQ(cloud_.GetOrigin(1, origin), result::kFail);
  EXPECT_EQ(origin[0], 7.0);
  EXPECT_EQ(access_.OriginCache().size(), 0u);
}

TEST_F(Iterations, SayWhenAnotherCallerComputedTheOriginMeanwhile) {
  auto repository = std::make_unique<InterruptedRepository>(CompleteRepository(1),
                                                            OOCPCAcceleratorContainer::kStreamName);
  double faster[3] = {};
  repository->OnOpen([&] { EXPECT_EQ(cloud_.GetOrigin(0, faster), result::kOk); });
  ASSERT_EQ(cloud_.AttachDataRepository(repository.release()), result::kOk);
  double slower[3] = {};
  EXPECT_EQ(cloud_.GetOrigin(0, slower), result::kNothingDone);
  EXPECT_EQ(slower[2], faster[2]);
  EXPECT_EQ(cloud_.GetOrigin(0, slower), result::kOk);
}

TEST_F(Iterations, MayBeReadByManyThreadsAtOnce) {
  constexpr std::uint64_t kCount = 64;
  constexpr int kThreads = 8;
  Attach(CompleteRepository(kCount));
  std::atomic<int> mistakes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (std::uint64_t step = 0; step < kCount; ++step) {
        const std::uint64_t i = t % 2 == 0 ? step : kCount - 1 - step;
        std::uint64_t time = 0;
        if (cloud_.GetTimePoint(i, time) != result::kOk || time != 100 + i) ++mistakes;
        double origin[3] = {};
        const HRESULT code = cloud_.GetOrigin(i, origin);
        if (code != result::kOk && code != result::kNothingDone) ++mistakes;
        if (origin[0] != static_cast<double>(i + 1)) ++mistakes;
        OOCPCOctreeAcceleratorNode node;
        if (cloud_.GetOOCNode(i, node) != result::kOk) ++mistakes;
        std::shared_ptr<OOCPCUpdateIteration> iteration;
        if (access_.GetIteration(i, iteration) != result::kOk) ++mistakes;
        if (iteration == nullptr || iteration->timePoint != 100 + i) ++mistakes;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mistakes, 0);
  EXPECT_EQ(access_.IterationCache().size(), kCount);
  EXPECT_EQ(access_.OriginCache().size(), kCount);
}

}  // namespace
