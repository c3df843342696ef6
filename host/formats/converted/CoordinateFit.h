// Finds integers, a scale and an offset for coordinates that a source has as floating-point
// numbers.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// What has been seen of the coordinates of one axis. Value semantics.
class AxisFit {
 public:
  /// `narrow`: coordinates are 32-bit floats. With a scale of its own, `ownScale` is not 0.
  explicit AxisFit(bool narrow = false, double ownScale = 0, double ownOffset = 0)
      : narrow_(narrow), ownScale_(ownScale), ownOffset_(ownOffset), isOwn_(ownScale != 0) {}

  /// A coordinate that is finite.
  void Add(double coordinate);
  /// Everything that `other`, made alike, has seen.
  void Join(const AxisFit& other);

  [[nodiscard]] double GetLeast() const { return least_; }
  [[nodiscard]] double GetGreatest() const { return greatest_; }

  struct Choice {
    double scale = 1;
    double offset = 0;
    bool exact = true;  ///< every coordinate comes out again
  };
  /// The scale and offset to use. `decimals`: digits behind the point that are wanted at least.
  [[nodiscard]] Choice Choose(int decimals) const;

 private:
  [[nodiscard]] bool HasDecimals(double coordinate, int decimals) const;
  [[nodiscard]] bool Fits(int decimals, double& offset) const;
  [[nodiscard]] Choice Coarsest() const;

  bool narrow_;
  double ownScale_;
  double ownOffset_;
  bool isOwn_;        ///< all coordinates come out of scale and offset of their own
  int decimals_ = 0;  ///< that all coordinates need; -1: not to be had
  double least_ = std::numeric_limits<double>::infinity();
  double greatest_ = -std::numeric_limits<double>::infinity();
};

/// Coordinates beyond this, in either direction, are no places: sentinels, mostly.
inline constexpr double kFarthestCoordinate = 1e15;

}  // namespace tarnhost
