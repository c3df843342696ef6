// Selections of clouds that grew: every iteration answers as the points that it has do.
#include <gtest/gtest.h>

#include "host/build/Append.h"
#include "host/select/CheckSelection.h"
#include "tests/host/select/BruteForceComparison.h"

namespace {

using oocpctest::ByteVector;
using oocpctest::GetAt;
using oocpctest::LasPoints;
using oocpctest::LasRecipe;
using oocpctest::PutAt;
using oocpctest::Succeeded;

constexpr std::size_t kPointsAt = 96;
constexpr std::size_t kRecordBytesAt = 105;
constexpr std::size_t kPointCountAt = 107;
constexpr std::size_t kPointCount64At = 247;

/// The points [first, first + count) of a LAS file as a file of their own.
ByteVector PartOf(const ByteVector& file, std::uint32_t first, std::uint32_t count) {
  const std::size_t begin = GetAt<std::uint32_t>(file, kPointsAt);
  const std::size_t stride = GetAt<std::uint16_t>(file, kRecordBytesAt);
  ByteVector part(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(begin));
  const auto from = file.begin() + static_cast<std::ptrdiff_t>(begin + first * stride);
  part.insert(part.end(), from, from + static_cast<std::ptrdiff_t>(count * stride));
  PutAt(part, kPointCountAt, count);
  if (begin >= kPointCount64At + 8) PutAt(part, kPointCount64At, std::uint64_t{count});
  return part;
}

/// Moves points of a LAS file along the first axis, in stored units.
void Move(ByteVector& file, std::uint32_t first, std::uint32_t count, std::int32_t by) {
  const std::size_t stride = GetAt<std::uint16_t>(file, kRecordBytesAt);
  std::size_t at = GetAt<std::uint32_t>(file, kPointsAt) + first * stride;
  for (std::uint32_t i = 0; i < count; ++i, at += stride) {
    PutAt(file, at, GetAt<std::int32_t>(file, at) + by);
  }
}

/// A cloud of three iterations: the second lies beside the first, beyond its cube, the third among
/// the points of the first.
class GrownCloud : public ::testing::Test {
 protected:
  static constexpr std::array<std::uint32_t, 4> kEnds{0, 40000, 75000, 80000};

  void SetUp() override {
    LasRecipe recipe;
    recipe.format = 7;
    recipe.pointCount = kEnds.back();
    recipe.seed = 21;
    file_ = oocpctest::MakeLas(recipe);
    Move(file_, kEnds[1], kEnds[2] - kEnds[1], 300000);
    for (std::size_t part = 0; part + 1 < kEnds.size(); ++part) {
      tarnhost::ImportOptions options;
      options.inputs = {folder_ / "part.las"};
      options.output = folder_ / "cloud.tarn";
      options.timePoint = part + 1;
      oocpctest::WriteFile(options.inputs.front(),
                           PartOf(file_, kEnds[part], kEnds[part + 1] - kEnds[part]));
      tarnhost::ImportReport report;
      ASSERT_TRUE(Succeeded(part == 0 ? tarnhost::ImportScans(options, report)
                                      : tarnhost::AppendScans(options, report)));
    }
    ASSERT_TRUE(Succeeded(tarnhost::Cloud::Open(folder_ / "cloud.tarn", cloud_)));
    ASSERT_EQ(cloud_->GetIterationCount(), 3u);
  }

  oocpctest::TemporaryFolder folder_;
  ByteVector file_;
  std::unique_ptr<tarnhost::Cloud> cloud_;
};

TEST_F(GrownCloud, SelectsInEveryIterationWhatBruteForceSelects) {
  for (std::uint64_t iteration = 0; iteration < 3; ++iteration) {
    SCOPED_TRACE(iteration);
    oocpctest::Tally tally;
    oocpctest::CompareWithBruteForce(*cloud_, LasPoints(PartOf(file_, 0, kEnds[iteration + 1])), 40,
                                     31 + iteration, tally, iteration);
    EXPECT_GT(tally.some, 10u);
    EXPECT_GT(tally.nodesSkipped, 0u);
  }
}

TEST_F(GrownCloud, AnswersByEngineAndByRecordsAlikeInEveryIteration) {
  const std::string text =
      "#and(#num{type=int}(\"intensity\", >, 20000), #not(#num{type=uint8_t}(\"classification\", "
      "<, 100)))";
  std::uint64_t before = 0;
  for (std::uint64_t iteration = 0; iteration < 3; ++iteration) {
    tarnhost::CheckReport report;
    ASSERT_TRUE(
        Succeeded(tarnhost::CheckSelection(*cloud_, oocpctest::Query(text, iteration), report)));
    EXPECT_TRUE(report.IsSound());
    EXPECT_EQ(report.comparedPoints, kEnds[iteration + 1]);
    EXPECT_GT(report.selected, before);
    before = report.selected;
  }
}

TEST(AppendedValues, LeaveOlderIterationsTheTypesThatTheyCouldBeAskedWith) {
  LasRecipe recipe;
  recipe.format = 0;
  recipe.pointCount = 100;
  ByteVector small = oocpctest::MakeLas(recipe);
  const std::size_t begin = GetAt<std::uint32_t>(small, kPointsAt);
  for (std::size_t i = 0; i < recipe.pointCount; ++i) {
    PutAt<std::uint16_t>(small, begin + 20 * i + 12, static_cast<std::uint16_t>(i));
  }
  ByteVector large = small;
  PutAt<std::uint16_t>(large, begin + 12, 60000);
  const oocpctest::TemporaryFolder folder;
  tarnhost::ImportOptions options;
  options.output = folder / "cloud.tarn";
  tarnhost::ImportReport report;
  for (const ByteVector* const file : {&small, &large}) {
    options.inputs = {folder / "scan.las"};
    options.timePoint = file == &small ? 1 : 2;
    oocpctest::WriteFile(options.inputs.front(), *file);
    ASSERT_TRUE(Succeeded(file == &small ? tarnhost::ImportScans(options, report)
                                         : tarnhost::AppendScans(options, report)));
  }
  std::unique_ptr<tarnhost::Cloud> cloud;
  ASSERT_TRUE(Succeeded(tarnhost::Cloud::Open(options.output, cloud)));
  const std::string text = "#num{type=uint8_t}(\"intensity\", <, 50)";
  EXPECT_EQ(oocpctest::Selected(*cloud, text, nullptr, 0).count, 50u);
  tarnhost::SelectReport selected;
  const tarnhost::Outcome refused =
      tarnhost::Select(*cloud, oocpctest::Query(text, 1), nullptr, selected);
  EXPECT_EQ(refused.code, oocpc::result::kQueryRejected);
  tarnhost::CheckReport checked;
  EXPECT_TRUE(Succeeded(tarnhost::CheckSelection(*cloud, oocpctest::Query(text, 0), checked)));
  EXPECT_TRUE(checked.IsSound());
}

}  // namespace
