// Whole pictures of clouds.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <atomic>
#include <cmath>
#include <limits>

#include "host/render/Render.h"
#include "tests/host/render/RenderFixture.h"
#include "tests/support/PlainCloud.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::Render;
using oocpctest::SyntheticCloud;

constexpr std::uint64_t kPoints = 60000;
constexpr PictureSize kSize{160, 100};

class RenderedStreet : public testing::Test {
 protected:
  static void SetUpTestSuite() { street_ = std::make_unique<SyntheticCloud>(kPoints); }
  static void TearDownTestSuite() { street_.reset(); }
  void SetUp() override {
    ASSERT_NE(street_->cloud, nullptr);
    options_.size = kSize;
  }
  Outcome Try() {
    Picture picture;
    RenderReport report;
    Outcome outcome = RenderPicture(*street_->cloud, options_, picture, report);
    EXPECT_EQ(picture.bytes.empty(), !outcome.Ok());
    return outcome;
  }

  static std::unique_ptr<SyntheticCloud> street_;
  RenderOptions options_;
};

std::unique_ptr<SyntheticCloud> RenderedStreet::street_;

TEST_F(RenderedStreet, IsTheSameFromOneThreadAndFromSeveral) {
  options_.query = R"(#num{type=int}("classification", ==, 6))";
  for (const View view : {View::kTop, View::kIso}) {
    options_.view = view;
    std::vector<std::uint8_t> first;
    for (const std::size_t threads : {1, 2, 7}) {
      const tbb::global_control control(tbb::global_control::max_allowed_parallelism, threads);
      const Picture picture = Render(*street_->cloud, options_);
      if (threads == 1) first = picture.bytes;
      EXPECT_EQ(picture.bytes, first) << threads;
    }
  }
}

TEST_F(RenderedStreet, ReportsWhatItDrew) {
  RenderReport report;
  Render(*street_->cloud, options_, &report);
  EXPECT_EQ(report.pointCount, kPoints);
  EXPECT_GT(report.drawnPoints, 0u);
  EXPECT_LE(report.drawnPoints, kPoints);
  EXPECT_GT(report.drawnNodes, 1u);
  EXPECT_EQ(report.selectedPoints, 0u);
  options_.size = {1600, 1000};
  options_.query = "#true()";
  Render(*street_->cloud, options_, &report);
  EXPECT_EQ(report.selectedPoints, report.drawnPoints);
}

TEST_F(RenderedStreet, KeepsToTheBudgetOfPoints) {
  options_.size = {1600, 1000};
  options_.pointBudget = 0;
  RenderReport coarsest;
  Render(*street_->cloud, options_, &coarsest);
  EXPECT_GT(coarsest.drawnPoints, 0u) << "the coarsest level is always there";
  std::uint64_t before = 0;
  for (const std::uint64_t budget : {0, 1000, 20000, 45000, 100000}) {
    options_.pointBudget = budget;
    RenderReport report;
    Render(*street_->cloud, options_, &report);
    EXPECT_LE(report.drawnPoints, std::max(budget, coarsest.drawnPoints));
    EXPECT_GE(report.drawnPoints, before);
    before = report.drawnPoints;
  }
  EXPECT_GT(before, 45000u);
}

TEST_F(RenderedStreet, IsOnlyBackgroundFromAPlaceThatSeesNothing) {
  options_.viewpoint = Viewpoint{{500000, 4500000, 5000}, {500000, 4500000, 9000}};
  RenderReport report;
  const Picture picture = Render(*street_->cloud, options_, &report);
  EXPECT_EQ(report.drawnPoints, 0u);
  EXPECT_EQ(picture.bytes, oocpctest::Background(kSize).bytes);
}

TEST_F(RenderedStreet, LooksDifferentFromEachSideAndInEachColor) {
  std::vector<std::vector<std::uint8_t>> pictures;
  for (const View view : {View::kTop, View::kFront, View::kSide, View::kIso}) {
    options_.view = view;
    pictures.push_back(Render(*street_->cloud, options_).bytes);
  }
  for (const ColorMode color : {ColorMode::kIntensity, ColorMode::kClassification,
                                ColorMode::kElevation, ColorMode::kReturn}) {
    options_.color = color;
    pictures.push_back(Render(*street_->cloud, options_).bytes);
  }
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    for (std::size_t k = 0; k < i; ++k) EXPECT_NE(pictures[i], pictures[k]) << i << " " << k;
  }
}

