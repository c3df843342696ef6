// Lets the disk fail under temporary files: an import and an append leave what was there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <mutex>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/build/Append.h"
#include "host/build/Import.h"
#include "host/cloud/Export.h"
#include "host/common/ScratchBytes.h"
#include "host/common/TemporaryFile.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/LazFiles.h"
#include "tests/support/ScanFolder.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using ::testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

/// Fails one change to a temporary file of that name, and counts them.
class FailingTemporaryFiles final : public oocpc::detail::FileWatcher {
 public:
  FailingTemporaryFiles(std::string name, std::size_t chosen)
      : name_(std::move(name)), chosen_(chosen) {
    oocpc::detail::WatchFiles(this);
  }
  ~FailingTemporaryFiles() override { oocpc::detail::WatchFiles(nullptr); }

  [[nodiscard]] HRESULT Ask(const oocpc::detail::FileChange& change,
                            std::size_t& /*written*/) override {
    if (change.kind == oocpc::detail::FileChange::Kind::kSync) return result::kNothingDone;
    if (change.path.filename() != name_) return result::kOk;
    const std::lock_guard<std::mutex> lock(mutex_);
    return count_++ == chosen_ ? result::kNoSpace : result::kOk;
  }
  [[nodiscard]] std::size_t GetCount() const { return count_; }

 private:
  std::string name_;
  std::size_t chosen_;
  std::size_t count_ = 0;
  std::mutex mutex_;
};

/// So many points of long records that they don't fit into the least memory there can be.
Bytes LargeScan(unsigned seed) {
  LasBuilder builder;
  builder.pointCount = 170000;
  builder.extraBytes = 200;
  builder.seed = seed;
  std::vector<Bytes> descriptors;
  for (int i = 0; i < 25; ++i) {
    descriptors.push_back(LasBuilder::Descriptor(10, "extra" + std::to_string(i)));
  }
  builder.Describe(descriptors);
  // Random bytes are slow to make and to store: points of zeros, but for their positions.
  builder.pointCount = 0;
  Bytes file = builder.Build();
  builder.pointCount = 170000;
  file.resize(file.size() + builder.pointCount * builder.PointBytes());
  LasBuilder::Put(file, 107, builder.pointCount);
  LasBuilder::Put(file, 247, std::uint64_t{builder.pointCount});
  oocpctest::PlacePoints(file, oocpctest::RandomPositions(builder.pointCount, 1000000, seed));
  return file;
}

ImportOptions SmallMemory(ImportOptions options, std::uint64_t time) {
  options.memoryBytes = 1;
  options.timePoint = time;
  return options;
}

/// Some of `count` changes: the first two, one in the middle, the last.
std::vector<std::size_t> Some(std::size_t count) { return {0, 1, count / 2, count - 1}; }

/// Adds up what is written to temporary files.
class CountedTemporaryFiles final : public oocpc::detail::FileWatcher {
 public:
  CountedTemporaryFiles() { oocpc::detail::WatchFiles(this); }
  ~CountedTemporaryFiles() override { oocpc::detail::WatchFiles(nullptr); }

  [[nodiscard]] HRESULT Ask(const oocpc::detail::FileChange& change,
                            std::size_t& /*written*/) override {
    const auto name = change.path.filename();
    if (name == "temporary" || name == "scratch") bytes_ += change.bytes.size();
    return change.kind == oocpc::detail::FileChange::Kind::kSync ? result::kNothingDone
                                                                 : result::kOk;
  }
  [[nodiscard]] std::uint64_t GetBytes() const { return bytes_; }

 private:
  std::atomic<std::uint64_t> bytes_ = 0;
};

/// Runs an import or an append and compares what it said it would take with what it took.
template <typename Run>
void ExpectAnnounced(ImportOptions options, const Run& run) {
  std::uint64_t announced = 0;
  options.temporaryNotice = [&](std::uint64_t bytes, const fs::path& /*folder*/) {
    announced += bytes;
  };
  const CountedTemporaryFiles files;
  ImportReport report;
  ASSERT_TRUE(IsOk(run(options, report)));
  EXPECT_GT(files.GetBytes(), 0u);
  EXPECT_LE(files.GetBytes(), announced);
}

TEST(TemporaryDisk, IsNoMoreThanWasAnnounced) {
  LasBuilder builder;  // random bytes: no record is any shorter in the file
  builder.format = 3;
  builder.pointCount = 1'000'000;
  Bytes scan = builder.Build();
  oocpctest::PlacePoints(scan, oocpctest::RandomPositions(builder.pointCount, 1000000, 1));
  const ScanFolder folder;
  const auto plain = folder.Add("plain.las", scan);
  const auto packed =
      folder.Add("packed.laz", oocpctest::CompressLas(LargeScan(2), {{20000}}).bytes);
  ExpectAnnounced(SmallMemory(folder.Options({plain}), 7), ImportScans);
  fs::remove_all(folder.Repository());
  ExpectAnnounced(SmallMemory(folder.Options({packed}), 7), ImportScans);
  ExpectAnnounced(SmallMemory(folder.Options({packed}), 8), AppendScans);
}

