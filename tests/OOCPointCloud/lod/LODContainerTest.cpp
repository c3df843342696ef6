// Level-of-detail chunks, and the way to the LOD stream.
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODNodeCache.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/TestRepositories.h"

namespace {

using oocpctest::Bytes;
using oocpctest::FakeRepository;
using Container = OOCPCLODContainer;
namespace result = oocpc::result;

constexpr auto kType = oocpc::chunk_type::kLevelOfDetail;

Bytes ChunkOf(std::uint64_t count) {
  OOCPCLODDescription description;
  description.blockCount = count;
  return description.EncodeChunk();
}

HRESULT Load(Container& container, const Bytes& payload) {
  return container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

TEST(LODChunk, IsByteForByteAsDocumented) {
  EXPECT_EQ(ChunkOf(2),
            oocpctest::BytesOf("01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 5A 6D 04 22"));
}

TEST(LODChunk, IsLoadedByTheContainer) {
  Container container(nullptr, kType, "");
  ASSERT_EQ(Load(container, ChunkOf(2)), result::kOk);
  EXPECT_EQ(container.GetDescription().blockCount, 2u);
  EXPECT_STREQ(container.GetName(), "");
  EXPECT_EQ(container.GetChunkType(), kType);
  EXPECT_FALSE(container.IsMetaData());
  EXPECT_STREQ(Container(nullptr, kType, nullptr).GetName(), "");
  EXPECT_STREQ(Container(nullptr, kType, "lod").GetName(), "lod");
}

TEST(LODChunk, IsRefusedWhenDamagedOrNewer) {
  oocpctest::ExpectPayloadIsGuarded(ChunkOf(2), [](const Bytes& payload) {
    Container container(nullptr, kType, "");
    const HRESULT code = Load(container, payload);
    EXPECT_EQ(container.GetDescription().blockCount == 0, oocpc::Failed(code));
    return code;
  });
}

TEST(LODChunk, IsRefusedWhenReservedBytesAreSet) {
  Container container(nullptr, kType, "");
  for (std::size_t at = 2; at < 8; ++at) {
    EXPECT_EQ(Load(container, oocpctest::Resealed(ChunkOf(2), at, {1})), result::kBadRecord) << at;
  }
}

TEST(LODChunk, CompetesByVersionThenOrder) {
  oocpctest::ExpectEligibility<Container>(ChunkOf(2), kType);
  oocpctest::ExpectNewerThenLaterWins<Container>(ChunkOf(2), kType);
}

TEST(LODStream, IsOpenedAnewEachTime) {
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Bytes{1, 2, 3}}});
  const Container container(&repository, kType, "");
  const std::unique_ptr<OOCPCIInputStream> first(container.CreateLODInputStream());
  const std::unique_ptr<OOCPCIInputStream> second(container.CreateLODInputStream());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  Bytes bytes(3);
  EXPECT_EQ(first->Read(bytes.data(), 3), 3u);
  EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(second->GetPosition(), 0u);
}

TEST(LODStream, IsNullWhenThereIsNone) {
  FakeRepository repository(Bytes{});
  EXPECT_EQ(Container(&repository, kType, "").CreateLODInputStream(), nullptr);
  EXPECT_EQ(Container(nullptr, kType, "").CreateLODInputStream(), nullptr);
}

TEST(LODContainer, KeepsTheExtensionBytesSetLast) {
  Container container(nullptr, kType, "");
  const std::uint8_t first[] = {1, 2, 3};
  container.SetExtendedData(first, 3);
  EXPECT_EQ(container.GetExtendedData(), (Bytes{1, 2, 3}));
  container.SetExtendedData(first, 1);
  EXPECT_EQ(container.GetExtendedData(), (Bytes{1}));
  container.SetExtendedData(nullptr, 5);
  EXPECT_TRUE(container.GetExtendedData().empty());
}

TEST(LODContainer, ClonesEverything) {
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Bytes{1}}});
  Container container(&repository, kType, "lod");
  ASSERT_EQ(Load(container, ChunkOf(2)), result::kOk);
  const std::uint8_t extension[] = {9};
  container.SetExtendedData(extension, 1);
  const std::unique_ptr<Container> clone(container.Clone());
  EXPECT_STREQ(clone->GetName(), "lod");
  EXPECT_EQ(clone->GetDescription().blockCount, 2u);
  EXPECT_EQ(clone->GetExtendedData(), (Bytes{9}));
  EXPECT_EQ(clone->GetRepository(), &repository);
}

TEST(LODNodeCacheInterface, IsAbstractAndDeletedThroughItsBase) {
  EXPECT_TRUE(std::is_abstract_v<OOCPCLODNodeCache>);
  EXPECT_TRUE(std::has_virtual_destructor_v<OOCPCLODNodeCache>);
  EXPECT_FALSE(std::is_copy_constructible_v<OOCPCLODNodeCache>);
}

}  // namespace
