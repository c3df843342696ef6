// Loading node records on the caller's thread, and looking nodes up.
#include "tests/OOCPointCloudTarn/lod/LodRig.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

class NodeLoading : public LodCaches {
 protected:
  /// Loads a block with these records, of which it states `count`.
  HRESULT LoadRecords(const Bytes& records, std::uint32_t count) {
    rig.Put(SampleLodBlock(count));
    rig.Streams().Add(NodeStreamName(7), records);
    return rig.Load();
  }
  /// Opened while a block of that id is loaded.
  std::vector<std::string> NamesOpened(std::uint64_t nodeStreamId) {
    std::vector<std::string> names;
    rig.Hooks().onOpen = [&names](const std::string& name) { names.push_back(name); };
    rig.PutWithNodes(SampleLodBlock(1, nodeStreamId));
    EXPECT_EQ(rig.Load(), result::kOk);
    rig.Hooks().onOpen = nullptr;
    return names;
  }
};

TEST_F(NodeLoading, OpensTheStreamOfTheBlocksId) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(NamesOpened(42), (Names{"DEF_LOD", "DEF_OCTREE_LOD_NODES_42"}));
  EXPECT_EQ(NamesOpened(0), (Names{"DEF_LOD", "DEF_OCTREE_LOD_NODES_0"}));
  EXPECT_EQ(NamesOpened(100), (Names{"DEF_LOD", "DEF_OCTREE_LOD_NODES_100"}));
  EXPECT_EQ(NamesOpened(~std::uint64_t{0}),
            (Names{"DEF_LOD", "DEF_OCTREE_LOD_NODES_18446744073709551615"}));
}

TEST_F(NodeLoading, ReadsARecordsNumbersWhereTheyStand) {
  Bytes record(116);
  for (std::size_t i = 0; i < record.size(); ++i) record[i] = static_cast<std::uint8_t>(i);
  ASSERT_EQ(LoadRecords(record, 1), result::kOk);
  const FoundNode expected{result::kOk, 0x6B6A696867666564, 0x2F2E2D2C};
  EXPECT_EQ(Find(*rig.cache, 0x03020100, 0x07060504), expected);
  const TarnOOCLODNodeEntry& entry = rig.Inside().NodeEntries().at(0);
  EXPECT_EQ(entry.words[0], 0x03020100u);
  EXPECT_EQ(entry.words[12], 0x33323130u);
  EXPECT_EQ(entry.values[0], 0x3B3A393837363534u);
  EXPECT_EQ(entry.values[7], 0x737271706F6E6D6Cu);
}

TEST_F(NodeLoading, KeepsTheOrderOfTheRecords) {
  ASSERT_EQ(LoadRecords(SampleNodeRecords(100), 100), result::kOk);
  ASSERT_EQ(rig.Inside().NodeEntries().size(), 100u);
  for (std::uint32_t i = 0; i < 100; ++i) {
    EXPECT_EQ(rig.Inside().NodeEntries()[i].words[0], i);
    EXPECT_EQ(rig.Inside().NodeIndex().at({5, i}), i);
    EXPECT_EQ(Find(*rig.cache, i), SampleNode(i));
  }
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(NodeLoading, TellsLevelsAndIndicesApart) {
  Bytes records;
  AppendNodeRecord(records, 1, 2, 12, 120);
  AppendNodeRecord(records, 2, 1, 21, 210);
  AppendNodeRecord(records, 1, 22, 122, 1220);
  AppendNodeRecord(records, 1, 23, 123, 1230);
  AppendNodeRecord(records, 0xFFFFFFFF, 0xFFFFFFFF, 9, 90);
  ASSERT_EQ(LoadRecords(records, 5), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 1, 2), (FoundNode{result::kOk, 12, 120}));
  EXPECT_EQ(Find(*rig.cache, 2, 1), (FoundNode{result::kOk, 21, 210}));
  EXPECT_EQ(Find(*rig.cache, 1, 22), (FoundNode{result::kOk, 122, 1220}));
  EXPECT_EQ(Find(*rig.cache, 1, 23), (FoundNode{result::kOk, 123, 1230}));
  EXPECT_EQ(Find(*rig.cache, 0xFFFFFFFF, 0xFFFFFFFF), (FoundNode{result::kOk, 9, 90}));
  EXPECT_EQ(Find(*rig.cache, 2, 2), kNoNode);
  EXPECT_EQ(Find(*rig.cache, 1, 24), kNoNode);
}

TEST_F(NodeLoading, KeepsTheFirstOfTwoRecordsOfOneNode) {
  Bytes records;
  AppendNodeRecord(records, 3, 2, 1, 10);
  AppendNodeRecord(records, 3, 2, 2, 20);
  ASSERT_EQ(LoadRecords(records, 2), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 3, 2), (FoundNode{result::kOk, 1, 10}));
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 2u);
}

