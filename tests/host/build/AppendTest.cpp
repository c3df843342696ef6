// Appended scans: every iteration holds exactly its points, old ones included, and shares what did
// not change.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>

#include "host/build/Append.h"
#include "host/build/OctreePlan.h"
#include "host/cloud/CloudFacts.h"
#include "host/cloud/Export.h"
#include "host/cloud/IterationCube.h"
#include "host/cloud/Verify.h"
#include "host/repair/Repair.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::StoredPosition;
using Bytes = std::vector<std::uint8_t>;

/// A scan of format 3 with points in a box of stored units.
Bytes ScanIn(std::uint32_t count, StoredPosition corner, StoredPosition size, unsigned seed) {
  LasBuilder builder;
  builder.format = 3;
  builder.pointCount = count;
  builder.seed = seed;
  Bytes file = builder.Build();
  std::mt19937 random(seed);
  std::vector<StoredPosition> positions(count);
  for (StoredPosition& position : positions) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      position[axis] = corner[axis] +
                       static_cast<std::int32_t>(random() % static_cast<unsigned>(size[axis] + 1));
    }
  }
  oocpctest::PlacePoints(file, positions);
  return file;
}

/// A flat square of `edge` stored units.
Bytes Square(std::uint32_t count, std::int32_t x, std::int32_t y, std::int32_t edge,
             unsigned seed) {
  return ScanIn(count, {x, y, 0}, {edge, edge, 300}, seed);
}

/// The point records of a LAS file, sorted.
std::vector<std::string> RecordsIn(const Bytes& file) {
  const std::size_t begin = LasBuilder::Get<std::uint32_t>(file, 96);
  const std::size_t bytes = LasBuilder::Get<std::uint16_t>(file, 105);
  const std::size_t count = LasBuilder::Get<std::uint32_t>(file, 107);
  std::vector<std::string> records;
  for (std::size_t i = 0; i < count; ++i) {
    const auto* from = file.data() + begin + i * bytes;
    records.emplace_back(from, from + bytes);
  }
  std::ranges::sort(records);
  return records;
}

Bytes ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A repository that scans are appended to, and what each iteration has to hold.
class Growing {
 public:
  void Import(const Bytes& scan, std::uint64_t memory = 0) { Add(scan, memory, true); }
  void Append(const Bytes& scan, std::uint64_t memory = 0) { Add(scan, memory, false); }

  /// Everything that holds for every iteration.
  void Check() const {
    VerifyReport verified;
    ASSERT_TRUE(IsOk(VerifyRepository(Place(), {}, verified)));
    for (const Fault& fault : verified.faults) ADD_FAILURE() << fault.stream << ": " << fault.what;
    std::unique_ptr<Cloud> cloud;
    ASSERT_TRUE(IsOk(Cloud::Open(Place(), cloud)));
    ASSERT_EQ(cloud->GetIterationCount(), expected_.size());
    for (std::uint64_t i = 0; i < expected_.size(); ++i) {
      OOCPCUpdateIteration record;
      ASSERT_TRUE(IsOk(cloud->ReadIteration(i, record)));
      EXPECT_EQ(record.pointCount, expected_[i].size());
      const std::size_t before = i == 0 ? 0 : expected_[i - 1].size();
      EXPECT_EQ(record.addedPointCount, expected_[i].size() - before);
      std::uint64_t points = 0;
      const fs::path exported = folder_ / "exported.las";
      fs::remove(exported);
      ASSERT_TRUE(IsOk(ExportLas(*cloud, i, exported, {}, points)));
      EXPECT_TRUE(RecordsIn(ReadFile(exported)) == expected_[i]) << "iteration " << i;
      CheckCube(*cloud, i);
      std::vector<LevelFacts> levels;
      ASSERT_TRUE(IsOk(CollectLevels(*cloud, i, levels)));
      std::uint64_t inLevels = 0;
      for (const LevelFacts& level : levels) inLevels += level.pointCount;
      EXPECT_EQ(inLevels, expected_[i].size()) << "every point is in one level";
    }
  }

  /// Every node's points lie in its cell of the iteration's cube.
  static void CheckCube(Cloud& cloud, std::uint64_t iteration) {
    IterationCube cube;
    ASSERT_TRUE(IsOk(FindCube(cloud, iteration, cube)));
    ASSERT_TRUE(IsOk(cloud.WalkNodes(iteration, [&](const OOCPCOctreeAcceleratorNode& node) {
      if (node.subtreePointCount == 0 || node.level > 20) return Descend::kIntoChildren;
      const double width = std::ldexp(cube.edge, -static_cast<int>(node.level));
      for (std::size_t axis = 0; axis < 3; ++axis) {
        std::uint64_t cell = 0;
        for (unsigned bit = 0; bit < node.level; ++bit) {
          cell |= (node.indexInLevel >> (3 * bit + axis) & 1u) << bit;
        }
        const double begin = cube.min[axis] + static_cast<double>(cell) * width;
        EXPECT_GE(node.corner1[axis], begin - 1e-6) << "iteration " << iteration;
        EXPECT_LE(node.corner2[axis], begin + width + 1e-6) << "iteration " << iteration;
      }
      return Descend::kIntoChildren;
    })));
  }

