// Where positions come to lie in the picture.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "host/render/Camera.h"

namespace tarnhost {
namespace {

using oocpc::Box3d;
using oocpc::Vector3d;

constexpr std::array<View, 4> kViews{View::kTop, View::kFront, View::kSide, View::kIso};
constexpr PictureSize kSize{320, 200};

Projected ProjectionOf(const Camera& camera, const Vector3d& position) {
  Projected projected;
  EXPECT_TRUE(camera.Project(position.data(), projected));
  return projected;
}

bool IsInside(const Projected& projected, PictureSize size) {
  return projected.x >= 0 && projected.x <= size.width && projected.y >= 0 &&
         projected.y <= size.height;
}

/// Makes boxes of very different shapes, some without extent along an axis, and points in them.
class RandomBoxes {
 public:
  explicit RandomBoxes(unsigned seed) : random_(seed) {}

  double Between(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  Vector3d Vector(double reach) {
    return {Between(-reach, reach), Between(-reach, reach), Between(-reach, reach)};
  }
  Box3d Box() {
    Box3d box;
    const double reach = std::pow(10, Between(-2, 4));
    for (std::size_t axis = 0; axis < 3; ++axis) {
      box.min[axis] = Between(-reach, reach);
      const bool flat = random_() % 4 == 0;
      box.max[axis] = box.min[axis] + (flat ? 0 : reach * std::pow(10, Between(-2, 1)));
    }
    return box;
  }
  Vector3d PointIn(const Box3d& box) {
    Vector3d point;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      point[axis] = box.min[axis] + (box.max[axis] - box.min[axis]) * Between(0, 1);
    }
    return point;
  }
  std::vector<Vector3d> PointsIn(const Box3d& box, std::size_t count) {
    std::vector<Vector3d> points;
    for (std::size_t i = 0; i < count; ++i) points.push_back(PointIn(box));
    return points;
  }
  PictureSize Size() {
    return {static_cast<std::uint32_t>(Between(20, 400)),
            static_cast<std::uint32_t>(Between(20, 400))};
  }

