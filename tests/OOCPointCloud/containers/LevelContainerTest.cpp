// Containers of one level of detail: how they are made, and what they read.
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/ColumnValues.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::Bytes;
using oocpctest::ColumnBuilder;
using oocpctest::FakeRepository;
using oocpctest::ValuesAsBytes;
namespace result = oocpc::result;

constexpr ColumnType kPositions{ValueType::kInt32, 3};
constexpr ColumnType kHeights{ValueType::kInt16, 2};
constexpr std::uint32_t kPositionsColumn = 3;
constexpr std::uint32_t kHeightsColumn = 7;
constexpr std::uint64_t kPoints = 5;

/// Five points in blocks of two and three. Point i is at (i, 10 i, 100 i) and has the heights i and
/// -i.
class LevelContainerReading : public testing::Test {
 protected:
  LevelContainerReading() {
    ColumnBuilder()
        .Block(kPositions, StoredPositions(0, 2))
        .Block(kPositions, StoredPositions(2, 3))
        .AddTo(*repository_, kPositionsColumn);
    ColumnBuilder()
        .Block(kHeights, Heights(0, 2))
        .Block(kHeights, Heights(2, 3))
        .AddTo(*repository_, kHeightsColumn);
    OOCPCRepositoryInformation information;
    information.localFrameOffset = {1000, 2000, 3000};
    EXPECT_EQ(repository_->SetRepositoryInformation(&information), result::kOk);
    OOCPCPositionsDescription positions;
    positions.columnId = kPositionsColumn;
    positions.scale = {0.5, 1, 2};
    positions.offset = {1000, 2000, 3001};
    Load(positions_, positions.EncodeChunk());
    Load(heights_, OOCPCMetaDataDescription{"heights", kHeights, kHeightsColumn, ""}.EncodeChunk());
  }

  static void Load(OOCPCContainer& container, const Bytes& chunk) {
    ASSERT_EQ(container.LoadFromChunk(chunk.data(), static_cast<std::uint32_t>(chunk.size())),
              result::kOk);
  }
  static Bytes StoredPositions(std::int32_t first, std::int32_t count) {
    std::vector<std::int32_t> values;
    for (std::int32_t i = first; i < first + count; ++i) {
      values.insert(values.end(), {i, 10 * i, 100 * i});
    }
    return ValuesAsBytes(values);
  }
  static Bytes DeliveredPositions(int first, int count) {
    std::vector<double> values;
    for (int i = first; i < first + count; ++i) {
      values.insert(values.end(), {0.5 * i, 10.0 * i, 200.0 * i + 1});
    }
    return ValuesAsBytes(values);
  }
  static Bytes Heights(std::int16_t first, std::int16_t count) {
    std::vector<std::int16_t> values;
    for (std::int16_t i = first; i < first + count; ++i) {
      values.push_back(i);
      values.push_back(static_cast<std::int16_t>(-i));
    }
    return ValuesAsBytes(values);
  }

  using Pointer = std::unique_ptr<OOCPCMetaDataContainer>;
  Pointer MakePositions() { return Pointer(positions_.CreateLevelContainer(6)); }
  Pointer MakeHeights() { return Pointer(heights_.CreateLevelContainer(6)); }

  std::unique_ptr<FakeRepository> repository_ = std::make_unique<FakeRepository>(Bytes{});
  OOCPCStaticPositionsContainer positions_{repository_.get()};
  OOCPCStaticMetaDataContainer heights_{repository_.get()};
  Bytes values_;
};

