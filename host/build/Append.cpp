// Appends scans to a repository, as its next update iteration.
#include "host/build/Append.h"

#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <set>
#include <utility>

#include "host/build/AdaptedScan.h"
#include "host/build/CoordinateSystems.h"
#include "host/build/GpsTimes.h"
#include "host/build/NewStrings.h"
#include "host/build/PointLayout.h"
#include "host/build/RepositoryBuilder.h"
#include "host/build/ScanInputs.h"
#include "host/build/TemporaryDisk.h"
#include "host/cloud/IterationCube.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// The former cube stays a cell of the octree that the codes can name.
constexpr unsigned kMostGrowth = 20;
constexpr std::uint64_t kRun = 1u << 15;
/// Later time points leave no room for further ones.
constexpr std::uint64_t kLatestTime = 253'402'300'799'999'999;

/// The cube of the new iteration, and the former cube's cell in it.
struct GrownCube {
  MortonCube cube;
  unsigned growth = 0;
  std::uint64_t corner = 0;  ///< at level `growth`

  [[nodiscard]] bool Holds(const oocpc::Box3d& box) const {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (box.min[axis] < cube.min[axis] || box.max[axis] > cube.min[axis] + cube.edge) {
        return false;
      }
    }
    return true;
  }
  /// Doubles the cube, towards the side on which the box sticks out.
  void Double(const oocpc::Box3d& box) {
    std::uint64_t octant = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (box.min[axis] < cube.min[axis]) {
        octant |= std::uint64_t{1} << axis;
        cube.min[axis] -= cube.edge;
      }
    }
    cube.edge *= 2;
    corner |= octant << (3 * growth);
    ++growth;
  }
};

class Appender {
 public:
  Appender(const ImportOptions& options, std::filesystem::path temporaryFolder)
      : options_(options), temporaryFolder_(std::move(temporaryFolder)) {}

  Outcome Run(std::unique_ptr<OOCPCIStreamStore> store,
              const std::function<Outcome(std::unique_ptr<Cloud>&)>& open, ImportReport& report) {
    std::unique_ptr<OOCPCRepositoryWriter> writer;
    const HRESULT code =
        OOCPCRepositoryWriter::OpenExisting(std::move(store), base_.catalogue, writer);
    if (oocpc::Failed(code)) return WhyNot(code, open);
    if (Outcome outcome = open(cloud_); !outcome.Ok()) return outcome;
    if (Outcome outcome = CheckTime(); !outcome.Ok()) return outcome;
    if (Outcome outcome = OpenInputs(report); !outcome.Ok()) return outcome;
    report.iteration = iteration_;
    if (newPoints_ == 0) return Outcome::Success();
    if (Outcome outcome = FindEnds(*writer); !outcome.Ok()) return outcome;
    if (Outcome outcome = PlaceScans(); !outcome.Ok()) return outcome;
    PointSet points;
    if (Outcome outcome = PointSet::Join(std::move(scans_), points); !outcome.Ok()) return outcome;
    points.SetNewStrings(strings_.Take());
    ImportOptions options = options_;
    options.timePoint = timePoint_;
    RepositoryBuilder builder(points, options, temporaryFolder_, *writer, base_);
    Outcome outcome = builder.Run(report);
    report.iteration = iteration_ + 1;
    return outcome;
  }

 private:
  /// A reader tells which stream it is about.
  [[nodiscard]] Outcome WhyNot(HRESULT code,
                               const std::function<Outcome(std::unique_ptr<Cloud>&)>& open) const {
    std::unique_ptr<Cloud> cloud;
    Outcome opened = open(cloud);
    return opened.Ok() ? Outcome::FromCode(code, options_.output.string()) : opened;
  }