  [[nodiscard]] std::map<std::string, Bytes> GetStreams() const { return Streams(); }

  /// Damages the newest iteration and repairs the repository.
  void DropNewest() {
    const fs::path stream = Place() / std::string(OOCPCAcceleratorContainer::kStreamName);
    Bytes bytes = ReadFile(stream);
    bytes.at(bytes.size() - 60) ^= 1;  // its root
    oocpctest::WriteFile(stream, bytes);
    RepairOptions options;
    options.repository = Place();
    RepairReport report;
    ASSERT_TRUE(IsOk(RepairRepository(options, report)));
    expected_.pop_back();
    isRepaired_ = true;
  }

  [[nodiscard]] fs::path Place() const { return folder_ / "cloud.tarn"; }
  [[nodiscard]] const ImportReport& Report() const { return report_; }
  [[nodiscard]] ImportOptions Options(const Bytes& scan) {
    ImportOptions options;
    options.inputs = {folder_.Add("scan" + std::to_string(expected_.size()) + ".las", scan)};
    options.output = Place();
    options.timePoint = 1000 * (expected_.size() + 1);
    return options;
  }

 private:
  void Add(const Bytes& scan, std::uint64_t memory, bool first) {
    ImportOptions options = Options(scan);
    options.memoryBytes = memory;
    std::map<std::string, Bytes> before;
    // What a repair dropped lies behind what is committed, and is cut.
    if (!first && !std::exchange(isRepaired_, false)) before = Streams();
    ASSERT_TRUE(IsOk(first ? ImportScans(options, report_) : AppendScans(options, report_)));
    const std::vector<std::string> records = RecordsIn(scan);
    EXPECT_EQ(report_.pointCount, records.size());
    if (records.empty() && !first) return;
    std::vector<std::string> all;
    if (!first) all = expected_.back();
    all.insert(all.end(), records.begin(), records.end());
    std::ranges::sort(all);
    expected_.push_back(std::move(all));
    EXPECT_EQ(report_.iteration, expected_.size() - 1);
    for (const auto& [name, bytes] : Streams()) {
      if (!before.contains(name)) continue;
      const Bytes& old = before.at(name);
      EXPECT_TRUE(bytes.size() >= old.size() && std::equal(old.begin(), old.end(), bytes.begin()))
          << name << ": nothing that was committed changes";
    }
  }

  [[nodiscard]] std::map<std::string, Bytes> Streams() const {
    std::map<std::string, Bytes> streams;
    for (const auto& entry : fs::directory_iterator(Place())) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("DEF_")) streams[name] = ReadFile(entry.path());
    }
    return streams;
  }

  ScanFolder folder_;
  std::vector<std::vector<std::string>> expected_;
  ImportReport report_;
  bool isRepaired_ = false;
};

/// `build` makes a cloud within so many bytes.
template <typename Build>
void ExpectSameInLittleMemoryAsInMuch(const Build& build) {
  Growing little;
  build(little, 1);
  little.Check();
  Growing much;
  build(much, std::uint64_t{4} << 30);
  EXPECT_TRUE(little.GetStreams() == much.GetStreams());
}

TEST(Append, AddsPointsAmongThoseThatAreThere) {
  Growing cloud;
  cloud.Import(Square(60'000, 0, 0, 100'000, 1));
  cloud.Append(Square(50'000, 0, 0, 100'000, 2));
  cloud.Check();
}

TEST(Append, TakesTheSamePointsTwice) {
  Growing cloud;
  const Bytes scan = Square(40'000, 0, 0, 100'000, 1);
  cloud.Import(scan);
  cloud.Append(scan);
  cloud.Append(scan);
  cloud.Check();
}