TEST_F(LevelContainerReading, GivesRangesWithinAndAcrossBlocks) {
  const Pointer positions = MakePositions();
  const Pointer heights = MakeHeights();
  ASSERT_NE(positions, nullptr);
  ASSERT_NE(heights, nullptr);
  for (int first = 0; first < 5; ++first) {
    for (int count = 0; count <= 5 - first; ++count) {
      const auto from = static_cast<std::uint64_t>(first);
      const auto length = static_cast<std::uint64_t>(count);
      SCOPED_TRACE(testing::Message() << first << " " << count);
      ASSERT_EQ(positions->ReadPoints(from, length, values_), result::kOk);
      EXPECT_EQ(values_, DeliveredPositions(first, count)) << "in the local frame";
      ASSERT_EQ(positions->ReadStoredPoints(from, length, values_), result::kOk);
      EXPECT_EQ(values_, StoredPositions(first, count));
      const Bytes expected =
          Heights(static_cast<std::int16_t>(first), static_cast<std::int16_t>(count));
      ASSERT_EQ(heights->ReadPoints(from, length, values_), result::kOk);
      EXPECT_EQ(values_, expected);
      ASSERT_EQ(heights->ReadStoredPoints(from, length, values_), result::kOk);
      EXPECT_EQ(values_, expected);
    }
  }
}

TEST_F(LevelContainerReading, RefusesPointsBehindTheEnd) {
  for (const Pointer& container : {MakePositions(), MakeHeights()}) {
    EXPECT_EQ(container->ReadPoints(kPoints, 0, values_), result::kOk);
    EXPECT_EQ(container->ReadPoints(kPoints, 1, values_), result::kIndexOutOfRange);
    EXPECT_EQ(container->ReadPoints(1, kPoints, values_), result::kIndexOutOfRange);
    EXPECT_EQ(container->ReadStoredPoints(1, kPoints, values_), result::kIndexOutOfRange);
    EXPECT_EQ(container->ReadPoints(1, ~std::uint64_t{0}, values_), result::kIndexOutOfRange);
  }
}

TEST_F(LevelContainerReading, RefusesATableThatContradictsItself) {
  for (const std::uint32_t column : {kPositionsColumn, kHeightsColumn}) {
    const ColumnType type = column == kHeightsColumn ? kHeights : kPositions;
    const std::size_t bytes = oocpc::ValueBytes(type);
    oocpc::EncodedBlock first = oocpc::EncodeBlock(type, Bytes(2 * bytes, 1));
    oocpc::EncodedBlock second = oocpc::EncodeBlock(type, Bytes(3 * bytes, 2));
    second.entry.offsetBytes = first.bytes.size();
    second.entry.firstValue = 1;
    Bytes table;
    first.entry.Encode(table);
    second.entry.Encode(table);
    Bytes data = first.bytes;
    data.insert(data.end(), second.bytes.begin(), second.bytes.end());
    repository_->Add(oocpc::ColumnTableStreamName(column), table);
    repository_->Add(oocpc::ColumnDataStreamName(column), data);
  }
  for (const Pointer& container : {MakePositions(), MakeHeights()}) {
    EXPECT_EQ(container->ReadPoints(0, 3, values_), result::kBadRecord);
    EXPECT_EQ(container->ReadStoredPoints(0, 3, values_), result::kBadRecord);
  }
}

TEST_F(LevelContainerReading, GoesOnWhenTheRepositoryIsGone) {
  const Pointer positions = MakePositions();
  const Pointer heights = MakeHeights();
  repository_.reset();
  ASSERT_EQ(positions->ReadPoints(1, 3, values_), result::kOk);
  EXPECT_EQ(values_, DeliveredPositions(1, 3));
  ASSERT_EQ(heights->ReadPoints(1, 3, values_), result::kOk);
  EXPECT_EQ(values_, Heights(1, 3));
}

TEST_F(LevelContainerReading, IsForTheRepositorysContainersToo) {
  EXPECT_EQ(positions_.ReadPoints(1, 3, values_), result::kOk);
  EXPECT_EQ(values_, DeliveredPositions(1, 3));
  EXPECT_EQ(positions_.ReadStoredPoints(1, 3, values_), result::kOk);
  EXPECT_EQ(values_, StoredPositions(1, 3));
  EXPECT_EQ(heights_.ReadPoints(1, 3, values_), result::kOk);
  EXPECT_EQ(values_, Heights(1, 3));
}