 private:
  std::mt19937_64 random_;
};

/// A camera that sees the cube from -1 to 1.
Camera SeeingTheCube(View view) {
  const Box3d box{{-1, -1, -1}, {1, 1, 1}};
  std::vector<Vector3d> corners;
  for (const double x : {-1, 1}) {
    for (const double y : {-1, 1}) {
      for (const double z : {-1, 1}) corners.push_back({x, y, z});
    }
  }
  return Camera::Fit(view, box, corners, kSize);
}

/// Whether a step along an axis goes right (1), left (-1) or neither, and up; and nearer.
std::array<int, 3> DirectionOf(View view, const Vector3d& step) {
  const Camera camera = SeeingTheCube(view);
  const Projected from = ProjectionOf(camera, {0, 0, 0});
  const Projected to = ProjectionOf(camera, step);
  const auto sign = [](double value) { return std::abs(value) < 1e-9 ? 0 : value > 0 ? 1 : -1; };
  return {sign(to.x - from.x), sign(from.y - to.y), sign(from.depth - to.depth)};
}

TEST(CameraDirection, HasNorthUpAndEastRightInTheTopView) {
  EXPECT_EQ(DirectionOf(View::kTop, {0, 1, 0}), (std::array{0, 1, 0}));
  EXPECT_EQ(DirectionOf(View::kTop, {1, 0, 0}), (std::array{1, 0, 0}));
  EXPECT_EQ(DirectionOf(View::kTop, {0, 0, 1}), (std::array{0, 0, 1}));
}

TEST(CameraDirection, LooksFromTheSouthInTheFrontView) {
  EXPECT_EQ(DirectionOf(View::kFront, {0, 0, 1}), (std::array{0, 1, 0}));
  EXPECT_EQ(DirectionOf(View::kFront, {1, 0, 0}), (std::array{1, 0, 0}));
  EXPECT_EQ(DirectionOf(View::kFront, {0, -1, 0}), (std::array{0, 0, 1}));
}

TEST(CameraDirection, LooksFromTheEastInTheSideView) {
  EXPECT_EQ(DirectionOf(View::kSide, {0, 0, 1}), (std::array{0, 1, 0}));
  EXPECT_EQ(DirectionOf(View::kSide, {0, 1, 0}), (std::array{1, 0, 0}));
  EXPECT_EQ(DirectionOf(View::kSide, {1, 0, 0}), (std::array{0, 0, 1}));
}

TEST(CameraDirection, LooksFromTheSouthWestAndAboveInTheIsoView) {
  EXPECT_EQ(DirectionOf(View::kIso, {0, 0, 1})[1], 1);
  EXPECT_EQ(DirectionOf(View::kIso, {0, 0, 1})[2], 1);
  EXPECT_EQ(DirectionOf(View::kIso, {-1, 0, 0})[2], 1);
  EXPECT_EQ(DirectionOf(View::kIso, {0, -1, 0})[2], 1);
  EXPECT_EQ(DirectionOf(View::kIso, {1, 0, 0})[0], 1);
}

TEST(CameraFit, KeepsAllPointsInThePictureWhateverTheShapeOfTheirBox) {
  RandomBoxes random(1);
  for (int round = 0; round < 400; ++round) {
    const Box3d box = random.Box();
    const std::vector<Vector3d> points = random.PointsIn(box, 1 + round % 300);
    const PictureSize size = random.Size();
    for (const View view : kViews) {
      const Camera camera = Camera::Fit(view, box, points, size);
      for (const Vector3d& point : points) {
        const Projected projected = ProjectionOf(camera, point);
        ASSERT_TRUE(IsInside(projected, size))
            << "view " << static_cast<int>(view) << " round " << round << " at " << projected.x
            << ", " << projected.y << " of " << size.width << " x " << size.height;
        ASSERT_GT(projected.depth, 0);
      }
    }
  }
}

TEST(CameraFit, UsesMostOfThePicture) {
  RandomBoxes random(2);
  const Box3d box{{100, 200, 30}, {180, 260, 60}};
  const std::vector<Vector3d> points = random.PointsIn(box, 2000);
  for (const View view : kViews) {
    const Camera camera = Camera::Fit(view, box, points, kSize);
    double least[2] = {1e9, 1e9};
    double greatest[2] = {-1e9, -1e9};
    for (const Vector3d& point : points) {
      const Projected projected = ProjectionOf(camera, point);
      least[0] = std::min(least[0], projected.x);
      least[1] = std::min(least[1], projected.y);
      greatest[0] = std::max(greatest[0], projected.x);
      greatest[1] = std::max(greatest[1], projected.y);
    }
    const double share =
        std::max((greatest[0] - least[0]) / kSize.width, (greatest[1] - least[1]) / kSize.height);
    EXPECT_GT(share, 0.8) << static_cast<int>(view);
  }
}

TEST(CameraFit, IsNotSpoiltByAFewStrays) {
  RandomBoxes random(3);
  const Box3d most{{0, 0, 0}, {10, 10, 1}};
  std::vector<Vector3d> points = random.PointsIn(most, 20000);
  points.push_back({1000, 1000, 1});
  const Camera camera = Camera::Fit(View::kTop, {{0, 0, 0}, {1000, 1000, 1}}, points, kSize);
  EXPECT_LT(camera.UnitsPerPixel(1), 10.0 / kSize.height * 1.2);
}

TEST(CameraFit, PutsASinglePointInTheMiddle) {
  const Vector3d point{12, -7, 3};
  for (const View view : kViews) {
    const Camera camera = Camera::Fit(view, {point, point}, std::vector{point}, kSize);
    const Projected projected = ProjectionOf(camera, point);
    EXPECT_NEAR(projected.x, kSize.width / 2.0, 1e-6);
    EXPECT_NEAR(projected.y, kSize.height / 2.0, 1e-6);
    EXPECT_GT(camera.UnitsPerPixel(projected.depth), 0);
  }
}

TEST(CameraFit, ManagesWithoutAnyPoint) {
  for (const View view : kViews) {
    const Camera camera = Camera::Fit(view, {{0, 0, 0}, {0, 0, 0}}, {}, kSize);
    EXPECT_TRUE(std::isfinite(camera.UnitsPerPixel(1)));
    EXPECT_EQ(camera.GetSize().width, kSize.width);
    EXPECT_EQ(camera.GetSize().height, kSize.height);
  }
}

TEST(CameraLook, ProjectsTheTargetIntoTheMiddle) {
  RandomBoxes random(4);
  const Box3d box{{-10, -10, -10}, {10, 10, 10}};
  for (int round = 0; round < 200; ++round) {
    const Viewpoint viewpoint{random.Vector(20), random.Vector(20)};
    const auto camera = Camera::Look(viewpoint, box, kSize);
    ASSERT_TRUE(camera);
    const Projected projected = ProjectionOf(*camera, viewpoint.target);
    EXPECT_NEAR(projected.x, kSize.width / 2.0, 1e-6);
    EXPECT_NEAR(projected.y, kSize.height / 2.0, 1e-6);
    double square = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      square += std::pow(viewpoint.eye[axis] - viewpoint.target[axis], 2);
    }
    EXPECT_NEAR(projected.depth, std::sqrt(square), 1e-9);
  }
}

TEST(CameraLook, HasNorthUpWhenItLooksStraightDown) {
  const auto camera = Camera::Look({{0, 0, 50}, {0, 0, 0}}, {{-1, -1, -1}, {1, 1, 1}}, kSize);
  ASSERT_TRUE(camera);
  const Projected north = ProjectionOf(*camera, {0, 1, 0});
  EXPECT_NEAR(north.x, kSize.width / 2.0, 1e-9);
  EXPECT_LT(north.y, kSize.height / 2.0);
  EXPECT_GT(ProjectionOf(*camera, {1, 0, 0}).x, kSize.width / 2.0);
}

TEST(CameraLook, DoesNotProjectWhatIsBehindIt) {
  const Box3d box{{-10, -10, -10}, {10, 10, 10}};
  const auto camera = Camera::Look({{0, 0, 0}, {1, 0, 0}}, box, kSize);
  ASSERT_TRUE(camera);
  Projected projected;
  for (const Vector3d& position : {Vector3d{-1, 0, 0}, {0, 0, 0}, {0, 5, 5}, {1e-5, 0, 0}}) {
    EXPECT_FALSE(camera->Project(position.data(), projected)) << position[0];
  }
  double nearest = 0;
  EXPECT_FALSE(camera->Sees({{-9, -9, -9}, {-1, 9, 9}}, nearest));
  EXPECT_TRUE(camera->Sees({{-9, -9, -9}, {9, 9, 9}}, nearest));
}

TEST(CameraLook, NeedsADirection) {
  const Box3d box{{-1, -1, -1}, {1, 1, 1}};
  EXPECT_FALSE(Camera::Look({{3, 4, 5}, {3, 4, 5}}, box, kSize));
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(Camera::Look({{kInfinity, 4, 5}, {3, 4, 5}}, box, kSize));
  EXPECT_FALSE(Camera::Look({{3, 4, 5}, {3, std::nan(""), 5}}, box, kSize));
  EXPECT_FALSE(Camera::Look({{1e300, 4, 5}, {3, 4, 5}}, box, kSize));
}

TEST(CameraSees, NeverRejectsABoxWithAVisiblePoint) {
  RandomBoxes random(5);
  int visible = 0;
  int rejected = 0;
  for (int round = 0; round < 4000; ++round) {
    const Box3d whole = random.Box();
    const PictureSize size = random.Size();
    const View view = kViews[static_cast<std::size_t>(round) % kViews.size()];
    std::optional<Camera> camera = Camera::Fit(view, whole, random.PointsIn(whole, 20), size);
    if (round % 2 == 0) camera = Camera::Look({random.PointIn(whole), {1, 2, 3}}, whole, size);
    ASSERT_TRUE(camera);
    Box3d part{random.PointIn(whole), random.PointIn(whole)};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (part.min[axis] > part.max[axis]) std::swap(part.min[axis], part.max[axis]);
    }
    double nearest = 0;
    const bool sees = camera->Sees(part, nearest);
    rejected += sees ? 0 : 1;
    for (int i = 0; i < 20; ++i) {
      Projected projected;
      if (!camera->Project(random.PointIn(part).data(), projected)) continue;
      if (!IsInside(projected, size)) continue;
      ++visible;
      ASSERT_TRUE(sees) << round;
      ASSERT_LE(nearest, projected.depth * (1 + 1e-9)) << round;
    }
  }
  EXPECT_GT(visible, 10000);
  EXPECT_GT(rejected, 300);
}

TEST(CameraUnits, AreTheSameAtAllDepthsOnlyInParallel) {
  const Camera parallel = SeeingTheCube(View::kTop);
  EXPECT_EQ(parallel.UnitsPerPixel(1), parallel.UnitsPerPixel(100));
  const double pixels = ProjectionOf(parallel, {1, 0, 0}).x - ProjectionOf(parallel, {0, 0, 0}).x;
  EXPECT_NEAR(pixels * parallel.UnitsPerPixel(5), 1, 1e-9);
  const auto perspective = Camera::Look({{0, -8, 0}, {0, 0, 0}}, {{-1, -1, -1}, {1, 1, 1}}, kSize);
  ASSERT_TRUE(perspective);
  EXPECT_NEAR(perspective->UnitsPerPixel(8), 2 * perspective->UnitsPerPixel(4), 1e-12);
  const double across =
      ProjectionOf(*perspective, {1, 0, 0}).x - ProjectionOf(*perspective, {0, 0, 0}).x;
  EXPECT_NEAR(across * perspective->UnitsPerPixel(8), 1, 1e-9);
}

}  // namespace
}  // namespace tarnhost
