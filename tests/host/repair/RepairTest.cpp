// What repairing brings back, what it says is lost, and what it leaves alone.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <map>

#include "OOCPointCloud/support/Bytes.h"
#include "host/build/Append.h"
#include "host/cloud/CloudFacts.h"
#include "host/lod/LodTree.h"
#include "host/repair/Repair.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/SecondIteration.h"
#include "tests/support/TableEntries.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using Bytes = std::vector<std::uint8_t>;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::StateOf;

constexpr std::uint64_t kPoints = 50;

/// A repository with three update iterations, and its states after each of them.
class Repairing : public ::testing::Test {
 protected:
  Repairing() {
    oocpctest::LasBuilder builder;
    builder.pointCount = kPoints;
    folder_.ImportBytes(builder.Build());
    states_.push_back(StateOf(folder_.Repository()));
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(IsOk(oocpctest::IterationAppender::AppendToFolder(folder_.Repository())));
      states_.push_back(StateOf(folder_.Repository()));
    }
  }

  [[nodiscard]] fs::path Place(const std::string& name) const {
    return folder_.Repository() / name;
  }
  void FlipLast(const std::string& name, std::size_t fromEnd = 1) const {
    Bytes bytes = oocpctest::ReadFile(Place(name));
    ASSERT_GE(bytes.size(), fromEnd);
    bytes[bytes.size() - fromEnd] ^= 1;
    oocpctest::WriteFile(Place(name), bytes);
  }
  [[nodiscard]] std::map<std::string, Bytes> Files() const {
    std::map<std::string, Bytes> files;
    for (const std::string& name : ScanFolder::ListOf(folder_.Repository())) {
      files[name] = oocpctest::ReadFile(Place(name));
    }
    return files;
  }
  Outcome Repair(bool dryRun = false) {
    RepairOptions options;
    options.repository = folder_.Repository();
    options.dryRun = dryRun;
    return RepairRepository(options, report_);
  }
  /// Repairs, and expects the state after an iteration and all bytes but those of main untouched.
  void ExpectBack(std::uint64_t iterations) {
    const auto before = Files();
    ASSERT_TRUE(IsOk(Repair()));
    EXPECT_TRUE(report_.changesMain);
    EXPECT_GT(report_.faultCount, 0u);
    EXPECT_EQ(report_.iterationsAfter, iterations);
    EXPECT_EQ(report_.pointsAfter, kPoints);
    EXPECT_EQ(StateOf(folder_.Repository()), states_[iterations - 1]);
    for (const auto& [name, bytes] : before) {
      if (name.starts_with("main")) continue;
      EXPECT_EQ(oocpctest::ReadFile(Place(name)), bytes) << name;
    }
  }

  /// The first iteration's levels of detail are refused by name; everything else is as it was.
  void ExpectOnlyTheFirstToBeDamaged(const std::string& lost) const {
    VerifyReport verified;
    ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, verified)));
    ASSERT_EQ(verified.faultCount, 1u);
    EXPECT_EQ(verified.faults[0].stream, lost);
    EXPECT_FALSE(verified.intactIterations.at(0));
    const auto cloud = folder_.Open();
    for (std::uint64_t i = 0; i < cloud->GetIterationCount(); ++i) {
      EXPECT_EQ(oocpctest::FingerprintOf(*cloud, i), oocpctest::FingerprintOf(*folder_.Open(), 0));
      std::vector<LevelFacts> levels;
      std::unique_ptr<LodTree> tree;
      const Outcome listed = CollectLevels(*cloud, i, levels);
      const Outcome opened = LodTree::Open(*cloud, i, tree);
      EXPECT_EQ(listed.Ok(), i > 0) << i;
      EXPECT_EQ(opened.Ok(), i > 0) << i;
      if (i > 0) continue;
      EXPECT_NE((listed.what + listed.where).find(lost), std::string::npos) << listed.where;
      EXPECT_NE((opened.what + opened.where).find(lost), std::string::npos) << opened.where;
    }
  }

  ScanFolder folder_;
  std::vector<std::string> states_;
  RepairReport report_;
};

