// Imports that succeed, and imports that fail and leave nothing behind.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <map>
#include <new>

#include "host/build/Import.h"
#include "host/build/TemporaryDisk.h"
#include "host/cloud/Verify.h"
#include "tests/support/FailingStore.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/System.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::FailingStore;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::PlacePoints;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using oocpctest::StoredPosition;
using oocpctest::StorePlan;
using Names = std::vector<std::string>;

void ExpectSound(const fs::path& repository) {
  VerifyReport report;
  EXPECT_TRUE(IsOk(VerifyRepository(repository, {}, report)));
  for (const Fault& fault : report.faults) {
    ADD_FAILURE() << fault.stream << " " << fault.record << ": " << fault.what;
  }
}

std::map<std::string, std::vector<std::uint8_t>> StreamsOf(const fs::path& repository) {
  std::map<std::string, std::vector<std::uint8_t>> streams;
  for (const std::string& name : ScanFolder::ListOf(repository)) {
    streams[name] = oocpctest::ReadFile(repository / name);
  }
  return streams;
}

TEST(Import, ReportsWhatItMade) {
  const ScanFolder folder;
  const auto file = ScanOf(30000);
  const ImportReport report = folder.ImportBytes(file);
  EXPECT_EQ(report.pointCount, 30000u);
  EXPECT_GT(report.nodeCount, 1u);
  EXPECT_EQ(report.blockCount, report.nodeCount);
  EXPECT_EQ(report.sourceBytes, file.size());
  std::uint64_t stored = 0;
  for (const auto& [name, bytes] : StreamsOf(folder.Repository())) {
    if (!name.starts_with("main")) stored += bytes.size();
  }
  EXPECT_EQ(report.storedBytes, stored);
  EXPECT_EQ(folder.List(), (Names{"cloud.tarn", "scan.las"}));
  ExpectSound(folder.Repository());
}

/// Imports a scan in little memory and in much, and compares every stream.
void ExpectSameInLittleMemory(const std::vector<std::uint8_t>& file) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", file);
  const auto importWithin = [&](std::uint64_t memoryBytes, const std::string& name, bool tells) {
    ImportOptions options = folder.Options({scan});
    options.output = folder / name;
    options.memoryBytes = memoryBytes;
    std::uint64_t temporary = 0;
    options.temporaryNotice = [&](std::uint64_t bytes, const std::filesystem::path& /*place*/) {
      temporary = bytes;
    };
    ImportReport report;
    EXPECT_TRUE(IsOk(ImportScans(options, report)));
    const auto count = LasBuilder::Get<std::uint32_t>(file, 107);
    const auto recordBytes = LasBuilder::Get<std::uint16_t>(file, 105);
    EXPECT_EQ(temporary, tells ? CountSortingDisk(count, recordBytes) : 0u);
    return StreamsOf(options.output);
  };
  const auto little = importWithin(std::uint64_t{64} << 20, "little.tarn", true);
  const auto much = importWithin(std::uint64_t{4} << 30, "much.tarn", false);
  EXPECT_EQ(little.size(), much.size());
  for (const auto& [name, bytes] : much) EXPECT_TRUE(little.at(name) == bytes) << name;
  EXPECT_EQ(folder.List(), (Names{"little.tarn", "much.tarn", "scan.las"}));
  ExpectSound(folder / "little.tarn");
}

TEST(Import, GivesTheSameBytesInLittleMemoryAsInMuch) {
  // Enough for several pieces, and for little memory to be too little for them.
  ExpectSameInLittleMemory(ScanOf(1300000));
}

TEST(Import, GivesTheSameBytesInLittleMemoryOfPointsThatAreAllEqual) {
  auto file = ScanOf(800000, 0);
  oocpctest::PlacePoints(file, std::vector<StoredPosition>(800000, {7, 8, 9}));
  ExpectSameInLittleMemory(file);
}

TEST(Import, GivesTheSameBytesInLittleMemoryOfOneDenseSpot) {
  auto file = ScanOf(900000, 0);
  oocpctest::PlacePoints(file, std::vector<StoredPosition>(500000, {70000, 800000, 90000}));
  ExpectSameInLittleMemory(file);
}

