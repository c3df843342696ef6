// What selections write into files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "host/select/Sinks.h"
#include "tests/host/select/SelectFixture.h"

namespace {

namespace result = oocpc::result;
using oocpctest::ImportedCloud;
using oocpctest::LasPoints;
using oocpctest::LasRecipe;
using oocpctest::Query;
using oocpctest::Succeeded;
using tarnhost::Outcome;
using tarnhost::SelectionSink;
using tarnhost::SelectReport;

constexpr const char* kBright = "#num{type=int}(\"intensity\", >, 40000)";

Outcome Write(tarnhost::Cloud& cloud, const std::string& text, const std::filesystem::path& output,
              SelectReport& report) {
  std::unique_ptr<SelectionSink> sink;
  if (Outcome outcome = tarnhost::MakeFileSink(output, sink); !outcome.Ok()) return outcome;
  return tarnhost::Select(cloud, Query(text), sink.get(), report);
}

std::vector<std::string> SortedRecords(const LasPoints& points, bool brightOnly) {
  std::vector<std::string> records;
  for (std::uint64_t i = 0; i < points.GetCount(); ++i) {
    if (!brightOnly || points.GetValue(i, "intensity") > 40000) {
      records.push_back(points.GetRecord(i));
    }
  }
  std::ranges::sort(records);
  return records;
}

class LasOfEveryPointFormat : public ::testing::TestWithParam<int> {};

TEST_P(LasOfEveryPointFormat, HoldsTheSelectedRecordsByteForByte) {
  LasRecipe recipe;
  recipe.format = static_cast<std::uint8_t>(GetParam());
  recipe.pointCount = 20000;
  recipe.extraBytes = GetParam() % 2 == 1;
  recipe.wideExtra = true;
  const LasPoints points(oocpctest::MakeLas(recipe));
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  const auto output = imported.Place("bright.LAS");
  SelectReport report;
  ASSERT_TRUE(Succeeded(Write(*imported.cloud, kBright, output, report)));
  const LasPoints written(oocpctest::ReadFile(output));
  EXPECT_EQ(written.GetCount(), report.selected);
  EXPECT_EQ(written.GetFormat(), recipe.format);
  EXPECT_EQ(written.GetScale(), points.GetScale());
  EXPECT_EQ(written.GetOffset(), points.GetOffset());
  EXPECT_EQ(SortedRecords(written, false), SortedRecords(points, true));
  std::unique_ptr<tarnhost::ScanFile> scan;
  EXPECT_TRUE(Succeeded(tarnhost::OpenScan(output, scan))) << "must be a valid file";
}

INSTANTIATE_TEST_SUITE_P(Formats, LasOfEveryPointFormat, ::testing::Range(0, 11));

TEST(LasSink, WritesAFileWithoutPointsWhenNothingIsSelected) {
  const ImportedCloud imported(oocpctest::MakeLas(LasRecipe{}));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  ASSERT_TRUE(Succeeded(Write(*imported.cloud, "#false()", imported.Place("none.las"), report)));
  EXPECT_EQ(LasPoints(oocpctest::ReadFile(imported.Place("none.las"))).GetCount(), 0u);
}

std::vector<std::vector<std::string>> ReadCsv(const std::filesystem::path& file) {
  const auto bytes = oocpctest::ReadFile(file);
  std::istringstream text(std::string(bytes.begin(), bytes.end()));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(text, line);) {
    rows.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(field);
  }
  return rows;
}

TEST(CsvSink, WritesNamesAndThenEveryValueSoThatItReadsBack) {
  LasRecipe recipe;
  recipe.format = 3;
  recipe.pointCount = 5000;
  recipe.extraBytes = true;
  recipe.wideExtra = true;
  recipe.scale = {0.01, 0.001, 0.25};
  const LasPoints points(oocpctest::MakeLas(recipe));
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  ASSERT_TRUE(Succeeded(Write(*imported.cloud, kBright, imported.Place("out.csv"), report)));
  const auto rows = ReadCsv(imported.Place("out.csv"));
  ASSERT_EQ(rows.size(), report.selected + 1);
  const std::vector<std::string>& names = rows[0];
  EXPECT_THAT(std::vector(names.begin(), names.begin() + 4),
              ::testing::ElementsAre("x", "y", "z", "intensity"));
  EXPECT_THAT(names, ::testing::IsSupersetOf({"red", "green", "blue", "gps_time", "f64", "u64"}));

  // Rows as the points that they state, told by all fields that the plain reader knows.
  const std::vector<std::string> known = points.ListNames();
  const auto rowText = [&](const auto& valueOf) {
    std::string text;
    for (const std::string& name : known) {
      const double value = valueOf(name);
      text += value != value ? "nan " : std::to_string(value) + " ";
    }
    return text;
  };
  std::vector<std::string> expected;
  std::vector<std::string> read;
  for (std::uint64_t i = 0; i < points.GetCount(); ++i) {
    if (points.GetValue(i, "intensity") <= 40000) continue;
    expected.push_back(rowText([&](const std::string& name) { return points.GetValue(i, name); }));
  }
  for (std::size_t row = 1; row < rows.size(); ++row) {
    ASSERT_EQ(rows[row].size(), names.size()) << row;
    read.push_back(rowText([&](const std::string& name) {
      const auto column = std::ranges::find(names, name) - names.begin();
      return std::strtod(rows[row].at(static_cast<std::size_t>(column)).c_str(), nullptr);
    }));
  }
  std::ranges::sort(expected);
  std::ranges::sort(read);
  EXPECT_EQ(read, expected);
}

