// Copies of a cloud: what they share, and when what they share is deleted.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;
using Cloud = TarnOOCPointCloud;
using Log = std::shared_ptr<const FakeRepositoryLog>;

std::unique_ptr<Cloud> Attached(Log& log, std::uint64_t iterations = 3) {
  auto cloud = std::make_unique<Cloud>();
  auto repository = CompleteRepository(iterations);
  log = repository->GetLog();
  EXPECT_EQ(cloud->AttachDataRepository(repository.release()), result::kOk);
  return cloud;
}

bool CanRead(Cloud& cloud) {
  std::uint64_t time = 0;
  OOCPCOctreeAcceleratorNode node;
  OOCPCMetaDataContainer* clone = nullptr;
  const bool read = cloud.GetTimePoint(2, time) == result::kOk && time == 102 &&
                    cloud.GetOOCNode(1, node) == result::kOk &&
                    cloud.CloneContainer("intensity", clone) == result::kOk;
  delete clone;
  return read;
}

TEST(Copies, ReferToTheVerySameObjects) {
  Log log;
  const auto cloud = Attached(log);
  cloud->GetSettings().pointBudget = 77;
  std::shared_ptr<OOCPCUpdateIteration> iteration;
  ASSERT_EQ(TarnFrameworkAccess(*cloud).GetIteration(0, iteration), result::kOk);
  Cloud copy = *cloud;
  EXPECT_EQ(copy.GetDataRepository(), cloud->GetDataRepository());
  EXPECT_EQ(copy.GetContainer("intensity"), cloud->GetContainer("intensity"));
  EXPECT_EQ(copy.GetMetaDataNames(), cloud->GetMetaDataNames());
  EXPECT_EQ(copy.GetMetaDataSize("intensity"), 2u);
  EXPECT_EQ(copy.GetSettings().pointBudget, 77u);
  EXPECT_EQ(TarnFrameworkAccess(copy).Accelerator(), TarnFrameworkAccess(*cloud).Accelerator());
  std::shared_ptr<OOCPCUpdateIteration> same;
  ASSERT_EQ(TarnFrameworkAccess(copy).GetIteration(0, same), result::kOk);
  EXPECT_EQ(same, iteration);
}

TEST(Copies, AreIndependentInWhatTheyCacheLater) {
  Log log;
  const auto cloud = Attached(log);
  Cloud copy = *cloud;
  double origin[3];
  ASSERT_EQ(copy.GetOrigin(0, origin), result::kOk);
  EXPECT_EQ(TarnFrameworkAccess(*cloud).OriginCache().size(), 0u);
}

TEST(Copies, MayBeDestroyedInAnyOrder) {
  int order[] = {0, 1, 2};
  do {
    Log log;
    std::unique_ptr<Cloud> clouds[3];
    clouds[0] = Attached(log);
    clouds[1] = std::make_unique<Cloud>(*clouds[0]);
    clouds[2] = std::make_unique<Cloud>();
    *clouds[2] = *clouds[1];
    for (int i = 0; i < 3; ++i) {
      EXPECT_FALSE(log->repositoryDestroyed);
      for (int j = i; j < 3; ++j) EXPECT_TRUE(CanRead(*clouds[order[j]]));
      clouds[order[i]].reset();
    }
    EXPECT_TRUE(log->repositoryDestroyed);
    EXPECT_TRUE(log->AllStreamsDestroyed());
  } while (std::next_permutation(std::begin(order), std::end(order)));
}

TEST(Copies, ReadOnWhenOneOfThemIsDetached) {
  for (const bool detachOriginal : {true, false}) {
    Log log;
    const auto cloud = Attached(log);
    Cloud copy = *cloud;
    Cloud& detached = detachOriginal ? *cloud : copy;
    Cloud& other = detachOriginal ? copy : *cloud;
    EXPECT_EQ(TarnFrameworkAccess(detached).DestroyDataRepository(), result::kOk);
    EXPECT_EQ(detached.GetDataRepository(), nullptr);
    EXPECT_FALSE(log->repositoryDestroyed);
    EXPECT_TRUE(CanRead(other));
    OOCPCOctreeAcceleratorNode node;
    EXPECT_EQ(detached.GetOOCNode(0, node), result::kNoRepository);
    EXPECT_EQ(other.AttachDataRepository(nullptr), result::kNothingDone);
    EXPECT_TRUE(log->repositoryDestroyed) << "the last reference was given up";
  }
}

TEST(Copies, ReadOnWhenOneOfThemIsAttachedElsewhere) {
  Log log;
  const auto cloud = Attached(log);
  Cloud copy = *cloud;
  ASSERT_EQ(copy.AttachDataRepository(CompleteRepository(3).release()), result::kOk);
  EXPECT_TRUE(CanRead(*cloud));
  EXPECT_TRUE(CanRead(copy));
}

TEST(Copies, KeepAliveWhatAnAssignmentReplacedUntilTheTargetIsGone) {
  Log log1;
  Log log2;
  auto target = Attached(log1);
  {
    const auto source = Attached(log2);
    OOCPCContainer* const replaced = target->GetContainer("intensity");
    *target = *source;
    EXPECT_STREQ(replaced->GetName(), "intensity");
    EXPECT_EQ(target->GetDataRepository(), source->GetDataRepository());
  }
  EXPECT_FALSE(log1->repositoryDestroyed);
  EXPECT_FALSE(log2->repositoryDestroyed);
  EXPECT_TRUE(CanRead(*target));
  EXPECT_EQ(target->AttachDataRepository(nullptr), result::kNothingDone);
  EXPECT_TRUE(log2->repositoryDestroyed);
  EXPECT_FALSE(log1->repositoryDestroyed);
  target.reset();
  EXPECT_TRUE(log1->repositoryDestroyed);
}

TEST(Copies, OfADetachedCloudAreDetached) {
  Log log;
  auto target = Attached(log);
  *target = Cloud();
  EXPECT_EQ(target->GetDataRepository(), nullptr);
  EXPECT_EQ(target->GetContainer("intensity"), nullptr);
  EXPECT_EQ(target->GetUpdateIterationCount(), 0u);
}

TEST(Copies, SurviveSelfAssignment) {
  Log log;
  const auto cloud = Attached(log);
  const Cloud& itself = *cloud;
  *cloud = itself;
  EXPECT_TRUE(CanRead(*cloud));
  EXPECT_FALSE(log->repositoryDestroyed);
}

TEST(Copies, CarryAClearedSeedWithItsOldValues) {
  Cloud cloud;
  TarnFrameworkAccess access(cloud);
  access.SetMortonSeed({1, 2, 3, 4, 5, 6});
  access.SetSeedPlacement(~std::uint64_t{0}, -7);
  EXPECT_TRUE(access.HasMortonSeed());
  access.UnsetMortonSeed();
  Cloud copy = cloud;
  Cloud assigned;
  assigned = cloud;
  for (Cloud* const each : {&copy, &assigned}) {
    const TarnFrameworkAccess its(*each);
    EXPECT_FALSE(its.HasMortonSeed());
    EXPECT_EQ(its.MortonSeed(), (std::array<double, 6>{1, 2, 3, 4, 5, 6}));
    std::uint64_t index = 0;
    std::int32_t value = 0;
    its.GetSeedPlacement(index, value);
    EXPECT_EQ(index, ~std::uint64_t{0});
    EXPECT_EQ(value, -7);
  }
}

}  // namespace