TEST(Import, GivesTheSameBytesWithOneThreadAsWithSeveral) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(60000));
  const auto importWith = [&](std::size_t threads, const std::string& name) {
    const tbb::global_control control(tbb::global_control::max_allowed_parallelism, threads);
    ImportOptions options = folder.Options({scan});
    options.output = folder / name;
    ImportReport report;
    EXPECT_TRUE(IsOk(ImportScans(options, report)));
    return StreamsOf(options.output);
  };
  const auto one = importWith(1, "one.tarn");
  EXPECT_GT(one.size(), 20u);
  EXPECT_EQ(one, importWith(2, "two.tarn"));
  EXPECT_EQ(one, importWith(8, "eight.tarn"));
}

TEST(Import, TakesAScanWithoutPoints) {
  const ScanFolder folder;
  const ImportReport report = folder.ImportBytes(ScanOf(0));
  EXPECT_EQ(report.pointCount, 0u);
  EXPECT_EQ(report.nodeCount, 1u);
  EXPECT_EQ(report.blockCount, 0u);
  ExpectSound(folder.Repository());
  EXPECT_EQ(folder.Open()->GetIterationCount(), 1u);
}

TEST(Import, TakesASinglePoint) {
  const ScanFolder folder;
  EXPECT_EQ(folder.ImportBytes(ScanOf(1)).blockCount, 1u);
  ExpectSound(folder.Repository());
}

TEST(Import, TakesMorePointsAtOnePlaceThanANodeHolds) {
  const ScanFolder folder;
  auto file = ScanOf(60000, 0);
  PlacePoints(file, std::vector<oocpctest::StoredPosition>(60000, {123, -456, 789}));
  folder.ImportBytes(file);
  ExpectSound(folder.Repository());
}

TEST(Import, TakesTwoClustersAThousandKilometresApart) {
  const ScanFolder folder;
  auto positions = oocpctest::RandomPositions(60000, 1000);
  for (std::size_t i = 0; i < positions.size(); i += 2) positions[i][0] += 100000000;
  auto file = ScanOf(60000, 0);
  PlacePoints(file, positions);
  folder.ImportBytes(file);
  ExpectSound(folder.Repository());
}

TEST(Import, PutsTheLocalFrameAtWholeThousandsBelowFarCoordinates) {
  const ScanFolder folder;
  LasBuilder builder;
  builder.pointCount = 2;
  builder.scale = {1, 1, 1};
  builder.offset = {637000, -849000, 10};
  auto file = builder.Build();
  PlacePoints(file, {{179, -1, 400}, {500, 700, 600}});
  folder.ImportBytes(file);
  EXPECT_EQ(folder.Open()->GetFrameOffset(), (oocpc::Vector3d{637000, -850000, 0}));
  ExpectSound(folder.Repository());
}

TEST(Import, MakesOneCloudOfSeveralScans) {
  const ScanFolder folder;
  const auto a = folder.Add("a.las", ScanOf(100));
  const auto b = folder.Add("b.las", ScanOf(50));
  EXPECT_EQ(folder.Import({a, b}).pointCount, 150u);
  const auto cloud = folder.Open();
  ASSERT_EQ(cloud->GetSources().size(), 2u);
  EXPECT_EQ(cloud->GetSources()[0].fileName, "a.las");
  EXPECT_EQ(cloud->GetSources()[0].pointCount, 100u);
  EXPECT_EQ(cloud->GetSources()[1].fileName, "b.las");
  EXPECT_EQ(cloud->GetSources()[1].pointCount, 50u);
  ExpectSound(folder.Repository());
}

TEST(Import, KeepsTheTimePointThatWasGiven) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(3));
  OOCPCUpdateIteration iteration;
  ASSERT_TRUE(IsOk(folder.Open()->ReadIteration(0, iteration)));
  EXPECT_EQ(iteration.timePoint, 7u);
  EXPECT_EQ(iteration.pointCount, 3u);
  EXPECT_EQ(iteration.addedPointCount, 3u);
  EXPECT_EQ(iteration.blockCount, 1u);
}

// What fails.