  /// Time points ascend, so that each tells which iteration was the newest one then.
  Outcome CheckTime() {
    if (Outcome outcome = cloud_->FindNewestIteration(iteration_); !outcome.Ok()) return outcome;
    if (Outcome outcome = cloud_->ReadIteration(iteration_, newest_); !outcome.Ok()) return outcome;
    base_.iterationCount = iteration_ + 1;
    base_.pointCount = newest_.pointCount;
    timePoint_ = options_.timePoint ? *options_.timePoint
                                    : std::max(CurrentTimePoint(), newest_.timePoint + 1);
    if (timePoint_ > kLatestTime) {
      return Outcome::Failure(result::kIndexOutOfRange, "the time point is behind the year 9999",
                              options_.output.string(),
                              "give it in microseconds since 1970 UTC, or as a date");
    }
    if (timePoint_ > newest_.timePoint) return Outcome::Success();
    return Outcome::Failure(
        result::kIndexOutOfRange,
        "the time point is not later than that of iteration " + std::to_string(iteration_),
        options_.output.string(),
        "give a later one than tarn iterations lists, or none for the present");
  }

  Outcome OpenInputs(ImportReport& report) {
    std::vector<std::unique_ptr<ScanFile>> scans;
    if (Outcome outcome = OpenScans(options_, temporaryFolder_, scans, report); !outcome.Ok())
      return outcome;
    TellOfOtherSystems(options_, CoordinateSystemOf(cloud_->GetSources()), scans);
    TellOfOtherTimes(options_, GpsTimesOf(cloud_->GetSources()), scans);
    if (Outcome outcome = ListFormerSources(); !outcome.Ok()) return outcome;
    ScanWorkspace workspace{MemoryFor(options_) / 2, temporaryFolder_, {}};
    for (const auto& scan : scans) workspaceTotal_ += scan->GetPointCount();
    workspace.progress = [&](std::uint64_t done) {
      return !options_.progress ||
             options_.progress({"decoding", std::min(done, workspaceTotal_), workspaceTotal_});
    };
    if (Outcome outcome = AnnounceScratch(scans); !outcome.Ok()) return outcome;
    for (auto& scan : scans) {
      WarnOfRepeat(*scan);
      newPoints_ += scan->GetPointCount();
      if (Outcome outcome = Adapt(std::move(scan)); !outcome.Ok()) return outcome;
      if (Outcome outcome = scans_.back()->Prepare(workspace); !outcome.Ok()) return outcome;
    }
    return Outcome::Success();
  }

  /// How much disk the rest takes is known when it is known what of the cloud is dealt anew.
  Outcome AnnounceScratch(std::span<const std::unique_ptr<ScanFile>> scans) const {
    const std::uint64_t disk = CountScratchDisk(scans, MemoryFor(options_) / 2);
    return disk == 0 ? Outcome::Success() : AnnounceTemporaryDisk(options_, temporaryFolder_, disk);
  }

  /// The scan in the form of the cloud's points.
  Outcome Adapt(std::unique_ptr<ScanFile> scan) {
    PointLayout layout{cloud_->GetTransform(), {}};
    ScanTags tags;
    for (const CloudColumn& column : cloud_->GetColumns()) {
      layout.dimensions.push_back({column.name, column.type, column.description});
      if (IsSourceName(column.name, column.type)) {
        tags.source = strings_.NumberOf(NameSource(scan->GetPath(), takenNames_));
      } else if (IsSourceIndex(column.name, column.type)) {
        tags.firstIndex = nextIndex_;
      }
    }
    nextIndex_ += scan->GetPointCount();
    strings_.NumberThoseOf(*scan);
    if (LacksTexts(*scan, layout.dimensions)) tags.emptyText = strings_.NumberOf({});
    std::unique_ptr<ScanFile> adapted;
    Outcome outcome = AdaptScan(std::move(scan), layout, tags, adapted);
    scans_.push_back(std::move(adapted));
    return outcome;
  }

  /// What the sources so far are called and how many points they brought.
  Outcome ListFormerSources() {
    for (const SourceRecord& source : cloud_->GetSources()) nextIndex_ += source.pointCount;
    const OOCPCStringRepositoryContainer* const dictionary =
        cloud_->GetPointCloud().GetDataRepository()->GetStringRepository();
    if (dictionary == nullptr) return Outcome::Success();
    base_.stringCount = dictionary->GetCount();
    for (std::uint64_t i = 0; i < base_.stringCount; ++i) {
      std::string text;
      const HRESULT code = dictionary->GetString(i, text);
      if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
      takenNames_.insert(text);
      strings_.AddFormer(std::move(text));
    }
    return Outcome::Success();
  }

