// Selected points stand out of a picture, and no others.
#include <gtest/gtest.h>

#include <functional>
#include <numbers>

#include "tests/host/render/RenderFixture.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/LasBuilder.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::Pixel;
using oocpctest::Render;

constexpr PictureSize kSize{160, 100};

/// The signal colours go from orange to red; what is subdued is nearly grey.
bool IsSignal(const Pixel& pixel) { return pixel[0] - pixel[2] > 70; }

std::vector<bool> SignalPixels(const Picture& picture) {
  std::vector<bool> signal;
  for (std::size_t i = 0; i < picture.bytes.size() / 3; ++i) {
    signal.push_back(IsSignal(oocpctest::PixelAt(picture, i)));
  }
  return signal;
}

/// Three square patches side by side, 40 units wide, with 20 units between; x from 0 to 160.
class ThreePatches : public testing::Test {
 protected:
  void SetUp() override {
    LasBuilder builder;
    builder.format = 3;
    builder.scale = {0.01, 0.01, 0.01};
    builder.offset = {501000, 4502000, 30};
    std::vector<oocpctest::StoredPosition> positions;
    for (std::int32_t patch = 0; patch < 3; ++patch) {
      for (std::int32_t i = 0; i < 80 * 80; ++i) {
        positions.push_back({patch * 6000 + i % 80 * 50, i / 80 * 50, 0});
      }
    }
    builder.pointCount = static_cast<std::uint32_t>(positions.size());
    std::vector<std::uint8_t> file = builder.Build();
    oocpctest::PlacePoints(file, positions);
    folder_.ImportBytes(file);
    cloud_ = folder_.Open();
    ASSERT_NE(cloud_, nullptr);
    options_.size = kSize;
    options_.view = View::kTop;
  }

  /// Share of the drawn pixels of a patch that have the signal colours.
  double ShareOfSignal(const Picture& picture, unsigned patch) const {
    const std::vector<bool> drawn = oocpctest::DrawnPixels(picture);
    const std::vector<bool> signal = SignalPixels(picture);
    // Patches lie symmetrically about the middle, 60 units from one middle to the next.
    const double unitsPerPixel = 159.5 * 1.06 / kSize.width;
    const double middle = kSize.width / 2.0 + (patch - 1.0) * 60 / unitsPerPixel;
    int drawnCount = 0;
    int signalCount = 0;
    for (std::size_t i = 0; i < drawn.size(); ++i) {
      const double x = static_cast<double>(i % kSize.width) + 0.5;
      if (std::abs(x - middle) > 30 / unitsPerPixel || !drawn[i]) continue;
      ++drawnCount;
      signalCount += signal[i] ? 1 : 0;
    }
    EXPECT_GT(drawnCount, 1000);
    return static_cast<double>(signalCount) / drawnCount;
  }

  oocpctest::ScanFolder folder_;
  std::unique_ptr<Cloud> cloud_;
  RenderOptions options_;
};

TEST_F(ThreePatches, ShowTheSignalColorsOnlyWhereTheyAreSelected) {
  options_.query = R"(#num{type=double}("x", <>, 501050, 501110))";
  RenderReport report;
  const Picture picture = Render(*cloud_, options_, &report);
  EXPECT_EQ(ShareOfSignal(picture, 0), 0);
  EXPECT_GT(ShareOfSignal(picture, 1), 0.95);
  EXPECT_EQ(ShareOfSignal(picture, 2), 0);
  EXPECT_GT(report.selectedPoints, 0u);
  EXPECT_LT(report.selectedPoints, report.drawnPoints);
}

TEST_F(ThreePatches, ShowNoneOrAllOfThemWhereNothingOrEverythingIsSelected) {
  options_.query = "#false()";
  const Picture none = Render(*cloud_, options_);
  options_.query = "#true()";
  const Picture all = Render(*cloud_, options_);
  for (unsigned patch = 0; patch < 3; ++patch) {
    EXPECT_EQ(ShareOfSignal(none, patch), 0);
    EXPECT_GT(ShareOfSignal(all, patch), 0.95);
  }
}

