// Pictures of real scans, compared with plots made straight from the bytes of their files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "host/cloud/Export.h"
#include "host/lod/LodTree.h"
#include "host/render/ColorRamps.h"
#include "tests/host/render/RenderFixture.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/TestData.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::IsOk;
using oocpctest::Pixel;
using oocpctest::brute::LasFile;

constexpr double kEmpty = -std::numeric_limits<double>::infinity();

/// What lies highest in each pixel.
struct Plot {
  PictureSize size;
  std::vector<double> heights;  ///< kEmpty where there is no point

  [[nodiscard]] std::vector<bool> GetPlotted() const {
    std::vector<bool> plotted;
    for (const double height : heights) plotted.push_back(height != kEmpty);
    return plotted;
  }
};

struct Bounds {
  explicit Bounds(const LasFile& file) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      least[axis] = std::numeric_limits<double>::infinity();
      greatest[axis] = -least[axis];
      for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
        least[axis] = std::min(least[axis], file.GetSource(i, axis));
        greatest[axis] = std::max(greatest[axis], file.GetSource(i, axis));
      }
    }
  }
  [[nodiscard]] double Middle(std::size_t axis) const { return (least[axis] + greatest[axis]) / 2; }
  [[nodiscard]] double Length(std::size_t axis) const { return greatest[axis] - least[axis]; }
  oocpctest::brute::Triple least;
  oocpctest::brute::Triple greatest;
};

/// So many pixels that points lie one or two apart on average.
PictureSize SizeFor(const LasFile& file) {
  const double pixels = 2.0 * static_cast<double>(file.GetPointCount());
  const double edge = std::clamp(std::sqrt(pixels), 24.0, 500.0);
  return {static_cast<std::uint32_t>(edge * 1.2), static_cast<std::uint32_t>(edge)};
}

/// From so high above the middle that all is in the picture.
Viewpoint HighAbove(const Bounds& bounds) {
  const oocpc::Vector3d target{bounds.Middle(0), bounds.Middle(1), bounds.greatest[2]};
  oocpc::Vector3d eye = target;
  eye[2] += 1.8 * std::max({bounds.Length(0), bounds.Length(1), 1.0});
  return {eye, target};
}

/// The same in perspective, with a field of view 35 degrees high, north up.
Plot PlotFrom(const Viewpoint& viewpoint, const LasFile& file, PictureSize size) {
  Plot plot{size, std::vector<double>(std::size_t{size.width} * size.height, kEmpty)};
  const double halfPixels = size.height / 2.0 / std::tan(17.5 * std::acos(-1.0) / 180);
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    const double height = file.GetSource(i, 2);
    const double perUnit = halfPixels / (viewpoint.eye[2] - height);
    const double x = size.width / 2.0 + (file.GetSource(i, 0) - viewpoint.eye[0]) * perUnit;
    const double y = size.height / 2.0 - (file.GetSource(i, 1) - viewpoint.eye[1]) * perUnit;
    if (!(x >= 0 && x < size.width && y >= 0 && y < size.height)) continue;
    double& pixel =
        plot.heights[static_cast<std::size_t>(y) * size.width + static_cast<std::size_t>(x)];
    pixel = std::max(pixel, height);
  }
  return plot;
}

/// Parallel from above, with the scale and the place that the camera of the top view has.
Plot PlotFromTop(Cloud& cloud, const LasFile& file, PictureSize size) {
  std::unique_ptr<LodTree> tree;
  EXPECT_TRUE(IsOk(LodTree::Open(cloud, 0, tree)));
  LodNode root;
  EXPECT_TRUE(IsOk(tree->ReadRoot(root)));
  BlockReader reader;
  EXPECT_TRUE(IsOk(BlockReader::OpenLevel(cloud, 0, {}, reader)));
  std::vector<double> coarse;
  EXPECT_TRUE(IsOk(reader.ReadLocalPositions(root.points, coarse)));
  double least[2];
  double greatest[2];
  for (std::size_t axis = 0; axis < 2; ++axis) {
    std::vector<double> values;
    for (std::size_t i = axis; i < coarse.size(); i += 3) values.push_back(coarse[i]);
    std::ranges::sort(values);
    const auto strays = static_cast<std::size_t>(0.0003 * static_cast<double>(values.size()));
    least[axis] = values[strays];
    greatest[axis] = values[values.size() - 1 - strays];
  }
  double perPixel = 1.06 * std::max((greatest[0] - least[0]) / size.width,
                                    (greatest[1] - least[1]) / size.height);
  if (!(perPixel > 0)) perPixel = 1;
  Plot plot{size, std::vector<double>(std::size_t{size.width} * size.height, kEmpty)};
  const oocpc::Vector3d& offset = cloud.GetFrameOffset();
  for (std::uint64_t i = 0; i < file.GetPointCount(); ++i) {
    const double east = file.GetSource(i, 0) - offset[0] - (least[0] + greatest[0]) / 2;
    const double north = file.GetSource(i, 1) - offset[1] - (least[1] + greatest[1]) / 2;
    const double x = size.width / 2.0 + east / perPixel;
    const double y = size.height / 2.0 - north / perPixel;
    if (!(x >= 0 && x < size.width && y >= 0 && y < size.height)) continue;
    double& pixel =
        plot.heights[static_cast<std::size_t>(y) * size.width + static_cast<std::size_t>(x)];
    pixel = std::max(pixel, file.GetSource(i, 2));
  }
  return plot;
}

