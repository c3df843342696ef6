// Where a picture is taken from.
#include "host/render/Camera.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace tarnhost {

using oocpc::Box3d;
using oocpc::Vector3d;

namespace {

constexpr double kFieldOfView = 35.0 * std::numbers::pi / 180;  // of the picture's height
constexpr double kMargin = 1.06;

double Dot(const Vector3d& a, const Vector3d& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector3d Cross(const Vector3d& a, const Vector3d& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Vector3d Scaled(const Vector3d& a, double factor) {
  return {a[0] * factor, a[1] * factor, a[2] * factor};
}

Vector3d Sum(const Vector3d& a, const Vector3d& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

Vector3d Normalized(const Vector3d& a) { return Scaled(a, 1 / std::sqrt(Dot(a, a))); }

std::array<Vector3d, 8> CornersOf(const Box3d& box) {
  std::array<Vector3d, 8> corners;
  for (unsigned i = 0; i < 8; ++i) {
    for (unsigned axis = 0; axis < 3; ++axis) {
      corners[i][axis] = (i >> axis & 1u) != 0 ? box.max[axis] : box.min[axis];
    }
  }
  return corners;
}

Vector3d CentreOf(const Box3d& box) { return Scaled(Sum(box.min, box.max), 0.5); }

double DiagonalOf(const Box3d& box) {
  const Vector3d diagonal = Sum(box.max, Scaled(box.min, -1));
  const double length = std::sqrt(Dot(diagonal, diagonal));
  return length > 0 ? length : 1;  // of a single point
}

Vector3d DirectionOf(View view) {
  switch (view) {
    case View::kTop:
      return {0, 0, -1};
    case View::kFront:
      return {0, 1, 0};
    case View::kSide:
      return {-1, 0, 0};
    case View::kIso:
      break;
  }
  return Normalized({0.5, 0.75, -0.62});
}

/// Share of the points, at each end, that need not be in the picture.
constexpr double kStrays = 0.0003;

/// The values between which nearly all lie.
struct Extent {
  double least = 0;
  double greatest = 0;
  explicit Extent(std::vector<double>& values) {
    if (values.empty()) return;
    const auto strays = static_cast<std::ptrdiff_t>(kStrays * static_cast<double>(values.size()));
    std::nth_element(values.begin(), values.begin() + strays, values.end());
    least = values[static_cast<std::size_t>(strays)];
    std::nth_element(values.begin(), values.end() - 1 - strays, values.end());
    greatest = *(values.end() - 1 - strays);
  }
  [[nodiscard]] double Length() const { return greatest - least; }
  [[nodiscard]] double Middle() const { return (least + greatest) / 2; }
};

}  // namespace

Camera::Camera(const Vector3d& forward, PictureSize size) : size_(size), forward_(forward) {
  // Looking straight up or down, north is up.
  const bool vertical = std::abs(forward[0]) + std::abs(forward[1]) < 1e-9;
  const Vector3d upwards = vertical ? Vector3d{0, 1, 0} : Vector3d{0, 0, 1};
  right_ = Normalized(Cross(forward, upwards));
  up_ = Cross(right_, forward);
}

Camera Camera::Fit(View view, const Box3d& box, std::span<const Vector3d> points,
                   PictureSize size) {
  Camera camera(DirectionOf(view), size);
  if (view == View::kIso) {
    camera.FitPerspective(box, points);
  } else {
    camera.FitParallel(box, points);
  }
  return camera;
}

std::optional<Camera> Camera::Look(const Viewpoint& viewpoint, const Box3d& box, PictureSize size) {
  const Vector3d direction = Sum(viewpoint.target, Scaled(viewpoint.eye, -1));
  const double square = Dot(direction, direction);
  if (!(square > 0) || !std::isfinite(square)) return std::nullopt;
  Camera camera(Normalized(direction), size);
  camera.parallel_ = false;
  camera.eye_ = viewpoint.eye;
  camera.unitsPerPixel_ = 2 * std::tan(kFieldOfView / 2) / size.height;
  camera.nearest_ = 1e-5 * DiagonalOf(box);
  return camera;
}

Vector3d Camera::ToCamera(const double* position) const {
  const Vector3d relative{position[0] - eye_[0], position[1] - eye_[1], position[2] - eye_[2]};
  return {Dot(relative, right_), Dot(relative, up_), Dot(relative, forward_)};
}

void Camera::FitParallel(const Box3d& box, std::span<const Vector3d> points) {
  parallel_ = true;
  eye_ = Sum(CentreOf(box), Scaled(forward_, -DiagonalOf(box)));
  std::vector<double> across;
  std::vector<double> upwards;
  for (const Vector3d& point : points) {
    const Vector3d seen = ToCamera(point.data());
    across.push_back(seen[0]);
    upwards.push_back(seen[1]);
  }
  const Extent x(across);
  const Extent y(upwards);
  eye_ = Sum(eye_, Sum(Scaled(right_, x.Middle()), Scaled(up_, y.Middle())));
  unitsPerPixel_ = kMargin * std::max(x.Length() / size_.width, y.Length() / size_.height);
  if (!(unitsPerPixel_ > 0)) unitsPerPixel_ = 1.0 / size_.height;
}

void Camera::FitPerspective(const Box3d& box, std::span<const Vector3d> points) {
  parallel_ = false;
  const double halfHeight = std::tan(kFieldOfView / 2);
  const double halfWidth = halfHeight * size_.width / size_.height;
  unitsPerPixel_ = 2 * halfHeight / size_.height;
  const double diagonal = DiagonalOf(box);
  nearest_ = 1e-5 * diagonal;
  Vector3d target = CentreOf(box);
  double distance = diagonal;
  // What is in the middle of the picture depends on the distance, and the distance on it: a few
  // rounds settle both.
  for (int round = 0; round < 8; ++round) {
    eye_ = Sum(target, Scaled(forward_, -distance));
    std::vector<double> needed;
    for (const Vector3d& point : points) {
      const Vector3d seen = ToCamera(point.data());
      const double half = std::max(std::abs(seen[0]) / halfWidth, std::abs(seen[1]) / halfHeight);
      needed.push_back(kMargin * half - (seen[2] - distance));
    }
    distance = std::max(Extent(needed).greatest, 1e-3 * diagonal);
    eye_ = Sum(target, Scaled(forward_, -distance));
    std::vector<double> across;
    std::vector<double> upwards;
    for (const Vector3d& point : points) {
      const Vector3d seen = ToCamera(point.data());
      const double depth = std::max(seen[2], nearest_);
      across.push_back(seen[0] / depth);
      upwards.push_back(seen[1] / depth);
    }
    target = Sum(target, Sum(Scaled(right_, Extent(across).Middle() * distance),
                             Scaled(up_, Extent(upwards).Middle() * distance)));
  }
}

bool Camera::Project(const double* position, Projected& projected) const {
  const Vector3d seen = ToCamera(position);
  if (seen[2] <= nearest_) return false;
  const double pixelsPerUnit = 1 / UnitsPerPixel(seen[2]);
  projected.x = size_.width * 0.5 + seen[0] * pixelsPerUnit;
  projected.y = size_.height * 0.5 - seen[1] * pixelsPerUnit;
  projected.depth = seen[2];
  return true;
}

bool Camera::Sees(const Box3d& box, double& nearest) const {
  // Corners beyond each side of the picture and before the nearest depth; a box wholly beyond one
  // of them is not seen.
  unsigned left = 0;
  unsigned right = 0;
  unsigned below = 0;
  unsigned above = 0;
  double least = std::numeric_limits<double>::infinity();
  double greatest = -least;
  for (const Vector3d& corner : CornersOf(box)) {
    const Vector3d seen = ToCamera(corner.data());
    const double halfWidth = UnitsPerPixel(seen[2]) * size_.width * 0.5;
    const double halfHeight = UnitsPerPixel(seen[2]) * size_.height * 0.5;
    left += seen[0] < -halfWidth ? 1u : 0u;
    right += seen[0] > halfWidth ? 1u : 0u;
    below += seen[1] < -halfHeight ? 1u : 0u;
    above += seen[1] > halfHeight ? 1u : 0u;
    least = std::min(least, seen[2]);
    greatest = std::max(greatest, seen[2]);
  }
  nearest = std::max(least, nearest_);
  // In perspective the sides of corners behind the camera are turned around.
  const bool allBefore = parallel_ || least > nearest_;
  if (greatest <= nearest_) return false;
  return !allBefore || (left < 8 && right < 8 && below < 8 && above < 8);
}

}  // namespace tarnhost
