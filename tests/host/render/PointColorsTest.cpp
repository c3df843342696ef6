// The colours of points, made from their values.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "OOCPointCloud/support/Bytes.h"
#include "host/render/ColorRamps.h"
#include "host/render/PointColors.h"
#include "tests/support/PlainCloud.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;

constexpr std::size_t kPoints = 200;
using Column = std::vector<std::uint8_t>;

/// A column of numbers of type T, `components` of them for each point.
template <typename T>
Column MakeColumn(unsigned components, const std::function<T(std::size_t, unsigned)>& number) {
  Column column;
  for (std::size_t point = 0; point < kPoints; ++point) {
    for (unsigned i = 0; i < components; ++i) {
      oocpc::AppendLittleEndian(column, number(point, i));
    }
  }
  return column;
}

/// Points on a slope, which rises from 0 to 19.9.
PointValues OnASlope(std::vector<Column> columns = {}) {
  PointValues values;
  for (std::size_t i = 0; i < kPoints; ++i) {
    values.positions.insert(values.positions.end(), {1.0, 2.0, static_cast<double>(i) / 10});
  }
  values.columns = std::move(columns);
  return values;
}

class Coloring : public testing::Test {
 protected:
  /// With colours for format 3, without for format 1.
  void Open(unsigned format = 3) {
    folder_.ImportBytes(ScanOf(5, format));
    cloud_ = folder_.Open();
    ASSERT_NE(cloud_, nullptr);
  }
  void Find(ColorMode mode, const std::vector<std::string>& columns) {
    Open();
    ASSERT_TRUE(IsOk(PointColors::Find(*cloud_, mode, colors_)));
    ASSERT_EQ(colors_.GetColumns(), columns);
  }
  /// Learns from the values and colours them.
  std::vector<Rgb> Color(const PointValues& values) {
    colors_.Learn(values);
    std::vector<Rgb> found;
    colors_.Color(values, found);
    EXPECT_EQ(found.size(), kPoints);
    return found;
  }

  ScanFolder folder_;
  std::unique_ptr<Cloud> cloud_;
  PointColors colors_;
};

const std::vector<std::string> kScanColors{"DEF_COLOR"};

void ExpectElevations(const std::vector<Rgb>& colors) {
  EXPECT_EQ(colors.front(), ElevationColor(0));
  EXPECT_EQ(colors.back(), ElevationColor(1));
  EXPECT_EQ(colors[kPoints / 4], ElevationColor((5.0 - 0.0) / 19.8));
}

TEST_F(Coloring, SpreadsElevationsOverTheRamp) {
  Find(ColorMode::kElevation, {});
  ExpectElevations(Color(OnASlope()));
}

TEST_F(Coloring, LetsAnOutlierNotTakeTheContrast) {
  Find(ColorMode::kElevation, {});
  PointValues values = OnASlope();
  values.positions.back() = 1e6;
  const std::vector<Rgb> colors = Color(values);
  EXPECT_EQ(colors.back(), ElevationColor(1));
  EXPECT_EQ(colors[100], ElevationColor(10.0 / 19.8));
}

TEST_F(Coloring, TakesTheMiddleWhereAllAreEquallyHigh) {
  Find(ColorMode::kElevation, {});
  PointValues values = OnASlope();
  for (std::size_t i = 0; i < kPoints; ++i) values.positions[3 * i + 2] = 7;
  for (const Rgb color : Color(values)) EXPECT_EQ(color, ElevationColor(0.5));
}

TEST_F(Coloring, MakesStrongReturnsBrightAndWeakOnesDark) {
  Find(ColorMode::kIntensity, {"intensity"});
  const std::vector<Rgb> colors = Color(OnASlope({MakeColumn<std::uint16_t>(
      1, [](std::size_t i, unsigned) { return static_cast<std::uint16_t>(500 + 10 * i); })}));
  EXPECT_EQ(colors.front(), GreyColor(0));
  EXPECT_EQ(colors.back(), GreyColor(1));
  for (std::size_t i = 1; i < kPoints; ++i) EXPECT_GE(colors[i], colors[i - 1]);
  EXPECT_GT(colors[kPoints / 4] & 0xFF, 110u);  // the dark end is spread
}

TEST_F(Coloring, GivesEachClassItsColor) {
  Find(ColorMode::kClassification, {"classification"});
  const std::vector<Rgb> colors = Color(OnASlope({MakeColumn<std::uint8_t>(
      1, [](std::size_t i, unsigned) { return static_cast<std::uint8_t>(i); })}));
  for (std::size_t i = 0; i < kPoints; ++i) EXPECT_EQ(colors[i], ClassificationColor(i));
}

TEST_F(Coloring, GivesReturnsTheColorOfTheirPlaceInThePulse) {
  Find(ColorMode::kReturn, {"return_number", "number_of_returns"});
  const auto number = [](std::size_t i, unsigned) { return static_cast<std::uint8_t>(i % 6); };
  const auto ofNumber = [](std::size_t i, unsigned) { return static_cast<std::uint8_t>(i % 5); };
  const std::vector<Rgb> colors =
      Color(OnASlope({MakeColumn<std::uint8_t>(1, number), MakeColumn<std::uint8_t>(1, ofNumber)}));
  for (std::size_t i = 0; i < kPoints; ++i) EXPECT_EQ(colors[i], ReturnColor(i % 6, i % 5));
}

