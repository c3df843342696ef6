// Loading a level-of-detail block: what is read, and what stops it.
#include "tests/OOCPointCloudTarn/lod/LodRig.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

constexpr const char* kLod = OOCPCLODContainer::kStreamName;

using LodLoading = LodCaches;

TEST_F(LodLoading, KeepsTheHeaderAsItStands) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  const OOCPCLODHeader& header = rig.Inside().Header();
  EXPECT_EQ(header.version, 1u);
  EXPECT_EQ(header.recordCount, 2u);
  EXPECT_EQ(header.nodeEntryCount, 3u);
  EXPECT_EQ(header.levelCount, 0x0A0B0C0Du);
  EXPECT_EQ(header.reserved14, 0x14151617u);
  EXPECT_EQ(header.extensionBytes, 3u);
  for (std::uint8_t i = 0; i < 6; ++i) EXPECT_EQ(header.reserved20[i], 20 + i);
  EXPECT_EQ(rig.Inside().NodeStreamId(), 7u);
  EXPECT_FALSE(rig.Inside().IsBusy());
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, BeginsWhereThePayloadDoes) {
  const LodBlock block = SampleLodBlock();
  rig.Put(block, 1000);
  rig.Streams().Add(NodeStreamName(7), SampleNodeRecords(2));
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.cache->GetScale(), 0.25);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
}

TEST_F(LodLoading, TakesTheVersions1To4) {
  for (std::uint16_t version = 1; version <= 4; ++version) {
    LodBlock block = SampleLodBlock();
    block.version = version;
    rig.PutWithNodes(block);
    EXPECT_EQ(rig.Load(), result::kOk) << version;
    EXPECT_EQ(rig.Inside().Header().version, version);
  }
}

TEST_F(LodLoading, RefusesOtherVersions) {
  for (const std::uint16_t version : {0, 5, 0x100, 0xFFFF}) {
    LodBlock block = SampleLodBlock();
    block.version = version;
    rig.PutWithNodes(block);
    EXPECT_EQ(rig.Load(), result::kLodBadVersion) << version;
    EXPECT_TRUE(rig.AllStreamsDestroyed());
  }
}

TEST_F(LodLoading, NeedsAnOwner) {
  TarnOOCLODNodeCache cache(nullptr, &rig.lodContainer);
  EXPECT_EQ(cache.LoadLODPayload({0, std::uint64_t{1} << 40}, false), result::kLodNoOwner);
}

TEST_F(LodLoading, RefusesPayloadsLongerThan32Bits) {
  rig.PutWithNodes(SampleLodBlock());
  rig.payload.endBytes = rig.payload.beginBytes + 0x100000000;
  EXPECT_EQ(rig.Load(), result::kLodPayloadTooLong);
  rig.payload = {1, 0};
  EXPECT_EQ(rig.Load(), result::kLodPayloadTooLong) << "ends before it begins";
  EXPECT_EQ(rig.Streams().GetLog()->opened, 0u);
  rig.payload = {0, 0xFFFFFFFF};
  EXPECT_EQ(rig.Load(), result::kLodLengthMismatch) << "not too long";
}

TEST_F(LodLoading, NeedsALodContainerAndItsStream) {
  EXPECT_EQ(rig.Load(), result::kNoLodStream) << "there is no such stream";
  rig.PutWithNodes(SampleLodBlock());
  rig.cache->DetachLODContainer();
  EXPECT_EQ(rig.Load(), result::kNoLodStream);
  rig.cache->SetLODContainer(&rig.lodContainer);
  EXPECT_EQ(rig.Load(), result::kOk);
}

TEST_F(LodLoading, RefusesAStreamThatCannotBeReadFrom) {
  rig.PutWithNodes(SampleLodBlock());
  rig.Streams().Behaviour(kLod).usable = false;
  EXPECT_EQ(rig.Load(), result::kLodStreamUnusable);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, PassesOnWhyTheStreamCannotBePositioned) {
  rig.PutWithNodes(SampleLodBlock());
  rig.Streams().Behaviour(kLod).setPositionResult = result::kIoError;
  EXPECT_EQ(rig.Load(), result::kIoError);
  rig.Streams().Behaviour(kLod).setPositionResult = result::kOk;
  rig.payload = {5000, 5066};
  EXPECT_EQ(rig.Load(), result::kSeekOutOfRange);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, NoticesThatTheLodContainerWentWhileTheStreamWasOpened) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  rig.Hooks().onOpen = [&](const std::string& /*name*/) { rig.cache->DetachLODContainer(); };
  EXPECT_EQ(rig.Load(), result::kLodContainerMissing);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1)) << "nothing was given up yet";
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, NoticesThatTheLodContainerWentWhileTheStreamWasRead) {
  rig.PutWithNodes(SampleLodBlock());
  rig.Hooks().onRead = [&](const std::string& /*name*/, std::uint64_t /*number*/) {
    rig.cache->DetachLODContainer();
  };
  EXPECT_EQ(rig.Load(), result::kLodContainerMissing);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, NoticesThatTheCloudWentMeanwhile) {
  rig.PutWithNodes(SampleLodBlock());
  rig.Hooks().onRead = [&](const std::string& /*name*/, std::uint64_t /*number*/) {
    rig.cache->ForgetOwner(&rig.cloud);
  };
  EXPECT_EQ(rig.Load(), result::kLodNoOwner);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
  EXPECT_EQ(rig.Load(), result::kLodNoOwner);
}

