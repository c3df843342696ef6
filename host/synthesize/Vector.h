// Points and directions of the synthetic scene, metres.
#pragma once

#include <cmath>

namespace tarnhost::synthesize {

struct Vector {
  double x = 0;
  double y = 0;
  double z = 0;

  friend Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  friend Vector operator*(Vector a, double s) { return {a.x * s, a.y * s, a.z * s}; }
};

inline double Dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector Normalised(Vector a) { return a * (1 / std::sqrt(Dot(a, a))); }

/// A half-line; the direction has length 1, so its parameter is a range in metres.
struct Ray {
  Vector origin;
  Vector direction;

  [[nodiscard]] Vector At(double range) const { return origin + direction * range; }
};

}  // namespace tarnhost::synthesize
