// The container registry and the metadata catalogue.
#include <gtest/gtest.h>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;
using Names = std::list<std::string>;

/// A container of any type and name that counts how many of it are alive.
class CountedContainer final : public OOCPCMetaDataContainer {
 public:
  static inline int alive = 0;

  CountedContainer(oocpc::ContainerChunkType type, std::string name)
      : OOCPCMetaDataContainer(nullptr, type, std::move(name)) {
    ++alive;
  }
  ~CountedContainer() override { --alive; }
  HRESULT LoadFromChunk(const std::uint8_t*, std::uint32_t) override { return result::kFail; }
  std::uint16_t GetDataSize() const override { return 1; }
  oocpc::ColumnType GetDeliveredType() const override { return {}; }
  oocpc::ColumnType GetStoredType() const override { return {}; }
  HRESULT GetBlockCount(std::uint64_t&) override { return result::kFail; }
  HRESULT ReadBlockEntry(std::uint64_t, oocpc::BlockEntry&) override { return result::kFail; }
  HRESULT ReadStoredBlock(std::uint64_t, std::vector<std::uint8_t>&) override {
    return result::kFail;
  }
  HRESULT ReadBlock(std::uint64_t, std::vector<std::uint8_t>&) override { return result::kFail; }
  HRESULT ReadStoredPoints(std::uint64_t, std::uint64_t, std::vector<std::uint8_t>&) override {
    return result::kFail;
  }
  HRESULT ReadPoints(std::uint64_t, std::uint64_t, std::vector<std::uint8_t>&) override {
    return result::kFail;
  }
  CountedContainer* Clone() const override {
    return new CountedContainer(GetChunkType(), GetName());
  }
};

class Registry : public testing::Test {
 protected:
  ~Registry() override {
    access_.DestroyDataRepository();
    EXPECT_EQ(CountedContainer::alive, 0);
  }
  HRESULT Add(oocpc::ContainerChunkType type, const char* name) {
    return access_.AddContainer(new CountedContainer(type, name));
  }

  TarnOOCPointCloud cloud_;
  TarnFrameworkAccess access_{cloud_};
};

TEST_F(Registry, RefusesNull) { EXPECT_EQ(access_.AddContainer(nullptr), result::kNullContainer); }

TEST_F(Registry, RefusesAndDestroysASecondContainerOfAName) {
  ASSERT_EQ(Add(1, "a"), result::kOk);
  OOCPCContainer* const first = cloud_.GetContainer("a");
  EXPECT_EQ(Add(2, "a"), result::kNameRegistered);
  EXPECT_EQ(CountedContainer::alive, 1);
  EXPECT_EQ(cloud_.GetContainer("a"), first);
  EXPECT_EQ(access_.OwnedContainers().size(), 1u);
}

TEST_F(Registry, RefusesTheSameContainerTwiceWithoutDestroyingIt) {
  auto* const container = new CountedContainer(1, "a");
  ASSERT_EQ(access_.AddContainer(container), result::kOk);
  EXPECT_EQ(access_.AddContainer(container), result::kNameRegistered);
  EXPECT_EQ(cloud_.GetContainer("a"), container);
  EXPECT_EQ(CountedContainer::alive, 1);
}

TEST_F(Registry, RefusesAndDestroysAnEqualContainer) {
  CountedContainer owned(1, "a");
  access_.OwnedContainers().insert(&owned);
  EXPECT_EQ(Add(1, "a"), result::kDuplicateContainer);
  EXPECT_EQ(CountedContainer::alive, 1);
  EXPECT_EQ(Add(2, "a"), result::kOk) << "another type is not equal";
  access_.OwnedContainers().erase(&owned);
}

TEST_F(Registry, FindsContainersByTheirWholeName) {
  ASSERT_EQ(Add(1, "intensity"), result::kOk);
  ASSERT_EQ(Add(1, "z"), result::kOk);
  EXPECT_NE(cloud_.GetContainer("intensity"), nullptr);
  EXPECT_EQ(cloud_.GetContainer("intens"), nullptr);
  EXPECT_EQ(cloud_.GetContainer("intensity2"), nullptr);
  EXPECT_EQ(cloud_.GetContainer("Intensity"), nullptr);
  EXPECT_EQ(cloud_.GetContainer(""), nullptr);
  EXPECT_EQ(cloud_.GetContainer(nullptr), nullptr);
}

TEST_F(Registry, OrdersNamesByUnsignedBytes) {
  ASSERT_EQ(Add(1, "\xC3\xA9"), result::kOk);
  ASSERT_EQ(Add(1, "z"), result::kOk);
  ASSERT_EQ(Add(1, "Z"), result::kOk);
  EXPECT_EQ(cloud_.GetMetaDataNames(), (Names{"Z", "z", "\xC3\xA9"}));
  EXPECT_NE(cloud_.GetContainer("\xC3\xA9"), nullptr);
}

