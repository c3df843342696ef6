// From selected chunks to core containers, and from a selection into the cloud.
#include <gtest/gtest.h>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

/// A cloud with a repository lent to it, and a selection to fill.
class Selections : public testing::Test {
 protected:
  Selections() { access_.Lend(repository_); }

  void Add(oocpc::ContainerChunkType type, Bytes payload) {
    selection_.selectedChunks.emplace_back(type, std::move(payload));
  }
  void AddPositions(const char* name = "DEF_POSITION") { Add(2, PositionsPayload(name)); }
  void AddAccelerator(oocpc::ContainerChunkType type = 0x10000) { Add(type, AcceleratorPayload()); }
  HRESULT Create() { return access_.CreateCoreContainers(selection_); }
  HRESULT Load() { return access_.LoadChunkSelection(std::move(selection_)); }
  [[nodiscard]] Bytes FirstBytes() const {
    Bytes bytes;
    for (const auto& chunk : selection_.selectedChunks) bytes.push_back(chunk.payload.at(0));
    return bytes;
  }

  FakeRepository repository_{Bytes{}, CompleteStreams()};
  TarnOOCPointCloud cloud_;
  TarnFrameworkAccess access_{cloud_};
  TarnFrameworkAccess::ChunkSelection selection_;
};

TEST_F(Selections, NeverExamineAFifthCoreChunk) {
  AddAccelerator();
  AddPositions("LEFT");
  Add(0x30000000, UpdateIterationsPayload(1));
  Add(0x50000000, LodPayload());
  AddPositions("TAKEN");
  // The last chunk takes each consumed one's place: accelerator, "TAKEN", LOD, iterations.
  EXPECT_EQ(Create(), result::kOk);
  EXPECT_NE(selection_.acceleratorContainer, nullptr);
  EXPECT_NE(selection_.updateIterationContainer, nullptr);
  EXPECT_NE(selection_.lodContainer, nullptr);
  ASSERT_NE(selection_.positionsContainer, nullptr);
  EXPECT_STREQ(selection_.positionsContainer->GetName(), "TAKEN");
  ASSERT_EQ(selection_.selectedChunks.size(), 1u);
  EXPECT_EQ(selection_.selectedChunks[0].payload, PositionsPayload("LEFT"));
}

TEST_F(Selections, RemoveConsumedChunksBySwappingWithTheLast) {
  Add(1, {1});
  AddAccelerator();
  Add(1, {2});
  Add(1, {3});
  AddPositions();
  Add(1, {4});
  EXPECT_EQ(Create(), result::kOk);
  // 1 A 2 3 P 4 -> 1 4 2 3 P -> 1 4 2 3.
  EXPECT_EQ(FirstBytes(), (Bytes{1, 4, 2, 3}));
}

TEST_F(Selections, RefuseASecondAccelerator) {
  AddAccelerator(0x10000);
  AddAccelerator(0x20000);
  EXPECT_EQ(Create(), result::kSecondAccelerator);
}

TEST_F(Selections, RefuseSecondUpdateIterations) {
  Add(0x30000000, UpdateIterationsPayload(1));
  Add(0x30000000, UpdateIterationsPayload(1));
  EXPECT_EQ(Create(), result::kSecondUpdateIterations);
}

TEST_F(Selections, RefuseASecondLevelOfDetail) {
  Add(0x50000000, LodPayload());
  Add(0x50000000, LodPayload());
  EXPECT_EQ(Create(), result::kSecondLod);
}

TEST_F(Selections, RefuseSecondPositions) {
  AddPositions();
  AddPositions();
  EXPECT_EQ(Create(), result::kSecondPositions);
}

TEST_F(Selections, RefuseASlotThatIsTaken) {
  selection_.lodContainer = std::make_unique<OOCPCLODContainer>(&repository_, 0x50000000, "");
  EXPECT_EQ(Create(), result::kContainerSlotTaken);
  selection_ = {};
  selection_.positionsContainer = std::make_unique<OOCPCStaticPositionsContainer>(&repository_);
  EXPECT_EQ(Create(), result::kContainerSlotTaken);
}

TEST_F(Selections, NeedARepository) {
  TarnOOCPointCloud detached;
  EXPECT_EQ(TarnFrameworkAccess(detached).CreateCoreContainers(selection_), result::kNoRepository);
}

TEST_F(Selections, LoadNothingWithoutAnAcceleratorButTheSeed) {
  selection_.mortonSeed = {0, 0, 0, 0, 0, -0.0};
  EXPECT_EQ(Load(), result::kNoAccelerator);
  EXPECT_TRUE(access_.HasMortonSeed()) << "a negative zero is not all zero bytes";
}

TEST_F(Selections, LeaveTheSeedAloneWhenTheirsIsAllZero) {
  access_.SetMortonSeed({1, 2, 3, 4, 5, 6});
  EXPECT_EQ(Load(), result::kNoAccelerator);
  EXPECT_TRUE(access_.HasMortonSeed());
  EXPECT_EQ(access_.MortonSeed()[5], 6.0);
  access_.UnsetMortonSeed();
  EXPECT_EQ(access_.LoadChunkSelection({}), result::kNoAccelerator);
  EXPECT_FALSE(access_.HasMortonSeed());
}

TEST_F(Selections, KeepTheAcceleratorWhenPositionsAreMissing) {
  AddAccelerator();
  ASSERT_EQ(Create(), result::kOk);
  EXPECT_EQ(Load(), result::kNoPositions);
  EXPECT_NE(access_.Accelerator(), nullptr);
}

TEST_F(Selections, RefusePositionsWhoseNameIsRegistered) {
  access_.MetaDataInfo().RegisterMetaData("DEF_POSITION", 0, 1);
  AddAccelerator();
  AddPositions();
  ASSERT_EQ(Create(), result::kOk);
  EXPECT_EQ(Load(), result::kSecondPositions);
}

TEST_F(Selections, RefusePositionsWhoseContainerNameIsTaken) {
  ASSERT_EQ(access_.AddContainer(new OOCPCDummyContainer("DEF_POSITION")), result::kOk);
  AddAccelerator();
  AddPositions();
  ASSERT_EQ(Create(), result::kOk);
  EXPECT_EQ(Load(), result::kNameRegistered);
}

TEST_F(Selections, RefuseAMetaDataChunkOfTypeTwoAfterWhatCameBefore) {
  AddAccelerator();
  AddPositions();
  ASSERT_EQ(Create(), result::kOk);
  Add(1, MetaDataPayload("before"));
  Add(2, PositionsPayload("OTHER"));
  Add(1, MetaDataPayload("behind"));
  EXPECT_EQ(Load(), result::kUnknownMetaDataChunk);
  EXPECT_NE(cloud_.GetMetaDataContainer("before"), nullptr);
  EXPECT_EQ(cloud_.GetMetaDataContainer("behind"), nullptr);
}

}  // namespace
