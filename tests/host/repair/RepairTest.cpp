// What repairing brings back, what it says is lost, and what it leaves alone.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <map>

#include "host/repair/Repair.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/SecondIteration.h"

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

  ScanFolder folder_;
  std::vector<std::string> states_;
  RepairReport report_;
};

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
  for (const char* name : {"DEF_OCTREE_LOD_NODES_2", "DEF_OCTREE", "DEF_UPDATE_ITERATIONS",
                           "DEF_LOD", "DEF_COLUMN_0", "DEF_COLUMN_0_BLOCKS", "DEF_COLUMN_3"}) {
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
  fs::remove(Place("DEF_OCTREE_LOD_NODES_2"));
  ExpectBack(2);
}

TEST_F(Repairing, FallsBackAsFarAsIsNeeded) {
  FlipLast("DEF_OCTREE_LOD_NODES_2");
  FlipLast("DEF_OCTREE_LOD_NODES_1");
  ExpectBack(1);
}

TEST_F(Repairing, CanBeDoneTwiceAndAppendedTo) {
  FlipLast("DEF_OCTREE_LOD_NODES_2");
  ExpectBack(2);
  FlipLast("DEF_OCTREE_LOD_NODES_1");
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
  for (std::size_t at = 0; at < bytes.size(); at += oocpc::BlockEntry::kBytes) bytes[at] ^= 1;
  oocpctest::WriteFile(Place("DEF_COLUMN_0_BLOCKS"), bytes);
  const auto before = Files();
  const Outcome outcome = Repair();
  EXPECT_EQ(outcome.code, result::kChecksumMismatch);
  EXPECT_EQ(outcome.what, "no iteration is intact");
  EXPECT_EQ(report_.faults.at(0).stream, "DEF_COLUMN_0_BLOCKS");
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, FailsWhenMainStreamAndCopyAreBothLost) {
  FlipLast("main", 20);
  FlipLast("main.copy", 20);
  const auto before = Files();
  EXPECT_TRUE(oocpc::Failed(Repair().code));
  EXPECT_EQ(Files(), before);
}

TEST_F(Repairing, OnlyTellsInATrial) {
  FlipLast("DEF_OCTREE_LOD_NODES_2");
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
