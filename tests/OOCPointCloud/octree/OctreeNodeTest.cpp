// The 160-byte record of an octree node.
#include <OOCPointCloud/OOCPointCloudNode.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/ByteText.h"

namespace {

using Node = OOCPCOctreeAcceleratorNode;
using Bytes = std::vector<std::uint8_t>;
namespace result = oocpc::result;

Node Sample() {
  Node node;
  node.children[0] = 3;
  node.children[7] = 12;
  node.firstPoint = 1000;
  node.blockId = 9;
  node.level = 2;
  node.ownPointCount = 77;
  node.indexInLevel = 045;
  node.subtreePointCount = 123456789012;
  node.corner1 = {-1, -2, -3};
  node.corner2 = {1, 2, 3.5};
  return node;
}

const char* const kGolden =
    "03 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
    "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
    "FF FF FF FF FF FF FF FF 0C 00 00 00 00 00 00 00 E8 03 00 00 00 00 00 00 "
    "09 00 00 00 00 00 00 00 02 00 00 00 4D 00 00 00 25 00 00 00 00 00 00 00 "
    "14 1A 99 BE 1C 00 00 00 00 00 00 00 E9 95 8E 15 00 00 00 00 00 00 F0 BF "
    "00 00 00 00 00 00 00 C0 00 00 00 00 00 00 08 C0 00 00 00 00 00 00 F0 3F "
    "00 00 00 00 00 00 00 40 00 00 00 00 00 00 0C 40 ";

HRESULT Decode(const Bytes& bytes, Node& node) {
  std::uint8_t record[Node::kBytes];
  std::copy_n(bytes.begin(), sizeof(record), record);
  return Node::Decode(record, node);
}

TEST(OctreeNodeRecord, IsByteForByteAsDocumented) {
  Bytes bytes{1, 2, 3};
  Sample().Encode(bytes);
  EXPECT_EQ(Bytes(bytes.begin() + 3, bytes.end()), oocpctest::BytesOf(kGolden));
}

TEST(OctreeNodeRecord, ComesBackAsItWasWritten) {
  Node node;
  ASSERT_EQ(Decode(oocpctest::BytesOf(kGolden), node), result::kOk);
  const Node sample = Sample();
  EXPECT_EQ(node.children, sample.children);
  EXPECT_EQ(node.firstPoint, sample.firstPoint);
  EXPECT_EQ(node.blockId, sample.blockId);
  EXPECT_EQ(node.level, sample.level);
  EXPECT_EQ(node.ownPointCount, sample.ownPointCount);
  EXPECT_EQ(node.indexInLevel, sample.indexInLevel);
  EXPECT_EQ(node.subtreePointCount, sample.subtreePointCount);
  EXPECT_EQ(node.flags, 0u);
  EXPECT_EQ(node.checksum, 0x158E95E9u);
  EXPECT_EQ(node.corner1, sample.corner1);
  EXPECT_EQ(node.corner2, sample.corner2);
}

TEST(OctreeNodeRecord, IsRefusedWhenAnyBitIsFlipped) {
  const Bytes good = oocpctest::BytesOf(kGolden);
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Bytes bad = good;
    bad[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    Node node;
    node.level = 99;
    ASSERT_EQ(Decode(bad, node), result::kChecksumMismatch) << "bit " << bit;
    ASSERT_EQ(node.level, 99u) << "a refused record must leave the node as it was";
  }
}

TEST(OctreeNode, IsALeafWithoutChildren) {
  EXPECT_TRUE(Node{}.IsLeaf());
  for (std::size_t i = 0; i < 8; ++i) {
    Node node;
    node.children[i] = 0;
    EXPECT_FALSE(node.IsLeaf()) << i;
  }
}

TEST(OctreeNode, DescribesItsSubtreeToQueries) {
  const OOCPointCloudNode described = Sample().Describe();
  EXPECT_EQ(described.box.min, Sample().corner1);
  EXPECT_EQ(described.box.max, Sample().corner2);
  EXPECT_EQ(described.level, 2u);
  EXPECT_EQ(described.indexInLevel, 045u);
  EXPECT_EQ(described.pointCount, 123456789012u);
}

}  // namespace