TEST_F(Repairing, PutsBackARepositoryThatAKilledImportSetAside) {
  const auto files = Files();
  const fs::path aside = folder_ / ".cloud.tarn.importing-4711.aside";
  fs::rename(folder_.Repository(), aside);
  EXPECT_EQ(Repair(true).code, result::kNotARepository) << "a trial changes nothing";
  EXPECT_TRUE(fs::exists(aside));
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_FALSE(fs::exists(aside));
  EXPECT_EQ(StateOf(folder_.Repository()), states_.back());
  for (const auto& [name, bytes] : files) EXPECT_EQ(oocpctest::ReadFile(Place(name)), bytes);
}

TEST_F(Repairing, LeavesASoundRepositoryAsItIs) {
  const auto before = Files();
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_EQ(report_.faultCount, 0u);
  EXPECT_FALSE(report_.changesMain);
  EXPECT_EQ(report_.iterationsAfter, 3u);
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, BringsALostMainStreamBackFromItsCopy) {
  fs::remove(Place("main"));
  ExpectBack(3);
  EXPECT_TRUE(report_.fromCopy);
  EXPECT_TRUE(report_.backup.empty());
}

TEST_F(Repairing, BringsAnAlteredMainStreamBackAndKeepsIt) {
  FlipLast("main", 20);
  const Bytes altered = oocpctest::ReadFile(Place("main"));
  ExpectBack(3);
  EXPECT_TRUE(report_.fromCopy);
  EXPECT_EQ(report_.backup, Place("main.before-repair"));
  EXPECT_EQ(oocpctest::ReadFile(report_.backup), altered);
}

TEST_F(Repairing, FallsBackToTheIterationBeforeADamagedOne) {
  for (const char* name : {"DEF_OCTREE", "DEF_UPDATE_ITERATIONS", "DEF_COLUMN_0",
                           "DEF_COLUMN_0_BLOCKS", "DEF_COLUMN_3"}) {
    const auto before = Files();
    FlipLast(name);
    ExpectBack(2);
    EXPECT_FALSE(report_.fromCopy) << name;
    EXPECT_EQ(report_.iterationsBefore, 3u) << name;
    EXPECT_EQ(oocpctest::ReadFile(report_.backup), before.at("main")) << name;
    fs::remove(report_.backup);
    for (const auto& [file, bytes] : before) oocpctest::WriteFile(Place(file), bytes);
  }
}

TEST_F(Repairing, FallsBackWhereAStreamIsCutOrGone) {
  const auto before = Files();
  fs::resize_file(Place("DEF_COLUMN_2"), before.at("DEF_COLUMN_2").size() - 1);
  ExpectBack(2);
  for (const auto& [file, bytes] : before) oocpctest::WriteFile(Place(file), bytes);
  fs::resize_file(Place("DEF_OCTREE"), before.at("DEF_OCTREE").size() - 1);
  ExpectBack(2);
}

/// Damage of levels of detail, by the stream and what is done to it.
class RepairingLevels : public Repairing {
 protected:
  /// Bytes that are lost, or the last one altered; all for -1.
  void Harm(const std::string& name, int bytes) const {
    if (bytes < 0) {
      fs::remove(Place(name));
    } else if (bytes > 0) {
      fs::resize_file(Place(name), fs::file_size(Place(name)) - static_cast<unsigned>(bytes));
    } else {
      FlipLast(name);
    }
  }
};

