// Accelerator chunks, and reading nodes by index.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <thread>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/TestRepositories.h"

namespace {

using oocpctest::Bytes;
using oocpctest::FakeRepository;
using Container = OOCPCAcceleratorContainer;
using Node = OOCPCOctreeAcceleratorNode;
namespace result = oocpc::result;

constexpr auto kType = oocpc::chunk_type::kAccelerator2;

OOCPCAcceleratorDescription Sample() {
  OOCPCAcceleratorDescription description;
  description.cubeMin = {-16, 0, 2.5};
  description.cubeEdge = 1024;
  return description;
}

HRESULT Load(Container& container, const Bytes& payload) {
  return container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

// A chain: every node is the child of the next one.
Bytes Chain(std::uint64_t count) {
  Bytes stream;
  for (std::uint64_t i = 0; i < count; ++i) {
    Node node;
    if (i > 0) node.children[i % 8] = i - 1;
    node.firstPoint = i * 100;
    node.Encode(stream);
  }
  return stream;
}

TEST(AcceleratorChunk, IsByteForByteAsDocumented) {
  EXPECT_EQ(
      Sample().EncodeChunk(),
      oocpctest::BytesOf("01 00 A0 00 00 00 00 00 00 00 00 00 00 00 30 C0 00 00 00 00 00 00 00 00 "
                         "00 00 00 00 00 00 04 40 00 00 00 00 00 00 90 40 3A 58 97 55 "));
}

TEST(AcceleratorChunk, IsLoadedByTheContainer) {
  Container container(kType, nullptr);
  ASSERT_EQ(Load(container, Sample().EncodeChunk()), result::kOk);
  EXPECT_EQ(container.GetDescription().cubeMin, Sample().cubeMin);
  EXPECT_EQ(container.GetDescription().cubeEdge, 1024);
  EXPECT_EQ(container.GetDescription().version, 1u);
  EXPECT_EQ(container.GetChunkType(), kType);
  EXPECT_STREQ(container.GetName(), "DEF_OCTREE");
  EXPECT_FALSE(container.IsMetaData());
}

TEST(AcceleratorChunk, IsRefusedWhenDamagedOrNewer) {
  oocpctest::ExpectPayloadIsGuarded(Sample().EncodeChunk(), [](const Bytes& payload) {
    Container container(kType, nullptr);
    const HRESULT code = Load(container, payload);
    EXPECT_EQ(container.GetDescription().cubeEdge == 1, oocpc::Failed(code));
    return code;
  });
}

TEST(AcceleratorChunk, IsRefusedWithACubeThatIsNone) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Container container(kType, nullptr);
  for (const double edge : {0.0, -1.0, infinity, nan}) {
    OOCPCAcceleratorDescription description = Sample();
    description.cubeEdge = edge;
    EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord) << edge;
  }
  for (const double corner : {infinity, -infinity, nan}) {
    OOCPCAcceleratorDescription description = Sample();
    description.cubeMin[1] = corner;
    EXPECT_EQ(Load(container, description.EncodeChunk()), result::kBadRecord) << corner;
  }
}

TEST(AcceleratorChunk, IsRefusedWithNodesOfAnotherSizeOrReservedBytesSet) {
  Container container(kType, nullptr);
  const Bytes good = Sample().EncodeChunk();
  EXPECT_EQ(Load(container, oocpctest::Resealed(good, 2, {161})), result::kBadRecord);
  EXPECT_EQ(Load(container, oocpctest::Resealed(good, 2, {0})), result::kBadRecord);
  EXPECT_EQ(Load(container, oocpctest::Resealed(good, 4, {1})), result::kBadRecord);
}

TEST(AcceleratorChunk, CompetesByVersionThenOrder) {
  oocpctest::ExpectEligibility<Container>(Sample().EncodeChunk(), kType);
  oocpctest::ExpectNewerThenLaterWins<Container>(Sample().EncodeChunk(), kType);
}

