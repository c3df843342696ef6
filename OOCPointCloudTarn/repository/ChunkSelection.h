// What attachment has picked out of a main stream and made of it, on its way into the point cloud.
#pragma once

#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

/// Chunks and containers in transit. Whoever keeps a container takes it out; what is still in here
/// at the end is deleted.
struct TarnOOCPointCloud::ChunkSelection {
  std::array<std::uint8_t, 16> value16{};
  std::array<double, 6> mortonSeed{};
  /// The chunks that the parse selected, less those that the four containers below were made from.
  std::vector<OOCIndexChunk> selectedChunks;
  std::vector<OOCIndexChunk> otherChunks;
  std::unique_ptr<OOCPCAcceleratorContainer> acceleratorContainer;
  std::unique_ptr<OOCPCUpdateIterationContainer> updateIterationContainer;
  std::unique_ptr<OOCPCLODContainer> lodContainer;
  std::unique_ptr<OOCPCStaticPositionsContainer> positionsContainer;
};