TEST_F(ThreePatches, TakeConstantsInTheFrameThatWasAskedFor) {
  options_.query = R"(#within{type=2dbox}(501050, 4501900, 501110, 4502100))";
  const Picture inSource = Render(*cloud_, options_);
  const oocpc::Vector3d& offset = cloud_->GetFrameOffset();
  ASSERT_NE(offset[0], 0);
  const auto local = [&](double x, double y) {
    return std::to_string(x - offset[0]) + ", " + std::to_string(y - offset[1]);
  };
  options_.query =
      "#within{type=2dbox}(" + local(501050, 4501900) + ", " + local(501110, 4502100) + ")";
  options_.local = true;
  EXPECT_EQ(Render(*cloud_, options_).bytes, inSource.bytes);
  options_.local = false;
  EXPECT_NE(Render(*cloud_, options_).bytes, inSource.bytes);
}

/// Marks the pixels of the points that a condition holds for, seen from high above.
std::vector<bool> Plot(const oocpctest::brute::LasFile& file, const Viewpoint& viewpoint,
                       const std::function<bool(std::uint64_t)>& condition) {
  std::vector<bool> plot(std::size_t{kSize.width} * kSize.height);
  const double halfPixels = kSize.height / 2.0 / std::tan(17.5 * std::numbers::pi / 180);
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    if (!condition(i)) continue;
    const double depth = viewpoint.eye[2] - file.GetSource(i, 2);
    const double perUnit = halfPixels / depth;
    const double x = kSize.width / 2.0 + (file.GetSource(i, 0) - viewpoint.eye[0]) * perUnit;
    const double y = kSize.height / 2.0 - (file.GetSource(i, 1) - viewpoint.eye[1]) * perUnit;
    if (!(x >= 0 && x < kSize.width && y >= 0 && y < kSize.height)) continue;
    plot[static_cast<std::size_t>(y) * kSize.width + static_cast<std::size_t>(x)] = true;
  }
  return plot;
}

TEST(SelectedBuildings, AreWhereTheScanHasThem) {
  const oocpctest::SyntheticCloud street(60000);
  ASSERT_NE(street.cloud, nullptr);
  oocpctest::brute::LasFile file;
  ASSERT_TRUE(file.Load(street.Scan()));
  const auto* classification = file.FindField("classification");
  const auto isBuilding = [&](std::uint64_t i) {
    return file.GetValue(*classification, i).integer == 6;
  };
  RenderOptions options;
  options.size = kSize;
  options.viewpoint = Viewpoint{{500420, 4500300, 315}, {500420, 4500300, 215}};
  options.query = R"(#num{type=int}("classification", ==, 6))";
  const std::vector<bool> signal = SignalPixels(Render(*street.cloud, options));
  const std::vector<bool> buildings = Plot(file, *options.viewpoint, isBuilding);
  const std::vector<bool> nearBuildings = oocpctest::Widened(buildings, kSize, 6);
  const std::vector<bool> others =
      Plot(file, *options.viewpoint, [&](std::uint64_t i) { return !isBuilding(i); });
  const std::vector<bool> nearOthers = oocpctest::Widened(others, kSize, 1);
  int signalCount = 0;
  int clearCount = 0;
  int clearSignalCount = 0;
  for (std::size_t i = 0; i < signal.size(); ++i) {
    // Discs of points beside the picture reach into it.
    const std::size_t x = i % kSize.width;
    const std::size_t y = i / kSize.width;
    if (std::min({x, y, kSize.width - 1 - x, kSize.height - 1 - y}) < 6) continue;
    signalCount += signal[i] ? 1 : 0;
    EXPECT_TRUE(!signal[i] || nearBuildings[i]) << x << ", " << y;
    if (!buildings[i] || nearOthers[i]) continue;
    ++clearCount;
    clearSignalCount += signal[i] ? 1 : 0;
  }
  EXPECT_GT(signalCount, 300);
  EXPECT_GT(clearCount, 100);
  EXPECT_GT(clearSignalCount, clearCount * 0.95);
}

}  // namespace
}  // namespace tarnhost
