// Light and shadow on a canvas.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <optional>
#include <vector>

#include "host/render/Shading.h"

namespace tarnhost {
namespace {

constexpr std::uint32_t kWidth = 120;
constexpr std::uint32_t kHeight = 80;
constexpr Rgb kGrey = MakeRgb(128, 128, 128);
using Pixel = std::array<int, 3>;
/// Depth of a pixel of the picture, world units; nothing where there is no point.
using Depths = std::function<std::optional<double>(double x, double y)>;

Pixel At(const Picture& picture, std::uint32_t x, std::uint32_t y) {
  const std::uint8_t* bytes = picture.bytes.data() + (std::size_t{y} * kWidth + x) * 3;
  return {bytes[0], bytes[1], bytes[2]};
}

/// From above, one world unit a pixel, or nearly.
Camera FromAbove() {
  const oocpc::Box3d box{{0, 0, 0}, {kWidth, kHeight, 50}};
  return Camera::Fit(View::kTop, box, std::vector{box.min, box.max}, {kWidth, kHeight});
}

Picture Shade(const Depths& depths, std::uint32_t factor = 1) {
  PointCanvas canvas({kWidth * factor, kHeight * factor});
  for (std::uint32_t y = 0; y < kHeight * factor; ++y) {
    for (std::uint32_t x = 0; x < kWidth * factor; ++x) {
      const auto depth = depths((x + 0.5) / factor, (y + 0.5) / factor);
      if (!depth) continue;
      canvas.Set(std::size_t{y} * kWidth * factor + x, static_cast<float>(*depth), kGrey);
    }
  }
  return ShadePicture(canvas, FromAbove(), factor);
}

Picture Background() {
  return Shade([](double, double) { return std::nullopt; });
}

/// A margin in which the edge of what is drawn may be lit differently.
constexpr std::uint32_t kEdge = 14;

TEST(Shading, LightsAPlaneEvenlyAlsoWhenItIsTilted) {
  for (const std::uint32_t factor : {1u, 2u}) {
    for (const double slope : {0.0, 0.3, -0.3, 0.8}) {
      const Picture picture =
          Shade([&](double x, double y) { return 500 + slope * x - slope / 2 * y; }, factor);
      const Pixel middle = At(picture, kWidth / 2, kHeight / 2);
      EXPECT_GT(middle[0], 50);
      if (slope == 0) {
        EXPECT_EQ(middle[0], 128);
      }
      for (std::uint32_t y = kEdge; y < kHeight - kEdge; ++y) {
        for (std::uint32_t x = kEdge; x < kWidth - kEdge; ++x) {
          ASSERT_NEAR(At(picture, x, y)[0], middle[0], 1) << slope << " at " << x << ", " << y;
        }
      }
    }
  }
}

TEST(Shading, DarkensWhatLiesBehindAStep) {
  const Picture picture = Shade([](double x, double) { return x < 60 ? 100 : 110; });
  const int flat = At(picture, 100, 40)[0];
  EXPECT_EQ(flat, 128);
  EXPECT_LT(At(picture, 60, 40)[0], flat - 40);
  EXPECT_LT(At(picture, 64, 40)[0], flat);
  EXPECT_GE(At(picture, 59, 40)[0], flat);
  EXPECT_EQ(At(picture, 20, 40)[0], flat);
}

TEST(Shading, LightensRidgesAndDarkensHollows) {
  const auto fold = [](double x, double) { return 100 + 0.4 * std::abs(x - 60); };
  const Picture ridge = Shade([&](double x, double y) { return fold(x, y); });
  EXPECT_GT(At(ridge, 59, 40)[0], At(ridge, 30, 40)[0]);
  const Picture hollow = Shade([&](double x, double y) { return 200 - fold(x, y); });
  EXPECT_LT(At(hollow, 59, 40)[0], At(hollow, 30, 40)[0]);
}

TEST(Shading, FillsSmallGapsWithTheColorsAround) {
  const Picture picture = Shade([](double x, double y) -> std::optional<double> {
    if (static_cast<int>(x) % 9 == 4 && static_cast<int>(y) % 9 == 4) return std::nullopt;
    return 100;
  });
  for (std::uint32_t y = kEdge; y < kHeight - kEdge; ++y) {
    for (std::uint32_t x = kEdge; x < kWidth - kEdge; ++x) {
      ASSERT_EQ(At(picture, x, y), (Pixel{128, 128, 128})) << x << ", " << y;
    }
  }
}

TEST(Shading, LeavesLargeHolesOpen) {
  const Picture background = Background();
  const Picture picture = Shade([](double x, double y) -> std::optional<double> {
    if (x > 40 && x < 60 && y > 30 && y < 50) return std::nullopt;
    return 100;
  });
  for (std::uint32_t y = 32; y < 48; ++y) {
    for (std::uint32_t x = 42; x < 58; ++x) {
      ASSERT_EQ(At(picture, x, y), At(background, x, y)) << x << ", " << y;
    }
  }
}

TEST(Shading, LeavesTheBackgroundAsItIs) {
  const Picture background = Background();
  EXPECT_EQ(background.size.width, kWidth);
  EXPECT_EQ(background.size.height, kHeight);
  EXPECT_EQ(At(background, 0, 0), (Pixel{246, 248, 250}));
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 1; x < kWidth; ++x) {
      ASSERT_EQ(At(background, x, y), At(background, 0, y));
    }
    EXPECT_LE(At(background, 0, y)[0], At(background, 0, y > 0 ? y - 1 : 0)[0]);
  }
  EXPECT_LT(At(background, 0, kHeight - 1)[0], 220);
  const Picture picture = Shade([](double x, double) -> std::optional<double> {
    return x < 60 ? std::optional(100.0) : std::nullopt;
  });
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 61; x < kWidth; ++x) {
      ASSERT_EQ(At(picture, x, y), At(background, x, y)) << x << ", " << y;
    }
  }
}

TEST(Shading, DoesNotShadeTowardsTheBackground) {
  const Picture picture = Shade([](double x, double) -> std::optional<double> {
    return x < 60 ? std::optional(100.0) : std::nullopt;
  });
  for (std::uint32_t x = 0; x < 60; ++x) ASSERT_EQ(At(picture, x, 40), (Pixel{128, 128, 128})) << x;
}

TEST(Shading, SmoothsEdgesWhenItShrinks) {
  const Picture picture = Shade(
      [](double x, double y) -> std::optional<double> {
        return x + 0.5 * y < 60 ? std::optional(100.0) : std::nullopt;
      },
      2);
  const Picture background = Background();
  EXPECT_EQ(picture.size.width, kWidth);
  EXPECT_EQ(picture.size.height, kHeight);
  int between = 0;
  for (std::uint32_t x = 0; x < kWidth; ++x) {
    const int red = At(picture, x, 41)[0];
    between += red > 140 && red < At(background, x, 41)[0] - 10 ? 1 : 0;
  }
  EXPECT_GT(between, 0);
  EXPECT_LE(between, 3);
}

}  // namespace
}  // namespace tarnhost