TEST_F(LodLoading, KeepsWhatWasLoadedBeforeUntilANewHeaderIsRead) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  rig.Streams().Behaviour(kLod).usable = false;
  EXPECT_EQ(rig.Load(), result::kLodStreamUnusable);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
  rig.Streams().Behaviour(kLod).usable = true;
  rig.Streams().Behaviour(kLod).shortRead = 0;
  EXPECT_EQ(rig.Load(), result::kLodShortRead);
  EXPECT_EQ(Find(*rig.cache, 1), kNoNode);
  EXPECT_TRUE(rig.Inside().ContainerMap().empty());
}

TEST_F(LodLoading, RefusesAShortReadOfEachPartOfTheHeader) {
  rig.PutWithNodes(SampleLodBlock());
  for (std::uint64_t read = 0; read < 4; ++read) {
    rig.Streams().Behaviour(kLod).shortRead = read;
    EXPECT_EQ(rig.Load(), result::kLodShortRead) << read;
    EXPECT_TRUE(rig.AllStreamsDestroyed());
    EXPECT_FALSE(rig.Inside().IsBusy());
  }
  rig.Streams().Behaviour(kLod).shortRead = 4;
  EXPECT_EQ(rig.Load(), result::kOk) << "there are four parts";
}

TEST_F(LodLoading, ReadsNoExtensionWhereThereIsNone) {
  LodBlock block = SampleLodBlock();
  block.extension.clear();
  rig.PutWithNodes(block);
  std::uint64_t reads = 0;
  rig.Hooks().onRead = [&](const std::string& name, std::uint64_t /*number*/) {
    if (name == kLod) ++reads;
  };
  EXPECT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(reads, 3u);
}

TEST_F(LodLoading, RefusesAHeaderThatIsCutAnywhere) {
  rig.PutWithNodes(SampleLodBlock());
  const Bytes head = SampleLodBlock().Head();
  for (std::size_t length = 0; length < head.size(); ++length) {
    rig.Streams().Add(kLod,
                      Bytes(head.begin(), head.begin() + static_cast<std::ptrdiff_t>(length)));
    ASSERT_EQ(rig.Load(), result::kLodShortRead) << length;
  }
  rig.Streams().Add(kLod, head);
  EXPECT_EQ(rig.Load(), result::kOk) << "the node entries are not read";
}

TEST_F(LodLoading, WantsTheStatedLengthExactly) {
  rig.PutWithNodes(LodBlock());
  EXPECT_EQ(rig.payload.endBytes, 66u);
  EXPECT_EQ(rig.Load(), result::kOk);
  for (const std::uint64_t length : {0, 65, 67, 75}) {
    rig.payload.endBytes = length;
    EXPECT_EQ(rig.Load(), result::kLodLengthMismatch) << length;
  }
  LodBlock block;
  block.nodeEntryCount = 2;
  block.extension = {1, 2, 3, 4, 5};
  rig.PutWithNodes(block);
  EXPECT_EQ(rig.payload.endBytes, 66u + 5 + 2 * 9);
  EXPECT_EQ(rig.Load(), result::kOk);
  --rig.payload.endBytes;
  EXPECT_EQ(rig.Load(), result::kLodLengthMismatch);
  EXPECT_TRUE(rig.AllStreamsDestroyed());
}

TEST_F(LodLoading, DoesNotWrapTheStatedLength) {
  LodBlock block;
  block.nodeEntryCount = 477218588;  // times 9 and 66 more: 62 more than 32 bits hold
  rig.Streams().Add(kLod, block.Head());
  rig.payload = {0, 62};
  EXPECT_EQ(rig.Load(), result::kLodLengthMismatch);
}

