// Walking the level-of-detail blocks of all update iterations.
#include "tests/OOCPointCloudTarn/lod/LodRig.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;
using Events = std::vector<std::string>;

constexpr const char* kLod = OOCPCLODContainer::kStreamName;

/// A cloud with update iterations whose blocks a test sets. The walked container, "walked", comes
/// after the cache was loaded, which therefore has no level container for it.
class WalkIterations : public testing::Test {
 protected:
  /// Attaches a repository of these blocks and loads the cache of iteration `own`.
  void Attach(const std::vector<LodBlock>& blocks, std::uint64_t own = 1) {
    auto hooked = std::make_unique<HookedRepository>(LodRepository(blocks));
    repository_ = hooked.get();
    ASSERT_EQ(cloud_.AttachDataRepository(hooked.release()), result::kOk);
    ASSERT_EQ(cloud_.GetLODNodeCache(own, shared_), result::kOk);
    cache_ = dynamic_cast<TarnOOCLODNodeCache*>(shared_.get());
    ASSERT_NE(cache_, nullptr);
    ASSERT_EQ(access_.AddContainer(new FakeMetaDataContainer(chunk_type::kStaticMetaData, "walked",
                                                             events_, behaviour_)),
              result::kOk);
    openBefore_ = CountOpenStreams();
  }
  HRESULT Walk(std::string_view name = "walked") { return cache_->WalkUpdateIterations(name, 77); }
  [[nodiscard]] FakeRepository& Streams() { return repository_->GetInner(); }
  [[nodiscard]] std::uint64_t CountOpenStreams() {
    const auto log = Streams().GetLog();
    return log->opened - log->destroyed;
  }
  /// Whether there are no more than the level containers opened before.
  [[nodiscard]] bool WalksStreamsAreDestroyed() { return CountOpenStreams() == openBefore_; }
  [[nodiscard]] bool HasLevelContainer() {
    OOCPCMetaDataContainer* container = nullptr;
    return cache_->GetLevelContainer("walked", container) == result::kOk && container != nullptr;
  }

  std::shared_ptr<EventLog> events_ = std::make_shared<EventLog>();
  std::shared_ptr<FakeContainerBehaviour> behaviour_ = std::make_shared<FakeContainerBehaviour>();
  HookedRepository* repository_ = nullptr;
  TarnOOCPointCloud cloud_;
  TarnFrameworkAccess access_{cloud_};
  std::shared_ptr<OOCPCLODNodeCache> shared_;
  TarnOOCLODNodeCache* cache_ = nullptr;
  std::uint64_t openBefore_ = 0;
};

/// Blocks with 10, 11, 12 … node entries.
std::vector<LodBlock> Blocks(std::uint32_t count) {
  std::vector<LodBlock> blocks = SampleLodBlocks(count);
  for (std::uint32_t i = 0; i < count; ++i) blocks[i].nodeEntryCount = 10 + i;
  return blocks;
}

TEST_F(WalkIterations, TellsEachLevelItsNodeEntriesAndTheValue) {
  Attach(Blocks(3));
  EXPECT_EQ(Walk(), result::kOk);
  EXPECT_EQ(events_->Get(), (Events{"extent 0 10 77", "delete level walked", "extent 1 11 77",
                                    "extent 2 12 77", "delete level walked"}));
}

TEST_F(WalkIterations, KeepsTheLevelContainerOfItsOwnIteration) {
  Attach(Blocks(3));
  EXPECT_FALSE(HasLevelContainer());
  EXPECT_EQ(Walk(), result::kOk);
  OOCPCMetaDataContainer* container = nullptr;
  ASSERT_EQ(cache_->GetLevelContainer("walked", container), result::kOk);
  EXPECT_EQ(container->GetLevel(), 1u);
  EXPECT_EQ(container->GetLevelNodeEntryCount(), 11u);
  EXPECT_EQ(container->GetLevelValue(), 77u);
  events_->Clear();
  EXPECT_EQ(Walk(), result::kOk);
  OOCPCMetaDataContainer* again = nullptr;
  ASSERT_EQ(cache_->GetLevelContainer("walked", again), result::kOk);
  EXPECT_EQ(again, container) << "the first one is kept";
  EXPECT_EQ(std::ranges::count(events_->Get(), "delete level walked"), 3);
}

