// Metadata chunks, and reading an attribute's blocks.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::ColumnBuilder;
using oocpctest::FakeRepository;
using oocpctest::Resealed;
using oocpctest::ValuesAsBytes;
namespace result = oocpc::result;

OOCPCMetaDataDescription Sample() {
  OOCPCMetaDataDescription description;
  description.name = "scan_angle";
  description.type = {ValueType::kInt16, 2};
  description.columnId = 7;
  description.description = "Grad °";
  return description;
}

HRESULT Load(OOCPCContainer& container, const Bytes& payload) {
  return container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

TEST(MetaDataChunk, IsByteForByteAsDocumented) {
  EXPECT_EQ(
      Sample().EncodeChunk(),
      oocpctest::BytesOf("01 00 04 02 07 00 00 00 0A 00 00 00 73 63 61 6E 5F 61 6E 67 6C 65 07 00 "
                         "00 00 47 72 61 64 20 C2 B0 24 BA B3 AF "));
}

TEST(MetaDataChunk, ComesBackAsItWasWritten) {
  OOCPCMetaDataDescription read;
  const Bytes payload = Sample().EncodeChunk();
  ASSERT_EQ(read.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size())),
            result::kOk);
  EXPECT_EQ(read.name, "scan_angle");
  EXPECT_EQ(read.type, (ColumnType{ValueType::kInt16, 2}));
  EXPECT_EQ(read.columnId, 7u);
  EXPECT_EQ(read.description, "Grad °");
}

TEST(MetaDataChunk, IsRefusedWhenDamagedOrNewer) {
  oocpctest::ExpectPayloadIsGuarded(Sample().EncodeChunk(), [](const Bytes& payload) {
    OOCPCMetaDataDescription read;
    const HRESULT code =
        read.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
    EXPECT_EQ(read.name.empty(), oocpc::Failed(code)) << "refusals leave the object as it was";
    return code;
  });
}

TEST(MetaDataChunk, IsRefusedWithValueTypesThatAreNone) {
  OOCPCStaticMetaDataContainer container(nullptr);
  const Bytes good = Sample().EncodeChunk();
  EXPECT_EQ(Load(container, Resealed(good, 2, {0})), result::kBadRecord);
  EXPECT_EQ(Load(container, Resealed(good, 2, {12})), result::kBadRecord);
  EXPECT_EQ(Load(container, Resealed(good, 3, {0})), result::kBadRecord);
  EXPECT_EQ(Load(container, Resealed(good, 3, {4})), result::kBadRecord);
  EXPECT_STREQ(container.GetName(), "");
}

TEST(MetaDataChunk, IsRefusedWithNamesThatAreNone) {
  OOCPCStaticMetaDataContainer container(nullptr);
  OOCPCMetaDataDescription description = Sample();
  description.name = "";
  EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord);
  description.name = std::string("a\0b", 3);
  EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord);
}

TEST(MetaDataChunk, IsRefusedWhenATextIsLongerThanThePayload) {
  OOCPCStaticMetaDataContainer container(nullptr);
  const Bytes good = Sample().EncodeChunk();
  EXPECT_EQ(Load(container, Resealed(good, 8, {0xFF, 0xFF, 0xFF, 0xFF})), result::kBadRecord);
  EXPECT_EQ(Load(container, Resealed(good, 22, {8})), result::kBadRecord);
}

class MetaDataReading : public testing::Test {
 protected:
  void SetUp() override {
    ColumnBuilder()
        .Block(Sample().type, first_)
        .Block(Sample().type, second_)
        .AddTo(repository_, 7);
    ASSERT_EQ(Load(container_, Sample().EncodeChunk()), result::kOk);
  }

  const Bytes first_ = ValuesAsBytes<std::int16_t>({1, -1, 2, -2});
  const Bytes second_ = ValuesAsBytes<std::int16_t>({900, 3});
  FakeRepository repository_{Bytes{}};
  OOCPCStaticMetaDataContainer container_{&repository_};
};

