// The streams of small point clouds, put together record by record, for repositories of raw bytes.
#pragma once

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>

#include <map>
#include <string>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/TestRepositories.h"

namespace oocpctest {

namespace chunk_type = oocpc::chunk_type;

inline Bytes AcceleratorPayload(double cubeEdge = 1) {
  OOCPCAcceleratorDescription description;
  description.cubeEdge = cubeEdge;
  return description.EncodeChunk();
}
inline Bytes PositionsPayload(const std::string& name = "DEF_POSITION") {
  OOCPCPositionsDescription description;
  description.name = name;
  return description.EncodeChunk();
}
inline Bytes MetaDataPayload(const std::string& name,
                             oocpc::ColumnType type = {oocpc::ValueType::kUInt16, 1}) {
  return OOCPCMetaDataDescription{name, type, 1, ""}.EncodeChunk();
}
inline Bytes UpdateIterationsPayload(std::uint64_t count) {
  OOCPCUpdateIterationDescription description;
  description.iterationCount = count;
  return description.EncodeChunk();
}
inline Bytes LodPayload(std::uint64_t blocks = 0) {
  OOCPCLODDescription description;
  description.blockCount = blocks;
  return description.EncodeChunk();
}
inline Bytes InformationPayload() {
  OOCPCRepositoryInformation information;
  information.generator = "test";
  return information.EncodeChunk();
}
inline Bytes SeedPayload(const std::array<double, 6>& seed) {
  Bytes bytes;
  for (const double value : seed) oocpc::AppendLittleEndian(bytes, value);
  return bytes;
}
/// A payload of the same kind from a format version that does not exist yet: not eligible.
inline Bytes OfNewerVersion(Bytes payload) {
  payload.erase(payload.end() - sizeof(std::uint32_t), payload.end());
  payload[0] = 0xFF;
  oocpc::AppendChecksum(payload);
  return payload;
}

/// Update iterations at the times 100, 101, …; iteration i has the nodes up to and including node
/// i.
inline Bytes IterationRecords(std::uint64_t count) {
  Bytes bytes;
  for (std::uint64_t i = 0; i < count; ++i) {
    OOCPCUpdateIteration iteration;
    iteration.timePoint = 100 + i;
    iteration.acceleratorPayload.beginBytes = i * OOCPCOctreeAcceleratorNode::kBytes;
    iteration.acceleratorPayload.sizeBytes = (i + 1) * OOCPCOctreeAcceleratorNode::kBytes;
    iteration.lodPayload = {i * 10, i * 10 + 10};
    iteration.Stream(bytes);
  }
  return bytes;
}
/// Nodes with boxes from (0, 0, 0) to (2, 4, 6) times the node's index plus one.
inline Bytes NodeRecords(std::uint64_t count) {
  Bytes bytes;
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto factor = static_cast<double>(i + 1);
    OOCPCOctreeAcceleratorNode node;
    node.subtreePointCount = i;
    node.corner2 = {2 * factor, 4 * factor, 6 * factor};
    node.Encode(bytes);
  }
  return bytes;
}

/// A main stream with everything: positions, two attributes, an accelerator, a dictionary, update
/// iterations, level of detail, and the information chunk last.
inline MainStreamBuilder CompleteMainStream(std::uint64_t iterations = 3) {
  const Bytes value16{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  MainStreamBuilder main;
  main.Chunk(chunk_type::kValue16, value16)
      .Chunk(chunk_type::kMortonSeed, SeedPayload({1, 2, 3, 4, 5, 6}))
      .Chunk(chunk_type::kStaticMetaData, MetaDataPayload("intensity"))
      .Chunk(chunk_type::kStaticPositions, PositionsPayload())
      .Chunk(chunk_type::kStaticMetaData,
             MetaDataPayload("gps_time", {oocpc::ValueType::kDouble, 1}))
      .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
      .Chunk(chunk_type::kStringRepository, OOCPCStringRepositoryContainer::EncodeChunk(1))
      .Chunk(chunk_type::kUpdateIterations, UpdateIterationsPayload(iterations))
      .Chunk(chunk_type::kLevelOfDetail, LodPayload())
      .Chunk(chunk_type::kRepositoryInformation, InformationPayload());
  return main;
}
/// The named streams that belong to it.
inline std::map<std::string, Bytes> CompleteStreams(std::uint64_t iterations = 3) {
  Bytes strings;
  OOCPCStringRepositoryContainer::EncodeString("oak", strings);
  return {{OOCPCAcceleratorContainer::kStreamName, NodeRecords(iterations)},
          {OOCPCUpdateIterationContainer::kStreamName, IterationRecords(iterations)},
          {OOCPCStringRepositoryContainer::kStreamName, strings}};
}
/// A repository of both; the caller, or the cloud that it is attached to, deletes it.
inline std::unique_ptr<FakeRepository> CompleteRepository(std::uint64_t iterations = 3) {
  return std::make_unique<FakeRepository>(CompleteMainStream(iterations).Bytes(),
                                          CompleteStreams(iterations));
}

}  // namespace oocpctest
