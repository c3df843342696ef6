// A repository opened by the program: the point cloud, its columns and its sources.
#pragma once

#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/cloud/SourceRecord.h"
#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A column of the cloud other than the positions.
struct CloudColumn {
  std::string name;
  oocpc::ColumnType type;
  std::string description;
  std::uint32_t columnId = 0;  ///< names its streams
};

/// A run of points in storage order.
struct PointRange {
  std::uint64_t first = 0;
  std::uint32_t count = 0;
};

/// A node below this level is taken for damage, which bounds what goes down a tree. It is more than
/// any cloud needs: where points are equal, each level divides them by eight, and a cube that grows
/// adds levels above.
inline constexpr std::uint32_t kDeepestLevel = 128;

/// What a walk does below a node.
enum class Descend { kIntoChildren, kPastSubtree, kStop };

/// An opened repository. Reading operations take containers of their own (see BlockReader) and are
/// safe from several threads at once; opening is not.
class Cloud {
 public:
  /// Opens a repository folder. The outcome tells which stream is missing, cut or altered.
  static Outcome Open(const std::filesystem::path& folder, std::unique_ptr<Cloud>& cloud);
  /// The same for any repository, which is taken over. `place` names it in messages.
  static Outcome Attach(std::unique_ptr<OOCPCStreamRepository> repository,
                        std::filesystem::path place, std::unique_ptr<Cloud>& cloud);

  [[nodiscard]] TarnOOCPointCloud& GetPointCloud() { return pointCloud_; }
  [[nodiscard]] const std::filesystem::path& GetPath() const { return path_; }
  [[nodiscard]] const OOCPCRepositoryInformation& GetInformation() const;
  [[nodiscard]] const oocpc::Vector3d& GetFrameOffset() const;
  [[nodiscard]] const PositionTransform& GetTransform() const { return transform_; }
  /// Names the streams of the positions.
  [[nodiscard]] std::uint32_t GetPositionsColumnId() const { return positionsColumnId_; }
  /// All columns but the positions, in the order in which they are stored.
  [[nodiscard]] const std::vector<CloudColumn>& GetColumns() const { return columns_; }
  /// The sources of all points, unless KeepSourcesOf left some out; their bytes stay valid while
  /// the cloud is open.
  [[nodiscard]] const std::vector<SourceRecord>& GetSources() const { return sources_; }

  /// Leaves out the sources whose points came after an iteration. Failures of ReadIteration.
  Outcome KeepSourcesOf(std::uint64_t iteration);

  [[nodiscard]] std::uint64_t GetIterationCount() const;
  /// The record of one iteration; kIndexOutOfRange names those that there are.
  Outcome ReadIteration(std::uint64_t iteration, OOCPCUpdateIteration& record) const;
  /// The newest iteration; kNoUpdateIterations when there is none.
  Outcome FindNewestIteration(std::uint64_t& iteration) const;
  /// The newest iteration with no later time point, microseconds since 1970 UTC; kIndexOutOfRange
  /// when there is none. An iteration that may be the one, but cannot be read, is a failure.
  Outcome FindIterationAt(std::uint64_t time, std::uint64_t& iteration) const;
  Outcome ReadRoot(std::uint64_t iteration, OOCPCOctreeAcceleratorNode& root);
  Outcome ReadNode(std::uint64_t index, OOCPCOctreeAcceleratorNode& node) const;
  /// Visits the nodes of an iteration, parents before their children, children in their order.
  Outcome WalkNodes(std::uint64_t iteration,
                    const std::function<Descend(const OOCPCOctreeAcceleratorNode&)>& visit);
  /// Opens a named stream whole. kStreamMissing.
  Outcome ReadStream(const std::string& name, std::vector<std::uint8_t>& bytes) const;

 private:
  explicit Cloud(std::filesystem::path path) : path_(std::move(path)) {}
  Outcome Load(std::unique_ptr<OOCPCStreamRepository> repository);
  Outcome LoadColumns();
  Outcome LoadSources();

  std::filesystem::path path_;
  TarnOOCPointCloud pointCloud_;
  PositionTransform transform_;
  std::uint32_t positionsColumnId_ = 0;
  std::vector<CloudColumn> columns_;
  std::unique_ptr<OOCPCIInputStream> sourceStream_;
  std::vector<std::uint8_t> sourceBytes_;
  std::vector<SourceRecord> sources_;
};

/// What it means for a user that a repository folder could not be opened, for this code.
Outcome ExplainNoRepository(HRESULT code, const std::filesystem::path& folder);

/// Reads blocks of a cloud through clones of its containers. One thread at a time per reader.
class BlockReader {
 public:
  /// `columns` are the names of the columns to read besides the positions; one without a name is
  /// none, of which no values are read.
  static Outcome Open(Cloud& cloud, const std::vector<std::string>& columns, BlockReader& reader);
  /// The same through the level containers of an iteration.
  static Outcome OpenLevel(Cloud& cloud, std::uint64_t iteration,
                           const std::vector<std::string>& columns, BlockReader& reader);

  /// Stored integers of a node's own points, three per point.
  Outcome ReadPositions(const OOCPCOctreeAcceleratorNode& node, std::vector<std::int32_t>& xyz);
  /// Positions in the local frame, three doubles per point.
  Outcome ReadLocalPositions(const OOCPCOctreeAcceleratorNode& node, std::vector<double>& xyz);
  /// Values of the column that stands at `column` in the list given.
  Outcome ReadColumn(std::size_t column, const OOCPCOctreeAcceleratorNode& node,
                     std::vector<std::uint8_t>& values);
  // The same of any run of points.
  Outcome ReadPositions(const PointRange& points, std::vector<std::int32_t>& xyz);
  Outcome ReadLocalPositions(const PointRange& points, std::vector<double>& xyz);
  Outcome ReadColumn(std::size_t column, const PointRange& points,
                     std::vector<std::uint8_t>& values);
  [[nodiscard]] std::size_t GetColumnCount() const { return columns_.size(); }
  /// Of a column with a name.
  [[nodiscard]] OOCPCMetaDataContainer& GetContainer(std::size_t column) {
    return *columns_[column];
  }
  [[nodiscard]] OOCPCMetaDataContainer& GetPositions() { return *positions_; }

 private:
  using CloneFunction =
      std::function<Outcome(const std::string&, std::unique_ptr<OOCPCMetaDataContainer>&)>;
  static Outcome OpenClones(const CloneFunction& clone, const std::vector<std::string>& columns,
                            BlockReader& reader);

  std::unique_ptr<OOCPCMetaDataContainer> positions_;
  std::vector<std::unique_ptr<OOCPCMetaDataContainer>> columns_;
  std::vector<std::uint8_t> scratch_;
};

}  // namespace tarnhost
