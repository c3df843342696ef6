// Positions chunks, and positions as stored and as delivered.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::ColumnBuilder;
using oocpctest::FakeRepository;
using oocpctest::ValuesAsBytes;
namespace result = oocpc::result;

OOCPCPositionsDescription Sample() {
  OOCPCPositionsDescription description;
  description.columnId = 3;
  description.scale = {0.001, 0.001, 0.01};
  description.offset = {500000, 5400000, -12.5};
  return description;
}

HRESULT Load(OOCPCContainer& container, const Bytes& payload) {
  return container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

TEST(PositionsChunk, IsByteForByteAsDocumented) {
  EXPECT_EQ(
      Sample().EncodeChunk(),
      oocpctest::BytesOf("01 00 00 00 03 00 00 00 FC A9 F1 D2 4D 62 50 3F FC A9 F1 D2 4D 62 50 3F "
                         "7B 14 AE 47 E1 7A 84 3F 00 00 00 00 80 84 1E 41 00 00 00 00 70 99 54 41 "
                         "00 00 00 00 00 00 29 C0 0C 00 00 00 44 45 46 5F 50 4F 53 49 54 49 4F 4E "
                         "40 E4 0A 4A "));
}

TEST(PositionsChunk, ComesBackAsItWasWritten) {
  OOCPCPositionsDescription read;
  const Bytes payload = Sample().EncodeChunk();
  ASSERT_EQ(read.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size())),
            result::kOk);
  EXPECT_EQ(read.name, "DEF_POSITION");
  EXPECT_EQ(read.columnId, 3u);
  EXPECT_EQ(read.scale, Sample().scale);
  EXPECT_EQ(read.offset, Sample().offset);
}

TEST(PositionsChunk, IsRefusedWhenDamagedOrNewer) {
  oocpctest::ExpectPayloadIsGuarded(Sample().EncodeChunk(), [](const Bytes& payload) {
    OOCPCPositionsDescription read;
    const HRESULT code =
        read.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
    EXPECT_EQ(read.columnId == 0, oocpc::Failed(code)) << "refusals leave the object as it was";
    return code;
  });
}

TEST(PositionsChunk, IsRefusedWithScalesAndOffsetsThatGiveNoPositions) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  OOCPCStaticPositionsContainer container(nullptr);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    for (const double scale : {0.0, -0.0, infinity, -infinity, nan}) {
      OOCPCPositionsDescription description = Sample();
      description.scale[axis] = scale;
      EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord) << scale;
    }
    for (const double offset : {infinity, -infinity, nan}) {
      OOCPCPositionsDescription description = Sample();
      description.offset[axis] = offset;
      EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord) << offset;
    }
    OOCPCPositionsDescription mirrored = Sample();
    mirrored.scale[axis] = -1;
    EXPECT_EQ(Load(container, mirrored.EncodeChunk()), result::kOk) << "a negative scale is one";
  }
}

TEST(PositionsChunk, IsRefusedWithNamesThatAreNone) {
  OOCPCStaticPositionsContainer container(nullptr);
  OOCPCPositionsDescription description = Sample();
  description.name = "";
  EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord);
  description.name = std::string("DEF\0", 4);
  EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord);
}

TEST(PositionsChunk, IsRefusedWhenReservedBytesAreSet) {
  OOCPCStaticPositionsContainer container(nullptr);
  EXPECT_EQ(Load(container, oocpctest::Resealed(Sample().EncodeChunk(), 2, {1})),
            result::kBadRecord);
}

class PositionsReading : public testing::Test {
 protected:
  void SetUp() override {
    ColumnBuilder().Block({ValueType::kInt32, 3}, ValuesAsBytes(stored_)).AddTo(repository_, 3);
    OOCPCRepositoryInformation information;
    information.localFrameOffset = {500000.1, 5400000, -0.3};
    ASSERT_EQ(repository_.SetRepositoryInformation(&information), result::kOk);
    ASSERT_EQ(Load(container_, Sample().EncodeChunk()), result::kOk);
  }

