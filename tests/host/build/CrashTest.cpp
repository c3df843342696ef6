// Lets every single file operation of an import, and of a second commit, go wrong in every manner.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <optional>

#include "host/build/Append.h"
#include "host/build/Import.h"
#include "host/common/ImportFolders.h"
#include "host/repair/Repair.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/CrashingDisk.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/SecondIteration.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::Crash;
using oocpctest::CrashingDisk;
using oocpctest::ScanFolder;
using oocpctest::StateOf;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(_WIN32)
constexpr std::size_t kStride = 29;  // sanitizers take their time, and so does wine
#else
constexpr std::size_t kStride = 1;
#endif

/// While it lives, temporary folders are made in memory, where there is such a place.
class TemporaryFoldersInMemory {
 public:
  TemporaryFoldersInMemory() {
    const char* former = std::getenv("TMPDIR");
    if (former != nullptr) former_ = former;
    const fs::path folder = oocpctest::FolderInMemory();
    if (!folder.empty()) oocpctest::SetVariable("TMPDIR", folder.string().c_str());
  }
  ~TemporaryFoldersInMemory() {
    oocpctest::SetVariable("TMPDIR", former_ ? former_->c_str() : nullptr);
  }

 private:
  std::optional<std::string> former_;
};

/// An operation that brings a repository from one state to the next.
struct Operation {
  const char* name;
  std::function<Outcome(const ScanFolder&)> makeFirst;
  std::function<Outcome(const ScanFolder&)> makeSecond;
  std::size_t stride = 1;  ///< one in so many file operations goes wrong, of those that take long
};

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

Outcome Import(const ScanFolder& folder, unsigned seed, bool overwrite) {
  oocpctest::LasBuilder builder;
  builder.pointCount = 40;
  builder.seed = seed;
  ImportOptions options = folder.Options({folder.Add("scan.las", builder.Build())});
  options.overwrite = overwrite;
  ImportReport report;
  return ImportScans(options, report);
}

/// A repository that names the file of each point, which an append goes on with.
Outcome ImportTwo(const ScanFolder& folder) {
  oocpctest::LasBuilder builder;
  builder.pointCount = 30;
  ImportReport report;
  return ImportScans(
      folder.Options({folder.Add("a.las", builder.Build()), folder.Add("b.las", builder.Build())}),
      report);
}

Outcome DoNothing(const ScanFolder& /*folder*/) { return Outcome::Success(); }
Outcome ImportFirst(const ScanFolder& folder) { return Import(folder, 1, false); }
Outcome ImportOver(const ScanFolder& folder) { return Import(folder, 2, true); }
Outcome CommitAgain(const ScanFolder& folder) {
  return oocpctest::IterationAppender::AppendToFolder(folder.Repository());
}

Outcome Append(const ScanFolder& folder) {
  oocpctest::LasBuilder builder;
  builder.pointCount = 60;
  builder.seed = 3;
  ImportReport report;
  ImportOptions options = folder.Options({folder.Add("more.las", builder.Build())});
  options.timePoint = 1000;
  return AppendScans(options, report);
}

/// More points than a node holds, in a cube of `edge` stored units whose corner lies at `corner`.
Outcome Place(const ScanFolder& folder, std::int32_t corner, std::int32_t edge, bool first) {
  constexpr std::uint32_t kPoints = 30000;
  oocpctest::LasBuilder builder;
  builder.format = 0;
  builder.pointCount = kPoints;
  auto file = builder.Build();
  auto positions = oocpctest::RandomPositions(kPoints, edge);
  for (oocpctest::StoredPosition& position : positions) {
    for (std::int32_t& value : position) value += corner;
  }
  oocpctest::PlacePoints(file, positions);
  ImportOptions options = folder.Options({folder.Add("tile.las", file)});
  options.timePoint = first ? 1 : 1000;
  ImportReport report;
  return first ? ImportScans(options, report) : AppendScans(options, report);
}

Outcome ImportTree(const ScanFolder& folder) { return Place(folder, 0, 100000, true); }
/// The cube grows, and leaves among the points that are there are dealt anew.
Outcome AppendTree(const ScanFolder& folder) { return Place(folder, -90000, 100000, false); }

/// A repository whose newest iteration is damaged.
Outcome DamageSecond(const ScanFolder& folder) {
  Outcome outcome = ImportFirst(folder);
  if (outcome.Ok()) outcome = CommitAgain(folder);
  auto records = oocpctest::ReadFile(folder.Repository() / "DEF_OCTREE_LOD_NODES_1");
  records.at(60) ^= 1;
  oocpctest::WriteFile(folder.Repository() / "DEF_OCTREE_LOD_NODES_1", records);
  return outcome;
}
Outcome Repair(const ScanFolder& folder) {
  RepairOptions options;
  options.repository = folder.Repository();
  RepairReport report;
  return RepairRepository(options, report);
}