TEST_F(RepairingLevels, MakesThoseOfTheNewestIterationAnew) {
  const auto before = Files();
  for (const char* name : {"DEF_LOD", "DEF_OCTREE_LOD_NODES_2"}) {
    for (const int lost : {0, 40, -1}) {
      Harm(name, lost);
      const auto harmed = Files();
      ASSERT_TRUE(IsOk(Repair(true))) << name;
      EXPECT_EQ(Files(), harmed) << "a trial changes nothing";
      ASSERT_TRUE(IsOk(Repair())) << name;
      ASSERT_TRUE(report_.hasOtherLevels && report_.changesMain) << name << lost;
      EXPECT_EQ(report_.iterationsBefore, 3u);
      EXPECT_EQ(report_.iterationsAfter, 4u);
      EXPECT_EQ(report_.pointsBefore, kPoints);
      EXPECT_EQ(report_.pointsAfter, kPoints);
      const bool isAllGone = lost < 0 && std::string(name) == "DEF_LOD";
      EXPECT_EQ(report_.damagedIterations,
                isAllGone ? (std::vector<std::uint64_t>{0, 1, 2}) : (std::vector<std::uint64_t>{2}))
          << name << lost;
      for (const auto& [file, bytes] : harmed) {
        if (file.starts_with("main")) continue;
        Bytes after = oocpctest::ReadFile(Place(file));
        ASSERT_GE(after.size(), bytes.size());
        after.resize(bytes.size());
        EXPECT_EQ(after, bytes) << file;
      }
      VerifyReport verified;
      ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, verified)));
      ASSERT_EQ(verified.intactIterations.size(), 4u);
      EXPECT_TRUE(verified.intactIterations[3]);
      EXPECT_FALSE(verified.intactIterations[2]);
      const auto cloud = folder_.Open();
      EXPECT_EQ(oocpctest::FingerprintOf(*cloud, 3), oocpctest::FingerprintOf(*cloud, 0));
      for (std::uint64_t i = 0; i < 4; ++i) {
        std::vector<LevelFacts> levels;
        std::unique_ptr<LodTree> tree;
        EXPECT_EQ(CollectLevels(*cloud, i, levels).Ok(), verified.intactIterations[i]);
        EXPECT_EQ(LodTree::Open(*cloud, i, tree).Ok(), verified.intactIterations[i]);
      }
      ASSERT_TRUE(IsOk(Repair()));
      EXPECT_FALSE(report_.changesMain);
      EXPECT_FALSE(report_.hasOtherLevels);
      for (const std::string& file : ScanFolder::ListOf(folder_.Repository())) {
        fs::remove(Place(file));
      }
      for (const auto& [file, bytes] : before) oocpctest::WriteFile(Place(file), bytes);
    }
  }
}

TEST_F(RepairingLevels, GoesOnWhereAnInterruptedRepairOrWriterLeftBytes) {
  Harm("DEF_OCTREE_LOD_NODES_2", 0);
  for (const char* name : {"DEF_LOD", "DEF_UPDATE_ITERATIONS", "DEF_OCTREE_LOD_NODES_3"}) {
    Bytes bytes;
    if (fs::exists(Place(name))) bytes = oocpctest::ReadFile(Place(name));
    bytes.insert(bytes.end(), 100, 7);
    oocpctest::WriteFile(Place(name), bytes);
  }
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_TRUE(report_.hasOtherLevels);
  VerifyReport verified;
  ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, verified)));
  EXPECT_EQ(verified.faultCount, 1u);
  EXPECT_TRUE(verified.intactIterations.at(3));
}

/// The levels of detail of an iteration, as they are stored.
Bytes LevelsOf(const ScanFolder& folder, std::uint64_t iteration, OOCPCLODBlock& block) {
  std::vector<OOCPCLODNodeRecord> records;
  EXPECT_TRUE(IsOk(ReadLevelRecords(*folder.Open(), iteration, block, records)));
  Bytes bytes;
  block.nodeStreamId = 0;
  block.Encode(bytes);
  for (const OOCPCLODNodeRecord& record : records) record.Encode(bytes);
  return bytes;
}

/// A scan of two cubes, far apart for their size: next to all cells of any grid are empty.
Bytes TwoClusters(std::uint32_t count) {
  Bytes scan = oocpctest::ScanOf(count);
  auto positions = oocpctest::PositionsIn(scan);
  for (std::size_t i = 0; i < positions.size(); i += 2) positions[i][0] += 2'000'000'000;
  oocpctest::PlacePoints(scan, positions);
  return scan;
}

TEST_F(RepairingLevels, GivesALargeCloudTheLevelsThatItHad) {
  for (const Bytes& scan : {oocpctest::ScanOf(90000), TwoClusters(90000)}) {
    const ScanFolder folder;
    folder.ImportBytes(scan);
    OOCPCLODBlock block;
    const Bytes levels = LevelsOf(folder, 0, block);
    fs::remove(folder.Repository() / "DEF_LOD");
    fs::remove(folder.Repository() / "DEF_OCTREE_LOD_NODES_0");
    RepairOptions options;
    options.repository = folder.Repository();
    ASSERT_TRUE(IsOk(RepairRepository(options, report_)));
    EXPECT_TRUE(report_.hasOtherLevels);
    EXPECT_TRUE(LevelsOf(folder, 1, block) == levels);
    ImportOptions more = folder.Options({folder.Add("more.las", oocpctest::ScanOf(3000))});
    more.timePoint.reset();
    ImportReport appended;
    ASSERT_TRUE(IsOk(AppendScans(more, appended)));
    VerifyReport verified;
    ASSERT_TRUE(IsOk(VerifyRepository(folder.Repository(), {}, verified)));
    EXPECT_TRUE(verified.intactIterations.at(2));
    EXPECT_EQ(verified.points, 93000u);
  }
}

