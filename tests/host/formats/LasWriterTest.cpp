// LAS files written again: byte for byte, or with a header that tells what was written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "host/formats/LasScan.h"
#include "host/formats/LasWriter.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/LasBuilder.h"
#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestData.h"

namespace {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpctest::LasBuilder;
using oocpctest::TemporaryFolder;
using tarnhost::LasFrame;
using tarnhost::LasScan;
using tarnhost::LasWriter;
using tarnhost::Outcome;
using Bytes = std::vector<std::uint8_t>;

LasFrame FrameOf(const LasScan& scan) {
  return {scan.GetLeadingBytes(), scan.GetTrailingBytes(), scan.GetPointCount()};
}

/// Hands the named points of a scan to a writer.
Outcome WritePoints(const LasScan& scan, std::span<const std::uint64_t> points, LasWriter& writer) {
  std::vector<std::int32_t> xyz(3 * points.size());
  for (std::size_t i = 0; i < points.size(); ++i) scan.ReadPositions(points[i], 1, &xyz[3 * i]);
  const std::size_t recordBytes = scan.GetRecordBytes();
  Bytes records(points.size() * recordBytes);
  for (std::size_t i = 0; i < points.size(); ++i) {
    scan.ReadRecords(points[i], 1, records.data() + i * recordBytes);
  }
  std::vector<Bytes> values(scan.GetDimensions().size());
  std::vector<std::span<const std::uint8_t>> columns;
  for (std::size_t d = 0; d < values.size(); ++d) {
    values[d].resize(points.size() * ValueBytes(scan.GetDimensions()[d].type));
    scan.ExtractDimension(d, records.data(), points.size(), values[d].data());
    columns.emplace_back(values[d]);
  }
  return writer.WriteBlock(points.size(), xyz.data(), columns);
}

/// Writes points of a scan into a file, in blocks.
Outcome Rewrite(const fs::path& source, const std::vector<std::uint64_t>& points, bool whole,
                const fs::path& target) {
  std::unique_ptr<LasScan> scan;
  if (Outcome outcome = LasScan::Open(source, scan); !outcome.Ok()) return outcome;
  std::unique_ptr<LasWriter> writer;
  Outcome outcome = LasWriter::Create(target, FrameOf(*scan), writer);
  constexpr std::size_t kBlock = 1000;
  for (std::size_t i = 0; outcome.Ok() && i < points.size(); i += kBlock) {
    const auto block = std::span(points).subspan(i, std::min(kBlock, points.size() - i));
    outcome = WritePoints(*scan, block, *writer);
  }
  return outcome.Ok() ? writer->Finish(whole) : outcome;
}

std::vector<std::uint64_t> AllPoints(const fs::path& source) {
  oocpctest::brute::LasFile file;
  EXPECT_TRUE(file.Load(source));
  std::vector<std::uint64_t> points(file.GetPointCount());
  std::iota(points.begin(), points.end(), 0);
  return points;
}

void ExpectSameBytesAgain(const fs::path& source, const fs::path& target) {
  SCOPED_TRACE(source.string());
  const Outcome outcome = Rewrite(source, AllPoints(source), true, target);
  ASSERT_TRUE(outcome.Ok()) << outcome.what;
  EXPECT_TRUE(oocpctest::ReadFile(source) == oocpctest::ReadFile(target));
}

std::size_t FilesIn(const fs::path& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

/// LAS 1.4 with records before and behind the points, descriptors behind them included.
LasBuilder Rich() {
  LasBuilder builder;
  builder.format = 6;
  builder.pointCount = 40;
  builder.extraBytes = 3;
  builder.records.push_back({"user", 7, Bytes(10, 1)});
  builder.extendedRecords.push_back({"LASF_Spec", 4, LasBuilder::Descriptor(3, "late")});
  return builder;
}

TEST(LasWriter, GivesBackEveryFormatByteForByte) {
  TemporaryFolder folder;
  for (unsigned minor = 0; minor <= 4; ++minor) {
    for (unsigned format = 0; format <= 10; ++format) {
      LasBuilder builder;
      builder.minor = minor;
      builder.format = format;
      builder.extraBytes = format;
      builder.pointCount = 25;
      builder.padding = 2;
      builder.Describe({LasBuilder::Descriptor(4, "a"), LasBuilder::Descriptor(4, "b")});
      Bytes file = builder.Build();
      file.insert(file.end(), 7, 0x77);  // bytes behind the points that nothing mentions
      oocpctest::WriteFile(folder / "in.las", file);
      ExpectSameBytesAgain(folder / "in.las", folder / "out.las");
    }
  }
}

TEST(LasWriter, GivesBackRealScansByteForByte) {
  const auto scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  TemporaryFolder folder;
  for (const auto& path : scans) ExpectSameBytesAgain(path, folder / "out.las");
}

TEST(LasWriter, KnowsDimensionsThatAreDescribedBehindThePoints) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "in.las", scan).Ok());
  std::unique_ptr<LasWriter> writer;
  ASSERT_TRUE(LasWriter::Create(folder / "out.las", FrameOf(*scan), writer).Ok());
  const auto& fields = writer->GetLayout().GetFields();
  ASSERT_EQ(fields.size(), scan->GetDimensions().size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    EXPECT_EQ(fields[i].dimension.name, scan->GetDimensions()[i].name);
  }
  EXPECT_EQ(fields[fields.size() - 2].dimension.name, "late");
}