TEST_F(MetaDataReading, KnowsNameTypeAndSize) {
  EXPECT_STREQ(container_.GetName(), "scan_angle");
  EXPECT_EQ(container_.GetChunkType(), oocpc::chunk_type::kStaticMetaData);
  EXPECT_TRUE(container_.IsMetaData());
  EXPECT_EQ(container_.GetDataSize(), 4u);
  EXPECT_EQ(container_.GetDeliveredType(), Sample().type);
  EXPECT_EQ(container_.GetStoredType(), Sample().type);
  EXPECT_EQ(container_.GetDescription().description, "Grad °");
}

TEST_F(MetaDataReading, DeliversWhatIsStored) {
  std::uint64_t count = 0;
  EXPECT_EQ(container_.GetBlockCount(count), result::kOk);
  EXPECT_EQ(count, 2u);
  Bytes values;
  EXPECT_EQ(container_.ReadBlock(1, values), result::kOk);
  EXPECT_EQ(values, second_);
  EXPECT_EQ(container_.ReadStoredBlock(0, values), result::kOk);
  EXPECT_EQ(values, first_);
  oocpc::BlockEntry entry;
  EXPECT_EQ(container_.ReadBlockEntry(1, entry), result::kOk);
  EXPECT_EQ(entry.minimumBits[0], 900u);
  EXPECT_EQ(container_.ReadBlock(2, values), result::kIndexOutOfRange);
}

TEST_F(MetaDataReading, KeepsItsStateWhenALaterChunkIsRefused) {
  EXPECT_EQ(Load(container_, Bytes{1, 2}), result::kBadRecord);
  EXPECT_STREQ(container_.GetName(), "scan_angle");
  Bytes values;
  EXPECT_EQ(container_.ReadBlock(0, values), result::kOk);
}

TEST_F(MetaDataReading, ClonesReadThroughStreamsOfTheirOwn) {
  const std::unique_ptr<OOCPCMetaDataContainer> clone(container_.Clone());
  EXPECT_STREQ(clone->GetName(), "scan_angle");
  EXPECT_EQ(clone->GetDataSize(), 4u);
  Bytes values;
  EXPECT_EQ(container_.ReadBlock(0, values), result::kOk);
  EXPECT_EQ(clone->ReadBlock(0, values), result::kOk);
  EXPECT_EQ(values, first_);
  EXPECT_EQ(repository_.GetLog()->opened, 4u);
}

TEST_F(MetaDataReading, WorksFromClonesOnTwoThreads) {
  const auto work = [this](const OOCPCStaticMetaDataContainer& source) {
    const std::unique_ptr<OOCPCMetaDataContainer> clone(source.Clone());
    Bytes values;
    for (int i = 0; i < 300; ++i) {
      ASSERT_EQ(clone->ReadBlock(0, values), result::kOk);
      ASSERT_EQ(values, first_);
      ASSERT_EQ(clone->ReadBlock(1, values), result::kOk);
      ASSERT_EQ(values, second_);
    }
  };
  std::thread first(work, std::cref(container_));
  std::thread second(work, std::cref(container_));
  first.join();
  second.join();
}

TEST(MetaDataReadingBeforeLoading, FindsNoStreams) {
  FakeRepository repository(Bytes{});
  OOCPCStaticMetaDataContainer container(&repository);
  std::uint64_t count = 0;
  oocpc::BlockEntry entry;
  Bytes values;
  EXPECT_EQ(container.GetBlockCount(count), result::kStreamMissing);
  EXPECT_EQ(container.ReadBlockEntry(0, entry), result::kStreamMissing);
  EXPECT_EQ(container.ReadBlock(0, values), result::kStreamMissing);
  const std::unique_ptr<OOCPCMetaDataContainer> clone(container.Clone());
  EXPECT_EQ(clone->ReadStoredBlock(0, values), result::kStreamMissing);
}

}  // namespace
