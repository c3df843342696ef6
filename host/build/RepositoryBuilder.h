// Builds the streams of a new repository out of a set of points.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <memory>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/Import.h"
#include "host/build/MortonCube.h"
#include "host/build/NodeEmitter.h"
#include "host/build/PieceStore.h"
#include "host/build/PieceTree.h"
#include "host/build/PointSet.h"
#include "host/build/TopLevels.h"

namespace tarnhost {

/// One import on its way from points to a committed repository. Used once, by one thread; works on
/// several inside.
///
/// The cloud is cut into pieces that fit into memory. The points are read three times: for their
/// box, to count them, and to deal them to the pieces, which are kept in memory or, where that is
/// not enough, in a temporary file. The nodes above the pieces are sampled, then each piece is
/// built by itself. The result does not depend on how the cloud was cut.
class RepositoryBuilder {
 public:
  /// `temporaryFolder` is where points are kept that do not fit into memory.
  RepositoryBuilder(PointSet& points, const ImportOptions& options,
                    std::filesystem::path temporaryFolder, OOCPCRepositoryWriter& writer);

  Outcome Run(ImportReport& report);

 private:
  [[nodiscard]] bool Report(const char* stage, std::uint64_t done) const;
  Outcome PreparePoints();
  void FindFrame();
  [[nodiscard]] std::uint64_t CodeOf(const std::int32_t* xyz) const;
  [[nodiscard]] std::uint64_t MostPointsOfPiece() const;
  Outcome CountPoints();
  Outcome OpenPieceStore();
  Outcome DealPoints();
  Outcome SampleTop();
  Outcome BuildPieces(NodeEmitter& emitter);
  Outcome LoadPiece(std::uint32_t piece, std::vector<std::uint8_t>& scratch,
                    std::span<const std::uint8_t>& records, std::vector<CodedPoint>& points) const;
  Outcome CreateColumns();
  Outcome WriteNodes(const NodeEmitter& emitter);
  Outcome WriteLod(const NodeEmitter& emitter);
  Outcome WriteSources();
  Outcome WriteIteration(const NodeEmitter& emitter);
  [[nodiscard]] OOCPCCatalogue Describe() const;
  [[nodiscard]] std::array<std::uint8_t, 16> MakeIdentity() const;

  PointSet& points_;
  const ImportOptions& options_;
  std::filesystem::path temporaryFolder_;
  OOCPCRepositoryWriter& writer_;
  std::uint64_t memoryBytes_;
  std::uint64_t timePoint_;
  oocpc::Vector3d frameOffset_{};
  MortonCube cube_;
  PieceTree pieces_;
  SamplingGrid grid_;
  std::unique_ptr<PieceStore> store_;
  std::vector<std::vector<TakenPoint>> taken_;
  OOCPCUpdItrLODPayload lodPayload_;
};

}  // namespace tarnhost