TEST_F(WalkIterations, LeavesTheCachesOwnHeaderAlone) {
  auto blocks = Blocks(3);
  blocks[2].scale = 99;
  blocks[2].centre = {7, 8, 9};
  Attach(blocks);
  EXPECT_EQ(Walk(), result::kOk);
  EXPECT_EQ(TarnLodCacheAccess(*cache_).Header().nodeEntryCount, 11u);
  EXPECT_EQ(TarnLodCacheAccess(*cache_).NodeStreamId(), 1u);
  EXPECT_EQ(cache_->GetScale(), 0.25);
  double centre[3] = {};
  EXPECT_TRUE(cache_->GetCentre(centre));
  EXPECT_EQ(centre[0], 10.5);
  EXPECT_EQ(Find(*cache_, 1), SampleNode(1));
  EXPECT_TRUE(WalksStreamsAreDestroyed());
}

TEST_F(WalkIterations, TakesTheNamesLengthFromTheView) {
  Attach(Blocks(2));
  EXPECT_EQ(Walk(std::string_view("walked to the end").substr(0, 6)), result::kOk);
  EXPECT_EQ(events_->Get().size(), 3u);
  EXPECT_TRUE(HasLevelContainer());
}

TEST_F(WalkIterations, DoesNothingForACacheWithoutNodeEntries) {
  auto blocks = Blocks(2);
  blocks[1].nodeEntryCount = 0;
  Attach(blocks);
  Streams().Behaviour(kLod).absent = true;
  EXPECT_EQ(Walk(), result::kNothingDone);
  TarnOOCLODNodeCache orphan(nullptr, nullptr);
  EXPECT_EQ(orphan.WalkUpdateIterations("walked", 1), result::kNothingDone);
}

TEST_F(WalkIterations, NeedsAnOwnerWithARepository) {
  Attach(Blocks(2));
  access_.DestroyDataRepository();
  EXPECT_EQ(Walk(), result::kLodNoRepository);
  cache_->ForgetOwner(&cloud_);
  EXPECT_EQ(Walk(), result::kLodNoOwner);
}

TEST_F(WalkIterations, NeedsTheLodStream) {
  Attach(Blocks(2));
  Streams().Behaviour(kLod).absent = true;
  EXPECT_EQ(Walk(), result::kNoLodStream);
  Streams().Behaviour(kLod).absent = false;
  Streams().Behaviour(kLod).usable = false;
  EXPECT_EQ(Walk(), result::kLodStreamUnusable);
  Streams().Behaviour(kLod).usable = true;
  Streams().Behaviour(kLod).setPositionResult = result::kIoError;
  EXPECT_EQ(Walk(), result::kIoError);
  Streams().Behaviour(kLod).setPositionResult = result::kOk;
  cache_->DetachLODContainer();
  EXPECT_EQ(Walk(), result::kNoLodStream);
  EXPECT_TRUE(WalksStreamsAreDestroyed());
  EXPECT_TRUE(events_->Get().empty());
}

TEST_F(WalkIterations, NeedsTheNamedContainer) {
  Attach(Blocks(2));
  EXPECT_EQ(Walk("other"), result::kLodNoContainerForName);
  EXPECT_EQ(Walk("walke"), result::kLodNoContainerForName);
  behaviour_->hasLevelOfDetail = false;
  EXPECT_EQ(Walk(), result::kLodNoContainerForName);
  behaviour_->hasLevelOfDetail = true;
  behaviour_->givesLevelContainers = false;
  EXPECT_EQ(Walk(), result::kLodNoLevelContainer);
  EXPECT_TRUE(WalksStreamsAreDestroyed());
}

TEST_F(WalkIterations, RefusesAShortReadOfEachPartOfABlock) {
  Attach(Blocks(2));
  // Four parts of each of two blocks.
  for (std::uint64_t read = 0; read < 8; ++read) {
    Streams().Behaviour(kLod).shortRead = read;
    EXPECT_EQ(Walk(), result::kLodShortRead) << read;
    EXPECT_TRUE(WalksStreamsAreDestroyed());
  }
  Streams().Behaviour(kLod).shortRead = 8;
  EXPECT_EQ(Walk(), result::kOk);
}

TEST_F(WalkIterations, RefusesOtherVersions) {
  for (const std::uint8_t version : {0, 5}) {
    Attach(Blocks(2), 0);
    Bytes stream = Blocks(1)[0].Whole();
    stream.push_back(version);
    stream.resize(2 * stream.size());
    Streams().Add(kLod, stream);
    events_->Clear();
    EXPECT_EQ(Walk(), result::kLodBadVersion);
    EXPECT_EQ(events_->Get(), (Events{"extent 0 10 77", "delete level walked"}));
    EXPECT_TRUE(HasLevelContainer()) << "its own iteration came before";
    cache_ = nullptr;
    access_.LodNodeCacheMap().clear();
  }
}