TEST_F(RepairingLevels, KeepsTheGridOfACloudThatGrew) {
  const ScanFolder folder;
  folder.ImportBytes(oocpctest::ScanOf(60000));
  ImportOptions more = folder.Options({folder.Add("more.las", TwoClusters(30000))});
  more.timePoint.reset();
  ImportReport appended;
  ASSERT_TRUE(IsOk(AppendScans(more, appended)));
  OOCPCLODBlock grown;
  LevelsOf(folder, 1, grown);
  fs::remove(folder.Repository() / "DEF_OCTREE_LOD_NODES_1");
  RepairOptions options;
  options.repository = folder.Repository();
  ASSERT_TRUE(IsOk(RepairRepository(options, report_)));
  ASSERT_TRUE(report_.hasOtherLevels);
  OOCPCLODBlock again;
  LevelsOf(folder, 2, again);
  EXPECT_EQ(again.scale, grown.scale);
  EXPECT_EQ(again.centre, grown.centre);
  EXPECT_EQ(report_.pointsAfter, 90000u);
}

TEST_F(RepairingLevels, LeavesALeafWholeWhoseOrderDoesNotTellItsLevels) {
  Bytes plane = oocpctest::ScanOf(20000);
  auto positions = oocpctest::PositionsIn(plane);
  for (auto& position : positions) position[2] = 0;
  oocpctest::PlacePoints(plane, positions);
  for (const bool isReversed : {false, true}) {
    const ScanFolder folder;
    folder.ImportBytes(plane);
    ASSERT_TRUE(
        IsOk(oocpctest::IterationAppender::AppendToFolder(folder.Repository(), isReversed)));
    fs::remove(folder.Repository() / "DEF_OCTREE_LOD_NODES_1");
    RepairOptions options;
    options.repository = folder.Repository();
    ASSERT_TRUE(IsOk(RepairRepository(options, report_)));
    ASSERT_TRUE(report_.hasOtherLevels);
    std::vector<LevelFacts> before;
    std::vector<LevelFacts> after;
    ASSERT_TRUE(IsOk(CollectLevels(*folder.Open(), 0, before)));
    ASSERT_TRUE(IsOk(CollectLevels(*folder.Open(), 2, after)));
    ASSERT_GT(before.size(), 1u);
    EXPECT_EQ(after.size(), isReversed ? 1u : before.size());
    EXPECT_EQ(after.at(0).pointCount, isReversed ? 20000u : before.at(0).pointCount);
  }
}

TEST_F(RepairingLevels, FallsBackWherePointsAreDamagedToo) {
  Harm("DEF_OCTREE_LOD_NODES_2", 0);
  FlipLast("DEF_COLUMN_3");
  ExpectBack(2);
  EXPECT_FALSE(report_.hasOtherLevels);
}

TEST_F(Repairing, KeepsANewestIterationThatDoesNotNeedAStreamThatIsCutOrGone) {
  const auto before = Files();
  const std::string lost = "DEF_OCTREE_LOD_NODES_0";
  for (const bool isGone : {false, true}) {
    if (isGone) {
      fs::remove(Place(lost));
    } else {
      fs::resize_file(Place(lost), before.at(lost).size() - 1);
    }
    const auto harmed = Files();
    std::unique_ptr<Cloud> cloud;
    EXPECT_TRUE(oocpc::Failed(Cloud::Open(folder_.Repository(), cloud).code));
    ASSERT_TRUE(IsOk(Repair()));
    EXPECT_TRUE(report_.changesMain);
    EXPECT_TRUE(report_.lostSources.empty());
    EXPECT_EQ(report_.faults.at(0).stream, lost);
    EXPECT_EQ(report_.iterationsBefore, 3u);
    EXPECT_EQ(report_.iterationsAfter, 3u);
    EXPECT_EQ(report_.damagedIterations, (std::vector<std::uint64_t>{0}));
    EXPECT_EQ(oocpctest::ReadFile(report_.backup), before.at("main"));
    for (const auto& [name, bytes] : harmed) {
      if (name.starts_with("main")) continue;
      EXPECT_EQ(oocpctest::ReadFile(Place(name)), bytes) << name;
    }
    ExpectOnlyTheFirstToBeDamaged(lost);
    ASSERT_TRUE(IsOk(Repair()));
    EXPECT_FALSE(report_.changesMain);
    EXPECT_EQ(report_.damagedIterations, (std::vector<std::uint64_t>{0}));
    ASSERT_TRUE(IsOk(oocpctest::IterationAppender::AppendToFolder(folder_.Repository())));
    ExpectOnlyTheFirstToBeDamaged(lost);
    for (const std::string& name : ScanFolder::ListOf(folder_.Repository())) {
      fs::remove(Place(name));
    }
    for (const auto& [file, bytes] : before) oocpctest::WriteFile(Place(file), bytes);
  }
}