TEST_F(Registry, ListsMetaDataByTypeThenName) {
  ASSERT_EQ(Add(2, "DEF_POSITION"), result::kOk);
  ASSERT_EQ(Add(0x200, "b"), result::kOk);
  ASSERT_EQ(Add(1, "z"), result::kOk);
  ASSERT_EQ(Add(1, "y"), result::kOk);
  EXPECT_EQ(cloud_.GetMetaDataNames(), (Names{"y", "z", "DEF_POSITION", "b"}));
}

TEST_F(Registry, ListsAContainerOfBothBytesTwice) {
  ASSERT_EQ(Add(1, "low"), result::kOk);
  ASSERT_EQ(Add(0x101, "both"), result::kOk);
  ASSERT_EQ(Add(0x200, "high"), result::kOk);
  EXPECT_EQ(cloud_.GetMetaDataNames(), (Names{"low", "both", "both", "high"}));
}

TEST_F(Registry, ListsReservedTypesThatShareBitsWithMetaDataAsTheirOrderFallsOut) {
  ASSERT_EQ(Add(0x201, "odd"), result::kOk);
  ASSERT_EQ(Add(0x200, "high"), result::kOk);
  // 0x200 comes first and ends the range of the low byte before 0x201 is reached.
  EXPECT_EQ(cloud_.GetMetaDataNames(), (Names{"high", "odd"}));
  ASSERT_EQ(Add(1, "low"), result::kOk);
  EXPECT_EQ(cloud_.GetMetaDataNames(), (Names{"low", "high", "odd"}));
}

TEST_F(Registry, NeverListsContainersWithoutLowBits) {
  ASSERT_EQ(Add(0, "none"), result::kOk);
  ASSERT_EQ(Add(0x10000, "accelerator"), result::kOk);
  ASSERT_EQ(Add(0x50000000, "lod"), result::kOk);
  ASSERT_EQ(Add(0x10001, "odd"), result::kOk);
  EXPECT_EQ(cloud_.GetMetaDataNames(), Names{});
  EXPECT_NE(cloud_.GetContainer("accelerator"), nullptr);
  EXPECT_EQ(cloud_.GetMetaDataContainer("accelerator"), nullptr);
  EXPECT_NE(cloud_.GetMetaDataContainer("odd"), nullptr);
}

TEST_F(Registry, ClonesMetaDataContainersForTheCaller) {
  ASSERT_EQ(Add(1, "a"), result::kOk);
  OOCPCMetaDataContainer* clone = nullptr;
  ASSERT_EQ(cloud_.CloneContainer("a", clone), result::kOk);
  ASSERT_NE(clone, nullptr);
  EXPECT_NE(clone, cloud_.GetContainer("a"));
  EXPECT_STREQ(clone->GetName(), "a");
  delete clone;
}

TEST_F(Registry, ClonesNothingElse) {
  ASSERT_EQ(Add(0x10000, "accelerator"), result::kOk);
  OOCPCMetaDataContainer* const before = cloud_.GetMetaDataContainer("none");
  OOCPCMetaDataContainer* clone = before;
  EXPECT_EQ(cloud_.CloneContainer("none", clone), result::kContainerNotCloned);
  EXPECT_EQ(cloud_.CloneContainer("accelerator", clone), result::kContainerNotCloned);
  EXPECT_EQ(clone, before);
}

TEST_F(Registry, AsksTheCatalogueForSizesNotTheContainers) {
  ASSERT_EQ(Add(1, "a"), result::kOk);
  EXPECT_FALSE(cloud_.IsRegistered("a"));
  EXPECT_EQ(cloud_.GetMetaDataSize("a"), 0u);
  access_.MetaDataInfo().RegisterMetaData("b", 0, 12);
  EXPECT_TRUE(cloud_.IsRegistered("b"));
  EXPECT_EQ(cloud_.GetMetaDataSize("b"), 12u);
  EXPECT_EQ(cloud_.GetContainer("b"), nullptr);
}

TEST_F(Registry, IsEmptyAfterADetachment) {
  ASSERT_EQ(Add(1, "a"), result::kOk);
  access_.MetaDataInfo().RegisterMetaData("a", 0, 1);
  access_.DestroyDataRepository();
  EXPECT_EQ(CountedContainer::alive, 0);
  EXPECT_EQ(cloud_.GetContainer("a"), nullptr);
  EXPECT_EQ(cloud_.GetMetaDataNames(), Names{});
  EXPECT_FALSE(cloud_.IsRegistered("a"));
}

TEST_F(Registry, SharesItsContainersWithCopies) {
  ASSERT_EQ(Add(1, "a"), result::kOk);
  TarnOOCPointCloud copy = cloud_;
  EXPECT_EQ(copy.GetContainer("a"), cloud_.GetContainer("a"));
  access_.DestroyDataRepository();
  EXPECT_EQ(CountedContainer::alive, 1);
  EXPECT_NE(copy.GetContainer("a"), nullptr);
}

}  // namespace