TEST_F(WalkIterations, StopsWhereABlockLiesBehindTheStream) {
  Attach(Blocks(2));
  Bytes stream = Blocks(1)[0].Whole();
  stream.pop_back();
  Streams().Add(kLod, stream);
  EXPECT_EQ(Walk(), result::kSeekOutOfRange);
  EXPECT_FALSE(HasLevelContainer());
}

TEST_F(WalkIterations, StopsWhenALevelContainerRefuses) {
  behaviour_->onLevelExtent = [](std::uint64_t level) {
    return level == 1 ? result::kBadRecord : result::kNothingDone;
  };
  Attach(Blocks(3));
  EXPECT_EQ(Walk(), result::kBadRecord);
  EXPECT_EQ(events_->Get(), (Events{"extent 0 10 77", "delete level walked", "extent 1 11 77",
                                    "delete level walked"}));
  EXPECT_FALSE(HasLevelContainer());
  EXPECT_TRUE(WalksStreamsAreDestroyed());
}

TEST_F(WalkIterations, NoticesThatTheCloudWentMeanwhile) {
  behaviour_->onLevelExtent = [this](std::uint64_t /*level*/) {
    cache_->ForgetOwner(&cloud_);
    return result::kOk;
  };
  Attach(Blocks(3));
  EXPECT_EQ(Walk(), result::kLodNoOwner);
  EXPECT_EQ(events_->Get().size(), 2u);
}

TEST_F(WalkIterations, AsksForTheIterationCountInEveryRound) {
  behaviour_->onLevelExtent = [this](std::uint64_t /*level*/) {
    // The same cloud with one update iteration less.
    TarnFrameworkAccess::ChunkSelection selection;
    selection.acceleratorContainer =
        std::make_unique<OOCPCAcceleratorContainer>(chunk_type::kAccelerator1, repository_);
    selection.positionsContainer = std::make_unique<OOCPCStaticPositionsContainer>(repository_);
    const Bytes positions = PositionsPayload("other positions");
    EXPECT_EQ(selection.positionsContainer->LoadFromChunk(
                  positions.data(), static_cast<std::uint32_t>(positions.size())),
              result::kOk);
    selection.updateIterationContainer =
        std::make_unique<OOCPCUpdateIterationContainer>(repository_, chunk_type::kUpdateIterations);
    const Bytes iterations = UpdateIterationsPayload(1);
    EXPECT_EQ(selection.updateIterationContainer->LoadFromChunk(
                  iterations.data(), static_cast<std::uint32_t>(iterations.size())),
              result::kOk);
    return access_.LoadChunkSelection(std::move(selection));
  };
  Attach(Blocks(3));
  EXPECT_EQ(Walk(), result::kOk);
  EXPECT_EQ(cloud_.GetUpdateIterationCount(), 1u);
  EXPECT_EQ(events_->Get(), (Events{"extent 0 10 77", "delete level walked"}));
}

TEST_F(WalkIterations, WrapsTheLengthOfABlockAt32Bits) {
  // 66 and 3 and 9 times this are 2^32 + 173.
  LodBlock huge = SampleLodBlock(2, 0);
  huge.nodeEntryCount = 477218600;
  const Bytes second = SampleLodBlock(2, 1).Whole();
  LodBlock third = SampleLodBlock(2, 2);
  third.nodeEntryCount = 5;
  auto blocks = Blocks(3);
  Attach(blocks);
  Bytes stream = huge.Head();
  stream.resize(173);
  stream.insert(stream.end(), second.begin(), second.end());
  const Bytes last = third.Whole();
  stream.insert(stream.end(), last.begin(), last.end());
  Streams().Add(kLod, stream);
  EXPECT_EQ(Walk(), result::kOk);
  EXPECT_EQ(events_->Get(), (Events{"extent 0 477218600 77", "delete level walked", "extent 1 3 77",
                                    "extent 2 5 77", "delete level walked"}));
}

TEST_F(LodCaches, WalkNothingWithoutUpdateIterations) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  ASSERT_EQ(rig.cloud.GetUpdateIterationCount(), 0u);
  EXPECT_EQ(rig.cache->WalkUpdateIterations("no such name", 1), result::kOk);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(WalkIterations, RefusesABlockWhoseSealIsBroken) {
  std::vector<LodBlock> blocks = Blocks(2);
  blocks[0].extension.clear();
  OOCPCLODSeal{12345}.Encode(blocks[0].extension);
  Attach(blocks);
  EXPECT_EQ(Walk(), result::kChecksumMismatch);
  EXPECT_FALSE(HasLevelContainer());
}

}  // namespace
