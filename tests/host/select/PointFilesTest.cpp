// Scans of every format, imported and written as PLY, PCD and CSV: the same points and values come
// back when those files are read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <random>

#include "host/build/Import.h"
#include "host/select/ExportPoints.h"
#include "tests/support/ScanContent.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TestData.h"

namespace {

using oocpc::ValueType;
using oocpctest::IsOk;
using oocpctest::PutNumber;
using oocpctest::ScanContent;
using oocpctest::ScanFolder;

/// What stands for values that are no numbers, which compare with nothing.
constexpr double kNan = -1.25e250;

/// Points as rows of numbers: coordinates as the source had them, then the values of `names`.
struct Rows {
  std::vector<std::string> names;
  std::vector<bool> isNarrow;  ///< of each number of a row: a 32-bit float
  std::vector<std::vector<double>> rows;

  explicit Rows(const ScanContent& scan, const std::vector<std::string>* wanted = nullptr) {
    const auto points = scan.Points();
    rows.resize(points.size());
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const std::string name = std::string(1, "xyz"[axis]) + "_exact";
      const std::vector<double> exact = scan.Values(name);
      isNarrow.push_back(TypeOf(scan, name) == ValueType::kFloat);
      for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].push_back(exact.empty() ? points[i][axis] : exact[i]);
      }
    }
    for (const tarnhost::Dimension& dimension : scan.Scan().GetDimensions()) {
      if (!dimension.name.ends_with("_exact")) names.push_back(dimension.name);
    }
    if (wanted != nullptr) names = *wanted;
    for (const std::string& name : names) Add(scan, name);
  }

  void Add(const ScanContent& scan, const std::string& name) {
    const std::vector<double> values = scan.Values(name);
    const std::size_t width = rows.empty() ? 0 : values.size() / rows.size();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      rows[i].insert(rows[i].end(), values.begin() + static_cast<std::ptrdiff_t>(i * width),
                     values.begin() + static_cast<std::ptrdiff_t>((i + 1) * width));
    }
    isNarrow.insert(isNarrow.end(), width, TypeOf(scan, name) == ValueType::kFloat);
  }

  static ValueType TypeOf(const ScanContent& scan, const std::string& name) {
    for (const tarnhost::Dimension& dimension : scan.Scan().GetDimensions()) {
      if (dimension.name == name) return dimension.type.value;
    }
    return ValueType::kDouble;
  }

  /// In the precision of `source`, in order.
  std::vector<std::vector<double>> Sorted(const Rows& source) const {
    std::vector<std::vector<double>> sorted = rows;
    for (auto& row : sorted) {
      for (std::size_t i = 0; i < row.size(); ++i) {
        if (i < source.isNarrow.size() && source.isNarrow[i]) row[i] = static_cast<float>(row[i]);
        if (std::isnan(row[i])) row[i] = kNan;
      }
    }
    std::ranges::sort(sorted);
    return sorted;
  }
};

/// Imports a file and writes it in every way.
void ExpectRoundTrips(const std::filesystem::path& source) {
  SCOPED_TRACE(source.string());
  const ScanFolder folder;
  const ScanContent before(source);
  ASSERT_TRUE(before.Ok()) << before.GetOutcome().what;
  folder.Import({source});
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  const Rows expected(before);
  for (const char* name : {"out.ply", "out.pcd", "out.csv"}) {
    SCOPED_TRACE(name);
    std::uint64_t points = 0;
    ASSERT_TRUE(IsOk(tarnhost::ExportPoints(*cloud, {}, folder / name, points)));
    EXPECT_EQ(points, before.Scan().GetPointCount());
    const ScanContent after(folder / name, {}, 1u << 24);
    ASSERT_TRUE(after.Ok()) << after.GetOutcome().what << after.GetOutcome().where;
    const Rows written(after, &expected.names);
    ASSERT_EQ(written.rows.size(), expected.rows.size());
    const auto a = expected.Sorted(expected);
    const auto b = written.Sorted(expected);
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_EQ(a[i], b[i]) << "point " << i;
  }
}