TEST_F(LodLoading, GivesTheExtensionToTheLodContainer) {
  rig.PutWithNodes(SampleLodBlock());
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(rig.lodContainer.GetExtendedData(), (Bytes{0xE1, 0xE2, 0xE3}));
  LodBlock block = SampleLodBlock();
  block.extension = Bytes(0xFFFF, 0x5A);
  rig.PutWithNodes(block);
  ++rig.payload.endBytes;
  EXPECT_EQ(rig.Load(), result::kLodLengthMismatch);
  EXPECT_EQ(rig.lodContainer.GetExtendedData(), block.extension) << "before the length is checked";
  block.extension.clear();
  rig.PutWithNodes(block);
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_TRUE(rig.lodContainer.GetExtendedData().empty());
}

TEST_F(LodLoading, ReplacesWhatWasLoadedBefore) {
  rig.PutWithNodes(SampleLodBlock(4));
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 3), SampleNode(3));
  rig.PutWithNodes(SampleLodBlock(2, 8));
  ASSERT_EQ(rig.Load(), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
  EXPECT_EQ(Find(*rig.cache, 3), kNoNode);
  EXPECT_EQ(rig.Inside().NodeEntries().size(), 2u);
}

/// A sealed block with two node records.
class SealedLod : public LodCaches {
 protected:
  SealedLod() {
    OOCPCLODBlock block;
    block.levelCount = 1;
    block.scale = 0.25;
    block.nodeStreamId = 7;
    block.entries = {{0, 1}, {0, 2}};
    block.Encode(block_);
    for (std::uint32_t i = 0; i < 2; ++i) {
      OOCPCLODNodeRecord record;
      record.indexInLevel = i;
      record.level = 5;
      record.pointCount = SampleNodeWord(i);
      record.firstPoint = SampleNodeValue(i);
      record.Encode(records_);
    }
  }

  HRESULT LoadAs(const Bytes& block, const Bytes& records, bool background = false) {
    rig.payload = {0, block.size()};
    rig.Streams().Add(kLod, block);
    rig.Streams().Add(NodeStreamName(7), records);
    return rig.Load(background);
  }

  Bytes block_;
  Bytes records_;
};

TEST_F(SealedLod, IsLoadedWhenItIsWhole) {
  ASSERT_EQ(LoadAs(block_, records_), result::kOk);
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
  ASSERT_EQ(LoadAs(block_, records_, true), result::kOk);
  static_cast<void>(rig.cache->WaitForNodeLoading());
  EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
}

TEST_F(SealedLod, IsRefusedWhenAnyByteOfTheBlockIsAltered) {
  for (std::size_t at = 0; at < block_.size(); ++at) {
    Bytes altered = block_;
    altered[at] ^= 0x40;
    const HRESULT code = LoadAs(altered, records_);
    const bool isMark = at >= 26 && at < 30;
    if (isMark) {
      EXPECT_EQ(code, result::kOk) << "without its mark it is a block without a seal";
      EXPECT_EQ(Find(*rig.cache, 1), SampleNode(1));
    } else {
      EXPECT_TRUE(oocpc::Failed(code)) << "byte " << at;
    }
    if (at >= 30) {
      EXPECT_EQ(code, result::kChecksumMismatch) << "byte " << at;
    }
  }
}

TEST_F(SealedLod, IsRefusedWhenANodeRecordIsAltered) {
  for (std::size_t at = 0; at < records_.size(); ++at) {
    Bytes altered = records_;
    altered[at] ^= 0x40;
    EXPECT_EQ(LoadAs(block_, altered), result::kChecksumMismatch) << "byte " << at;
  }
}

TEST_F(SealedLod, TellsInTheBackgroundThatANodeRecordIsAltered) {
  Bytes altered = records_;
  altered[OOCPCLODNodeRecord::kBytes + 100] ^= 1;
  ASSERT_EQ(LoadAs(block_, altered, true), result::kOk);
  EXPECT_EQ(rig.cache->WaitForNodeLoading(), result::kChecksumMismatch);
  EXPECT_EQ(Find(*rig.cache, 1).code, result::kChecksumMismatch);
}

TEST_F(SealedLod, IsRefusedWhenItEndsWithinItsEntries) {
  Bytes cut = block_;
  cut.pop_back();
  rig.payload = {0, block_.size()};
  rig.Streams().Add(kLod, cut);
  rig.Streams().Add(NodeStreamName(7), records_);
  EXPECT_EQ(rig.Load(), result::kLodShortRead);
}

}  // namespace