TEST(LasWriter, DescribesTheSelectionThatItWrote) {
  TemporaryFolder folder;
  for (unsigned minor = 0; minor <= 4; ++minor) {
    LasBuilder builder;
    builder.minor = minor;
    builder.format = 1;
    builder.pointCount = 40;
    oocpctest::WriteFile(folder / "in.las", builder.Build());
    ASSERT_TRUE(Rewrite(folder / "in.las", {3, 5, 39}, false, folder / "out.las").Ok());
    // A file of just these points states what the writer has to state.
    const Bytes in = oocpctest::ReadFile(folder / "in.las");
    const Bytes out = oocpctest::ReadFile(folder / "out.las");
    const auto at = LasBuilder::Get<std::uint32_t>(in, 96);
    ASSERT_EQ(out.size(), at + 3 * 28u);
    EXPECT_EQ(LasBuilder::Get<std::uint32_t>(out, 107), 3u);
    std::array<std::uint32_t, 5> returns{};
    std::array<double, 3> least{1e300, 1e300, 1e300};
    std::array<double, 3> greatest{-1e300, -1e300, -1e300};
    std::size_t row = 0;
    for (const std::size_t point : {3u, 5u, 39u}) {
      EXPECT_TRUE(std::equal(out.begin() + at + static_cast<int>(28 * row),
                             out.begin() + at + static_cast<int>(28 * (row + 1)),
                             in.begin() + at + static_cast<int>(28 * point)));
      const unsigned number = out[at + 28 * row++ + 14] & 7u;
      if (number >= 1 && number <= 5) ++returns[number - 1];
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const double value =
            LasBuilder::Get<std::int32_t>(in, at + 28 * point + 4 * axis) * builder.scale[axis] +
            builder.offset[axis];
        least[axis] = std::min(least[axis], value);
        greatest[axis] = std::max(greatest[axis], value);
      }
    }
    for (std::size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(LasBuilder::Get<std::uint32_t>(out, 111 + 4 * i), returns[i]);
      if (minor == 4) {
        EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out, 255 + 8 * i), returns[i]);
      }
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_EQ(LasBuilder::Get<double>(out, 179 + 16 * axis), greatest[axis]);
      EXPECT_EQ(LasBuilder::Get<double>(out, 187 + 16 * axis), least[axis]);
    }
    if (minor == 4) {
      EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out, 247), 3u);
    }
  }
}

TEST(LasWriter, KeepsOldCountsZeroInFormatsThatHaveNone) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  ASSERT_TRUE(Rewrite(folder / "in.las", {1, 2}, false, folder / "out.las").Ok());
  const Bytes out = oocpctest::ReadFile(folder / "out.las");
  EXPECT_EQ(LasBuilder::Get<std::uint32_t>(out, 107), 0u);
  EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out, 247), 2u);
}

TEST(LasWriter, MovesWhatStandsBehindThePoints) {
  TemporaryFolder folder;
  Bytes file = Rich().Build();
  const auto extendedAt = LasBuilder::Get<std::uint64_t>(file, 235);
  LasBuilder::Put(file, 227, extendedAt + 60);  // as if waveforms stood in the extended record
  oocpctest::WriteFile(folder / "in.las", file);
  ASSERT_TRUE(Rewrite(folder / "in.las", {7}, false, folder / "out.las").Ok());
  const Bytes out = oocpctest::ReadFile(folder / "out.las");
  const std::uint64_t moved = 39 * Rich().PointBytes();
  EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out, 235), extendedAt - moved);
  EXPECT_EQ(LasBuilder::Get<std::uint64_t>(out, 227), extendedAt + 60 - moved);
  oocpctest::brute::LasFile again;
  ASSERT_TRUE(again.Load(folder / "out.las"));
  EXPECT_NE(again.FindField("late"), nullptr);
  std::unique_ptr<LasScan> scan;
  EXPECT_TRUE(LasScan::Open(folder / "out.las", scan).Ok());
}

TEST(LasWriter, WritesAnEmptySelection) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  ASSERT_TRUE(Rewrite(folder / "in.las", {}, false, folder / "out.las").Ok());
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "out.las", scan).Ok());
  EXPECT_EQ(scan->GetPointCount(), 0u);
  EXPECT_EQ(scan->GetHeader().max, (std::array<double, 3>{}));
}