/// The place on the elevation ramp whose colour, whatever its light, is nearest.
double ShareOf(const Pixel& pixel) {
  const double light = std::max(1, pixel[0] + pixel[1] + pixel[2]);
  double found = 0;
  double least = std::numeric_limits<double>::infinity();
  for (int step = 0; step <= 250; ++step) {
    const Rgb color = ElevationColor(step / 250.0);
    const int parts[3] = {static_cast<int>(color >> 16), static_cast<int>(color >> 8 & 0xFF),
                          static_cast<int>(color & 0xFF)};
    const double sum = parts[0] + parts[1] + parts[2];
    double distance = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      distance += std::pow(pixel[i] / light - parts[i] / sum, 2);
    }
    if (distance >= least) continue;
    least = distance;
    found = step / 250.0;
  }
  return found;
}

/// Mean ranks, so that equal values have equal ranks.
std::vector<double> RanksOf(const std::vector<double>& values) {
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::sort(order, {}, [&](std::size_t i) { return values[i]; });
  std::vector<double> ranks(values.size());
  for (std::size_t first = 0; first < order.size();) {
    std::size_t end = first;
    while (end < order.size() && values[order[end]] == values[order[first]]) ++end;
    const double rank = static_cast<double>(first + end - 1) / 2;
    for (; first < end; ++first) ranks[order[first]] = rank;
  }
  return ranks;
}

double Correlation(const std::vector<double>& a, const std::vector<double>& b) {
  const double count = static_cast<double>(a.size());
  const double meanA = std::accumulate(a.begin(), a.end(), 0.0) / count;
  const double meanB = std::accumulate(b.begin(), b.end(), 0.0) / count;
  double product = 0;
  double squareA = 0;
  double squareB = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    product += (a[i] - meanA) * (b[i] - meanB);
    squareA += (a[i] - meanA) * (a[i] - meanA);
    squareB += (b[i] - meanB) * (b[i] - meanB);
  }
  return product / std::sqrt(squareA * squareB);
}

/// Furthest, in pixels, that a disc reaches at the sizes that SizeFor gives, and a gap is filled.
constexpr int kReach = 8;

void ExpectSame(const Picture& picture, const Plot& plot) {
  const std::vector<bool> plotted = plot.GetPlotted();
  const std::vector<bool> near = oocpctest::Widened(plotted, plot.size, kReach);
  const std::vector<bool> drawn = oocpctest::DrawnPixels(picture);
  std::size_t missing = 0;
  for (std::size_t i = 0; i < plotted.size(); ++i) {
    missing += plotted[i] && !drawn[i] ? 1u : 0u;
    ASSERT_TRUE(!drawn[i] || near[i]) << i % plot.size.width << ", " << i / plot.size.width;
  }
  const auto count = static_cast<std::size_t>(std::ranges::count(plotted, true));
  EXPECT_GT(count, 0u);
  EXPECT_LE(static_cast<double>(missing), 0.03 * static_cast<double>(count)) << count;
}

