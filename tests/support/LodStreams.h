// Level-of-detail blocks and node records put together number by number, and repositories with
// them.
#pragma once

#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>

#include <cstring>

#include "tests/support/CloudStreams.h"
#include "tests/support/ColumnValues.h"

namespace oocpctest {

/// One block of the level-of-detail stream, good or bad.
struct LodBlock {
  static constexpr std::size_t kPlainBytes = 66;  ///< without extension and node entries

  std::uint16_t version = 1;
  std::uint32_t recordCount = 0;
  std::uint32_t nodeEntryCount = 0;
  std::uint32_t headerValue = 0;
  std::uint32_t number14 = 0;
  Bytes extension;
  std::array<std::uint8_t, 6> bytes20{};
  double scale = 0;
  std::array<double, 3> centre{};
  std::uint64_t nodeStreamId = 0;

  /// The block up to its node entries.
  [[nodiscard]] Bytes Head() const {
    Bytes bytes;
    oocpc::AppendLittleEndian(bytes, version);
    oocpc::AppendLittleEndian(bytes, recordCount);
    oocpc::AppendLittleEndian(bytes, nodeEntryCount);
    oocpc::AppendLittleEndian(bytes, headerValue);
    oocpc::AppendLittleEndian(bytes, number14);
    oocpc::AppendLittleEndian(bytes, static_cast<std::uint16_t>(extension.size()));
    bytes.insert(bytes.end(), bytes20.begin(), bytes20.end());
    bytes.insert(bytes.end(), extension.begin(), extension.end());
    oocpc::AppendLittleEndian(bytes, scale);
    for (const double coordinate : centre) oocpc::AppendLittleEndian(bytes, coordinate);
    oocpc::AppendLittleEndian(bytes, nodeStreamId);
    return bytes;
  }
  /// The whole block; its node entries are of no meaning.
  [[nodiscard]] Bytes Whole() const {
    Bytes bytes = Head();
    bytes.resize(bytes.size() + 9 * std::size_t{nodeEntryCount}, 0xE9);
    return bytes;
  }
};

/// A block whose fields all differ from 0 and from each other.
inline LodBlock SampleLodBlock(std::uint32_t records = 2, std::uint64_t nodeStreamId = 7) {
  LodBlock block;
  block.recordCount = records;
  block.nodeEntryCount = 3;
  block.headerValue = 0x0A0B0C0D;
  block.number14 = 0x14151617;
  block.extension = {0xE1, 0xE2, 0xE3};
  block.bytes20 = {20, 21, 22, 23, 24, 25};
  block.scale = 0.25;
  block.centre = {10.5, -20.5, 30.5};
  block.nodeStreamId = nodeStreamId;
  return block;
}

/// What a lookup of the sample node `number` gives.
inline std::uint64_t SampleNodeValue(std::uint64_t number) { return 0x0102030400000000u + number; }
inline std::uint32_t SampleNodeWord(std::uint64_t number) {
  return 0x05060000u + static_cast<std::uint32_t>(number);
}

/// Appends the 116 bytes of a node record: four numbers at their places, nonsense everywhere else.
inline void AppendNodeRecord(Bytes& bytes, std::uint32_t indexInLevel, std::uint32_t level,
                             std::uint64_t value, std::uint32_t word) {
  Bytes record(116, 0xEE);
  std::memcpy(record.data(), &indexInLevel, sizeof(indexInLevel));
  std::memcpy(record.data() + 4, &level, sizeof(level));
  std::memcpy(record.data() + 44, &word, sizeof(word));
  std::memcpy(record.data() + 100, &value, sizeof(value));
  bytes.insert(bytes.end(), record.begin(), record.end());
}
/// The sample nodes 0 to `count` - 1, all of one level, each with its number as its index there.
inline Bytes SampleNodeRecords(std::uint32_t count, std::uint32_t level = 5) {
  Bytes bytes;
  bytes.reserve(std::size_t{count} * 116);
  for (std::uint32_t i = 0; i < count; ++i) {
    AppendNodeRecord(bytes, i, level, SampleNodeValue(i), SampleNodeWord(i));
  }
  return bytes;
}

inline std::string NodeStreamName(std::uint64_t id) {
  return "DEF_OCTREE_LOD_NODES_" + std::to_string(id);
}

/// A repository with positions (column 0) and "DEF_COLOR" (column 1) of two points, and one update
/// iteration per block: one behind the other in the level-of-detail stream, with as many sample
/// nodes as each states.
inline std::unique_ptr<FakeRepository> LodRepository(const std::vector<LodBlock>& blocks) {
  constexpr oocpc::ColumnType kPositions{oocpc::ValueType::kInt32, 3};
  constexpr oocpc::ColumnType kColors{oocpc::ValueType::kUInt16, 1};
  MainStreamBuilder main;
  main.Chunk(chunk_type::kStaticPositions, PositionsPayload())
      .Chunk(chunk_type::kStaticMetaData, MetaDataPayload("DEF_COLOR", kColors))
      .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
      .Chunk(chunk_type::kUpdateIterations, UpdateIterationsPayload(blocks.size()))
      .Chunk(chunk_type::kLevelOfDetail, LodPayload(blocks.size()))
      .Chunk(chunk_type::kRepositoryInformation, InformationPayload());
  auto repository = std::make_unique<FakeRepository>(main.Bytes());
  Bytes lod;
  Bytes iterations;
  for (const LodBlock& block : blocks) {
    const Bytes bytes = block.Whole();
    OOCPCUpdateIteration iteration;
    iteration.lodPayload = {lod.size(), lod.size() + bytes.size()};
    iteration.Stream(iterations);
    lod.insert(lod.end(), bytes.begin(), bytes.end());
    repository->Add(NodeStreamName(block.nodeStreamId), SampleNodeRecords(block.recordCount));
  }
  repository->Add(OOCPCLODContainer::kStreamName, lod);
  repository->Add(OOCPCUpdateIterationContainer::kStreamName, iterations);
  ColumnBuilder()
      .Block(kPositions, ValuesAsBytes<std::int32_t>({1, 2, 3, 4, 5, 6}))
      .AddTo(*repository, 0);
  ColumnBuilder().Block(kColors, ValuesAsBytes<std::uint16_t>({11, 22})).AddTo(*repository, 1);
  return repository;
}

/// Blocks of the iterations 0 to `count` - 1, each named by its node stream id.
inline std::vector<LodBlock> SampleLodBlocks(std::uint64_t count) {
  std::vector<LodBlock> blocks;
  for (std::uint64_t i = 0; i < count; ++i) blocks.push_back(SampleLodBlock(2, i));
  return blocks;
}

}  // namespace oocpctest