const Operation kOperations[] = {
    {"Import", DoNothing, ImportFirst},
    {"ImportOverARepository", ImportFirst, ImportOver},
    {"SecondCommit", ImportFirst, CommitAgain},
    {"Append", ImportFirst, Append},
    {"AppendThatGrows", ImportTree, AppendTree, 13},
    {"AppendWithSources", ImportTwo, Append},
    {"Repair", DamageSecond, Repair},
};

class EveryFileOperation : public ::testing::TestWithParam<Operation> {
 protected:
  /// Puts the folder back into the state before the operation.
  void Restore() {
    for (const auto& entry : fs::directory_iterator(folder_.Path())) fs::remove_all(entry.path());
    oocpctest::CopyFolder(saved_ / "state", folder_.Path());
  }

  /// Lets one operation go wrong; false when there is no such operation.
  bool Try(Crash crash, std::size_t number) {
    Restore();
    std::string place;
    Outcome outcome;
    {
      CrashingDisk disk(crash, number);
      outcome = GetParam().makeSecond(folder_);
      if (disk.GetCount() <= number) return false;
      disk.Lose();
      place = disk.GetPlace();
    }
    const std::string told = std::string(oocpctest::NameOf(crash)) + " at operation " +
                             std::to_string(number) + ", " + place;
    // Where two folders change their names in steps, what was there may lie aside.
    if (!oocpc::detail::kFoldersMoveWhileInUse) {
      EXPECT_TRUE(oocpctest::IsOk(PutBackSetAside(folder_.Repository()))) << told;
    }
    const std::string state = StateOf(folder_.Repository());
    if (outcome.Ok()) {
      EXPECT_EQ(state, after_) << "it was said to be done; " << told;
    }
    EXPECT_TRUE(state == before_ || state == after_) << state << "\n" << told;
    if (!outcome.Ok() && (crash == Crash::kError || crash == Crash::kFull)) {
      EXPECT_TRUE(oocpc::Failed(outcome.code)) << told;
      EXPECT_FALSE(outcome.what.empty()) << told;
    }
    // Each operation is followed by another attempt in some of the manners.
    if ((number + static_cast<std::size_t>(crash)) % 3 == 0 || kStride * GetParam().stride > 1)
      GoOn(state, told);
    return true;
  }

  /// Whatever happened, the same operation works now.
  void GoOn(const std::string& state, const std::string& told) {
    if (state == before_) {
      const CrashingDisk disk(Crash::kNone, 0);  // which does not sync, and so saves time
      const Outcome again = GetParam().makeSecond(folder_);
      EXPECT_TRUE(again.Ok()) << again.what << " when tried again after " << told;
      EXPECT_EQ(StateOf(folder_.Repository()), after_) << "when tried again after " << told;
      EXPECT_EQ(folder_.List(), names_) << "when tried again after " << told;
    }
  }

  TemporaryFoldersInMemory inMemory_;
  ScanFolder folder_;
  oocpctest::TemporaryFolder saved_;
  std::string before_;
  std::string after_;
  std::vector<std::string> names_;  ///< of what is there afterwards
};

TEST_P(EveryFileOperation, MayGoWrongWithoutLosingTheCommittedState) {
  ASSERT_TRUE(oocpctest::IsOk(GetParam().makeFirst(folder_)));
  before_ = StateOf(folder_.Repository());
  oocpctest::CopyFolder(folder_.Path(), saved_ / "state");
  std::size_t operations = 0;
  {
    const CrashingDisk disk(Crash::kNone, 0);
    ASSERT_TRUE(oocpctest::IsOk(GetParam().makeSecond(folder_)));
    operations = disk.GetCount();
  }
  after_ = StateOf(folder_.Repository());
  names_ = folder_.List();
  ASSERT_NE(before_, after_);
  ASSERT_EQ(after_.find("error"), std::string::npos) << after_;
  ASSERT_GT(operations, 10u);
  const std::size_t stride = kStride * GetParam().stride;
  for (const Crash crash : oocpctest::kAllCrashes) {
    // Each manner begins elsewhere, so that together they miss less.
    const std::size_t begin = 2 * static_cast<std::size_t>(crash) % stride;
    for (std::size_t number = begin; number < operations; number += stride) {
      ASSERT_TRUE(Try(crash, number)) << "operation " << number << " of " << operations;
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Crash, EveryFileOperation, ::testing::ValuesIn(kOperations),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tarnhost
