// The ground of the synthetic scene.
#include "host/synthesize/Terrain.h"

#include <algorithm>

#include "host/synthesize/Random.h"

namespace tarnhost::synthesize {

namespace {

constexpr double kKerbHeight = 0.14;
constexpr double kKerbWidth = 0.12;
constexpr double kCamber = 0.02;  ///< rise of the road towards its middle, metres a metre
constexpr double kMargin = 4;     ///< squares of ground beyond the scene's edges

}  // namespace

double DistanceToRoad(double x, double y) {
  const double street = std::abs(y) - kStreetHalfWidth;
  if (y < 0) return street;
  return std::min(street, std::abs(x - kSideStreetX) - kSideStreetHalfWidth);
}

Terrain::Terrain(double halfLength, std::uint64_t seed)
    : halfLength_(halfLength),
      columns_(static_cast<std::size_t>(2 * (halfLength + kMargin)) + 1),
      rows_(static_cast<std::size_t>(2 * (kSceneHalfDepth + kMargin)) + 1) {
  Random random(seed, 1);
  const double phase = random.Between(0, 6);
  hills_.reserve(columns_ * rows_);
  for (std::size_t row = 0; row < rows_; ++row) {
    const double y = static_cast<double>(row) - kSceneHalfDepth - kMargin;
    for (std::size_t column = 0; column < columns_; ++column) {
      const double x = static_cast<double>(column) - halfLength - kMargin;
      const double hill = 1.6 * std::sin(0.021 * x + phase) + 0.9 * std::sin(0.037 * y + 1) +
                          0.35 * std::sin(0.071 * x + 0.053 * y) + 0.012 * x;
      hills_.push_back(static_cast<float>(hill));
    }
  }
}

double Terrain::HillAt(double x, double y) const {
  const double u =
      std::clamp(x + halfLength_ + kMargin, 0.0, static_cast<double>(columns_) - 1.001);
  const double v =
      std::clamp(y + kSceneHalfDepth + kMargin, 0.0, static_cast<double>(rows_) - 1.001);
  const auto column = static_cast<std::size_t>(u);
  const auto row = static_cast<std::size_t>(v);
  const double s = u - static_cast<double>(column);
  const double t = v - static_cast<double>(row);
  const float* corner = hills_.data() + row * columns_ + column;
  const double low = corner[0] + s * (corner[1] - corner[0]);
  const double high = corner[columns_] + s * (corner[columns_ + 1] - corner[columns_]);
  return low + t * (high - low);
}

double Terrain::HeightAt(double x, double y) const {
  const double distance = DistanceToRoad(x, y);
  const double hill = HillAt(x, y);
  if (distance >= 0) return hill;
  const double kerb = std::max(0.0, 1 + distance / kKerbWidth);
  return hill - kKerbHeight * (1 - kerb) + kCamber * (-distance);
}

Vector Terrain::NormalAt(double x, double y) const {
  constexpr double kStep = 0.05;
  const double height = HeightAt(x, y);
  return Normalised(
      {(height - HeightAt(x + kStep, y)) / kStep, (height - HeightAt(x, y + kStep)) / kStep, 1});
}

GroundKind Terrain::KindAt(double x, double y) const {
  const double distance = DistanceToRoad(x, y);
  if (distance < -kKerbWidth) {
    constexpr double kDash = 6;  // three metres of paint, three of none
    const bool dashed = std::abs(y) < 0.08 && std::fmod(x + 10000 * kDash, kDash) < 3;
    return dashed ? GroundKind::kMarking : GroundKind::kAsphalt;
  }
  if (distance < 0.18) return GroundKind::kKerb;
  return distance < kPavementEnd - kStreetHalfWidth ? GroundKind::kPavement : GroundKind::kGrass;
}

}  // namespace tarnhost::synthesize