TEST(LasWriter, DoesNotKeepAHeaderThatStatesOtherPoints) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  ASSERT_TRUE(Rewrite(folder / "in.las", {1, 2}, true, folder / "out.las").Ok());
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "out.las", scan).Ok());
  EXPECT_EQ(scan->GetPointCount(), 2u);
}

TEST(LasWriter, ReplacesAFileOnlyWhenFinished) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  const Bytes old{1, 2, 3};
  oocpctest::WriteFile(folder / "out.las", old);
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "in.las", scan).Ok());
  std::unique_ptr<LasWriter> writer;
  ASSERT_TRUE(LasWriter::Create(folder / "out.las", FrameOf(*scan), writer).Ok());
  const std::vector<std::uint64_t> points{1, 2};
  ASSERT_TRUE(WritePoints(*scan, points, *writer).Ok());
  EXPECT_EQ(oocpctest::ReadFile(folder / "out.las"), old);
  EXPECT_EQ(writer->GetPointCount(), 2u);
  ASSERT_TRUE(writer->Finish(false).Ok());
  EXPECT_NE(oocpctest::ReadFile(folder / "out.las"), old);
  EXPECT_EQ(FilesIn(folder.Path()), 2u);
}

TEST(LasWriter, LeavesNothingWhenItIsNotFinished) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "in.las", scan).Ok());
  std::unique_ptr<LasWriter> writer;
  ASSERT_TRUE(LasWriter::Create(folder / "out.las", FrameOf(*scan), writer).Ok());
  EXPECT_EQ(FilesIn(folder.Path()), 2u);
  writer.reset();
  EXPECT_EQ(FilesIn(folder.Path()), 1u);
}

TEST(LasWriter, RefusesColumnsOfTheWrongNumberOrLength) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  std::unique_ptr<LasScan> scan;
  ASSERT_TRUE(LasScan::Open(folder / "in.las", scan).Ok());
  std::unique_ptr<LasWriter> writer;
  ASSERT_TRUE(LasWriter::Create(folder / "out.las", FrameOf(*scan), writer).Ok());
  const std::array<std::int32_t, 3> xyz{};
  const Bytes value(8);
  std::vector<std::span<const std::uint8_t>> columns;
  EXPECT_EQ(writer->WriteBlock(1, xyz.data(), columns).code, result::kBadRecord);
  columns.assign(writer->GetLayout().GetFields().size(), value);
  EXPECT_EQ(writer->WriteBlock(1, xyz.data(), columns).code, result::kBadRecord);
  EXPECT_EQ(writer->GetPointCount(), 0u);
}

TEST(LasWriter, RefusesAFrameThatIsNoLasFile) {
  TemporaryFolder folder;
  std::unique_ptr<LasWriter> writer;
  const Bytes junk(400, 1);
  EXPECT_EQ(LasWriter::Create(folder / "out.las", {junk, {}, 0}, writer).code,
            result::kScanNotRecognised);
  EXPECT_EQ(writer, nullptr);
  EXPECT_EQ(FilesIn(folder.Path()), 0u);
}

TEST(LasWriter, SaysThatThereIsNoSuchFolder) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  const Outcome outcome = Rewrite(folder / "in.las", {1}, false, folder / "no" / "out.las");
  EXPECT_EQ(outcome.code, result::kIoError);
  EXPECT_FALSE(outcome.remedy.empty());
}

TEST(LasWriter, SaysThatAFolderHasThatName) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  EXPECT_EQ(Rewrite(folder / "in.las", {1}, false, folder.Path()).code, result::kAlreadyExists);
}

TEST(LasWriter, SaysThatItMayNotWriteThere) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "in.las", Rich().Build());
  using fs::perms;
  fs::permissions(folder.Path(),
                  perms::all & ~(perms::owner_write | perms::group_write | perms::others_write));
  {
    const oocpctest::WithoutPrivileges user;
    if (!user.IsBound()) GTEST_SKIP() << "root cannot step down here";
    EXPECT_EQ(Rewrite(folder / "in.las", {1}, false, folder / "out.las").code,
              result::kAccessDenied);
  }
  fs::permissions(folder.Path(), fs::perms::owner_all);
}

TEST(LasWriter, SaysThatTheDiskIsFull) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  TemporaryFolder folder;
  LasBuilder builder = Rich();
  oocpctest::WriteFile(folder / "in.las", builder.Build());
  for (const bool whole : {false, true}) {
    const Outcome outcome =
        Rewrite(folder / "in.las", AllPoints(folder / "in.las"), whole, "/dev/full");
    EXPECT_EQ(outcome.code, result::kNoSpace) << outcome.what;
    EXPECT_EQ(outcome.where, "/dev/full");
  }
}

}  // namespace