TEST(NodeReading, GivesNodesInAnyOrder) {
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Chain(5)}});
  Container container(kType, &repository);
  for (const std::uint64_t index : {4u, 0u, 2u, 2u}) {
    Node node;
    ASSERT_EQ(container.ReadNode(index, &node), result::kOk);
    EXPECT_EQ(node.firstPoint, index * 100);
  }
  EXPECT_EQ(repository.GetLog()->opened, 1u);
}

TEST(NodeReading, RefusesIndicesBehindTheEnd) {
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Chain(5)}});
  Container container(kType, &repository);
  Node node;
  node.level = 99;
  EXPECT_EQ(container.ReadNode(5, &node), result::kIndexOutOfRange);
  EXPECT_EQ(container.ReadNode(~std::uint64_t{0}, &node), result::kIndexOutOfRange);
  // 160 times this index is 0 modulo 2^64.
  EXPECT_EQ(container.ReadNode(std::uint64_t{1} << 59, &node), result::kIndexOutOfRange);
  EXPECT_EQ(node.level, 99u);
}

TEST(NodeReading, TakesNoNodeFromAFraction) {
  Bytes stream = Chain(2);
  stream.pop_back();
  FakeRepository repository(Bytes{}, {{Container::kStreamName, stream}});
  Container container(kType, &repository);
  Node node;
  EXPECT_EQ(container.ReadNode(0, &node), result::kOk);
  EXPECT_EQ(container.ReadNode(1, &node), result::kIndexOutOfRange);
}

TEST(NodeReading, RefusesNodesWhoseChildrenDoNotStandBeforeThem) {
  for (const std::uint64_t child : {std::uint64_t{0}, std::uint64_t{7}, ~std::uint64_t{1}}) {
    Bytes stream;
    Node node;
    node.children[3] = child;
    node.Encode(stream);
    FakeRepository repository(Bytes{}, {{Container::kStreamName, stream}});
    Container container(kType, &repository);
    EXPECT_EQ(container.ReadNode(0, &node), result::kBadRecord) << child;
  }
}

TEST(NodeReading, ReportsAlteredNodes) {
  Bytes stream = Chain(3);
  stream[160 + 50] ^= 1;
  FakeRepository repository(Bytes{}, {{Container::kStreamName, stream}});
  Container container(kType, &repository);
  Node node;
  EXPECT_EQ(container.ReadNode(1, &node), result::kChecksumMismatch);
  EXPECT_EQ(container.ReadNode(2, &node), result::kOk);
}

TEST(NodeReading, ReportsStreamsThatFail) {
  Node node;
  FakeRepository empty(Bytes{});
  EXPECT_EQ(Container(kType, &empty).ReadNode(0, &node), result::kStreamMissing);
  EXPECT_EQ(Container(kType, nullptr).ReadNode(0, &node), result::kNoRepository);
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Chain(3)}});
  EXPECT_EQ(Container(kType, &repository).ReadNode(0, nullptr), result::kFail);
  repository.Behaviour(Container::kStreamName).shortRead = 0;
  EXPECT_EQ(Container(kType, &repository).ReadNode(0, &node), result::kStreamShort);
  repository.Behaviour(Container::kStreamName).usable = false;
  EXPECT_EQ(Container(kType, &repository).ReadNode(0, &node), result::kIoError);
}

TEST(NodeReading, WorksFromClonesOnTwoThreads) {
  FakeRepository repository(Bytes{}, {{Container::kStreamName, Chain(50)}});
  Container container(kType, &repository);
  ASSERT_EQ(Load(container, Sample().EncodeChunk()), result::kOk);
  const auto work = [&container](std::uint64_t step) {
    const std::unique_ptr<Container> clone(container.Clone());
    ASSERT_EQ(clone->GetDescription().cubeEdge, 1024);
    ASSERT_EQ(clone->GetChunkType(), kType);
    for (std::uint64_t i = 0; i < 500; ++i) {
      const std::uint64_t index = i * step % 50;
      Node node;
      ASSERT_EQ(clone->ReadNode(index, &node), result::kOk);
      ASSERT_EQ(node.firstPoint, index * 100);
    }
  };
  std::thread first(work, 1);
  std::thread second(work, 7);
  first.join();
  second.join();
}

}  // namespace