TEST_F(NodeLoading, ReadsAsManyRecordsAsTheHeaderStates) {
  ASSERT_EQ(LoadRecords(SampleNodeRecords(5), 2), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
  EXPECT_EQ(Find(*rig.cache, 2), kNoNode);
  ASSERT_EQ(LoadRecords({}, 0), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 0), kNoNode);
}

TEST_F(NodeLoading, StopsAtARecordThatIsCut) {
  Bytes records = SampleNodeRecords(3);
  records.pop_back();
  EXPECT_EQ(LoadRecords(records, 3), result::kLodShortRead);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1)) << "what came before stays";
  EXPECT_EQ(Find(*rig.cache, 2), kNoNode);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(LoadRecords({}, 1), result::kLodShortRead);
}

TEST_F(NodeLoading, AllocatesNoMoreThanTheStreamHolds) {
  EXPECT_EQ(LoadRecords(SampleNodeRecords(2), 0xFFFFFFFF), result::kLodShortRead);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 2u);
  EXPECT_LE(rig.Inside().NodeEntries().capacity(), 4u);
}

TEST_F(NodeLoading, KeepsTheStreamIdThatWasReadWhenALaterBlockIsCut) {
  ASSERT_EQ(LoadRecords(SampleNodeRecords(1), 1), result::kOk);
  ASSERT_EQ(rig.Inside().NodeStreamId(), 7u);
  Bytes cut = SampleLodBlock(1, 9).Head();
  cut.resize(cut.size() - 4);
  rig.Streams().Add(OOCPCLODContainer::kStreamName, cut);
  EXPECT_EQ(rig.Load(), result::kLodShortRead);
  EXPECT_EQ(rig.Inside().NodeStreamId(), 7u);
}

TEST_F(NodeLoading, IsOverForTheHostWhenItsStreamIsDeleted) {
  auto newer = SampleLodBlock(1);
  newer.version = 5;
  rig.Put(newer);
  int deleted = 0;
  rig.Hooks().onDelete = [&](const std::string& /*name*/) {
    ++deleted;
    EXPECT_FALSE(rig.Inside().IsBusy());
    OOCPCMetaDataContainer* container = nullptr;
    EXPECT_EQ(rig.cache->GetLevelContainer("absent", container), result::kLodNoLevelContainer);
  };
  EXPECT_EQ(rig.Load(), result::kLodBadVersion);
  rig.Hooks().onDelete = nullptr;
  EXPECT_EQ(deleted, 1);
}

TEST_F(NodeLoading, NeedsTheNodeStream) {
  rig.Put(SampleLodBlock());
  EXPECT_EQ(rig.Load(), result::kNoLodStream);
  rig.Streams().Add(NodeStreamName(7), SampleNodeRecords(2));
  rig.Streams().Behaviour(NodeStreamName(7)).usable = false;
  EXPECT_EQ(rig.Load(), result::kLodStreamUnusable);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(NodeLoading, NeedsAnOwnerWithARepository) {
  TarnOOCLODNodeCache orphan(nullptr, &rig.lodContainer);
  EXPECT_EQ(orphan.StartNodeLoading(nullptr, false), result::kLodNoRepository);
  TarnOOCPointCloud cloud;
  TarnOOCLODNodeCache cache(&cloud, &rig.lodContainer);
  EXPECT_EQ(cache.StartNodeLoading(nullptr, false), result::kLodNoRepository);
  EXPECT_EQ(cache.StartNodeLoading(nullptr, true), result::kLodNoRepository);
}

TEST_F(NodeLoading, MayBeStartedByItself) {
  ASSERT_EQ(LoadRecords(SampleNodeRecords(2), 2), result::kOk);
  std::unique_ptr<OOCPCIInputStream> lod(rig.repository.CreateInputStream("DEF_LOD"));
  EXPECT_EQ(rig.cache->StartNodeLoading(std::move(lod), false), result::kOk);
  EXPECT_TRUE(rig.AllStreamsDestroyed()) << "the stream was handed over";
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 4u);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
  EXPECT_FALSE(rig.Inside().IsBusy());
}

TEST_F(NodeLoading, ClonesNothingForMissingContainers) {
  rig.access.OwnedContainers().clear();
  EXPECT_EQ(LoadRecords(SampleNodeRecords(2), 2), result::kOk);
  EXPECT_TRUE(rig.Inside().ContainerMap().empty());
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
}

TEST(NodeHash, NumbersTheNodesOfAFullOctree) {
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(0, 0), 1u);
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(1, 0), 8u);
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(1, 7), 15u);
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(2, 3), 67u);
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(10, 0xFFFFFFFF), (1u << 30) + 0xFFFFFFFFull);
  EXPECT_EQ(TarnLodCacheAccess::HashOfNode(21, 5), (std::uint64_t{1} << 63) + 5);
}

TEST(NodeHash, IsTheIndexWhereTheLevelExceeds64Bits) {
  for (const std::uint32_t level : {22u, 23u, 43u, 64u, 0x55555556u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TarnLodCacheAccess::HashOfNode(level, 5), 5u) << level;
  }
}

}  // namespace
