// LAS files opened as scans, checked against the brute-force reader.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "host/formats/LasScan.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/LasBuilder.h"
#include "tests/support/System.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestData.h"

namespace {

namespace result = oocpc::result;
using oocpc::ValueType;
using oocpctest::LasBuilder;
using oocpctest::TemporaryFolder;
using tarnhost::Outcome;
using tarnhost::ScanFile;
using tarnhost::StoredBox;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

Outcome Open(const std::filesystem::path& path, std::unique_ptr<ScanFile>& scan) {
  return tarnhost::OpenScan(path, scan);
}

void ExpectRefused(const std::filesystem::path& path, HRESULT code) {
  std::unique_ptr<ScanFile> scan;
  const Outcome outcome = Open(path, scan);
  EXPECT_EQ(outcome.code, code) << outcome.what;
  EXPECT_EQ(outcome.where, path.string());
  EXPECT_FALSE(outcome.what.empty());
  EXPECT_EQ(scan, nullptr);
}

/// The records of all points.
Bytes RecordsOf(const ScanFile& scan) {
  Bytes records(scan.GetPointCount() * scan.GetRecordBytes());
  scan.ReadRecords(0, scan.GetPointCount(), records.data());
  return records;
}

/// All values of a dimension.
Bytes Gather(const ScanFile& scan, std::size_t dimension) {
  const std::size_t count = scan.GetPointCount();
  Bytes values(count * ValueBytes(scan.GetDimensions()[dimension].type));
  scan.ExtractDimension(dimension, RecordsOf(scan).data(), count, values.data());
  return values;
}

/// The bits of the i-th number of a column, widened to 64.
std::uint64_t BitsAt(const Bytes& values, ValueType type, std::size_t i) {
  const std::size_t bytes = oocpc::ComponentBytes(type);
  std::uint64_t bits = 0;
  std::memcpy(&bits, values.data() + i * bytes, bytes);
  return bits;
}

/// The same bits, as the brute-force reader sees the value.
std::uint64_t BitsOf(const oocpctest::brute::Value& value, ValueType type) {
  const std::size_t bytes = oocpc::ComponentBytes(type);
  if (value.isInteger) {
    const auto bits = static_cast<std::uint64_t>(value.integer);
    return bytes == 8 ? bits : bits & ((std::uint64_t{1} << (8 * bytes)) - 1);
  }
  if (type == ValueType::kFloat)
    return std::bit_cast<std::uint32_t>(static_cast<float>(value.number));
  if (type == ValueType::kUInt64) return static_cast<std::uint64_t>(value.number);
  return std::bit_cast<std::uint64_t>(value.number);
}

bool IsNaN(const oocpctest::brute::Value& value) {
  return !value.isInteger && std::isnan(value.number);
}

/// Compares every value of every dimension with the brute-force reader.
void ExpectSameValues(const ScanFile& scan, const oocpctest::brute::LasFile& file) {
  std::size_t compared = 0;
  for (std::size_t d = 0; d < scan.GetDimensions().size(); ++d) {
    const tarnhost::Dimension& dimension = scan.GetDimensions()[d];
    const Bytes values = Gather(scan, d);
    constexpr std::array<const char*, 3> kColors{"red", "green", "blue"};
    for (std::size_t part = 0; part < dimension.type.components; ++part) {
      const std::string name = dimension.name == "DEF_COLOR" ? kColors[part] : dimension.name;
      const auto* field = file.FindField(name);
      ASSERT_NE(field, nullptr) << name;
      ++compared;
      for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
        const auto value = file.GetValue(*field, i);
        if (IsNaN(value) || std::abs(value.number) > 0x1p53) continue;
        ASSERT_EQ(BitsAt(values, dimension.type.value, i * dimension.type.components + part),
                  BitsOf(value, dimension.type.value))
            << name << " of point " << i;
      }
    }
  }
  EXPECT_EQ(compared + 3, file.GetFields().size());
}