TEST(LongRecords, AreRefusedWhereTheMemoryThatIsAllowedIsTooLittle) {
  LasBuilder builder;
  builder.pointCount = 20'000;
  builder.extraBytes = 4000;
  const ScanFolder folder;
  const ImportOptions options =
      SmallMemory(folder.Options({folder.Add("long.las", builder.Build())}), 7);
  ImportReport report;
  const Outcome outcome = ImportScans(options, report);
  EXPECT_EQ(outcome.code, result::kOutOfMemory);
  EXPECT_THAT(outcome.what, ::testing::HasSubstr("bytes of memory"));
  EXPECT_THAT(folder.List(), ElementsAre("long.las"));
}

TEST(TemporaryFileOnAFullDisk, FailsTheImportAndLeavesNothing) {
  const ScanFolder folder;
  const ImportOptions options =
      SmallMemory(folder.Options({folder.Add("scan.las", LargeScan(1))}), 7);
  ImportReport report;
  std::size_t count = 0;
  {
    const FailingTemporaryFiles files("temporary", kNever);
    ASSERT_TRUE(IsOk(ImportScans(options, report)));
    count = files.GetCount();
  }
  ASSERT_GT(count, 4u) << "the points went through a file";
  fs::remove_all(folder.Repository());
  for (const std::size_t chosen : Some(count)) {
    const FailingTemporaryFiles files("temporary", chosen);
    EXPECT_EQ(ImportScans(options, report).code, result::kNoSpace) << chosen;
    EXPECT_THAT(folder.List(), ElementsAre("scan.las"));
  }
  EXPECT_TRUE(IsOk(ImportScans(options, report)));
}

TEST(TemporaryFileOnAFullDisk, FailsTheAppendAndKeepsTheCloud) {
  const ScanFolder folder;
  const auto scan = folder.Add("scan.las", LargeScan(1));
  folder.Import({scan});
  const std::string before = oocpctest::StateOf(folder.Repository());
  const ImportOptions options =
      SmallMemory(folder.Options({folder.Add("more.las", LargeScan(2))}), 1000);
  ImportReport report;
  for (const std::size_t chosen : {0, 3}) {
    const FailingTemporaryFiles files("temporary", chosen);
    EXPECT_EQ(AppendScans(options, report).code, result::kNoSpace) << chosen;
    EXPECT_EQ(oocpctest::StateOf(folder.Repository()), before);
  }
  EXPECT_TRUE(IsOk(AppendScans(options, report)));
  EXPECT_NE(oocpctest::StateOf(folder.Repository()), before);
}

TEST(ScratchFileOnAFullDisk, FailsTheImportOfACompressedScan) {
  const ScanFolder folder;
  const Bytes file = oocpctest::CompressLas(LargeScan(1), {{20000}}).bytes;
  const ImportOptions options = SmallMemory(folder.Options({folder.Add("scan.laz", file)}), 7);
  ImportReport report;
  std::size_t count = 0;
  {
    const FailingTemporaryFiles files("scratch", kNever);
    ASSERT_TRUE(IsOk(ImportScans(options, report)));
    count = files.GetCount();
  }
  ASSERT_GT(count, 4u) << "the points were decompressed into a file";
  fs::remove_all(folder.Repository());
  for (const std::size_t chosen : Some(count)) {
    const FailingTemporaryFiles files("scratch", chosen);
    EXPECT_EQ(ImportScans(options, report).code, result::kNoSpace) << chosen;
    EXPECT_THAT(folder.List(), ElementsAre("scan.laz"));
  }
}

TEST(TemporaryFileOnAFullDisk, FailsAnExportInOrderAndLeavesNothing) {
  const ScanFolder folder;
  ImportOptions import = folder.Options({folder.Add("scan.las", oocpctest::ScanOf(50000))});
  import.keepOrder = true;
  ImportReport report;
  ASSERT_TRUE(IsOk(ImportScans(import, report)));
  for (const std::size_t chosen : {0, 1, 20}) {
    const FailingTemporaryFiles files("temporary", chosen);
    ExportOptions options;
    options.memoryBytes = 100000;
    ExportReport exported;
    EXPECT_EQ(ExportLas(*folder.Open(), options, folder / "out.las", exported).code,
              result::kNoSpace);
    EXPECT_THAT(folder.List(), ElementsAre("cloud.tarn", "scan.las"));
  }
}

}  // namespace
}  // namespace tarnhost