Outcome TryImport(const ImportOptions& options) {
  ImportReport report;
  return ImportScans(options, report);
}

TEST(FailedImport, RefusesAPlaceThatIsTaken) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  folder.Import({scan});
  const auto before = StreamsOf(folder.Repository());
  EXPECT_EQ(TryImport(folder.Options({scan})).code, result::kAlreadyExists);
  EXPECT_EQ(StreamsOf(folder.Repository()), before);
}

TEST(FailedImport, ReplacesOnlyWhenToldTo) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", ScanOf(10))});
  ImportOptions options = folder.Options({folder.Add("b.las", ScanOf(20))});
  options.overwrite = true;
  EXPECT_TRUE(IsOk(TryImport(options)));
  EXPECT_EQ(folder.Open()->GetSources()[0].fileName, "b.las");
  EXPECT_EQ(folder.List(), (Names{"a.las", "b.las", "cloud.tarn"}));
}

TEST(FailedImport, ReplacesNothingThatIsNoRepository) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", ScanOf(10));
  ImportOptions options = folder.Options({scan});
  options.overwrite = true;
  fs::create_directory(folder.Repository());
  oocpctest::WriteFile(folder.Repository() / "letters.txt", std::vector<std::uint8_t>{1});
  EXPECT_EQ(TryImport(options).code, result::kAlreadyExists);
  EXPECT_TRUE(fs::exists(folder.Repository() / "letters.txt"));
  options.output = scan;
  EXPECT_EQ(TryImport(options).code, result::kAlreadyExists);
}

TEST(FailedImport, LeavesTheFormerRepositoryWhereTheNewOneFails) {
  const ScanFolder folder;
  folder.Import({folder.Add("a.las", ScanOf(10))});
  const auto before = StreamsOf(folder.Repository());
  ImportOptions options = folder.Options({folder.Add("bad.las", {'n', 'o'})});
  options.overwrite = true;
  EXPECT_FALSE(TryImport(options).Ok());
  EXPECT_EQ(StreamsOf(folder.Repository()), before);
  EXPECT_EQ(folder.List(), (Names{"a.las", "bad.las", "cloud.tarn"}));
}

TEST(FailedImport, NamesTheScanThatIsNotThere) {
  const ScanFolder folder;
  const Outcome outcome = TryImport(folder.Options({folder / "absent.las"}));
  EXPECT_FALSE(outcome.Ok());
  EXPECT_EQ(outcome.where, (folder / "absent.las").string());
  EXPECT_TRUE(folder.List().empty());
}

TEST(FailedImport, RefusesNoScansAtAll) {
  const ScanFolder folder;
  EXPECT_EQ(TryImport(folder.Options({})).code, result::kScanNotRecognised);
  EXPECT_TRUE(folder.List().empty());
}

TEST(FailedImport, LeavesNothingOfScansThatDiffer) {
  const ScanFolder folder;
  LasBuilder builder;
  builder.extraBytes = 8;
  const auto a = folder.Add("a.las", builder.Describe({LasBuilder::Descriptor(7, "T")}).Build());
  builder.records.clear();
  const auto b = folder.Add("b.las", builder.Describe({LasBuilder::Descriptor(10, "T")}).Build());
  EXPECT_EQ(TryImport(folder.Options({a, b})).code, result::kScansDiffer);
  EXPECT_EQ(folder.List(), (Names{"a.las", "b.las"}));
}

TEST(FailedImport, SaysThatThereIsNoFolderToWriteInto) {
  const ScanFolder folder;
  ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(10))});
  options.output = folder / "absent" / "cloud.tarn";
  const Outcome outcome = TryImport(options);
  EXPECT_FALSE(outcome.Ok());
  EXPECT_EQ(outcome.where, (folder / "absent").string());
}