TEST_F(Repairing, BringsBackAnIterationThatNeedsNothingOfWhatIsGone) {
  const ScanFolder folder;
  oocpctest::LasBuilder builder;
  builder.pointCount = 0;
  folder.ImportBytes(builder.Build());
  const std::string empty = StateOf(folder.Repository());
  builder.pointCount = kPoints;
  ImportOptions more = folder.Options({folder.Add("more.las", builder.Build())});
  more.timePoint.reset();
  ImportReport appended;
  ASSERT_TRUE(IsOk(AppendScans(more, appended)));
  fs::remove(folder.Repository() / "DEF_COLUMN_2");
  RepairOptions options;
  options.repository = folder.Repository();
  ASSERT_TRUE(IsOk(RepairRepository(options, report_)));
  EXPECT_EQ(report_.iterationsBefore, 2u);
  EXPECT_EQ(report_.iterationsAfter, 1u);
  EXPECT_EQ(report_.pointsAfter, 0u);
  EXPECT_EQ(StateOf(folder.Repository()), empty);
  ASSERT_TRUE(IsOk(AppendScans(more, appended)));
  VerifyReport verified;
  ASSERT_TRUE(IsOk(VerifyRepository(folder.Repository(), {}, verified)));
  EXPECT_EQ(verified.faultCount, 0u);
  EXPECT_EQ(verified.points, kPoints);
}

TEST_F(Repairing, FallsBackAsFarAsIsNeeded) {
  FlipLast("DEF_COLUMN_0");
  FlipLast("DEF_OCTREE_LOD_NODES_1");
  ExpectBack(1);
}

TEST_F(Repairing, CanBeDoneTwiceAndAppendedTo) {
  FlipLast("DEF_OCTREE");
  ExpectBack(2);
  FlipLast("DEF_OCTREE", 2 * OOCPCOctreeAcceleratorNode::kBytes - 20);
  ExpectBack(1);
  EXPECT_EQ(report_.backup, Place("main.before-repair-2"));
  ASSERT_TRUE(IsOk(oocpctest::IterationAppender::AppendToFolder(folder_.Repository())));
  EXPECT_EQ(StateOf(folder_.Repository()), states_[1]);
}

TEST_F(Repairing, KeepsANewestIterationThatDoesNotNeedWhatIsDamaged) {
  Bytes bytes = oocpctest::ReadFile(Place("DEF_COLUMN_0"));
  bytes[0] ^= 1;  // the first iteration's only block
  oocpctest::WriteFile(Place("DEF_COLUMN_0"), bytes);
  const auto before = Files();
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_FALSE(report_.changesMain);
  EXPECT_EQ(report_.faultCount, 1u);
  EXPECT_EQ(report_.iterationsAfter, 3u);
  EXPECT_EQ(report_.damagedIterations, (std::vector<std::uint64_t>{0}));
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, ChangesNothingWhenNoIterationIsIntact) {
  Bytes bytes = oocpctest::ReadFile(Place("DEF_COLUMN_0_BLOCKS"));
  const std::size_t entryBytes = oocpctest::EntryBytes(bytes);
  for (std::size_t at = 0; at < bytes.size(); at += entryBytes) bytes[at] ^= 1;
  oocpctest::WriteFile(Place("DEF_COLUMN_0_BLOCKS"), bytes);
  const auto before = Files();
  const Outcome outcome = Repair();
  EXPECT_EQ(outcome.code, result::kChecksumMismatch);
  EXPECT_EQ(outcome.what, "no iteration is intact");
  EXPECT_EQ(report_.faults.at(0).stream, "DEF_COLUMN_0_BLOCKS");
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, MakesAMissingCopyOfTheMainStreamAnew) {
  const auto before = Files();
  fs::remove(Place("main.copy"));
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_EQ(report_.faultCount, 1u);
  EXPECT_EQ(report_.faults.at(0).what, "the copy of the main stream is missing");
  EXPECT_TRUE(report_.changesMain);
  EXPECT_EQ(oocpctest::ReadFile(Place("main.copy")), before.at("main.copy"));
  EXPECT_EQ(oocpctest::ReadFile(Place("main")), before.at("main"));
}

