// The level containers that a node cache makes when it is loaded.
#include <thread>

#include "tests/OOCPointCloudTarn/lod/LodRig.h"
#include "tests/support/Latch.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

class LevelContainers : public LodCaches {
 protected:
  void SetUp() override { rig.PutWithNodes(SampleLodBlock()); }
};

TEST_F(LevelContainers, AreMadeForEachMetaDataName) {
  rig.AddContainer(chunk_type::kLevelOfDetail, "not metadata");
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.Inside().ContainerMap().size(), 2u);
  for (const char* name : {"DEF_POSITION", "DEF_COLOR"}) {
    OOCPCMetaDataContainer* container = nullptr;
    ASSERT_EQ(rig.cache->GetLevelContainer(name, container), result::kOk) << name;
    EXPECT_STREQ(container->GetName(), name);
    EXPECT_EQ(container->GetLevel(), 7u) << "the node stream's id";
    EXPECT_NE(container, rig.cloud.GetContainer(name));
    OOCPCMetaDataContainer* same = nullptr;
    EXPECT_EQ(rig.cache->GetMetaDataContainer(name, same), result::kOk);
    EXPECT_EQ(same, container);
  }
}

TEST_F(LevelContainers, AreMadeOnceForANameThatIsListedTwice) {
  rig.AddContainer(0x101, "twice");
  ASSERT_EQ(rig.cloud.GetMetaDataNames().size(), 4u);
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.Inside().ContainerMap().size(), 3u);
}

TEST_F(LevelContainers, AreNotFoundUnderOtherNames) {
  ASSERT_EQ(rig.Load(), result::kOk);
  rig.Inside().ContainerMap().emplace("null", nullptr);
  for (const char* name : {"DEF_POSITIO", "DEF_POSITION2", "", "null"}) {
    OOCPCMetaDataContainer* container = rig.cloud.GetMetaDataContainer("DEF_COLOR");
    EXPECT_EQ(rig.cache->GetLevelContainer(name, container), result::kLodNoLevelContainer) << name;
    EXPECT_EQ(container, nullptr);
    container = rig.cloud.GetMetaDataContainer("DEF_COLOR");
    EXPECT_EQ(rig.cache->GetMetaDataContainer(name, container), result::kNothingDone) << name;
    EXPECT_EQ(container, nullptr);
  }
  OOCPCMetaDataContainer* container = rig.cloud.GetMetaDataContainer("DEF_COLOR");
  EXPECT_EQ(rig.cache->GetLevelContainer(nullptr, container), result::kLodNoLevelContainer);
  EXPECT_EQ(container, nullptr);
}

TEST_F(LevelContainers, NeedAPartForThemInTheContainer) {
  FakeContainerBehaviour behaviour;
  behaviour.hasLevelOfDetail = false;
  rig.AddContainer(chunk_type::kStaticMetaData, "flat", behaviour);
  EXPECT_EQ(rig.Load(), result::kLodNoContainerForName);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_TRUE(rig.Inside().ContainerMap().contains("DEF_COLOR")) << "it is listed before";
  EXPECT_FALSE(rig.Inside().ContainerMap().contains("DEF_POSITION")) << "it is listed behind";
}

TEST_F(LevelContainers, NeedTheContainerThatIsNamed) {
  rig.access.ContainersByName().clear();
  EXPECT_EQ(rig.Load(), result::kLodNoContainerForName);
}

TEST_F(LevelContainers, MustBeGiven) {
  FakeContainerBehaviour behaviour;
  behaviour.givesLevelContainers = false;
  rig.AddContainer(chunk_type::kStaticMetaData, "refuses", behaviour);
  EXPECT_EQ(rig.Load(), result::kLodNoLevelContainer);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LevelContainers, GoWithTheCache) {
  ASSERT_EQ(rig.Load(), result::kOk);
  rig.events->Clear();
  rig.cache.reset();
  auto events = rig.events->Get();
  std::sort(events.begin(), events.end());
  EXPECT_EQ(events,
            (std::vector<std::string>{"delete level DEF_COLOR", "delete level DEF_POSITION"}));
}

TEST_F(LevelContainers, AreNoneWithoutMetaData) {
  rig.access.OwnedContainers().clear();
  EXPECT_EQ(rig.Load(), result::kOk);
  EXPECT_TRUE(rig.Inside().ContainerMap().empty());
}

TEST(LevelContainerNames, AreHashedCharacterByCharacter) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  EXPECT_EQ(TarnLodCacheAccess::HashOfName(""), 0u);
  EXPECT_EQ(TarnLodCacheAccess::HashOfName("a"), std::uint64_t{'a'});
  EXPECT_EQ(TarnLodCacheAccess::HashOfName("ab"), (kFactor * 'a') ^ 'b');
  EXPECT_EQ(TarnLodCacheAccess::HashOfName("abc"), (((kFactor * 'a') ^ 'b') * kFactor) ^ 'c');
  EXPECT_EQ(TarnLodCacheAccess::HashOfName("\xFF"), ~std::uint64_t{0}) << "a signed byte";
}

TEST_F(LevelContainers, AreWaitedForWhileALoadIsBusy) {
  constexpr int kReaders = 4;
  Latch loading(1);
  Latch asking(kReaders);
  rig.Hooks().onRead = [&](const std::string& name, std::uint64_t number) {
    if (name != OOCPCLODContainer::kStreamName || number != 0) return;
    loading.CountDown();
    asking.Wait();
  };
  HRESULT loaded = result::kFail;
  std::thread loader([&] { loaded = rig.Load(); });
  loading.Wait();
  std::atomic<int> found{0};
  std::vector<std::thread> readers;
  readers.reserve(kReaders);
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      asking.CountDown();
      OOCPCMetaDataContainer* container = nullptr;
      if (rig.cache->GetLevelContainer("DEF_COLOR", container) == result::kOk) ++found;
    });
  }
  loader.join();
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(loaded, result::kOk);
  EXPECT_EQ(found, kReaders);
}

}  // namespace