TEST(Append, AddsATileBesideTheCloud) {
  Growing cloud;
  cloud.Import(Square(60'000, 0, 0, 100'000, 1));
  cloud.Append(Square(60'000, 100'000, 0, 100'000, 2));
  cloud.Append(Square(60'000, -100'000, -100'000, 100'000, 3));
  cloud.Check();
}

TEST(Append, GrowsTowardsEverySide) {
  for (const StoredPosition corner : {StoredPosition{-300'000, 0, 0},
                                      {300'000, 0, 0},
                                      {0, -300'000, 0},
                                      {0, 300'000, 0},
                                      {0, 0, -300'000},
                                      {0, 0, 300'000},
                                      {-300'000, 300'000, -300'000}}) {
    Growing cloud;
    cloud.Import(Square(30'000, 0, 0, 100'000, 1));
    cloud.Append(ScanIn(5'000, corner, {1000, 1000, 1000}, 2));
    cloud.Check();
  }
}

TEST(Append, KeepsPointsOnTheFacesOfTheFormerCube) {
  Growing cloud;
  // A third of the points lie on the face behind which the cube grows.
  Bytes scan = ScanIn(40'000, {0, 0, 0}, {10'000, 10'000, 10'000}, 1);
  std::vector<StoredPosition> face;
  std::mt19937 random(2);
  for (int i = 0; i < 15'000; ++i) {
    face.push_back({10'000, static_cast<std::int32_t>(random() % 10'001),
                    static_cast<std::int32_t>(random() % 10'001)});
  }
  oocpctest::PlacePoints(scan, face);
  cloud.Import(scan);
  cloud.Append(ScanIn(3'000, {10'001, 0, 0}, {9'998, 10'000, 10'000}, 3));
  cloud.Append(ScanIn(10, {9'990, 4'000, 4'000}, {9, 100, 100}, 4));
  cloud.Check();
}

TEST(Append, KeepsEveryPointWhereverScansLie) {
  std::mt19937 random(11);
  const auto between = [&](std::int32_t least, std::int32_t greatest) {
    return least +
           static_cast<std::int32_t>(random() % static_cast<unsigned>(greatest - least + 1));
  };
#if defined(__SANITIZE_ADDRESS__)
  constexpr unsigned kRounds = 1;  // it takes its time
#else
  constexpr unsigned kRounds = 4;
#endif
  for (unsigned round = 0; round < kRounds; ++round) {
    Growing cloud;
    const StoredPosition corner{between(-5000, 5000), between(-5000, 5000), between(-5000, 5000)};
    const std::int32_t edge = between(2000, 9000);
    cloud.Import(ScanIn(30'000, corner, {edge, edge, edge}, round));
    for (unsigned step = 0; step < 4; ++step) {
      StoredPosition place = corner;
      for (std::int32_t& along : place) {
        along += step % 2 == 0 ? between(-edge, edge) : between(0, edge / 2);
      }
      const std::int32_t size = between(1, edge);
      cloud.Append(ScanIn(static_cast<std::uint32_t>(between(1, 2000)), place, {size, size, size},
                          100 * round + step));
    }
    cloud.Check();
  }
}

TEST(Append, HoldsNoMoreInTheFormerRootThanItHad) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "takes minutes under the address sanitizer";
#endif
  const auto build = [](Growing& cloud, std::uint64_t memory) {
    cloud.Import(Square(40'000, 0, 0, 100'000, 1));
    cloud.Append(ScanIn(530'000, {50'000, 50'000, 100}, {0, 0, 0}, 2), memory);
    cloud.Append(ScanIn(1, {-300'000, 0, 0}, {0, 0, 0}, 3), memory);
  };
  ExpectSameInLittleMemoryAsInMuch(build);
}

// Most of the cloud then lies in pieces that hold nothing but points of the former root.
TEST(Append, GrowsWhileMostOfTheCloudStaysAsItIs) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "takes minutes under the address sanitizer";
#endif
  constexpr std::int32_t kEdge = 100'000;
  const auto build = [&](Growing& cloud, std::uint64_t memory) {
    cloud.Import(Square(400'000, 0, 0, kEdge, 1));
    Bytes scan = Square(300'000, 0, 0, kEdge / 4, 2);
    // Some of them beyond the cube, and some where the former root has points.
    std::vector<StoredPosition> positions = oocpctest::PositionsIn(scan);
    const std::vector<StoredPosition> before =
        oocpctest::PositionsIn(Square(400'000, 0, 0, kEdge, 1));
    for (std::size_t i = 0; i < 500; ++i) positions[i][0] = -1 - positions[i][0] / 10;
    for (std::size_t i = 500; i < 40'000; ++i) positions[i] = before[10 * i];
    oocpctest::PlacePoints(scan, positions);
    cloud.Append(scan, memory);
  };
  ExpectSameInLittleMemoryAsInMuch(build);
}

TEST(Append, KeepsNodesSmallHoweverFewPointsTheCloudBeganWith) {
  for (const std::uint32_t first : {0u, 1000u}) {
    Growing cloud;
    cloud.Import(ScanIn(first, {0, 0, 0}, {100'000, 100'000, 100'000}, 1));
    cloud.Append(ScanIn(80'000, {0, 0, 0}, {100'000, 100'000, 100'000}, 2));
    cloud.Check();
    std::unique_ptr<Cloud> opened;
    ASSERT_TRUE(IsOk(Cloud::Open(cloud.Place(), opened)));
    std::uint32_t most = 0;
    ASSERT_TRUE(IsOk(opened->WalkNodes(1, [&](const OOCPCOctreeAcceleratorNode& node) {
      most = std::max(most, node.ownPointCount);
      return Descend::kIntoChildren;
    })));
    EXPECT_LT(most, 2 * OctreePlan::kNodeCapacity);
  }
}

TEST(Append, GoesOnAfterARepairThatDroppedAGrownIteration) {
  Growing cloud;
  cloud.Import(Square(40'000, 0, 0, 10'000, 1));
  cloud.Append(Square(500, 300'000, -300'000, 10'000, 2));
  cloud.DropNewest();
  cloud.Append(Square(20'000, 5'000, 0, 10'000, 3));
  cloud.Append(Square(500, -20'000, 0, 1'000, 4));
  cloud.Check();
}

TEST(Append, GrowsByAHugeFactor) {
  Growing cloud;
  cloud.Import(Square(60'000, 0, 0, 10'000, 1));
  cloud.Append(Square(30'000, 2'000'000'000, -2'000'000'000, 10'000, 2));
  cloud.Append(Square(30'000, 0, 0, 10'000, 3));
  cloud.Check();
}

TEST(Append, GrowsASmallCloudAndOnesThatAreAPoint) {
  Growing cloud;
  cloud.Import(ScanIn(1, {5, 5, 5}, {0, 0, 0}, 1));
  cloud.Append(ScanIn(1, {5, 5, 5}, {0, 0, 0}, 2));
  cloud.Append(ScanIn(1, {-7000, 5, 9}, {0, 0, 0}, 3));
  cloud.Append(Square(40'000, 0, 0, 100'000, 4));
  cloud.Check();
}

TEST(Append, FillsACloudWithoutPoints) {
  Growing cloud;
  cloud.Import(Square(0, 0, 0, 1, 1));
  cloud.Append(Square(30'000, 500'000'000, 500'000'000, 100'000, 2));
  cloud.Check();
}

TEST(Append, MakesNoIterationOfScansWithoutPoints) {
  Growing cloud;
  cloud.Import(Square(1'000, 0, 0, 1000, 1));
  cloud.Append(Square(0, 0, 0, 1, 2));
  EXPECT_EQ(cloud.Report().pointCount, 0u);
  cloud.Check();
}

TEST(Append, DealsWithMorePointsAtOnePlaceThanANodeHolds) {
  Growing cloud;
  cloud.Import(ScanIn(60'000, {77, 77, 77}, {0, 0, 0}, 1));
  cloud.Append(ScanIn(30'000, {77, 77, 77}, {0, 0, 0}, 2));
  cloud.Append(Square(30'000, 0, 0, 100'000, 3));
  cloud.Append(ScanIn(30'000, {77, 77, 77}, {0, 0, 0}, 4));
  cloud.Check();
}

TEST(Append, WorksInLittleMemory) {
  Growing cloud;
  cloud.Import(Square(300'000, 0, 0, 100'000, 1), 1);
  cloud.Append(Square(300'000, 50'000, 0, 100'000, 2), 1);
  cloud.Check();
}

TEST(Append, SharesWhatDoesNotChange) {
  Growing cloud;
  cloud.Import(Square(400'000, 0, 0, 1'000'000, 1));
  const std::uint64_t whole = cloud.Report().storedBytes;
  const std::uint64_t nodes = cloud.Report().nodeCount;
  // A corner: the path down to it, and little else.
  cloud.Append(Square(500, 0, 0, 2'000, 2));
  EXPECT_LT(cloud.Report().nodeCount, nodes / 2);
  EXPECT_LT(cloud.Report().storedBytes, whole / 3);
  cloud.Check();
}

TEST(Append, ShowsNewPointsFromTheFirstLevelOn) {
  Growing cloud;
  cloud.Import(Square(60'000, 0, 0, 100'000, 1));
  cloud.Append(Square(60'000, 100'000, 0, 100'000, 2));
  std::unique_ptr<Cloud> opened;
  ASSERT_TRUE(IsOk(Cloud::Open(cloud.Place(), opened)));
  OOCPCOctreeAcceleratorNode root;
  ASSERT_TRUE(IsOk(opened->ReadRoot(1, root)));
  BlockReader reader;
  ASSERT_TRUE(IsOk(BlockReader::Open(*opened, {}, reader)));
  std::vector<std::int32_t> xyz;
  ASSERT_TRUE(IsOk(reader.ReadPositions(root, xyz)));
  std::array<std::size_t, 2> onSide{};
  for (std::size_t i = 0; i < xyz.size(); i += 3) ++onSide[xyz[i] > 100'000 ? 1 : 0];
  // Both squares are equally large and equally dense.
  EXPECT_GT(onSide[0], 2000u);
  EXPECT_GT(2 * onSide[0], onSide[1]);
  EXPECT_GT(2 * onSide[1], onSide[0]);
}

TEST(Append, FindsTheIterationOfATime) {
  Growing cloud;
  cloud.Import(Square(100, 0, 0, 1000, 1));
  cloud.Append(Square(100, 0, 0, 1000, 2));
  cloud.Append(Square(100, 0, 0, 1000, 3));
  std::unique_ptr<Cloud> opened;
  ASSERT_TRUE(IsOk(Cloud::Open(cloud.Place(), opened)));
  std::uint64_t iteration = 9;
  EXPECT_EQ(opened->FindIterationAt(999, iteration).code, result::kIndexOutOfRange);
  const std::map<std::uint64_t, std::uint64_t> newest{{1000, 0}, {1999, 0}, {2000, 1},
                                                      {2001, 1}, {3000, 2}, {~std::uint64_t{0}, 2}};
  for (const auto& [time, expected] : newest) {
    ASSERT_TRUE(IsOk(opened->FindIterationAt(time, iteration)));
    EXPECT_EQ(iteration, expected) << time;
  }
}

TEST(FailedAppend, RefusesATimeThatIsNotLater) {
  Growing cloud;
  cloud.Import(Square(100, 0, 0, 1000, 1));
  ImportOptions options = cloud.Options(Square(100, 0, 0, 1000, 2));
  ImportReport report;
  options.timePoint = 1000;
  EXPECT_EQ(AppendScans(options, report).code, result::kIndexOutOfRange);
  cloud.Check();
}

TEST(FailedAppend, RefusesScansThatDoNotGoWithTheCloud) {
  Growing cloud;
  cloud.Import(Square(100, 0, 0, 1000, 1));
  LasBuilder builder;
  builder.format = 3;
  ImportReport report;
  for (int what = 0; what < 3; ++what) {
    LasBuilder other = builder;
    if (what == 0) other.scale[1] *= 2;
    if (what == 1) other.offset[2] += 1;
    if (what == 2) other.format = 1;
    const Outcome outcome = AppendScans(cloud.Options(other.Build()), report);
    EXPECT_EQ(outcome.code, result::kScansDiffer) << what;
    EXPECT_FALSE(outcome.remedy.empty());
  }
  cloud.Check();
}

TEST(FailedAppend, RefusesScansMoreThanAMillionTimesAsFarAsTheCloudIsWide) {
  Growing cloud;
  cloud.Import(ScanIn(100, {0, 0, 0}, {10, 10, 10}, 1));
  ImportReport report;
  const Outcome outcome =
      AppendScans(cloud.Options(ScanIn(100, {2'000'000'000, 0, 0}, {10, 10, 10}, 2)), report);
  EXPECT_EQ(outcome.code, result::kScansDiffer);
  cloud.Check();
}

TEST(FailedAppend, TellsWhereNoRepositoryIs) {
  const ScanFolder folder;
  ImportOptions options;
  options.inputs = {folder.Add("a.las", Square(10, 0, 0, 10, 1))};
  options.output = folder / "none.tarn";
  ImportReport report;
  EXPECT_TRUE(oocpc::Failed(AppendScans(options, report).code));
  EXPECT_FALSE(fs::exists(options.output));
}

TEST(FailedAppend, LeavesTheCloudAsItWasWhenStopped) {
  Growing cloud;
  cloud.Import(Square(40'000, 0, 0, 100'000, 1));
  for (int allowed = 0; allowed < 4; ++allowed) {
    ImportOptions options = cloud.Options(Square(40'000, 0, 0, 100'000, 2));
    int reports = 0;
    options.progress = [&](const ProgressReport&) { return reports++ < allowed; };
    ImportReport report;
    EXPECT_EQ(AppendScans(options, report).code, result::kStopped) << allowed;
  }
  cloud.Check();
  cloud.Append(Square(40'000, 0, 0, 100'000, 2));
  cloud.Check();
}

}  // namespace
}  // namespace tarnhost