TEST_F(Repairing, FailsWhenMainStreamAndCopyAreBothLost) {
  FlipLast("main", 20);
  FlipLast("main.copy", 20);
  const auto before = Files();
  EXPECT_TRUE(oocpc::Failed(Repair().code));
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, GivesNothingUpThatALaterVersionWrote) {
  Bytes table = oocpctest::ReadFile(Place("DEF_COLUMN_3_BLOCKS"));
  const std::size_t entryBytes = oocpctest::EntryBytes(table);
  Bytes last(table.end() - static_cast<std::ptrdiff_t>(entryBytes), table.end());
  last.resize(entryBytes - sizeof(std::uint32_t));
  last.at(16) = 200;  // an encoding that is still to come
  oocpc::AppendChecksum(last);
  std::copy(last.begin(), last.end(), table.end() - static_cast<std::ptrdiff_t>(entryBytes));
  oocpctest::WriteFile(Place("DEF_COLUMN_3_BLOCKS"), table);
  const auto before = Files();
  const Outcome outcome = Repair();
  EXPECT_EQ(outcome.code, result::kUnknownVersion);
  EXPECT_EQ(outcome.what, "a later version of this program wrote a part of it");
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, OnlyTellsInATrial) {
  FlipLast("DEF_COLUMN_0");
  fs::remove(Place("writer.lock"));
  const auto before = Files();
  ASSERT_TRUE(IsOk(Repair(true)));
  EXPECT_TRUE(report_.changesMain);
  EXPECT_EQ(report_.iterationsBefore, 3u);
  EXPECT_EQ(report_.iterationsAfter, 2u);
  EXPECT_TRUE(report_.backup.empty());
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, WaitsForNoWriter) {
  std::unique_ptr<OOCPCFolderStreamStore> writer;
  ASSERT_EQ(OOCPCFolderStreamStore::Open(folder_.Repository(), writer), result::kOk);
  EXPECT_EQ(Repair().code, result::kBeingWritten);
}

TEST_F(Repairing, FindsNoRepositoryWhereThereIsNone) {
  RepairOptions options;
  options.repository = folder_ / "none";
  EXPECT_EQ(RepairRepository(options, report_).code, result::kNotARepository);
  options.repository = folder_.Path();
  EXPECT_EQ(RepairRepository(options, report_).code, result::kNotARepository);
  EXPECT_FALSE(fs::exists(folder_ / "writer.lock"));
}

TEST_F(Repairing, StopsWhenAsked) {
  RepairOptions options;
  options.repository = folder_.Repository();
  options.progress = [](const ProgressReport&) { return false; };
  EXPECT_EQ(RepairRepository(options, report_).code, result::kStopped);
}

TEST_F(Repairing, LetsReadersGoOnWithWhatTheyOpened) {
  const auto cloud = folder_.Open();
  const std::string before = oocpctest::FingerprintOf(*cloud);
  FlipLast("DEF_OCTREE_LOD_NODES_2");
  ASSERT_TRUE(IsOk(Repair()));
  EXPECT_TRUE(report_.hasOtherLevels);
  EXPECT_EQ(oocpctest::FingerprintOf(*cloud), before);
}

TEST(ReadersDuringACommit, GoOnWithTheIterationsThatTheyOpened) {
  const ScanFolder folder;
  oocpctest::LasBuilder builder;
  builder.pointCount = kPoints;
  folder.ImportBytes(builder.Build());
  const auto reader = folder.Open();
  const std::string before = oocpctest::FingerprintOf(*reader);
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(IsOk(oocpctest::IterationAppender::AppendToFolder(folder.Repository())));
    EXPECT_EQ(oocpctest::FingerprintOf(*reader), before);
    EXPECT_EQ(reader->GetIterationCount(), 1u);
  }
  EXPECT_EQ(folder.Open()->GetIterationCount(), 4u);
}

}  // namespace
}  // namespace tarnhost
