// Pictures of a cloud that grew: old iterations look as they did, new ones show what came.
#include <gtest/gtest.h>

#include "host/build/Append.h"
#include "tests/host/render/RenderFixture.h"

namespace tarnhost {
namespace {

using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;

constexpr std::int32_t kEdge = 100000;  // stored units
constexpr std::uint32_t kPoints = 40000;

/// A flat square that begins at `x`.
std::vector<std::uint8_t> Square(std::int32_t x) {
  LasBuilder builder;
  builder.format = 3;
  builder.pointCount = kPoints;
  std::vector<std::uint8_t> file = builder.Build();
  auto positions = oocpctest::RandomPositions(kPoints, kEdge);
  for (oocpctest::StoredPosition& position : positions) {
    position[0] += x;
    position[2] = 0;
  }
  oocpctest::PlacePoints(file, positions);
  return file;
}

/// How many pixels of the columns [begin, end) are drawn.
double ShareDrawn(const Picture& picture, std::uint32_t begin, std::uint32_t end) {
  const std::vector<bool> drawn = oocpctest::DrawnPixels(picture);
  std::size_t count = 0;
  for (std::uint32_t y = 0; y < picture.size.height; ++y) {
    for (std::uint32_t x = begin; x < end; ++x) count += drawn[y * picture.size.width + x] ? 1 : 0;
  }
  return static_cast<double>(count) / (picture.size.height * (end - begin));
}

TEST(PictureOfAGrownCloud, ShowsEachIterationWithItsPointsAlone) {
  const ScanFolder folder;
  folder.Import({folder.Add("left.las", Square(0))});
  RenderOptions options;
  options.size = {200, 100};
  options.view = View::kTop;
  options.color = ColorMode::kElevation;
  const Picture before = oocpctest::Render(*folder.Open(), options);
  ImportOptions append = folder.Options({folder.Add("right.las", Square(kEdge))});
  append.timePoint = 8;
  ImportReport report;
  ASSERT_TRUE(IsOk(AppendScans(append, report)));
  const auto cloud = folder.Open();
  EXPECT_EQ(oocpctest::Render(*cloud, options).bytes, before.bytes);
  options.iteration = 1;
  RenderReport drawn;
  const Picture after = oocpctest::Render(*cloud, options, &drawn);
  EXPECT_EQ(drawn.pointCount, 2u * kPoints);
  // Two squares side by side fill the picture from left to right; one alone its middle.
  EXPECT_LT(ShareDrawn(before, 0, 40), 0.01);
  EXPECT_GT(ShareDrawn(before, 70, 130), 0.5);
  EXPECT_LT(ShareDrawn(before, 160, 200), 0.01);
  EXPECT_GT(ShareDrawn(after, 20, 90), 0.4);
  EXPECT_NEAR(ShareDrawn(after, 20, 90), ShareDrawn(after, 110, 180), 0.05);
}

}  // namespace
}  // namespace tarnhost