  /// Tells of a scan that was imported or appended before.
  void WarnOfRepeat(const ScanFile& scan) const {
    if (!options_.notice) return;
    const bool isThere = std::ranges::any_of(cloud_->GetSources(), [&](const SourceRecord& source) {
      return source.fileName == scan.GetPath().filename().string() &&
             source.pointCount == scan.GetPointCount() &&
             std::ranges::equal(source.leadingBytes, scan.GetLeadingBytes()) &&
             source.trailingBytes.size() == scan.GetTrailingBytes().size();
    });
    if (!isThere) return;
    options_.notice(scan.GetPath().string() +
                    " seems to be in the cloud already (a source of this name, size and header); "
                    "its points are appended once more");
  }

  Outcome FindEnds(const OOCPCRepositoryWriter& writer) {
    base_.ends.nodeCount = writer.GetLength(OOCPCAcceleratorContainer::kStreamName) /
                           OOCPCOctreeAcceleratorNode::kBytes;
    BlockReader reader;
    if (Outcome outcome = BlockReader::Open(*cloud_, {}, reader); !outcome.Ok()) return outcome;
    OOCPCMetaDataContainer& positions = reader.GetPositions();
    HRESULT code = positions.GetBlockCount(base_.ends.blockCount);
    oocpc::BlockEntry last;
    if (!oocpc::Failed(code) && base_.ends.blockCount > 0) {
      code = positions.ReadBlockEntry(base_.ends.blockCount - 1, last);
    }
    if (oocpc::Failed(code)) return Outcome::FromCode(code, options_.output.string());
    base_.ends.pointCount = last.firstValue + last.valueCount;
    return Outcome::Success();
  }

  /// Finds the cube that holds everything, and what of the tree the new points fall into.
  Outcome PlaceScans() {
    if (Outcome outcome = FindFormerCube(); !outcome.Ok()) return outcome;
    StoredBox box;
    bool isStated = true;
    for (const auto& scan : scans_) {
      StoredBox stated;
      if (scan->GetPointCount() == 0) continue;
      isStated = isStated && scan->GetStatedBox(stated);
      box.Extend(stated);
    }
    if (!isStated) box = FindBox([](std::span<const std::int32_t>) {});
    // A stated box may be wrong: then what is found while touching is taken.
    for (bool isFound = !isStated; true; isFound = true) {
      if (Outcome outcome = Grow(box); !outcome.Ok()) {
        if (isFound) return outcome;
        box = FindBox([](std::span<const std::int32_t>) {});
        continue;
      }
      StoredBox found;
      if (Outcome outcome = Touch(found); !outcome.Ok()) return outcome;
      if (found == box) break;
      box = found;
    }
    if (tree_ == nullptr) return Outcome::Success();
    base_.tree = tree_.get();
    auto dissolved = tree_->Dissolve();
    if (dissolved.empty()) return Outcome::Success();
    scans_.push_back(PackNodes(*cloud_, std::move(dissolved), base_.dissolved));
    base_.dissolvedCount = scans_.back()->GetPointCount();
    return Outcome::Success();
  }

  /// Loads the tree and notes what of it the new points fall into.
  Outcome Touch(StoredBox& found) {
    std::unique_ptr<ExistingTree> tree;
    if (newest_.pointCount > 0) {
      Outcome outcome =
          ExistingTree::Load(*cloud_, iteration_, grown_.growth, grown_.corner, base_.coder, tree);
      if (!outcome.Ok()) return outcome;
    }
    found = FindBox([&](std::span<const std::int32_t> xyz) {
      if (tree == nullptr) return;
      std::vector<std::uint64_t> codes(xyz.size() / 3);
      base_.coder.CodesOf(xyz.data(), codes);
      tree->Touch(codes);
    });
    tree_ = std::move(tree);
    return Outcome::Success();
  }

