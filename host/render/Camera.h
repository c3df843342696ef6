// Where a picture is taken from.
#pragma once

#include <OOCPointCloud/Types.h>

#include <cstdint>
#include <optional>
#include <span>

namespace tarnhost {

/// Size of a picture in pixels.
struct PictureSize {
  std::uint32_t width = 1600;
  std::uint32_t height = 1000;
};

enum class View : std::uint8_t {
  kTop,    ///< from above, north up, parallel
  kFront,  ///< from the south, parallel
  kSide,   ///< from the east, parallel
  kIso,    ///< from the south-west and above, in perspective
};

/// A viewer's place, for pictures from a place of the user's choice.
struct Viewpoint {
  oocpc::Vector3d eye{};
  oocpc::Vector3d target{};
};

/// A position in the picture.
struct Projected {
  double x = 0;      ///< pixels from the left edge
  double y = 0;      ///< pixels from the upper edge
  double depth = 0;  ///< distance from the camera along its axis, world units, above 0
};

/// Maps the world (any right-handed frame with z up) to pixels. Const operations are safe from
/// several threads at once.
class Camera {
 public:
  /// Sees the points given, which lie in `box`, from one of the fixed directions. A few strays may
  /// stay outside the picture.
  static Camera Fit(View view, const oocpc::Box3d& box, std::span<const oocpc::Vector3d> points,
                    PictureSize size);
  /// Looks from an eye at a target, in perspective. Null when the two give no
  /// direction: they are the same, or not finite.
  static std::optional<Camera> Look(const Viewpoint& viewpoint, const oocpc::Box3d& box,
                                    PictureSize size);

  /// False for what lies behind the camera; positions beside the picture are projected, too.
  [[nodiscard]] bool Project(const double* position, Projected& projected) const;
  /// World units that one pixel shows at a depth.
  [[nodiscard]] double UnitsPerPixel(double depth) const {
    return parallel_ ? unitsPerPixel_ : unitsPerPixel_ * depth;
  }
  /// Whether any of a box may be in the picture; `nearest` receives the least depth it can have.
  [[nodiscard]] bool Sees(const oocpc::Box3d& box, double& nearest) const;
  [[nodiscard]] PictureSize GetSize() const { return size_; }

 private:
  Camera(const oocpc::Vector3d& forward, PictureSize size);
  void FitParallel(const oocpc::Box3d& box, std::span<const oocpc::Vector3d> points);
  void FitPerspective(const oocpc::Box3d& box, std::span<const oocpc::Vector3d> points);
  [[nodiscard]] oocpc::Vector3d ToCamera(const double* position) const;

  PictureSize size_;
  bool parallel_ = true;
  oocpc::Vector3d eye_{};
  oocpc::Vector3d right_{};
  oocpc::Vector3d up_{};
  oocpc::Vector3d forward_{};
  double unitsPerPixel_ = 1;  ///< in perspective: at depth 1
  double nearest_ = 0;        ///< depths up to this are not shown
};

}  // namespace tarnhost
