// Level-of-detail blocks and node records, byte for byte.
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/ByteText.h"

namespace {

using oocpctest::BytesOf;
using Bytes = std::vector<std::uint8_t>;
using Record = OOCPCLODNodeRecord;
namespace result = oocpc::result;

constexpr const char* kHeaderBytes =
    "01 00  04 03 02 01  08 07 06 05  0C 0B 0A 09  10 0F 0E 0D  12 11  21 22 23 24 25 26";

TEST(LODHeader, IsByteForByteAsDocumented) {
  OOCPCLODHeader header;
  header.version = 1;
  header.recordCount = 0x01020304;
  header.nodeEntryCount = 0x05060708;
  header.levelCount = 0x090A0B0C;
  header.reserved14 = 0x0D0E0F10;
  header.extensionBytes = 0x1112;
  const std::uint8_t reserved[6] = {0x21, 0x22, 0x23, 0x24, 0x25, 0x26};
  std::copy_n(reserved, 6, header.reserved20);
  Bytes bytes;
  header.Encode(bytes);
  EXPECT_EQ(bytes, BytesOf(kHeaderBytes));
}

TEST(LODHeader, IsDecodedAsItIs) {
  const Bytes bytes = BytesOf(kHeaderBytes);
  std::uint8_t raw[OOCPCLODHeader::kBytes];
  ASSERT_EQ(bytes.size(), sizeof(raw));
  std::copy_n(bytes.begin(), sizeof(raw), raw);
  const OOCPCLODHeader header = OOCPCLODHeader::Decode(raw);
  EXPECT_EQ(header.version, 1u);
  EXPECT_EQ(header.recordCount, 0x01020304u);
  EXPECT_EQ(header.nodeEntryCount, 0x05060708u);
  EXPECT_EQ(header.levelCount, 0x090A0B0Cu);
  EXPECT_EQ(header.reserved14, 0x0D0E0F10u);
  EXPECT_EQ(header.extensionBytes, 0x1112u);
  EXPECT_EQ(header.reserved20[0], 0x21u);
  EXPECT_EQ(header.reserved20[5], 0x26u);
}

TEST(LODHeader, KnowsTheVersionsOneToFour) {
  OOCPCLODHeader header;
  for (const auto& [version, known] : {std::pair{0, false}, {1, true}, {4, true}, {5, false}}) {
    header.version = static_cast<std::uint16_t>(version);
    EXPECT_EQ(header.HasKnownVersion(), known) << version;
  }
}

TEST(LODHeader, ComputesTheBlocksLengthWithoutWrapping) {
  OOCPCLODHeader header;
  EXPECT_EQ(header.GetBlockBytes(), 66u);
  header.extensionBytes = 0xFFFF;
  header.nodeEntryCount = 0xFFFFFFFF;
  EXPECT_EQ(header.GetBlockBytes(), 66u + 0xFFFFu + 9u * std::uint64_t{0xFFFFFFFF});
}

TEST(LODNodeStream, IsNamedByItsDecimalId) {
  EXPECT_EQ(OOCPCLODNodeStreamName(0), "DEF_OCTREE_LOD_NODES_0");
  EXPECT_EQ(OOCPCLODNodeStreamName(~std::uint64_t{0}), "DEF_OCTREE_LOD_NODES_18446744073709551615");
}

OOCPCLODBlock SampleBlock() {
  OOCPCLODBlock block;
  block.levelCount = 3;
  block.scale = 0.5;
  block.centre = {1, -2, 4};
  block.nodeStreamId = 0x0102030405060708;
  block.entries = {{0xFE, 0x1112131415161718}, {1, 2}};
  return block;
}

Bytes Encoded(const OOCPCLODBlock& block) {
  Bytes bytes;
  block.Encode(bytes);
  return bytes;
}

/// The bytes with the checksum that stands at a place computed anew. It leaves itself out and
/// `mark` bytes before.
Bytes SealedAt(Bytes bytes, std::size_t at, std::size_t mark = 0) {
  const std::span<const std::uint8_t> all(bytes);
  const std::uint32_t sum = oocpc::Crc32c(all.subspan(at + 4), oocpc::Crc32c(all.first(at - mark)));
  for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(sum >> (8 * i));
  return bytes;
}
Bytes Sealed(Bytes block) { return SealedAt(std::move(block), 30, 4); }

TEST(LODBlock, IsByteForByteAsDocumented) {
  EXPECT_EQ(Encoded(SampleBlock()),
            BytesOf("01 00  02 00 00 00  02 00 00 00  03 00 00 00  00 00 00 00  08 00"
                    "00 00 00 00 00 00  43 52 43 31  40 FC 84 45"
                    "00 00 00 00 00 00 E0 3F"
                    "00 00 00 00 00 00 F0 3F  00 00 00 00 00 00 00 C0"
                    "00 00 00 00 00 00 10 40"
                    "08 07 06 05 04 03 02 01"
                    "FE 18 17 16 15 14 13 12 11  01 02 00 00 00 00 00 00 00"));
}

TEST(LODBlock, IsAppendedBehindWhatIsThere) {
  Bytes bytes{7, 7};
  SampleBlock().Encode(bytes);
  EXPECT_EQ(Bytes(bytes.begin() + 2, bytes.end()), Encoded(SampleBlock()));
}

TEST(LODBlock, IsDecodedAgain) {
  OOCPCLODBlock block;
  ASSERT_EQ(block.Decode(Encoded(SampleBlock())), result::kOk);
  EXPECT_EQ(block.levelCount, 3u);
  EXPECT_EQ(block.scale, 0.5);
  EXPECT_EQ(block.centre, (oocpc::Vector3d{1, -2, 4}));
  EXPECT_EQ(block.nodeStreamId, 0x0102030405060708u);
  ASSERT_EQ(block.entries.size(), 2u);
  EXPECT_EQ(block.entries[0].childMask, 0xFE);
  EXPECT_EQ(block.entries[0].nodeIndex, 0x1112131415161718u);
  EXPECT_EQ(Encoded(block), Encoded(SampleBlock()));
  OOCPCLODBlock empty;
  ASSERT_EQ(empty.Decode(Encoded({})), result::kOk);
  EXPECT_TRUE(empty.entries.empty());
}

/// Expects the code, and that the object stays as it was.
void ExpectRefused(const Bytes& bytes, HRESULT code, const std::string& how) {
  OOCPCLODBlock block;
  block.levelCount = 77;
  EXPECT_EQ(block.Decode(bytes), code) << how;
  EXPECT_EQ(block.levelCount, 77u) << how;
  EXPECT_TRUE(block.entries.empty()) << how;
}

TEST(LODBlock, IsRefusedWhenTheHeaderIsCut) {
  const Bytes whole = Encoded(SampleBlock());
  for (const std::ptrdiff_t length : {0, 1, 25}) {
    ExpectRefused(Bytes(whole.begin(), whole.begin() + length), result::kLodShortRead,
                  std::to_string(length));
  }
}

TEST(LODBlock, IsRefusedInAnUnknownVersion) {
  for (const std::uint8_t version : {0, 5, 255}) {
    Bytes bytes = Encoded(SampleBlock());
    bytes[0] = version;
    ExpectRefused(Sealed(bytes), result::kLodBadVersion, std::to_string(version));
  }
}

TEST(LODBlock, IsRefusedWhenItIsNotAsLongAsItStates) {
  const Bytes whole = Encoded(SampleBlock());
  for (const std::size_t length : {std::size_t{26}, whole.size() - 1, whole.size() + 1}) {
    Bytes bytes = whole;
    bytes.resize(length);
    ExpectRefused(bytes, result::kLodLengthMismatch, std::to_string(length));
  }
  Bytes bytes = whole;
  bytes[9] = 0xFF;  // states about 2^32 nodes
  ExpectRefused(bytes, result::kLodLengthMismatch, "many nodes");
}

TEST(LODBlock, IsRefusedWhenANewerOrForeignWriterMadeIt) {
  const Bytes whole = Encoded(SampleBlock());
  for (const std::size_t at : {0, 2, 14, 17, 20, 25}) {
    Bytes bytes = whole;
    bytes[at] = static_cast<std::uint8_t>(bytes[at] + 1);
    ExpectRefused(Sealed(bytes), result::kBadRecord, "byte " + std::to_string(at));
  }
  Bytes longer = whole;
  longer[18] = 9;
  longer.insert(longer.begin() + 26, 0);
  ExpectRefused(longer, result::kBadRecord, "another extension");
  Bytes marked = whole;
  marked[26] ^= 1;
  ExpectRefused(marked, result::kBadRecord, "another mark");
}

TEST(LODBlock, IsRefusedWhenAnyByteIsAltered) {
  const Bytes whole = Encoded(SampleBlock());
  for (std::size_t at = 0; at < whole.size(); ++at) {
    Bytes bytes = whole;
    bytes[at] ^= 0x40;
    OOCPCLODBlock block;
    EXPECT_TRUE(oocpc::Failed(block.Decode(bytes))) << at;
    if (at >= 30) ExpectRefused(bytes, result::kChecksumMismatch, std::to_string(at));
  }
}

Record SampleRecord() {
  Record record;
  record.indexInLevel = 0x01020304;
  record.level = 5;
  record.childMask = 0x86;
  record.levelsInLeaf = 7;
  record.firstInBlock = 8;
  record.parentIndex = 9;
  record.nodeIndex = 0x1112131415161718;
  record.pointCount = 0x21222324;
  record.corner1 = {1, 2, 4};
  record.corner2 = {-1, -2, -4};
  record.firstPoint = 0x3132333435363738;
  record.blockId = 0x4142434445464748;
  return record;
}

Bytes Encoded(const Record& record) {
  Bytes bytes;
  record.Encode(bytes);
  return bytes;
}

HRESULT Decoded(const Bytes& bytes, Record& record) {
  std::uint8_t raw[Record::kBytes];
  std::copy_n(bytes.begin(), sizeof(raw), raw);
  return Record::Decode(raw, record);
}

Bytes SealedRecord(Bytes record) { return SealedAt(std::move(record), 48); }

TEST(LODNodeRecord, IsByteForByteAsDocumented) {
  EXPECT_EQ(Encoded(SampleRecord()),
            BytesOf("04 03 02 01  05 00 00 00  86 00 00 00  07 00 00 00  08 00 00 00"
                    "09 00 00 00  18 17 16 15  14 13 12 11  00 00 00 00  00 00 00 00"
                    "00 00 00 00  24 23 22 21  11 3F 11 45"
                    "00 00 00 00 00 00 F0 3F  00 00 00 00 00 00 00 40  00 00 00 00 00 00 10 40"
                    "00 00 00 00 00 00 F0 BF  00 00 00 00 00 00 00 C0  00 00 00 00 00 00 10 C0"
                    "38 37 36 35 34 33 32 31  48 47 46 45 44 43 42 41"));
}

TEST(LODNodeRecord, IsDecodedAgain) {
  Record record;
  ASSERT_EQ(Decoded(Encoded(SampleRecord()), record), result::kOk);
  EXPECT_EQ(record.indexInLevel, 0x01020304u);
  EXPECT_EQ(record.level, 5u);
  EXPECT_EQ(record.childMask, 0x86);
  EXPECT_EQ(record.levelsInLeaf, 7u);
  EXPECT_EQ(record.firstInBlock, 8u);
  EXPECT_EQ(record.parentIndex, 9u);
  EXPECT_EQ(record.nodeIndex, 0x1112131415161718u);
  EXPECT_EQ(record.pointCount, 0x21222324u);
  EXPECT_EQ(record.corner1, (oocpc::Vector3d{1, 2, 4}));
  EXPECT_EQ(record.corner2, (oocpc::Vector3d{-1, -2, -4}));
  EXPECT_EQ(record.firstPoint, 0x3132333435363738u);
  EXPECT_EQ(record.blockId, 0x4142434445464748u);
}

TEST(LODNodeRecord, HasItsPointsWhereEveryReaderLooksForThem) {
  const Bytes bytes = Encoded(SampleRecord());
  EXPECT_EQ(oocpc::LoadLittleEndian<std::uint32_t>(bytes.data() + 44), 0x21222324u);
  EXPECT_EQ(oocpc::LoadLittleEndian<std::uint64_t>(bytes.data() + 100), 0x3132333435363738u);
}

TEST(LODNodeRecord, IsRefusedWhenAnyByteIsAltered) {
  for (std::size_t at = 0; at < Record::kBytes; ++at) {
    Bytes bytes = Encoded(SampleRecord());
    bytes[at] ^= 0x10;
    Record record;
    record.level = 77;
    EXPECT_EQ(Decoded(bytes, record), result::kChecksumMismatch) << at;
    EXPECT_EQ(record.level, 77u) << "as it was";
  }
}

TEST(LODNodeRecord, IsRefusedWithReservedBitsOrMoreThanEightChildren) {
  for (const std::size_t at : {9, 11, 32, 35, 36, 40, 43}) {
    Bytes bytes = Encoded(SampleRecord());
    bytes[at] = 1;
    Record record;
    record.level = 77;
    EXPECT_EQ(Decoded(SealedRecord(bytes), record), result::kBadRecord) << at;
    EXPECT_EQ(record.level, 77u) << "as it was";
  }
}

TEST(LODNodeIndex, IsTheMortonCodeUpToTheTenthLevelAndTheNodesIndexBelow) {
  OOCPCOctreeAcceleratorNode node;
  node.level = 2;
  node.indexInLevel = 63;
  EXPECT_EQ(Record::GetIndex(node, 5, 2), 63u);
  EXPECT_EQ(Record::GetIndex(node, 5, 3), 63u * 8) << "the first cell within it";
  EXPECT_EQ(Record::GetIndex(node, 5, 10), 63u << 24);
  EXPECT_EQ(Record::GetIndex(node, 5, 11), 5u);
  node.level = 10;
  node.indexInLevel = (1u << 30) - 1;
  EXPECT_EQ(Record::GetIndex(node, 0xFFFFFFFF, 10), (1u << 30) - 1);
  EXPECT_EQ(Record::GetIndex(node, 0xFFFFFFFF, 11), 0xFFFFFFFFu);
}

}  // namespace