/// Colours of which half are bright, so that nothing is lifted; `unit` is what 1 of 255 is.
Column BrightColors(unsigned unit) {
  return MakeColumn<std::uint16_t>(3, [unit](std::size_t i, unsigned component) {
    const std::size_t bytes[3] = {i % 2 == 0 ? 255 : i, 255 - i, i * 7 % 256};
    return static_cast<std::uint16_t>(bytes[component] * unit);
  });
}

TEST_F(Coloring, ShowsTheScansOwnColors) {
  Find(ColorMode::kRgb, kScanColors);
  const std::vector<Rgb> colors = Color(OnASlope({BrightColors(257)}));
  for (std::size_t i = 0; i < kPoints; ++i) {
    const int expected[3] = {static_cast<int>(i % 2 == 0 ? 255 : i), static_cast<int>(255 - i),
                             static_cast<int>(i * 7 % 256)};
    for (unsigned part = 0; part < 3; ++part) {
      const int shown = static_cast<int>(colors[i] >> (16 - 8 * part) & 0xFF);
      EXPECT_NEAR(shown, expected[part], 1) << i;
    }
  }
}

TEST_F(Coloring, ShowsEightBitColorsInSixteenBitFieldsAlike) {
  Find(ColorMode::kRgb, kScanColors);
  const std::vector<Rgb> wide = Color(OnASlope({BrightColors(257)}));
  EXPECT_EQ(Color(OnASlope({BrightColors(1)})), wide);
}

TEST_F(Coloring, LiftsDarkColorsButKeepsTheirOrder) {
  Find(ColorMode::kRgb, kScanColors);
  const std::vector<Rgb> colors =
      Color(OnASlope({MakeColumn<std::uint16_t>(3, [](std::size_t i, unsigned) {
        return static_cast<std::uint16_t>(i * i / 4 + (i == kPoints - 1 ? 50000 : 0));
      })}));
  for (std::size_t i = 1; i < kPoints; ++i) EXPECT_GE(colors[i] & 0xFF, colors[i - 1] & 0xFF);
  EXPECT_EQ(colors.front(), 0u);
  EXPECT_GT(colors[kPoints / 2] & 0xFF, 40u);  // of 2500 of 65535, which is 10 of 255
}

Column Black() {
  return MakeColumn<std::uint16_t>(3, [](std::size_t, unsigned) { return std::uint16_t{0}; });
}

TEST_F(Coloring, PrefersTheScansOwnColors) {
  Find(ColorMode::kBest, kScanColors);
  const std::vector<Rgb> best = Color(OnASlope({BrightColors(257)}));
  EXPECT_EQ(colors_.GetColumns(), kScanColors);
  ASSERT_TRUE(IsOk(PointColors::Find(*cloud_, ColorMode::kRgb, colors_)));
  EXPECT_EQ(best, Color(OnASlope({BrightColors(257)})));
}

TEST_F(Coloring, PrefersElevationsToColorsThatAreAllBlack) {
  Find(ColorMode::kBest, kScanColors);
  ExpectElevations(Color(OnASlope({Black()})));
  EXPECT_TRUE(colors_.GetColumns().empty());
}

TEST_F(Coloring, ShowsBlackWhereTheScansOwnColorsWereAskedFor) {
  Find(ColorMode::kRgb, kScanColors);
  for (const Rgb color : Color(OnASlope({Black()}))) EXPECT_EQ(color, 0u);
  EXPECT_EQ(colors_.GetColumns(), kScanColors);
}

TEST_F(Coloring, PrefersElevationsWhereTheScanHasNoColors) {
  Open(1);
  ASSERT_TRUE(IsOk(PointColors::Find(*cloud_, ColorMode::kBest, colors_)));
  EXPECT_TRUE(colors_.GetColumns().empty());
  ExpectElevations(Color(OnASlope()));
}

TEST_F(Coloring, ColorsAlsoWhenTheSampleWasEmpty) {
  for (const ColorMode mode : {ColorMode::kElevation, ColorMode::kRgb}) {
    folder_.ImportBytes(ScanOf(0));
    cloud_ = folder_.Open();
    ASSERT_NE(cloud_, nullptr);
    ASSERT_TRUE(IsOk(PointColors::Find(*cloud_, mode, colors_)));
    PointValues none;
    none.columns.resize(colors_.GetColumns().size());
    colors_.Learn(none);
    std::vector<Rgb> found{1, 2, 3};
    colors_.Color(none, found);
    EXPECT_TRUE(found.empty());
    std::filesystem::remove_all(folder_.Repository());
  }
}

TEST_F(Coloring, SaysWhichColumnIsMissing) {
  Open(1);
  const Outcome outcome = PointColors::Find(*cloud_, ColorMode::kRgb, colors_);
  EXPECT_EQ(outcome.code, result::kPictureRefused);
  EXPECT_NE(outcome.what.find("DEF_COLOR"), std::string::npos) << outcome.what;
  EXPECT_EQ(outcome.where, folder_.Repository().string());
  const auto plain = oocpctest::MakePlainCloud();
  ASSERT_NE(plain, nullptr);
  const std::pair<ColorMode, const char*> missing[] = {
      {ColorMode::kIntensity, "intensity"},
      {ColorMode::kClassification, "classification"},
      {ColorMode::kReturn, "return_number"}};
  for (const auto& [mode, column] : missing) {
    const Outcome refused = PointColors::Find(*plain, mode, colors_);
    EXPECT_EQ(refused.code, result::kPictureRefused);
    EXPECT_NE(refused.what.find(column), std::string::npos) << refused.what;
  }
}

}  // namespace
}  // namespace tarnhost
