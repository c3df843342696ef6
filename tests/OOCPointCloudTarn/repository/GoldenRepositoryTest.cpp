// A repository as the writer makes it, read through a cloud from the header to the last value.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>
#include <gtest/gtest.h>

#include "tests/support/CloudStreams.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

constexpr oocpc::ColumnType kStoredPositions{oocpc::ValueType::kInt32, 3};
constexpr oocpc::ColumnType kIntensity{oocpc::ValueType::kUInt16, 1};

/// Two points, (1.5, 2.5, 3.5) and (2, 3, 4) in source coordinates, of intensities 700 and 800; the
/// local frame begins at (1, 2, 3).
std::shared_ptr<OOCPCMemoryStreams> TwoPoints() {
  auto streams = std::make_shared<OOCPCMemoryStreams>();
  OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
  Bytes positions;
  for (const std::int32_t number : {15, 25, 35, 20, 30, 40}) {
    oocpc::AppendLittleEndian(positions, number);
  }
  Bytes intensities;
  for (const std::uint16_t number : {700, 800}) oocpc::AppendLittleEndian(intensities, number);
  EXPECT_EQ(writer.AppendBlock(0, oocpc::EncodeBlock(kStoredPositions, positions), 0), result::kOk);
  EXPECT_EQ(writer.AppendBlock(1, oocpc::EncodeBlock(kIntensity, intensities), 0), result::kOk);
  std::uint64_t position = 0;
  EXPECT_EQ(writer.Append(OOCPCAcceleratorContainer::kStreamName, NodeRecords(1), position), 0);
  EXPECT_EQ(
      writer.Append(OOCPCUpdateIterationContainer::kStreamName, IterationRecords(1), position), 0);
  OOCPCCatalogue catalogue;
  catalogue.mortonSeed = {0, 0, 0, 8, 8, 8};
  OOCPCPositionsDescription description;
  description.scale = {0.1, 0.1, 0.1};
  catalogue.chunks.emplace_back(chunk_type::kStaticPositions, description.EncodeChunk());
  catalogue.chunks.emplace_back(chunk_type::kStaticMetaData,
                                MetaDataPayload("intensity", kIntensity));
  catalogue.chunks.emplace_back(chunk_type::kAccelerator1, AcceleratorPayload());
  catalogue.chunks.emplace_back(chunk_type::kUpdateIterations, UpdateIterationsPayload(1));
  catalogue.information.localFrameOffset = {1, 2, 3};
  EXPECT_EQ(writer.Commit(catalogue), result::kOk);
  return streams;
}

std::vector<std::uint8_t> FirstBlock(TarnOOCPointCloud& cloud, const char* name) {
  OOCPCMetaDataContainer* const container = cloud.GetMetaDataContainer(name);
  std::vector<std::uint8_t> values;
  if (container == nullptr || container->ReadBlock(0, values) != result::kOk) return {};
  return values;
}

TEST(GoldenRepository, IsReadToTheLastValue) {
  TarnOOCPointCloud cloud;
  ASSERT_EQ(cloud.AttachDataRepository(new OOCPCMemoryRepository(TwoPoints())), result::kOk);
  const auto positions = FirstBlock(cloud, "DEF_POSITION");
  ASSERT_EQ(positions.size(), 48u);
  EXPECT_EQ(oocpc::LoadLittleEndian<double>(positions.data()), 15 * 0.1 - 1);
  EXPECT_EQ(oocpc::LoadLittleEndian<double>(positions.data() + 40), 40 * 0.1 - 3);
  const auto intensities = FirstBlock(cloud, "intensity");
  ASSERT_EQ(intensities.size(), 4u);
  EXPECT_EQ(oocpc::LoadLittleEndian<std::uint16_t>(intensities.data() + 2), 800);
  double origin[3] = {};
  ASSERT_EQ(cloud.GetOrigin(0, origin), result::kOk);
  EXPECT_EQ(origin[2], 3.0);
}

TEST(GoldenRepository, IsRefusedWithAnyByteOfItsMainStreamAltered) {
  const auto streams = TwoPoints();
  const std::vector<std::uint8_t> main = *streams->main;
  for (std::size_t at = 0; at < main.size(); ++at) {
    auto altered = std::make_shared<std::vector<std::uint8_t>>(main);
    (*altered)[at] ^= 1;
    streams->main = altered;
    TarnOOCPointCloud cloud;
    EXPECT_NE(cloud.AttachDataRepository(new OOCPCMemoryRepository(streams)), result::kOk) << at;
  }
}

TEST(GoldenRepository, IsRefusedWhenItsMainStreamIsCut) {
  const auto streams = TwoPoints();
  const std::vector<std::uint8_t> main = *streams->main;
  for (std::size_t length = 0; length < main.size(); ++length) {
    streams->main = std::make_shared<std::vector<std::uint8_t>>(
        main.begin(), main.begin() + static_cast<std::ptrdiff_t>(length));
    TarnOOCPointCloud cloud;
    EXPECT_NE(cloud.AttachDataRepository(new OOCPCMemoryRepository(streams)), result::kOk)
        << length;
  }
}

}  // namespace