/// Whether the points around a pixel are about as high as its own: the disc of a point that is
/// much higher may lie over its surroundings.
bool IsClear(const Plot& plot, std::size_t pixel, double tolerance) {
  const auto width = static_cast<std::ptrdiff_t>(plot.size.width);
  const auto height = static_cast<std::ptrdiff_t>(plot.size.height);
  const std::ptrdiff_t x = static_cast<std::ptrdiff_t>(pixel) % width;
  const std::ptrdiff_t y = static_cast<std::ptrdiff_t>(pixel) / width;
  for (std::ptrdiff_t row = std::max<std::ptrdiff_t>(0, y - 3); row < std::min(height, y + 4);
       ++row) {
    for (std::ptrdiff_t i = row * width + std::max<std::ptrdiff_t>(0, x - 3);
         i < row * width + std::min(width, x + 4); ++i) {
      if (plot.heights[static_cast<std::size_t>(i)] > plot.heights[pixel] + tolerance) return false;
    }
  }
  return true;
}

void ExpectColorsToRise(const Picture& picture, const Plot& plot, double range) {
  std::vector<double> heights;
  std::vector<double> shares;
  for (std::size_t i = 0; i < plot.heights.size(); ++i) {
    if (plot.heights[i] == kEmpty || !IsClear(plot, i, 0.1 * range)) continue;
    heights.push_back(plot.heights[i]);
    shares.push_back(ShareOf(oocpctest::PixelAt(picture, i)));
  }
  const double correlation = Correlation(RanksOf(heights), RanksOf(shares));
  EXPECT_GT(heights.size(), 50u);
  EXPECT_GT(correlation, 0.9);
}

/// A landscape lies open to the sky. Of other things, points of many heights share a pixel, and
/// which of them shows is not a matter of the highest one alone.
enum class Shape { kLandscape, kAny };

/// Compares pictures of a cloud with plots of the points that a LAS file holds.
void ExpectPicturesOf(Cloud& cloud, const LasFile& file, Shape shape) {
  RenderOptions options;
  options.size = SizeFor(file);
  options.view = View::kTop;
  options.color = ColorMode::kElevation;
  const Picture top = oocpctest::Render(cloud, options);
  const Plot topPlot = PlotFromTop(cloud, file, options.size);
  ExpectSame(top, topPlot);
  const Bounds bounds(file);
  options.viewpoint = HighAbove(bounds);
  ExpectSame(oocpctest::Render(cloud, options), PlotFrom(*options.viewpoint, file, options.size));
  if (shape == Shape::kAny || file.GetPointCount() < 500 || !(bounds.Length(2) > 0)) return;
  ExpectColorsToRise(top, topPlot, bounds.Length(2));
}

void TestScan(const fs::path& path) {
  LasFile file;
  if (!file.Load(path) || file.GetPointCount() == 0) return;
  SCOPED_TRACE(path.string());
  const oocpctest::ScanFolder folder;
  folder.Import({path});
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  ExpectPicturesOf(*cloud, file, Shape::kLandscape);
}

/// The points of a scan that is no plain LAS file come from its LAS file, which an export makes;
/// that both hold the same is what tests of the format show.
void TestConvertedScan(const fs::path& path, Shape shape) {
  SCOPED_TRACE(path.string());
  const oocpctest::ScanFolder folder;
  folder.Import({path});
  const auto cloud = folder.Open();
  ASSERT_NE(cloud, nullptr);
  std::uint64_t count = 0;
  ASSERT_TRUE(IsOk(ExportLas(*cloud, 0, folder / "plain.las", {}, count)));
  LasFile file;
  ASSERT_TRUE(file.Load(folder / "plain.las"));
  ASSERT_EQ(file.GetPointCount(), count);
  if (count > 0) ExpectPicturesOf(*cloud, file, shape);
}

TEST(RealScans, AreDrawnWhereTheirPointsAreAndInTheColorsOfTheirHeights) {
  const std::vector<fs::path> scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const fs::path& path : scans) TestScan(path);
}

TEST(RealScans, ThatAreCompressedAreDrawnWhereTheirPointsAre) {
  const std::vector<fs::path> scans = oocpctest::TestLazScans();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const fs::path& path : scans) TestConvertedScan(path, Shape::kLandscape);
}

TEST(RealScans, OfOtherFormatsAreDrawnWhereTheirPointsAre) {
  const std::vector<fs::path> scans = oocpctest::TestScansOfOtherFormats();
  if (scans.empty()) GTEST_SKIP() << "no scans in " << oocpctest::TestDataFolder();
  for (const fs::path& path : scans) TestConvertedScan(path, Shape::kAny);
}

}  // namespace
}  // namespace tarnhost
