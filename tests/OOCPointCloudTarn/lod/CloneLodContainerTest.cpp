// Clones of level containers, got through the point cloud.
#include "tests/OOCPointCloudTarn/lod/LodRig.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

/// A cache that answers lookups by name with a given code and container.
class AnsweringCache final : public OOCPCLODNodeCache {
 public:
  AnsweringCache(HRESULT code, OOCPCMetaDataContainer* container)
      : code_(code), container_(container) {}

  HRESULT GetMetaDataContainer(std::string_view name, OOCPCMetaDataContainer*& out) override {
    asked = name;
    out = container_;
    return code_;
  }
  std::string asked;

  HRESULT Reset() override { return result::kFail; }
  bool HasLODContainer() const override { return false; }
  HRESULT SetLODContainer(OOCPCLODContainer* /*to*/) override { return result::kFail; }
  void DetachLODContainer() override {}
  double GetScale() const override { return 0; }
  bool GetCentre(double (&/*centre*/)[3]) const override { return false; }
  std::uint32_t GetCapabilities() const override { return 0; }
  bool ReleaseFinishedWorker() override { return false; }
  HRESULT ReservedSlot10() override { return result::kFail; }
  HRESULT LoadLODPayload(OOCPCUpdItrLODPayload /*from*/, bool /*background*/) override {
    return result::kFail;
  }
  HRESULT WaitForNodeLoading() override { return result::kFail; }
  HRESULT GetLevelContainer(const char* /*name*/, OOCPCMetaDataContainer*& /*to*/) override {
    return result::kFail;
  }
  HRESULT FindNode(std::uint32_t /*index*/, std::uint32_t /*level*/, std::uint64_t& /*first*/,
                   std::uint32_t& /*count*/) override {
    return result::kFail;
  }
  HRESULT ReservedSlot15() override { return result::kFail; }
  HRESULT ReservedSlot16() override { return result::kFail; }
  HRESULT WalkUpdateIterations(std::string_view /*name*/, std::uint64_t /*value*/) override {
    return result::kFail;
  }
  void ReservedSlot18() override {}
  HRESULT StartNodeLoading(std::unique_ptr<OOCPCIInputStream> /*lod*/,
                           bool /*background*/) override {
    return result::kFail;
  }

 private:
  HRESULT code_;
  OOCPCMetaDataContainer* container_;
};

class LodClones : public testing::Test {
 protected:
  void Attach() {
    ASSERT_EQ(cloud_.AttachDataRepository(LodRepository(SampleLodBlocks(3)).release()),
              result::kOk);
  }
  HRESULT Clone(std::uint64_t iteration, const std::string& name) {
    OOCPCMetaDataContainer* made = &untouched_;
    const HRESULT code = cloud_.CloneLODContainer(iteration, name, made);
    clone_.reset(made == &untouched_ ? nullptr : made);
    return code;
  }

  std::shared_ptr<EventLog> events_ = std::make_shared<EventLog>();
  FakeMetaDataContainer untouched_{chunk_type::kStaticMetaData, "untouched", events_};
  TarnOOCPointCloud cloud_;
  TarnFrameworkAccess access_{cloud_};
  std::unique_ptr<OOCPCMetaDataContainer> clone_;
};

TEST_F(LodClones, AreTheCallersAndReadTheSameValues) {
  Attach();
  ASSERT_EQ(Clone(2, "DEF_COLOR"), result::kOk);
  ASSERT_NE(clone_, nullptr);
  EXPECT_EQ(clone_->GetLevel(), 2u);
  EXPECT_STREQ(clone_->GetName(), "DEF_COLOR");
  Bytes values;
  EXPECT_EQ(clone_->ReadPoints(0, 2, values), result::kOk);
  EXPECT_EQ(values, ValuesAsBytes<std::uint16_t>({11, 22}));
  std::shared_ptr<OOCPCLODNodeCache> cache;
  ASSERT_EQ(cloud_.GetLODNodeCache(2, cache), result::kOk) << "the cache was kept";
  OOCPCMetaDataContainer* original = nullptr;
  ASSERT_EQ(cache->GetLevelContainer("DEF_COLOR", original), result::kOk);
  EXPECT_NE(original, clone_.get());
  EXPECT_EQ(cache.use_count(), 2) << "the map's and this one";
}

TEST_F(LodClones, OfUnknownNamesAreNone) {
  Attach();
  EXPECT_EQ(Clone(2, "DEF_COLOUR"), result::kNothingDone);
  EXPECT_EQ(clone_, nullptr);
  EXPECT_EQ(Clone(2, ""), result::kNothingDone);
  EXPECT_EQ(clone_, nullptr);
}

TEST_F(LodClones, NeedACache) {
  EXPECT_EQ(Clone(0, "DEF_COLOR"), result::kNoUpdateIterations);
  Attach();
  EXPECT_EQ(Clone(3, "DEF_COLOR"), result::kIndexOutOfRange);
  EXPECT_EQ(clone_, nullptr);
}

TEST_F(LodClones, OfANullCacheAreNone) {
  access_.LodNodeCacheMap().insert({5, nullptr});
  EXPECT_EQ(Clone(5, "DEF_COLOR"), result::kOk);
  EXPECT_EQ(clone_, nullptr);
}

TEST_F(LodClones, PassOnWhatTheCacheAnswers) {
  FakeMetaDataContainer found(chunk_type::kStaticMetaData, "found", events_);
  const auto refusing = std::make_shared<AnsweringCache>(result::kBadRecord, &found);
  const auto knowing = std::make_shared<AnsweringCache>(result::kNothingDone, &found);
  const auto empty = std::make_shared<AnsweringCache>(result::kOk, nullptr);
  access_.LodNodeCacheMap().insert({0, refusing});
  access_.LodNodeCacheMap().insert({1, knowing});
  access_.LodNodeCacheMap().insert({2, empty});
  EXPECT_EQ(Clone(0, "a"), result::kBadRecord);
  EXPECT_EQ(clone_, nullptr);
  EXPECT_EQ(refusing->asked, "a");
  EXPECT_EQ(Clone(1, "b"), result::kNothingDone);
  EXPECT_NE(clone_, nullptr) << "a container came back";
  EXPECT_EQ(Clone(2, "c"), result::kOk);
  EXPECT_EQ(clone_, nullptr);
  for (const auto& cache : {refusing, knowing, empty}) {
    EXPECT_EQ(cache.use_count(), 3) << "the map's, this list's and that of this test";
  }
}

TEST_F(LodClones, ComeFromTheCacheAlsoAfterADetachment) {
  Attach();
  ASSERT_EQ(Clone(1, "DEF_POSITION"), result::kOk);
  clone_.reset();
  access_.DestroyDataRepository();
  EXPECT_EQ(Clone(1, "DEF_POSITION"), result::kOk);
  ASSERT_NE(clone_, nullptr);
  EXPECT_EQ(clone_->GetLevel(), 1u);
  EXPECT_EQ(Clone(2, "DEF_POSITION"), result::kNoRepository);
}

}  // namespace