void ExpectSamePositions(const ScanFile& scan, const oocpctest::brute::LasFile& file) {
  EXPECT_EQ(scan.GetTransform().scale, file.GetScale());
  EXPECT_EQ(scan.GetTransform().offset, file.GetOffset());
  std::vector<std::int32_t> xyz(3 * file.GetPointCount());
  scan.ReadPositions(0, file.GetPointCount(), xyz.data());
  for (std::size_t i = 0; i < xyz.size(); ++i) ASSERT_EQ(xyz[i], file.GetStored(i / 3, i % 3));
}

void ExpectSameFile(const std::filesystem::path& path) {
  SCOPED_TRACE(path.string());
  std::unique_ptr<ScanFile> scan;
  const Outcome outcome = Open(path, scan);
  ASSERT_TRUE(outcome.Ok()) << outcome.what;
  oocpctest::brute::LasFile file;
  ASSERT_TRUE(file.Load(path));
  ASSERT_EQ(scan->GetPointCount(), file.GetPointCount());
  ExpectSamePositions(*scan, file);
  ExpectSameValues(*scan, file);
  const Bytes& bytes = file.GetBytes();
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + static_cast<int>(file.GetPointsBegin()),
                         scan->GetLeadingBytes().begin(), scan->GetLeadingBytes().end()));
  EXPECT_TRUE(std::equal(bytes.begin() + static_cast<int>(file.GetPointsEnd()), bytes.end(),
                         scan->GetTrailingBytes().begin(), scan->GetTrailingBytes().end()));
}

TEST(LasScan, ReadsWhatBruteForceReadsInEveryFormat) {
  TemporaryFolder folder;
  for (unsigned minor = 0; minor <= 4; ++minor) {
    for (unsigned format = 0; format <= 10; ++format) {
      LasBuilder builder;
      builder.minor = minor;
      builder.format = format;
      builder.pointCount = 30;
      builder.extraBytes = 20;
      builder.Describe({LasBuilder::Descriptor(6, "a"), LasBuilder::Descriptor(22, "b"),
                        LasBuilder::Descriptor(0, "", 2), LasBuilder::Descriptor(10, "c"),
                        LasBuilder::Descriptor(10, "d")});
      oocpctest::WriteFile(folder / "scan.las", builder.Build());
      ExpectSameFile(folder / "scan.las");
    }
  }
}

TEST(LasScan, ReadsWhatBruteForceReadsInRealScans) {
  const auto scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const auto& path : scans) ExpectSameFile(path);
}

TEST(LasScan, ExtractsDimensionsOfAnyRun) {
  TemporaryFolder folder;
  LasBuilder builder;
  builder.format = 7;
  builder.pointCount = 50;
  oocpctest::WriteFile(folder / "scan.las", builder.Build());
  std::unique_ptr<ScanFile> scan;
  ASSERT_TRUE(Open(folder / "scan.las", scan).Ok());
  const Bytes records = RecordsOf(*scan);
  EXPECT_TRUE(std::ranges::equal(scan->GetMappedRecords(), records));
  for (std::size_t d = 0; d < scan->GetDimensions().size(); ++d) {
    const std::size_t bytes = ValueBytes(scan->GetDimensions()[d].type);
    const Bytes all = Gather(*scan, d);
    Bytes some(5 * bytes);
    scan->ExtractDimension(d, records.data() + 31 * scan->GetRecordBytes(), 5, some.data());
    EXPECT_EQ(std::memcmp(some.data(), all.data() + 31 * bytes, some.size()), 0);
  }
  std::array<std::int32_t, 6> two{};
  scan->ReadPositions(7, 2, two.data());
  std::vector<std::int32_t> xyz(150);
  scan->ReadPositions(0, 50, xyz.data());
  EXPECT_TRUE(std::equal(two.begin(), two.end(), xyz.begin() + 21));
}

