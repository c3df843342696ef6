// Level-of-detail blocks and node records as bytes.
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <iterator>

#include "OOCPointCloud/support/Bytes.h"

namespace {

constexpr std::uint16_t kExtensionBytes = OOCPCLODSeal::kBytes;
constexpr std::size_t kWordsBytes = OOCPCLODNodeRecord::kWords * sizeof(std::uint32_t);
constexpr std::size_t kChecksumAt = kWordsBytes - sizeof(std::uint32_t);

/// The checksum of a block that begins at the span's start: of all but the extension.
std::uint32_t ComputeBlockChecksum(std::span<const std::uint8_t> block) {
  return oocpc::Crc32c(block.subspan(OOCPCLODHeader::kBytes + kExtensionBytes),
                       oocpc::Crc32c(block.first(OOCPCLODHeader::kBytes)));
}

std::uint32_t ComputeRecordChecksum(std::span<const std::uint8_t> record) {
  return oocpc::Crc32c(record.subspan(kWordsBytes), oocpc::Crc32c(record.first(kChecksumAt)));
}

}  // namespace

std::string OOCPCLODNodeStreamName(std::uint64_t nodeStreamId) {
  return "DEF_OCTREE_LOD_NODES_" + std::to_string(nodeStreamId);
}

void OOCPCLODHeader::Encode(std::vector<std::uint8_t>& out) const {
  oocpc::AppendLittleEndian(out, version);
  oocpc::AppendLittleEndian(out, recordCount);
  oocpc::AppendLittleEndian(out, nodeEntryCount);
  oocpc::AppendLittleEndian(out, levelCount);
  oocpc::AppendLittleEndian(out, reserved14);
  oocpc::AppendLittleEndian(out, extensionBytes);
  out.insert(out.end(), std::begin(reserved20), std::end(reserved20));
}

OOCPCLODHeader OOCPCLODHeader::Decode(const std::uint8_t (&bytes)[kBytes]) {
  OOCPCLODHeader header;
  header.version = oocpc::LoadLittleEndian<std::uint16_t>(bytes);
  header.recordCount = oocpc::LoadLittleEndian<std::uint32_t>(bytes + 2);
  header.nodeEntryCount = oocpc::LoadLittleEndian<std::uint32_t>(bytes + 6);
  header.levelCount = oocpc::LoadLittleEndian<std::uint32_t>(bytes + 10);
  header.reserved14 = oocpc::LoadLittleEndian<std::uint32_t>(bytes + 14);
  header.extensionBytes = oocpc::LoadLittleEndian<std::uint16_t>(bytes + 18);
  std::copy_n(bytes + 20, sizeof(header.reserved20), header.reserved20);
  return header;
}

void OOCPCLODSeal::Encode(std::vector<std::uint8_t>& out) const {
  oocpc::AppendLittleEndian(out, kMark);
  oocpc::AppendLittleEndian(out, checksum);
}

bool OOCPCLODSeal::Decode(std::span<const std::uint8_t> extension, OOCPCLODSeal& seal) {
  if (extension.size() != kBytes) return false;
  if (oocpc::LoadLittleEndian<std::uint32_t>(extension.data()) != kMark) return false;
  seal.checksum = oocpc::LoadLittleEndian<std::uint32_t>(extension.data() + sizeof(kMark));
  return true;
}

void OOCPCLODBlock::Encode(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  OOCPCLODHeader header;
  header.version = OOCPCLODHeader::kVersion;
  header.recordCount = static_cast<std::uint32_t>(entries.size());
  header.nodeEntryCount = header.recordCount;
  header.levelCount = levelCount;
  header.extensionBytes = kExtensionBytes;
  out.reserve(begin + header.GetBlockBytes());
  header.Encode(out);
  OOCPCLODSeal{}.Encode(out);
  oocpc::AppendLittleEndian(out, scale);
  for (const double coordinate : centre) oocpc::AppendLittleEndian(out, coordinate);
  oocpc::AppendLittleEndian(out, nodeStreamId);
  for (const OOCPCLODNodeEntry& entry : entries) {
    oocpc::AppendLittleEndian(out, entry.childMask);
    oocpc::AppendLittleEndian(out, entry.nodeIndex);
  }
  const std::uint32_t sum = ComputeBlockChecksum(std::span(out).subspan(begin));
  std::memcpy(out.data() + begin + OOCPCLODHeader::kBytes + sizeof(OOCPCLODSeal::kMark), &sum,
              sizeof(sum));
}

