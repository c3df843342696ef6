// Builds the streams of a new repository out of a set of points.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/OOCPointCloudNode.h>

#include <memory>
#include <vector>

#include "host/build/BlockBuilder.h"
#include "host/build/Import.h"
#include "host/build/MemoryPlan.h"
#include "host/build/NodeEmitter.h"
#include "host/build/PieceStore.h"
#include "host/build/PieceTree.h"
#include "host/build/PointCoder.h"
#include "host/build/PointSet.h"
#include "host/build/TopLevels.h"

namespace tarnhost {

/// The most memory to use, in bytes: what the options say, or a quarter of the machine's.
[[nodiscard]] std::uint64_t MemoryFor(const ImportOptions& options);

/// The present, as time points are counted: microseconds since 1970 UTC.
[[nodiscard]] std::uint64_t CurrentTimePoint();

/// Frame and cube of a cloud whose points lie in a box.
[[nodiscard]] PointCoder CoderFor(const StoredBox& box, const PositionTransform& transform);

/// What points are appended to.
struct AppendBase {
  ExistingTree* tree = nullptr;
  PointCoder coder;   ///< into the cube of the new iteration
  SamplingGrid grid;  ///< of the repository
  StreamEnds ends;
  OOCPCCatalogue catalogue;          ///< as it was committed
  std::uint64_t iterationCount = 0;  ///< before
  std::uint64_t pointCount = 0;      ///< of the newest iteration
  std::uint64_t stringCount = 0;     ///< in the dictionary
  /// Points of the set that are not new, but dealt anew; they are those of its last scan.
  std::uint64_t dissolvedCount = 0;
  const FallibleSource* dissolved = nullptr;
};

/// One import on its way from points to a committed repository. Used once, by one thread; works on
/// several inside.
///
/// The cloud is cut into pieces along the Morton curve. The points are read to count them (once
/// more where the scans state a wrong box), and dealt to the pieces: in memory where they fit, or
/// else read again and kept in a temporary file. The nodes above the pieces are sampled, then each
/// piece is built by itself. The result does not depend on how the cloud was cut.
class RepositoryBuilder {
 public:
  /// `temporaryFolder` is where points are kept that do not fit into memory.
  RepositoryBuilder(PointSet& points, const ImportOptions& options,
                    std::filesystem::path temporaryFolder, OOCPCRepositoryWriter& writer);
  /// The same for points that come to a cloud, as its next iteration.
  RepositoryBuilder(PointSet& points, const ImportOptions& options,
                    std::filesystem::path temporaryFolder, OOCPCRepositoryWriter& writer,
                    AppendBase& base);

  Outcome Run(ImportReport& report);

 private:
  Outcome Build(ImportReport& report);
  [[nodiscard]] bool Report(const char* stage, std::uint64_t done) const;
  Outcome PreparePoints();
  [[nodiscard]] bool FitsIntoMemory() const;
  [[nodiscard]] Outcome CheckMemory() const;
  Outcome CountPoints();
  bool CountCodes(StoredBox& found);
  Outcome DealPoints();
  Outcome DealInMemory();
  Outcome DealThroughFile();
  Outcome SampleTop();
  Outcome BuildPieces(NodeEmitter& emitter);
  [[nodiscard]] bool IsTooLarge(const Piece& piece) const;
  Outcome EmitTooLarge(std::uint32_t number, std::span<const TakenPoint> taken,
                       NodeEmitter& emitter) const;
  Outcome CreateColumns();
  Outcome WriteNodes(const NodeEmitter& emitter);
  Outcome WriteLod(const NodeEmitter& emitter);
  Outcome WriteSources();
  Outcome WriteNewStrings();
  Outcome WriteIteration(const NodeEmitter& emitter);
  [[nodiscard]] Outcome CheckExisting() const;
  [[nodiscard]] Outcome CheckPoints(const NodeEmitter& emitter) const;
  void AddHeld(const Piece& piece, std::vector<TakenPoint>& taken) const;
  [[nodiscard]] OOCPCCatalogue Describe() const;
  [[nodiscard]] OOCPCCatalogue DescribeAppended();
  void DescribeCube(OOCPCCatalogue& catalogue) const;
  void DescribeStrings(OOCPCCatalogue& catalogue) const;
  static void DescribeIterations(std::uint64_t count, OOCPCCatalogue& catalogue);
  [[nodiscard]] std::array<std::uint8_t, 16> MakeIdentity() const;

  PointSet& points_;
  const ImportOptions& options_;
  std::filesystem::path temporaryFolder_;
  OOCPCRepositoryWriter& writer_;
  AppendBase* base_ = nullptr;     ///< null: a new repository
  std::uint64_t bytesBefore_ = 0;  ///< in all streams
  std::uint64_t memoryBytes_;
  MemoryPlan plan_;
  std::uint64_t timePoint_;
  PointCoder coder_;
  PieceTree pieces_;
  SamplingGrid grid_;
  std::unique_ptr<std::uint64_t[]> codes_;         ///< of all points, when they fit into memory
  std::unique_ptr<std::uint8_t[]> copiedRecords_;  ///< when they fit and lie nowhere else
  bool areCopied_ = false;                         ///< whether copiedRecords_ is filled
  std::unique_ptr<PieceStore> store_;
  FilePieceStore* fileStore_ = nullptr;  ///< that very store, when it is one in a file
  std::unique_ptr<CandidateStore> candidates_;
  OOCPCUpdItrLODPayload lodPayload_;
};

}  // namespace tarnhost