TEST(LasScan, OpensAFileWithoutPoints) {
  TemporaryFolder folder;
  LasBuilder builder;
  builder.pointCount = 0;
  oocpctest::WriteFile(folder / "scan.las", builder.Build());
  ExpectSameFile(folder / "scan.las");
}

TEST(LasScan, RefusesWhatIsNotThere) {
  TemporaryFolder folder;
  ExpectRefused(folder / "missing.las", result::kIoError);
}

TEST(LasScan, RefusesAFolder) {
  TemporaryFolder folder;
  ExpectRefused(folder.Path(), result::kScanNotRecognised);
}

TEST(LasScan, RefusesAnEmptyFile) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "empty.las", {});
  ExpectRefused(folder / "empty.las", result::kScanNotRecognised);
}

TEST(LasScan, RefusesAFileThatMayNotBeRead) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "secret.las", LasBuilder().Build());
  std::filesystem::permissions(folder.Path(), std::filesystem::perms::all);
  std::filesystem::permissions(folder / "secret.las", std::filesystem::perms::none);
  const oocpctest::WithoutPrivileges user;
  if (!user.IsBound()) GTEST_SKIP() << "root cannot step down here";
  ExpectRefused(folder / "secret.las", result::kAccessDenied);
}

TEST(LasScan, RefusesAFileInAFolderThatMayNotBeEntered) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "scan.las", LasBuilder().Build());
  {
    std::filesystem::permissions(folder.Path(), std::filesystem::perms::none);
    const oocpctest::WithoutPrivileges user;
    if (!user.IsBound()) GTEST_SKIP() << "root cannot step down here";
    ExpectRefused(folder / "scan.las", result::kAccessDenied);
  }
  std::filesystem::permissions(folder.Path(), std::filesystem::perms::owner_all);
}

TEST(LasScan, LeavesTheOldScanWhenItRefuses) {
  TemporaryFolder folder;
  oocpctest::WriteFile(folder / "scan.las", LasBuilder().Build());
  std::unique_ptr<ScanFile> scan;
  ASSERT_TRUE(Open(folder / "scan.las", scan).Ok());
  const ScanFile* before = scan.get();
  EXPECT_FALSE(Open(folder / "missing.las", scan).Ok());
  EXPECT_EQ(scan.get(), before);
}

/// The box that a scan states, when its header says `least` and `greatest` along all axes.
bool StatedBox(double least, double greatest, StoredBox& box) {
  TemporaryFolder folder;
  LasBuilder builder;
  builder.scale = {0.01, 0.01, 0.01};
  builder.offset = {100, 100, 100};
  Bytes file = builder.Build();
  for (std::size_t axis = 0; axis < 3; ++axis) {
    LasBuilder::Put(file, 179 + 16 * axis, greatest);
    LasBuilder::Put(file, 187 + 16 * axis, least);
  }
  oocpctest::WriteFile(folder / "scan.las", file);
  std::unique_ptr<ScanFile> scan;
  EXPECT_TRUE(Open(folder / "scan.las", scan).Ok());
  return scan->GetStatedBox(box);
}

TEST(LasScan, StatesTheBoxOfItsHeaderAsIntegers) {
  StoredBox box;
  ASSERT_TRUE(StatedBox(99.99, 100.05, box));
  EXPECT_EQ(box.least, (std::array<std::int32_t, 3>{-1, -1, -1}));
  EXPECT_EQ(box.greatest, (std::array<std::int32_t, 3>{5, 5, 5}));
}

TEST(LasScan, StatesNoBoxThatIsNoBoxOfIntegers) {
  StoredBox box;
  EXPECT_FALSE(StatedBox(std::nan(""), 1, box));
  EXPECT_FALSE(StatedBox(0, 1e12, box));
  EXPECT_FALSE(StatedBox(-std::numeric_limits<double>::infinity(), 1, box));
}

}  // namespace