TEST(PointFiles, GiveBackFloatsWithAndWithoutAStep) {
  std::mt19937 random(9);
  std::uniform_real_distribution<float> coordinate(-1000, 1000);
  for (const bool isRounded : {true, false}) {
    std::string bytes =
        "ply\nformat binary_little_endian 1.0\nelement vertex 3000\nproperty float x\n"
        "property float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
        "property uchar blue\nproperty float quality\nproperty uint id\nend_header\n";
    for (std::uint32_t i = 0; i < 3000; ++i) {
      for (int axis = 0; axis < 3; ++axis) {
        const float value = coordinate(random);
        PutNumber(bytes, isRounded ? std::round(value * 100) / 100 : value);
      }
      bytes += static_cast<char>(i);
      bytes += static_cast<char>(i / 7);
      bytes += static_cast<char>(i / 11);
      PutNumber(bytes, i % 5 == 0 ? std::nanf("") : coordinate(random));
      PutNumber(bytes, i * 1000003u);
    }
    const ScanFolder folder;
    ExpectRoundTrips(folder.Add("scan.ply", {bytes.begin(), bytes.end()}));
  }
}

TEST(PointFiles, GiveBackDoublesAndIntegersOf64Bits) {
  std::string text = "x;y;z;gps_time;id\n";
  for (int i = 0; i < 2000; ++i) {
    text += std::to_string(500000 + i) + "." + std::to_string(i % 10) + ";" +
            std::to_string(i / 3.0) + ";0.1234567890123;" + std::to_string(i * 1.25) + ";" +
            std::to_string(4000000000LL + i) + "\n";
  }
  const ScanFolder folder;
  ExpectRoundTrips(folder.Add("scan.csv", {text.begin(), text.end()}));
}

TEST(PointFiles, AreWrittenWithTheSourcesDecimals) {
  const ScanFolder folder;
  const std::string text = "x,y,z\n1.50,2.250,3\n";
  folder.Import({folder.Add("a.csv", {text.begin(), text.end()})});
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(tarnhost::ExportPoints(*folder.Open(), {}, folder / "b.csv", points)));
  const auto written = oocpctest::ReadFile(folder / "b.csv");
  EXPECT_EQ(std::string(written.begin(), written.end()), text);
}

/// Points numbered in `value`, at places in no order.
std::string ShuffledLines(std::size_t begin, std::size_t end) {
  std::mt19937 random(static_cast<unsigned>(begin));
  std::string text = "x,y,z,value\n";
  for (std::size_t i = begin; i < end; ++i) {
    text += std::to_string(random() % 1000) + "." + std::to_string(i % 10) + "," +
            std::to_string(random() % 1000) + ",7," + std::to_string(i) + "\n";
  }
  return text;
}

/// What `value` is of each point of a file, in its order.
std::vector<double> ValuesIn(const std::filesystem::path& file) {
  const ScanContent scan(file, {}, 1u << 24);
  EXPECT_TRUE(scan.Ok()) << scan.GetOutcome().what;
  return scan.Values("value");
}

TEST(PointFiles, HaveTheOrderOfTheirSourcesWhereTheCloudKnowsIt) {
  const ScanFolder folder;
  const auto bytes = [](const std::string& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
  };
  tarnhost::ImportOptions import =
      folder.Options({folder.Add("a.csv", bytes(ShuffledLines(0, 90000))),
                      folder.Add("b.csv", bytes(ShuffledLines(90000, 100000)))});
  import.keepOrder = true;
  tarnhost::ImportReport report;
  ASSERT_TRUE(IsOk(tarnhost::ImportScans(import, report)));
  std::vector<double> expected(100000);
  std::iota(expected.begin(), expected.end(), 0.0);
  for (const char* name : {"out.ply", "out.pcd", "out.csv"}) {
    for (const std::uint64_t memory : {std::uint64_t{0}, std::uint64_t{500000}}) {
      std::filesystem::remove(folder / name);
      tarnhost::ExportOptions options;
      options.memoryBytes = memory;
      std::uint64_t points = 0;
      ASSERT_TRUE(IsOk(tarnhost::ExportPoints(*folder.Open(), options, folder / name, points)));
      EXPECT_EQ(points, expected.size());
      EXPECT_TRUE(ValuesIn(folder / name) == expected) << name << ", memory " << memory;
    }
  }
  std::ifstream csv(folder / "out.csv");
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line, "x,y,z,value,source,source_index");
}

