// The plain operations of a node cache, and the places that all of them have.
#include <array>
#include <cstring>

#include "tests/OOCPointCloudTarn/lod/LodRig.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

using NodeCacheSlots = LodCaches;

#if defined(__x86_64__) && !defined(_WIN32)
// Under the usual C++ ABI a pointer to a virtual operation holds its place in the table, in bytes,
// plus one.
template <typename Operation>
std::size_t PlaceOf(Operation operation) {
  std::ptrdiff_t halves[2];
  static_assert(sizeof(halves) == sizeof(operation));
  std::memcpy(halves, &operation, sizeof(halves));
  return static_cast<std::size_t>(halves[0] - 1) / sizeof(void*);
}

TEST(NodeCacheInterface, KeepsTheOrderOfItsOperations) {
  using Cache = OOCPCLODNodeCache;
  const std::vector<std::size_t> places{PlaceOf(&Cache::Reset),
                                        PlaceOf(&Cache::HasLODContainer),
                                        PlaceOf(&Cache::SetLODContainer),
                                        PlaceOf(&Cache::DetachLODContainer),
                                        PlaceOf(&Cache::GetScale),
                                        PlaceOf(&Cache::GetCentre),
                                        PlaceOf(&Cache::GetCapabilities),
                                        PlaceOf(&Cache::ReleaseFinishedWorker),
                                        PlaceOf(&Cache::ReservedSlot10),
                                        PlaceOf(&Cache::LoadLODPayload),
                                        PlaceOf(&Cache::WaitForNodeLoading),
                                        PlaceOf(&Cache::GetLevelContainer),
                                        PlaceOf(&Cache::FindNode),
                                        PlaceOf(&Cache::ReservedSlot15),
                                        PlaceOf(&Cache::ReservedSlot16),
                                        PlaceOf(&Cache::WalkUpdateIterations),
                                        PlaceOf(&Cache::ReservedSlot18),
                                        PlaceOf(&Cache::StartNodeLoading),
                                        PlaceOf(&Cache::GetMetaDataContainer)};
  // The destructor comes first and takes two places.
  for (std::size_t i = 0; i < places.size(); ++i) EXPECT_EQ(places[i], i + 2) << "slot " << i + 2;
}
#endif

TEST_F(NodeCacheSlots, SayWhatTheCacheCanDo) {
  EXPECT_EQ(rig.cache->GetCapabilities(), 0x50000000u);
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.cache->GetCapabilities(), 0x50000000u);
}

TEST_F(NodeCacheSlots, ThatAreReservedFail) {
  EXPECT_EQ(rig.cache->ReservedSlot10(), result::kFail);
  EXPECT_EQ(rig.cache->ReservedSlot15(), result::kFail);
  EXPECT_EQ(rig.cache->ReservedSlot16(), result::kFail);
}

TEST_F(NodeCacheSlots, ThatDoNothingChangeNothing) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  rig.cache->ReservedSlot18();
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
}

TEST_F(NodeCacheSlots, GiveZeroesBeforeAnythingIsLoaded) {
  double centre[3] = {7, 8, 9};
  EXPECT_TRUE(rig.cache->GetCentre(centre));
  for (const double coordinate : centre) EXPECT_EQ(coordinate, 0.0);
  EXPECT_EQ(rig.cache->GetScale(), 0.0);
  EXPECT_EQ(Find(*rig.cache, 0, 0), kNoNode);
}

TEST_F(NodeCacheSlots, GiveScaleAndCentreOfTheBlock) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.cache->GetScale(), 0.25);
  double centre[3] = {};
  EXPECT_TRUE(rig.cache->GetCentre(centre));
  EXPECT_EQ(centre[0], 10.5);
  EXPECT_EQ(centre[1], -20.5);
  EXPECT_EQ(centre[2], 30.5);
}

TEST_F(NodeCacheSlots, ReplaceTheLodContainer) {
  EXPECT_TRUE(rig.cache->HasLODContainer());
  OOCPCLODContainer other(nullptr, chunk_type::kLevelOfDetail, "");
  EXPECT_EQ(rig.cache->SetLODContainer(&other), result::kOk);
  EXPECT_TRUE(rig.cache->HasLODContainer());
  rig.PutWithNodes(SampleLodBlock());
  EXPECT_EQ(rig.Load(), result::kNoLodStream) << "the other one has no repository";
  rig.cache->DetachLODContainer();
  EXPECT_FALSE(rig.cache->HasLODContainer());
  rig.cache->DetachLODContainer();
  EXPECT_FALSE(rig.cache->HasLODContainer());
  EXPECT_EQ(rig.cache->SetLODContainer(&rig.lodContainer), result::kOk);
  EXPECT_TRUE(rig.cache->HasLODContainer());
  EXPECT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.cache->SetLODContainer(nullptr), result::kOk);
  EXPECT_FALSE(rig.cache->HasLODContainer());
}

TEST_F(NodeCacheSlots, StartWithoutALodContainerWhereThereIsNone) {
  const TarnOOCLODNodeCache cache(&rig.cloud, nullptr);
  EXPECT_FALSE(cache.HasLODContainer());
}

TEST_F(NodeCacheSlots, ResetToWhatANewCacheIs) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(true), result::kOk);
  ASSERT_NE(rig.Inside().Worker(), nullptr);
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  EXPECT_EQ(rig.Inside().Worker(), nullptr);
  EXPECT_TRUE(rig.Inside().NodeIndex().empty());
  EXPECT_TRUE(rig.Inside().NodeEntries().empty());
  EXPECT_TRUE(rig.Inside().ContainerMap().empty());
  const OOCPCLODHeader& header = rig.Inside().Header();
  EXPECT_EQ(header.version, 0u);
  EXPECT_EQ(header.recordCount, 0u);
  EXPECT_EQ(header.nodeEntryCount, 0u);
  EXPECT_EQ(header.levelCount, 0u);
  EXPECT_EQ(header.reserved14, 0u);
  EXPECT_EQ(header.extensionBytes, 0u);
  for (const std::uint8_t byte : header.reserved20) EXPECT_EQ(byte, 0u);
  EXPECT_EQ(rig.cache->GetScale(), 0.0);
  double centre[3] = {7, 8, 9};
  EXPECT_TRUE(rig.cache->GetCentre(centre));
  for (const double coordinate : centre) EXPECT_EQ(coordinate, 0.0);
  EXPECT_TRUE(rig.cache->HasLODContainer()) << "the LOD container stays";
  EXPECT_EQ(Find(*rig.cache, 0), kNoNode);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(NodeCacheSlots, ResetTwiceAndLoadAgain) {
  rig.PutWithNodes(SampleLodBlock());
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  EXPECT_EQ(rig.cache->Reset(), result::kOk);
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
}

TEST_F(NodeCacheSlots, StartWithTheStatedTables) {
  EXPECT_GE(rig.Inside().NodeIndex().bucket_count(), 8u);
  EXPECT_EQ(rig.Inside().NodeIndex().max_load_factor(), 1.0F);
  EXPECT_EQ(rig.Inside().ContainerMap().max_load_factor(), 4.0F);
  EXPECT_EQ(rig.Inside().ContainerMap().unsafe_bucket_count(), 8u);
}

}  // namespace
