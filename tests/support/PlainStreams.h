// The streams of a repository, put together by hand, with points and nothing that an import adds.
#pragma once

#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"
#include "tests/support/SmallRepository.h"

namespace oocpctest {

/// A cloud of one node with four points on the x axis and without levels of detail.
inline std::shared_ptr<OOCPCMemoryStreams> MakePlainStreams() {
  constexpr std::uint32_t kCount = 4;
  namespace chunk_type = oocpc::chunk_type;
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
  std::vector<std::uint8_t> positions;
  for (std::uint32_t i = 0; i < kCount; ++i) {
    for (const std::uint32_t number : {i, 0u, 0u}) oocpc::AppendLittleEndian(positions, number);
  }
  const auto block = oocpc::EncodeBlock({oocpc::ValueType::kInt32, 3}, positions);
  EXPECT_EQ(writer.AppendBlock(0, block, 0), 0);
  const auto append = [&](const char* stream, const std::vector<std::uint8_t>& bytes) {
    std::uint64_t position = 0;
    EXPECT_EQ(writer.Append(stream, bytes, position), 0);
  };
  append("DEF_SOURCES", {});
  OOCPCOctreeAcceleratorNode root;
  root.blockId = 0;
  root.ownPointCount = kCount;
  root.subtreePointCount = kCount;
  root.corner2 = {kCount - 1.0, 0, 0};
  std::vector<std::uint8_t> node;
  root.Encode(node);
  append(OOCPCAcceleratorContainer::kStreamName, node);
  OOCPCUpdateIteration iteration;
  iteration.acceleratorPayload = {0, node.size()};
  iteration.pointCount = kCount;
  iteration.addedPointCount = kCount;
  iteration.blockCount = 1;
  std::vector<std::uint8_t> record;
  iteration.Stream(record);
  append(OOCPCUpdateIterationContainer::kStreamName, record);
  OOCPCCatalogue catalogue;
  OOCPCAcceleratorDescription accelerator;
  accelerator.cubeEdge = 1000;
  catalogue.chunks.emplace_back(chunk_type::kAccelerator1, accelerator.EncodeChunk());
  catalogue.chunks.emplace_back(chunk_type::kStaticPositions,
                                OOCPCPositionsDescription{}.EncodeChunk());
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = 1;
  catalogue.chunks.emplace_back(chunk_type::kUpdateIterations, iterations.EncodeChunk());
  EXPECT_EQ(writer.Commit(catalogue), 0);
  return streams;
}

}  // namespace oocpctest