TEST(PointFiles, OfACloudThatKnowsNoOrderHaveThatOfStorage) {
  const ScanFolder folder;
  const std::string text = ShuffledLines(0, 90000);
  folder.Import({folder.Add("a.csv", {text.begin(), text.end()})});
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(tarnhost::ExportPoints(*folder.Open(), {}, folder / "out.csv", points)));
  const std::vector<double> values = ValuesIn(folder / "out.csv");
  ASSERT_EQ(values.size(), 90000u);
  EXPECT_FALSE(std::ranges::is_sorted(values));
}

TEST(PointFiles, StopWhileTheyArePutIntoOrder) {
  const ScanFolder folder;
  const std::string text = ShuffledLines(0, 100000);
  tarnhost::ImportOptions import =
      folder.Options({folder.Add("a.csv", {text.begin(), text.end()})});
  import.keepOrder = true;
  tarnhost::ImportReport report;
  ASSERT_TRUE(IsOk(tarnhost::ImportScans(import, report)));
  std::vector<std::uint64_t> written;
  tarnhost::ExportOptions options;
  options.progress = [&](const tarnhost::ProgressReport& progress) {
    if (std::string(progress.stage) != "writing") return true;
    EXPECT_EQ(progress.total, 100000u);
    written.push_back(progress.done);
    return false;
  };
  const auto before = folder.List();
  std::uint64_t points = 0;
  const tarnhost::Outcome outcome =
      tarnhost::ExportPoints(*folder.Open(), options, folder / "out.csv", points);
  EXPECT_EQ(outcome.code, oocpc::result::kStopped);
  ASSERT_EQ(written.size(), 1u);
  EXPECT_GT(written[0], 0u);
  EXPECT_LT(written[0], 100000u);
  EXPECT_EQ(folder.List(), before);
}

TEST(PointFiles, PackColoursOfPcdAsThatFormatHasThem) {
  const ScanFolder folder;
  const std::string text = "x,y,z,red,green,blue\n1,2,3,255,128,1\n";
  folder.Import({folder.Add("a.csv", {text.begin(), text.end()})});
  std::uint64_t points = 0;
  ASSERT_TRUE(IsOk(tarnhost::ExportPoints(*folder.Open(), {}, folder / "b.pcd", points)));
  const auto written = oocpctest::ReadFile(folder / "b.pcd");
  const std::string bytes(written.begin(), written.end());
  EXPECT_NE(bytes.find("FIELDS x y z rgb\nSIZE 8 8 8 4\nTYPE F F F U\nCOUNT 1 1 1 1\nWIDTH 1\n"),
            std::string::npos);
  EXPECT_EQ(bytes.substr(bytes.size() - 4), std::string("\x01\x80\xFF\x00", 4));
}

TEST(PointFiles, OfAnImportTellWhatWasLeftOut) {
  const ScanFolder folder;
  const std::string text = "x,y,z\n1,2,3\nnan,2,3\n";
  std::vector<std::string> notices;
  tarnhost::ImportOptions options =
      folder.Options({folder.Add("a.csv", {text.begin(), text.end()})});
  options.notice = [&](const std::string& notice) { notices.push_back(notice); };
  tarnhost::ImportReport report;
  ASSERT_TRUE(IsOk(tarnhost::ImportScans(options, report)));
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_NE(notices[0].find("a.csv: 1 point has no place"), std::string::npos);
}

TEST(PointFiles, GiveRealScansBack) {
  std::vector<std::filesystem::path> scans = oocpctest::TestScansOfOtherFormats();
  if (scans.empty()) GTEST_SKIP() << "no real scans at hand";
  const auto folder = oocpctest::TestDataFolder();
  for (const char* name : {"1.2-with-color.las", "simple1_4.las", "extrabytes.las"}) {
    scans.push_back(folder / name);
  }
  for (const auto& scan : scans) ExpectRoundTrips(scan);
}

}  // namespace