HRESULT OOCPCLODBlock::Decode(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < OOCPCLODHeader::kBytes) return oocpc::result::kLodShortRead;
  std::uint8_t head[OOCPCLODHeader::kBytes];
  std::copy_n(bytes.begin(), sizeof(head), head);
  const OOCPCLODHeader header = OOCPCLODHeader::Decode(head);
  if (!header.HasKnownVersion()) return oocpc::result::kLodBadVersion;
  if (header.GetBlockBytes() != bytes.size()) return oocpc::result::kLodLengthMismatch;
  const bool reservedSet = header.reserved14 != 0 ||
                           std::any_of(std::begin(header.reserved20), std::end(header.reserved20),
                                       [](std::uint8_t byte) { return byte != 0; });
  if (header.version != OOCPCLODHeader::kVersion || reservedSet ||
      header.extensionBytes != kExtensionBytes || header.recordCount != header.nodeEntryCount) {
    return oocpc::result::kBadRecord;
  }
  oocpc::ByteReader reader(bytes.subspan(OOCPCLODHeader::kBytes));
  std::span<const std::uint8_t> extension;
  OOCPCLODSeal seal;
  OOCPCLODBlock read;
  read.levelCount = header.levelCount;
  if (!reader.ReadBytes(kExtensionBytes, extension)) return oocpc::result::kLodShortRead;
  if (!OOCPCLODSeal::Decode(extension, seal)) return oocpc::result::kBadRecord;
  bool complete = reader.Read(read.scale);
  for (double& coordinate : read.centre) complete = complete && reader.Read(coordinate);
  complete = complete && reader.Read(read.nodeStreamId);
  if (!complete) return oocpc::result::kLodShortRead;
  if (seal.checksum != ComputeBlockChecksum(bytes)) return oocpc::result::kChecksumMismatch;
  read.entries.resize(header.nodeEntryCount);
  for (OOCPCLODNodeEntry& entry : read.entries) {
    if (!reader.Read(entry.childMask) || !reader.Read(entry.nodeIndex)) {
      return oocpc::result::kLodShortRead;
    }
  }
  *this = std::move(read);
  return oocpc::result::kOk;
}

void OOCPCLODNodeRecord::Encode(std::vector<std::uint8_t>& out) const {
  const std::size_t begin = out.size();
  const std::uint32_t words[kWords] = {indexInLevel,
                                       level,
                                       childMask,
                                       levelsInLeaf,
                                       firstInBlock,
                                       parentIndex,
                                       static_cast<std::uint32_t>(nodeIndex),
                                       static_cast<std::uint32_t>(nodeIndex >> 32),
                                       0,
                                       0,
                                       0,
                                       pointCount,
                                       0};
  for (const std::uint32_t word : words) oocpc::AppendLittleEndian(out, word);
  for (const double coordinate : corner1) oocpc::AppendLittleEndian(out, coordinate);
  for (const double coordinate : corner2) oocpc::AppendLittleEndian(out, coordinate);
  oocpc::AppendLittleEndian(out, firstPoint);
  oocpc::AppendLittleEndian(out, blockId);
  const std::uint32_t sum = ComputeRecordChecksum(std::span(out).subspan(begin));
  std::memcpy(out.data() + begin + kChecksumAt, &sum, sizeof(sum));
}

HRESULT OOCPCLODNodeRecord::Decode(const std::uint8_t (&bytes)[kBytes], OOCPCLODNodeRecord& out) {
  const auto word = [&](std::size_t index) {
    return oocpc::LoadLittleEndian<std::uint32_t>(bytes + index * sizeof(std::uint32_t));
  };
  if (word(12) != ComputeRecordChecksum(bytes)) return oocpc::result::kChecksumMismatch;
  if (word(2) > 0xFF || word(8) != 0 || word(9) != 0 || word(10) != 0) {
    return oocpc::result::kBadRecord;
  }
  OOCPCLODNodeRecord record;
  record.indexInLevel = word(0);
  record.level = word(1);
  record.childMask = static_cast<std::uint8_t>(word(2));
  record.levelsInLeaf = word(3);
  record.firstInBlock = word(4);
  record.parentIndex = word(5);
  record.nodeIndex = word(6) | std::uint64_t{word(7)} << 32;
  record.pointCount = word(11);
  const std::uint8_t* value = bytes + kWordsBytes;
  for (oocpc::Vector3d* corner : {&record.corner1, &record.corner2}) {
    for (double& coordinate : *corner) {
      coordinate = oocpc::LoadLittleEndian<double>(value);
      value += sizeof(double);
    }
  }
  record.firstPoint = oocpc::LoadLittleEndian<std::uint64_t>(value);
  record.blockId = oocpc::LoadLittleEndian<std::uint64_t>(value + sizeof(std::uint64_t));
  out = record;
  return oocpc::result::kOk;
}