TEST(CsvSink, GivesCoordinatesTheDecimalsOfTheirScale) {
  LasRecipe recipe;
  recipe.pointCount = 50;
  recipe.scale = {0.01, 0.001, 0.25};
  recipe.offset = {637000, 849000.5, 0};
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  ASSERT_TRUE(Succeeded(Write(*imported.cloud, "#true()", imported.Place("out.csv"), report)));
  const auto rows = ReadCsv(imported.Place("out.csv"));
  ASSERT_EQ(rows.size(), 51u);
  const std::array<std::size_t, 3> decimals{2, 3, 2};
  for (std::size_t row = 1; row < rows.size(); ++row) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const std::string& field = rows[row][axis];
      ASSERT_NE(field.find('.'), std::string::npos) << field;
      EXPECT_EQ(field.size() - field.find('.') - 1, decimals[axis]) << field;
    }
  }
}

TEST(CsvSink, CountsDecimalsOfScales) {
  EXPECT_EQ(tarnhost::DecimalsOf(1), 0);
  EXPECT_EQ(tarnhost::DecimalsOf(100), 0);
  EXPECT_EQ(tarnhost::DecimalsOf(0.1), 1);
  EXPECT_EQ(tarnhost::DecimalsOf(0.01), 2);
  EXPECT_EQ(tarnhost::DecimalsOf(0.001), 3);
  EXPECT_EQ(tarnhost::DecimalsOf(0.0001), 4);
  EXPECT_EQ(tarnhost::DecimalsOf(1e-7), 7);
  EXPECT_EQ(tarnhost::DecimalsOf(0.25), 2);
  EXPECT_EQ(tarnhost::DecimalsOf(-0.5), 1);
  EXPECT_EQ(tarnhost::DecimalsOf(1.0 / 3), -1);
  EXPECT_EQ(tarnhost::DecimalsOf(123456789.000001), 6);
  EXPECT_EQ(tarnhost::DecimalsOf(1e-300), -1);
  EXPECT_EQ(tarnhost::DecimalsOf(std::numeric_limits<double>::infinity()), -1);
  EXPECT_EQ(tarnhost::DecimalsOf(0), 0);
}

TEST(CsvSink, WritesTheNamesAloneForACloudWithoutPoints) {
  LasRecipe recipe;
  recipe.pointCount = 0;
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  ASSERT_TRUE(Succeeded(Write(*imported.cloud, "#true()", imported.Place("out.csv"), report)));
  EXPECT_EQ(ReadCsv(imported.Place("out.csv")).size(), 1u);
}

TEST(FileSinks, AreChosenByTheEndingOfTheName) {
  std::unique_ptr<SelectionSink> sink;
  EXPECT_TRUE(Succeeded(tarnhost::MakeFileSink("a.Csv", sink)));
  EXPECT_NE(dynamic_cast<tarnhost::CsvSink*>(sink.get()), nullptr);
  EXPECT_TRUE(Succeeded(tarnhost::MakeFileSink("a.b.las", sink)));
  EXPECT_NE(dynamic_cast<tarnhost::LasSink*>(sink.get()), nullptr);
  for (const char* const name : {"a.txt", "a", "las", ".las.gz"}) {
    EXPECT_EQ(tarnhost::MakeFileSink(name, sink).code, result::kScanUnsupported) << name;
  }
}

std::size_t FilesIn(const std::filesystem::path& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                                std::filesystem::directory_iterator()));
}

TEST(FileSinks, LeaveNothingBehindWhenASelectionIsStopped) {
  const ImportedCloud imported(oocpctest::MakeLas(LasRecipe{}));
  ASSERT_NE(imported.cloud, nullptr);
  for (const char* const name : {"out.csv", "out.las"}) {
    const auto folder = imported.Place("output");
    std::filesystem::create_directory(folder);
    std::unique_ptr<SelectionSink> sink;
    ASSERT_TRUE(Succeeded(tarnhost::MakeFileSink(folder / name, sink)));
    tarnhost::SelectOptions options = Query("#true()");
    options.progress = [](const tarnhost::ProgressReport&) { return false; };
    SelectReport report;
    EXPECT_EQ(tarnhost::Select(*imported.cloud, options, sink.get(), report).code,
              result::kStopped);
    sink.reset();
    EXPECT_EQ(FilesIn(folder), 0u) << name;
  }
}

TEST(FileSinks, LeaveAnOlderFileAloneUntilTheNewOneIsComplete) {
  const ImportedCloud imported(oocpctest::MakeLas(LasRecipe{}));
  ASSERT_NE(imported.cloud, nullptr);
  const auto output = imported.Place("out.csv");
  oocpctest::WriteFile(output, std::vector<std::uint8_t>{'o', 'l', 'd'});
  tarnhost::SelectOptions options = Query("#true()");
  options.progress = [&](const tarnhost::ProgressReport&) {
    EXPECT_EQ(oocpctest::ReadFile(output).size(), 3u);
    return true;
  };
  tarnhost::CsvSink sink(output);
  SelectReport report;
  EXPECT_TRUE(Succeeded(tarnhost::Select(*imported.cloud, options, &sink, report)));
  EXPECT_EQ(ReadCsv(output).size(), 1001u);
}

TEST(FileSinks, ReportAPlaceThatCannotBeWritten) {
  const ImportedCloud imported(oocpctest::MakeLas(LasRecipe{}));
  ASSERT_NE(imported.cloud, nullptr);
  SelectReport report;
  for (const char* const name : {"out.csv", "out.las"}) {
    const Outcome outcome =
        Write(*imported.cloud, "#true()", imported.Place("no such folder") / name, report);
    EXPECT_FALSE(outcome.Ok());
    EXPECT_THAT(outcome.where, ::testing::HasSubstr("no such folder"));
  }
}

}  // namespace
