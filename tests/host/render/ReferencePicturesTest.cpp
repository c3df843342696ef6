// Pictures compared with those that were looked at and kept.
//
// TARN_UPDATE_REFERENCES=1 in the environment writes them anew; look at each before keeping it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "tests/host/render/RenderFixture.h"
#include "tests/support/SyntheticCloud.h"

namespace tarnhost {
namespace {

namespace fs = std::filesystem;
using oocpctest::IsOk;
using oocpctest::Render;
using oocpctest::SyntheticCloud;

/// Mean difference of the channels, of 255, up to which two pictures are the same: rounding differs
/// a little between machines.
constexpr double kTolerance = 1.5;

fs::path ReferencePath(const std::string& name) {
  return fs::path(TESTS_SOURCE_DIR) / "host" / "render" / "reference" / (name + ".png");
}

bool IsUpdating() {
  const char* wanted = std::getenv("TARN_UPDATE_REFERENCES");
  return wanted != nullptr && std::string(wanted) == "1";
}

/// Nothing for pictures of different sizes.
std::optional<double> MeanDifference(const Picture& a, const Picture& b) {
  if (a.size.width != b.size.width || a.size.height != b.size.height) return std::nullopt;
  double sum = 0;
  for (std::size_t i = 0; i < a.bytes.size(); ++i) sum += std::abs(a.bytes[i] - b.bytes[i]);
  return sum / static_cast<double>(a.bytes.size());
}

testing::AssertionResult IsLike(const Picture& picture, const std::string& name) {
  Picture reference;
  const Outcome read = ReadPng(ReferencePath(name), reference);
  if (!read.Ok()) return testing::AssertionFailure() << name << ": " << read.what;
  const std::optional<double> difference = MeanDifference(picture, reference);
  if (!difference) return testing::AssertionFailure() << name << ": another size";
  if (*difference <= kTolerance) return testing::AssertionSuccess();
  return testing::AssertionFailure() << name << " differs by " << *difference;
}

/// A street of which the pictures show every second house or so.
class ReferencePictures : public testing::Test {
 protected:
  static void SetUpTestSuite() { street_ = std::make_unique<SyntheticCloud>(80000, 4); }
  static void TearDownTestSuite() { street_.reset(); }
  void SetUp() override {
    ASSERT_NE(street_->cloud, nullptr);
    options_.size = {160, 100};
  }
  void Check(const std::string& name) {
    const Picture picture = Render(*street_->cloud, options_);
    if (IsUpdating()) {
      ASSERT_TRUE(IsOk(WritePng(picture, ReferencePath(name))));
    }
    EXPECT_TRUE(IsLike(picture, name));
  }

  static std::unique_ptr<SyntheticCloud> street_;
  RenderOptions options_;
};

std::unique_ptr<SyntheticCloud> ReferencePictures::street_;

TEST_F(ReferencePictures, ShowTheStreetFromEachSide) {
  options_.view = View::kTop;
  Check("top");
  options_.view = View::kFront;
  Check("front");
  options_.view = View::kSide;
  Check("side");
  options_.view = View::kIso;
  Check("iso");
}

TEST_F(ReferencePictures, ShowTheStreetInEachColor) {
  options_.color = ColorMode::kRgb;
  Check("iso");  // the best colours of a scan that has its own
  options_.color = ColorMode::kIntensity;
  Check("intensity");
  options_.color = ColorMode::kClassification;
  Check("classification");
  options_.color = ColorMode::kElevation;
  Check("elevation");
  options_.color = ColorMode::kReturn;
  Check("return");
}

TEST_F(ReferencePictures, LetTheBuildingsStandOut) {
  options_.query = R"(#num{type=int}("classification", ==, 6))";
  Check("buildings");
}

TEST_F(ReferencePictures, ShowTheStreetFromAPlaceInIt) {
  options_.viewpoint = Viewpoint{{500330, 4500290, 235}, {500420, 4500300, 215}};
  Check("street");
}

/// The comparison would tell.
TEST_F(ReferencePictures, DifferFromOthers) {
  if (IsUpdating()) GTEST_SKIP() << "references are being written";
  options_.view = View::kTop;
  const Picture top = Render(*street_->cloud, options_);
  EXPECT_TRUE(IsLike(top, "top"));
  for (const char* other : {"front", "side", "iso", "elevation", "buildings", "street"}) {
    EXPECT_FALSE(IsLike(top, other)) << other;
  }
  EXPECT_FALSE(IsLike(top, "absent"));
  Picture moved = top;  // by two pixels
  std::rotate(moved.bytes.begin(), moved.bytes.begin() + 6, moved.bytes.end());
  EXPECT_FALSE(IsLike(moved, "top"));
  Picture darker = top;
  for (std::uint8_t& byte : darker.bytes) byte = static_cast<std::uint8_t>(byte * 0.97);
  EXPECT_FALSE(IsLike(darker, "top"));
  options_.size = {80, 50};
  EXPECT_FALSE(IsLike(Render(*street_->cloud, options_), "top"));
  const SyntheticCloud otherStreet(80000, 5);
  ASSERT_NE(otherStreet.cloud, nullptr);
  options_.size = top.size;
  EXPECT_FALSE(IsLike(Render(*otherStreet.cloud, options_), "top"));
}

}  // namespace
}  // namespace tarnhost
