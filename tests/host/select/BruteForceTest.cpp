// Selections against brute force: random queries over clouds of every point format and over real
// scans, point by point from the LAS files themselves.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/select/BruteForceComparison.h"

namespace {

using oocpctest::CompareWithBruteForce;
using oocpctest::ImportedCloud;
using oocpctest::LasPoints;
using oocpctest::LasRecipe;
using oocpctest::Tally;

class EveryPointFormat : public ::testing::TestWithParam<int> {};

TEST_P(EveryPointFormat, SelectsWhatBruteForceSelects) {
  LasRecipe recipe;
  recipe.format = static_cast<std::uint8_t>(GetParam());
  recipe.pointCount = 3000;
  recipe.seed = 100 + recipe.format;
  recipe.extraBytes = GetParam() % 2 == 0;
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  Tally tally;
  CompareWithBruteForce(*imported.cloud, LasPoints(oocpctest::MakeLas(recipe)), 200, 7, tally);
  EXPECT_GT(tally.none, 0u);
  EXPECT_GT(tally.all, 0u);
  EXPECT_GT(tally.some, 50u);
}

INSTANTIATE_TEST_SUITE_P(Formats, EveryPointFormat, ::testing::Range(0, 11));

TEST(SelectionOfAnOctree, SelectsWhatBruteForceSelectsAndSkipsAndAcceptsWholeNodes) {
  LasRecipe recipe;
  recipe.format = 7;
  recipe.pointCount = 120000;
  recipe.seed = 5;
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  Tally tally;
  CompareWithBruteForce(*imported.cloud, LasPoints(oocpctest::MakeLas(recipe)), 40, 11, tally);
  EXPECT_GT(tally.nodesSkipped, 10u);
  EXPECT_GT(tally.nodesAccepted, 10u);
  EXPECT_GT(tally.nodesTested, 10u);
}

TEST(SelectionOfAnOctree, KeepsTheLastBitInCoordinatesThatDoNotFitFloats) {
  LasRecipe recipe;
  recipe.pointCount = 3000;
  recipe.scale = {0.001, 0.0001, 0.00025};
  recipe.offset = {-4123456.789, 5987654.321, 12.3456};
  const ImportedCloud imported(oocpctest::MakeLas(recipe));
  ASSERT_NE(imported.cloud, nullptr);
  Tally tally;
  CompareWithBruteForce(*imported.cloud, LasPoints(oocpctest::MakeLas(recipe)), 200, 3, tally);
  EXPECT_GT(tally.some, 50u);
}

std::filesystem::path DataFolder() {
  if (const char* const folder = std::getenv("TARN_TEST_DATA")) return folder;
  return std::filesystem::path(TESTS_SOURCE_DIR) / ".." / ".." / "shared" / "data";
}

class RealScan : public ::testing::TestWithParam<const char*> {};

TEST_P(RealScan, SelectsWhatBruteForceSelects) {
  const std::filesystem::path file = DataFolder() / GetParam();
  if (!std::filesystem::exists(file)) {
    GTEST_SKIP() << file << " is not there; TARN_TEST_DATA names the folder of test data";
  }
  const LasPoints points(oocpctest::ReadFile(file));
  ASSERT_GT(points.GetCount(), 0u);
  const ImportedCloud imported(std::vector{file});
  ASSERT_NE(imported.cloud, nullptr);
  Tally tally;
  CompareWithBruteForce(*imported.cloud, points, points.GetCount() > 10000 ? 40 : 200, 1, tally);
  EXPECT_GT(tally.none + tally.all + tally.some, 39u);
}

INSTANTIATE_TEST_SUITE_P(Scans, RealScan,
                         ::testing::Values("1.2-with-color.las", "autzen_trim.las",
                                           "extrabytes.las", "hextest.las", "interesting.las",
                                           "simple1_4.las", "small/1815.las",
                                           "small/point-color-time.las", "small/point-color.las",
                                           "small/point-time.las", "small/point10.las",
                                           "small/point10-1.0.las", "small/point10-1.1.las"));

}  // namespace
