// Containers in general, and the empty one that serves as a search key.
#include <OOCPointCloud/OOCPCContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

TEST(DummyContainer, IsAKeyByName) {
  const OOCPCDummyContainer key(std::string_view("intensity and more").substr(0, 9));
  EXPECT_STREQ(key.GetName(), "intensity");
  EXPECT_EQ(key.GetChunkType(), 0u);
  EXPECT_FALSE(key.IsMetaData());
  EXPECT_EQ(key.GetRepository(), nullptr);
}

TEST(DummyContainer, IsAKeyByChunkType) {
  const OOCPCDummyContainer key(oocpc::ContainerChunkType{0xFF00});
  EXPECT_STREQ(key.GetName(), "");
  EXPECT_EQ(key.GetChunkType(), 0xFF00u);
}

TEST(DummyContainer, LoadsNothing) {
  OOCPCDummyContainer key("x");
  const std::uint8_t payload[] = {1, 2, 3};
  EXPECT_EQ(key.LoadFromChunk(payload, 3), oocpc::result::kFail);
  EXPECT_STREQ(key.GetName(), "x");
}

TEST(DummyContainer, ClonesNameAndType) {
  const OOCPCDummyContainer byType(oocpc::ContainerChunkType{7});
  const std::unique_ptr<OOCPCContainer> clone(byType.Clone());
  EXPECT_EQ(clone->GetChunkType(), 7u);
  const OOCPCDummyContainer byName("name");
  const std::unique_ptr<OOCPCContainer> named(byName.Clone());
  EXPECT_STREQ(named->GetName(), "name");
}

TEST(ContainerKind, CountsAsMetaDataByTheLowSixteenBits) {
  const auto isMetaData = [](oocpc::ContainerChunkType type) {
    return OOCPCDummyContainer(type).IsMetaData();
  };
  EXPECT_TRUE(isMetaData(oocpc::chunk_type::kStaticMetaData));
  EXPECT_TRUE(isMetaData(oocpc::chunk_type::kStaticPositions));
  EXPECT_TRUE(isMetaData(oocpc::chunk_type::kReservedDirect));
  EXPECT_TRUE(isMetaData(0x18000));
  EXPECT_FALSE(isMetaData(oocpc::chunk_type::kAccelerator1));
  EXPECT_FALSE(isMetaData(oocpc::chunk_type::kUpdateIterations));
  EXPECT_FALSE(isMetaData(oocpc::chunk_type::kLevelOfDetail));
  EXPECT_FALSE(isMetaData(oocpc::chunk_type::kStringRepository));
}

}  // namespace
