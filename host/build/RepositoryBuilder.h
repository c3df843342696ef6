// Builds the streams of a new repository out of a set of points.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/Import.h"
#include "host/build/MortonCube.h"
#include "host/build/PointSet.h"

namespace tarnhost {

/// One import on its way from points to a committed repository. Used once, by one thread; works on
/// several inside.
class RepositoryBuilder {
 public:
  RepositoryBuilder(const PointSet& points, const ImportOptions& options,
                    OOCPCRepositoryWriter& writer);

  Outcome Run(ImportReport& report);

 private:
  [[nodiscard]] bool Report(const char* stage, std::uint64_t done) const;
  void FindFrame();
  Outcome SortPoints(std::vector<CodedPoint>& coded) const;
  Outcome CreateColumns();
  Outcome WriteBlocks(const OctreePlan& plan);
  Outcome AppendBlocks(std::span<const PlannedNode> batch, std::span<const BuiltBlock> blocks);
  void AddNode(const PlannedNode& planned, const oocpc::Box3d& ownBox);
  Outcome WriteNodes();
  Outcome WriteLod(const OctreePlan& plan);
  Outcome WriteSources();
  Outcome WriteIteration();
  [[nodiscard]] OOCPCCatalogue Describe() const;
  [[nodiscard]] std::array<std::uint8_t, 16> MakeIdentity() const;

  const PointSet& points_;
  const ImportOptions& options_;
  OOCPCRepositoryWriter& writer_;
  std::uint64_t timePoint_;
  oocpc::Vector3d frameOffset_{};
  MortonCube cube_;
  std::vector<OOCPCOctreeAcceleratorNode> nodes_;
  std::uint64_t blockCount_ = 0;
  OOCPCUpdItrLODPayload lodPayload_;
};

}  // namespace tarnhost