TEST_F(RenderedStreet, RefusesSizesThatNoPictureHas) {
  for (const PictureSize size : {PictureSize{0, 100},
                                 {100, 0},
                                 {kMostPixels + 1, 1},
                                 {1, kMostPixels + 1},
                                 {0xFFFFFFFF, 0xFFFFFFFF}}) {
    options_.size = size;
    const Outcome outcome = Try();
    EXPECT_EQ(outcome.code, result::kPictureRefused) << size.width << " x " << size.height;
    EXPECT_NE(outcome.remedy.find("16384"), std::string::npos);
  }
  for (const PictureSize size : {PictureSize{1, 1}, {kMostPixels, 1}, {1, kMostPixels}}) {
    options_.size = size;
    EXPECT_TRUE(IsOk(Try()));
  }
}

TEST_F(RenderedStreet, RefusesAnEyeThatLooksNowhere) {
  const oocpc::Vector3d place{500400, 4500300, 230};
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  options_.viewpoint = Viewpoint{place, place};
  EXPECT_EQ(Try().code, result::kPictureRefused);
  for (const double number : {kInfinity, -kInfinity, std::nan(""), 1e300}) {
    options_.viewpoint = Viewpoint{{number, 0, 0}, place};
    EXPECT_EQ(Try().code, result::kPictureRefused) << number;
  }
}

TEST_F(RenderedStreet, ManagesEyesFarAwayAndCloseBy) {
  for (const double height : {1e-3, 1e6, 1e12, 1e150}) {
    options_.viewpoint = Viewpoint{{500420, 4500300, 215 + height}, {500420, 4500300, 215}};
    EXPECT_TRUE(IsOk(Try())) << height;
    options_.viewpoint->target[0] += height;
    EXPECT_TRUE(IsOk(Try())) << height;
  }
}

TEST_F(RenderedStreet, RefusesQueriesThatAreNone) {
  options_.query = "#nonsense";
  EXPECT_EQ(Try().code, result::kQueryRejected);
  options_.query = R"(#num{type=int}("no such name", ==, 6))";
  EXPECT_EQ(Try().code, result::kQueryRejected);
}

TEST_F(RenderedStreet, NamesAnIterationThatIsNotThere) {
  options_.iteration = 1;
  EXPECT_EQ(Try().code, result::kIndexOutOfRange);
}

TEST_F(RenderedStreet, StopsOnRequest) {
  std::atomic<int> told{0};
  options_.progress = [&](const ProgressReport& report) {
    EXPECT_STREQ(report.stage, "drawing");
    EXPECT_LE(report.done, report.total);
    return ++told < 2;
  };
  EXPECT_EQ(Try().code, result::kStopped);
  EXPECT_EQ(told, 2);
}

TEST(Render, SaysThatARepositoryHasNoLevelsOfDetail) {
  const auto cloud = oocpctest::MakePlainCloud();
  ASSERT_NE(cloud, nullptr);
  Picture picture;
  RenderReport report;
  EXPECT_EQ(RenderPicture(*cloud, {}, picture, report).code, result::kNoLodStream);
}

TEST(Render, RefusesColorsThatTheCloudDoesNotHave) {
  const oocpctest::ScanFolder folder;
  folder.ImportBytes(oocpctest::ScanOf(10, 1));
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  RenderOptions options;
  options.color = ColorMode::kRgb;
  Picture picture;
  RenderReport report;
  const Outcome outcome = RenderPicture(*cloud, options, picture, report);
  EXPECT_EQ(outcome.code, result::kPictureRefused);
  EXPECT_NE(outcome.what.find("DEF_COLOR"), std::string::npos) << outcome.what;
}

TEST(Render, DrawsNothingOfAnEmptyCloudAndOnePointOfACloudOfOne) {
  for (const std::uint32_t count : {0u, 1u}) {
    const oocpctest::ScanFolder folder;
    folder.ImportBytes(oocpctest::ScanOf(count));
    const auto cloud = folder.Open();
    ASSERT_NE(cloud, nullptr);
    for (const View view : {View::kTop, View::kFront, View::kSide, View::kIso}) {
      RenderOptions options;
      options.size = kSize;
      options.view = view;
      RenderReport report;
      const Picture picture = Render(*cloud, options, &report);
      EXPECT_EQ(report.drawnPoints, count);
      const std::vector<bool> drawn = oocpctest::DrawnPixels(picture);
      EXPECT_EQ(std::ranges::count(drawn, true) > 0, count > 0);
      EXPECT_EQ(drawn[kSize.width * kSize.height / 2 + kSize.width / 2], count > 0);
    }
  }
}

}  // namespace
}  // namespace tarnhost