TEST_F(LevelContainerReading, IsNotForContainersThatWereNotLoaded) {
  OOCPCStaticPositionsContainer positions(repository_.get());
  OOCPCStaticMetaDataContainer heights(repository_.get());
  for (OOCPCMetaDataContainer* const container :
       std::initializer_list<OOCPCMetaDataContainer*>{&positions, &heights}) {
    EXPECT_EQ(container->ReadPoints(0, 1, values_), result::kStreamMissing);
    EXPECT_EQ(container->ReadStoredPoints(0, 1, values_), result::kStreamMissing);
    EXPECT_FALSE(container->HasLevelOfDetail());
    EXPECT_EQ(Pointer(container->CreateLevelContainer(0)), nullptr);
  }
}

using LevelContainerMaking = LevelContainerReading;

TEST_F(LevelContainerMaking, NeedsTheColumnsStreams) {
  for (const std::uint32_t column : {kPositionsColumn, kHeightsColumn}) {
    for (const std::string& name :
         {oocpc::ColumnDataStreamName(column), oocpc::ColumnTableStreamName(column)}) {
      repository_->Behaviour(name).absent = true;
      EXPECT_EQ(MakePositions() == nullptr, column == kPositionsColumn) << name;
      EXPECT_EQ(MakeHeights() == nullptr, column == kHeightsColumn) << name;
      repository_->Behaviour(name).absent = false;
    }
  }
}

TEST_F(LevelContainerMaking, SaysWhichLevelItIsFor) {
  EXPECT_EQ(positions_.GetLevel(), std::nullopt);
  EXPECT_TRUE(positions_.HasLevelOfDetail());
  EXPECT_TRUE(heights_.HasLevelOfDetail());
  for (const std::uint64_t level : {std::uint64_t{0}, ~std::uint64_t{0}}) {
    const Pointer made(heights_.CreateLevelContainer(level));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetLevel(), level);
    EXPECT_STREQ(made->GetName(), "heights");
    EXPECT_EQ(made->GetChunkType(), heights_.GetChunkType());
    EXPECT_EQ(made->GetDataSize(), 4u);
    EXPECT_EQ(made->GetDeliveredType(), kHeights);
  }
}

TEST_F(LevelContainerMaking, KeepsItsExtentInClones) {
  for (const Pointer& made : {MakePositions(), MakeHeights()}) {
    EXPECT_EQ(made->GetLevelNodeEntryCount(), 0u);
    EXPECT_EQ(made->GetLevelValue(), 0u);
    EXPECT_EQ(made->SetLevelExtent(0xFFFFFFFF, ~std::uint64_t{0}), result::kOk);
    const Pointer clone(made->Clone());
    EXPECT_EQ(clone->GetLevel(), 6u);
    EXPECT_EQ(clone->GetLevelNodeEntryCount(), 0xFFFFFFFFu);
    EXPECT_EQ(clone->GetLevelValue(), ~std::uint64_t{0});
    Bytes expected;
    EXPECT_EQ(made->ReadPoints(1, 3, expected), result::kOk);
    EXPECT_EQ(clone->ReadPoints(1, 3, values_), result::kOk);
    EXPECT_EQ(values_, expected);
  }
}

TEST_F(LevelContainerMaking, GivesExtentsToLevelContainersAlone) {
  EXPECT_EQ(positions_.SetLevelExtent(1, 2), result::kFail);
  EXPECT_EQ(heights_.SetLevelExtent(1, 2), result::kFail);
  EXPECT_EQ(heights_.GetLevelNodeEntryCount(), 0u);
  EXPECT_EQ(heights_.GetLevelValue(), 0u);
}

TEST_F(LevelContainerMaking, IsNotForOtherContainers) {
  const OOCPCDummyContainer dummy("name");
  const OOCPCStringRepositoryContainer strings(repository_.get());
  const OOCPCLODContainer lod(repository_.get(), oocpc::chunk_type::kLevelOfDetail, "");
  for (const OOCPCContainer* const container :
       std::initializer_list<const OOCPCContainer*>{&dummy, &strings, &lod}) {
    EXPECT_FALSE(container->HasLevelOfDetail());
    EXPECT_EQ(container->CreateLevelContainer(0), nullptr);
  }
}

}  // namespace