  Outcome FindFormerCube() {
    IterationCube cube;
    Outcome outcome = FindCube(*cloud_, iteration_, cube);
    former_ = {cube.min, cube.edge};
    base_.grid.gridBits = cube.gridBits;
    return outcome;
  }

  Outcome Grow(const StoredBox& box) {
    base_.coder.transform = cloud_->GetTransform();
    base_.coder.frameOffset = cloud_->GetFrameOffset();
    if (newest_.pointCount == 0) {
      // Nothing says yet where the cloud lies.
      base_.coder = CoderFor(box, cloud_->GetTransform());
      grown_ = {base_.coder.cube, 0, 0};
      return Outcome::Success();
    }
    const oocpc::Box3d local = BoxInFrame(box, base_.coder.transform, base_.coder.frameOffset);
    grown_ = {former_, 0, 0};
    while (!grown_.Holds(local) && grown_.growth <= kMostGrowth) grown_.Double(local);
    base_.coder.cube = grown_.cube;
    if (grown_.growth <= kMostGrowth) return Outcome::Success();
    return Outcome::Failure(result::kScansDiffer,
                            "the scans lie more than a million times as far from the cloud as it "
                            "is wide",
                            options_.output.string(), "import them into a repository of their own");
  }

  /// The box of all new points, which `visit` sees run by run, from several threads at once.
  template <typename Visit>
  StoredBox FindBox(const Visit& visit) const {
    StoredBox box;
    for (const auto& scan : scans_) {
      using Points = tbb::blocked_range<std::uint64_t>;
      box.Extend(tbb::parallel_reduce(
          Points(0, scan->GetPointCount(), kRun), StoredBox(),
          [&](const Points& points, StoredBox found) {
            std::vector<std::int32_t> xyz(3 * points.size());
            scan->ReadPositions(points.begin(), points.size(), xyz.data());
            found.Extend(xyz.data(), points.size());
            visit(std::span<const std::int32_t>(xyz));
            return found;
          },
          [](StoredBox a, const StoredBox& b) {
            a.Extend(b);
            return a;
          },
          tbb::simple_partitioner()));
    }
    return box;
  }

  const ImportOptions& options_;
  std::filesystem::path temporaryFolder_;
  std::unique_ptr<Cloud> cloud_;
  std::uint64_t iteration_ = 0;  ///< the newest one before
  OOCPCUpdateIteration newest_;
  std::uint64_t timePoint_ = 0;
  std::uint64_t newPoints_ = 0;
  std::uint64_t workspaceTotal_ = 0;  ///< points of all scans
  std::vector<std::unique_ptr<ScanFile>> scans_;
  std::uint64_t nextIndex_ = 0;  ///< place of the first point of the next scan
  NewStrings strings_;
  std::set<std::string> takenNames_;
  MortonCube former_;
  GrownCube grown_;
  std::unique_ptr<ExistingTree> tree_;
  AppendBase base_;
};

}  // namespace

Outcome AppendIntoStore(const ImportOptions& options, std::unique_ptr<OOCPCIStreamStore> store,
                        const std::function<Outcome(std::unique_ptr<Cloud>&)>& open,
                        const std::filesystem::path& temporaryFolder, ImportReport& report) {
  report = {};
  return Appender(options, temporaryFolder).Run(std::move(store), open, report);
}

Outcome AppendScans(const ImportOptions& options, ImportReport& report) {
  try {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    const HRESULT code = OOCPCFolderStreamStore::Open(options.output, store);
    if (oocpc::Failed(code)) return ExplainNoRepository(code, options.output);
    const auto open = [&](std::unique_ptr<Cloud>& cloud) {
      return Cloud::Open(options.output, cloud);
    };
    return AppendIntoStore(options, std::move(store), open, options.output, report);
  } catch (const std::bad_alloc&) {
    return Outcome::FromCode(result::kOutOfMemory);
  } catch (const std::exception& error) {
    return Outcome::Failure(result::kIoError, error.what(), options.output.string());
  }
}

}  // namespace tarnhost