  const std::vector<std::int32_t> stored_{0,  1,     2, -2147483647 - 1, 2147483647, 123456789,
                                          -7, 99999, 3};
  FakeRepository repository_{Bytes{}};
  OOCPCStaticPositionsContainer container_{&repository_};
};

TEST_F(PositionsReading, KnowsItsTypes) {
  EXPECT_STREQ(container_.GetName(), "DEF_POSITION");
  EXPECT_EQ(container_.GetChunkType(), oocpc::chunk_type::kStaticPositions);
  EXPECT_EQ(container_.GetDataSize(), 24u);
  EXPECT_EQ(container_.GetStoredType(), (oocpc::ColumnType{ValueType::kInt32, 3}));
  EXPECT_EQ(container_.GetDeliveredType(), (oocpc::ColumnType{ValueType::kDouble, 3}));
}

TEST_F(PositionsReading, DeliversThreeRoundedSteps) {
  Bytes bytes;
  ASSERT_EQ(container_.ReadBlock(0, bytes), result::kOk);
  const auto delivered = oocpctest::ValuesFromBytes<double>(bytes);
  ASSERT_EQ(delivered.size(), stored_.size());
  const oocpc::Vector3d frame{500000.1, 5400000, -0.3};
  for (std::size_t i = 0; i < stored_.size(); ++i) {
    // Through memory after every step, so that no step can be merged with the next.
    volatile double value = stored_[i];
    value = value * Sample().scale[i % 3];
    value = value + Sample().offset[i % 3];
    value = value - frame[i % 3];
    EXPECT_EQ(delivered[i], value) << i;
  }
}

TEST_F(PositionsReading, DeliversKnownBits) {
  Bytes bytes;
  ASSERT_EQ(container_.ReadBlock(0, bytes), result::kOk);
  const auto delivered = oocpctest::ValuesFromBytes<double>(bytes);
  EXPECT_EQ(delivered[0], 500000.0 - 500000.1);
  EXPECT_EQ(delivered[1], 5400000.001 - 5400000.0);
  EXPECT_EQ(delivered[2], -12.48 + 0.3);
}

TEST_F(PositionsReading, GivesTheIntegersAsStored) {
  Bytes bytes;
  ASSERT_EQ(container_.ReadStoredBlock(0, bytes), result::kOk);
  EXPECT_EQ(bytes, ValuesAsBytes(stored_));
  oocpc::BlockEntry entry;
  ASSERT_EQ(container_.ReadBlockEntry(0, entry), result::kOk);
  EXPECT_EQ(static_cast<std::int64_t>(entry.minimumBits[0]), -2147483648);
  std::uint64_t count = 0;
  EXPECT_EQ(container_.GetBlockCount(count), result::kOk);
  EXPECT_EQ(count, 1u);
}

TEST_F(PositionsReading, PassesOnWhatTheColumnReports) {
  Bytes values;
  EXPECT_EQ(container_.ReadBlock(1, values), result::kIndexOutOfRange);
  repository_.Add("DEF_COLUMN_3", Bytes{1});
  const std::unique_ptr<OOCPCMetaDataContainer> clone(container_.Clone());
  EXPECT_EQ(clone->ReadBlock(0, values), result::kStreamShort);
}

TEST_F(PositionsReading, ClonesDeliverTheSame) {
  const std::unique_ptr<OOCPCMetaDataContainer> clone(container_.Clone());
  EXPECT_STREQ(clone->GetName(), "DEF_POSITION");
  Bytes mine;
  Bytes theirs;
  EXPECT_EQ(container_.ReadBlock(0, mine), result::kOk);
  EXPECT_EQ(clone->ReadBlock(0, theirs), result::kOk);
  EXPECT_EQ(mine, theirs);
}

TEST(PositionsReadingBeforeLoading, FindsNoStreams) {
  OOCPCStaticPositionsContainer container(nullptr);
  Bytes values;
  std::uint64_t count = 0;
  oocpc::BlockEntry entry;
  EXPECT_EQ(container.ReadBlock(0, values), result::kStreamMissing);
  EXPECT_EQ(container.GetBlockCount(count), result::kStreamMissing);
  EXPECT_EQ(container.ReadBlockEntry(0, entry), result::kStreamMissing);
}

}  // namespace