TEST(FailedImport, LeavesNothingWhenStoppedAtAnyReport) {
  const ScanFolder folder;
  ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(30000, 0))});
  int reports = 0;
  options.progress = [&](const ProgressReport& report) {
    EXPECT_LE(report.done, report.total);
    ++reports;
    return true;
  };
  options.output = folder / "whole.tarn";
  ASSERT_TRUE(IsOk(TryImport(options)));
  ASSERT_GT(reports, 2);
  options.output = folder.Repository();
  for (int stopAt = 0; stopAt < reports; ++stopAt) {
    int report = 0;
    options.progress = [&](const ProgressReport&) { return report++ != stopAt; };
    EXPECT_EQ(TryImport(options).code, result::kStopped);
    EXPECT_EQ(folder.List(), (Names{"a.las", "whole.tarn"}));
  }
}

TEST(FailedImport, LeavesNothingWhenMemoryRunsOut) {
  const ScanFolder folder;
  ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(10))});
  options.progress = [](const ProgressReport& report) -> bool {
    if (std::string_view(report.stage) == "writing") throw std::bad_alloc();
    return true;
  };
  EXPECT_EQ(TryImport(options).code, result::kOutOfMemory);
  EXPECT_EQ(folder.List(), (Names{"a.las"}));
}

TEST(FailedImport, LeavesNothingInAFolderThatMayNotBeWritten) {
  const ScanFolder folder;
  ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(10))});
  fs::permissions(folder.Path(), fs::perms{0555});
  const oocpctest::WithoutPrivileges bound;
  if (!bound.IsBound()) GTEST_SKIP() << "root cannot step down here";
  const Outcome outcome = TryImport(options);
  EXPECT_EQ(outcome.code, result::kAccessDenied);
  EXPECT_EQ(outcome.where, options.output.string());
  EXPECT_EQ(folder.List(), (Names{"a.las"}));
}

TEST(FailedImport, LeavesNothingOnADiskThatFillsUp) {
  const ScanFolder folder;
  const ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(30000))});
  for (const unsigned bytes : {0u, 100u, 50000u}) {
    Outcome outcome;
    {
      const oocpctest::FileSizeLimit limit(bytes);
      if (!limit.IsBound()) GTEST_SKIP() << "this system limits the size of no file";
      outcome = TryImport(options);
    }
    EXPECT_EQ(outcome.code, result::kNoSpace) << bytes;
    EXPECT_EQ(folder.List(), (Names{"a.las"}));
  }
}

TEST(FailedImport, CommitsNothingWhicheverOperationOfTheStoreFails) {
  const ScanFolder folder;
  const ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(200, 0))});
  const auto run = [&](const std::shared_ptr<StorePlan>& plan,
                       const std::shared_ptr<OOCPCMemoryStreams>& streams) {
    ImportReport report;
    return ImportIntoStore(
        options,
        std::make_unique<FailingStore>(std::make_unique<OOCPCMemoryStreamStore>(streams), plan),
        folder.Path(), report);
  };
  const auto counting = std::make_shared<StorePlan>();
  ASSERT_TRUE(IsOk(run(counting, std::make_shared<OOCPCMemoryStreams>())));
  ASSERT_GT(counting->operations, 50u);
  for (std::uint64_t at = 0; at < counting->operations; ++at) {
    const auto plan = std::make_shared<StorePlan>();
    plan->failAt = at;
    plan->code = at % 2 == 0 ? result::kNoSpace : result::kIoError;
    plan->tearAppends = true;
    const auto streams = std::make_shared<OOCPCMemoryStreams>();
    EXPECT_EQ(run(plan, streams).code, plan->code) << at;
    EXPECT_EQ(plan->afterFailure, 0u) << at;
    EXPECT_EQ(streams->main, nullptr) << at;
  }
}

TEST(Import, WritesIntoAnyStore) {
  const ScanFolder folder;
  const ImportOptions options = folder.Options({folder.Add("a.las", ScanOf(200))});
  const auto streams = std::make_shared<OOCPCMemoryStreams>();
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportIntoStore(options, std::make_unique<OOCPCMemoryStreamStore>(streams),
                                   folder.Path(), report)));
  std::unique_ptr<Cloud> cloud;
  ASSERT_TRUE(
      IsOk(Cloud::Attach(std::make_unique<OOCPCMemoryRepository>(streams), "memory", cloud)));
  EXPECT_EQ(cloud->GetColumns().size(), 14u);
}

}  // namespace
}  // namespace tarnhost
