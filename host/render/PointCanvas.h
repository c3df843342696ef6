// Draws points as small discs, the nearest in front.
#pragma once

#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "host/render/Camera.h"

namespace tarnhost {

/// A colour of three bytes: red, green and blue from the highest of 24 bits down.
using Rgb = std::uint32_t;

[[nodiscard]] constexpr Rgb MakeRgb(unsigned red, unsigned green, unsigned blue) {
  return red << 16 | green << 8 | blue;
}

/// Colour and depth of each pixel. Drawing is safe from several threads at once, and what comes out
/// does not depend on the order of drawing.
class PointCanvas {
 public:
  explicit PointCanvas(PictureSize size)
      : size_(size), pixels_(std::size_t{size.width} * size.height) {
    for (auto& pixel : pixels_) pixel.store(kEmpty, std::memory_order_relaxed);
  }

  /// Draws a disc around a position, `radius` pixels wide, bulging by `bulge` world units towards
  /// the camera so that neighbouring discs meet halfway between their points. The nearest pixel is
  /// drawn however small the disc is. What lies beside the canvas is not drawn.
  void Draw(const Projected& centre, double radius, double bulge, Rgb color) {
    if (!Reaches(centre.x, radius, size_.width) || !Reaches(centre.y, radius, size_.height)) return;
    const auto x = static_cast<std::int64_t>(std::floor(centre.x));
    const auto y = static_cast<std::int64_t>(std::floor(centre.y));
    const auto reach = static_cast<std::int64_t>(std::ceil(radius));
    if (reach <= 1 && radius <= 0.75) return DrawPixel(x, y, centre.depth, color);
    const double inverse = 1 / (radius * radius);
    for (std::int64_t row = y - reach; row <= y + reach; ++row) {
      const double dy = static_cast<double>(row) + 0.5 - centre.y;
      for (std::int64_t column = x - reach; column <= x + reach; ++column) {
        const double dx = static_cast<double>(column) + 0.5 - centre.x;
        const double share = (dx * dx + dy * dy) * inverse;
        if (share <= 1) DrawPixel(column, row, centre.depth + bulge * share, color);
      }
    }
    DrawPixel(x, y, centre.depth, color);
  }

  [[nodiscard]] PictureSize GetSize() const { return size_; }
  [[nodiscard]] bool IsEmpty(std::size_t pixel) const { return Load(pixel) == kEmpty; }
  [[nodiscard]] Rgb GetColor(std::size_t pixel) const {
    return static_cast<Rgb>(Load(pixel)) & 0xFFFFFFu;
  }
  [[nodiscard]] float GetDepth(std::size_t pixel) const {
    return std::bit_cast<float>(static_cast<std::uint32_t>(Load(pixel) >> 32));
  }
  /// For one thread at a time.
  void Set(std::size_t pixel, float depth, Rgb color) {
    pixels_[pixel].store(Pack(depth, color), std::memory_order_relaxed);
  }

 private:
  static constexpr std::uint64_t kEmpty = std::numeric_limits<std::uint64_t>::max();

  /// Also keeps numbers that no integer holds away from the loops.
  [[nodiscard]] static bool Reaches(double centre, double radius, std::uint32_t pixels) {
    return centre >= -radius && centre <= pixels + radius;
  }
  // Depths are positive, and so are ordered as their bit patterns are.
  [[nodiscard]] static std::uint64_t Pack(float depth, Rgb color) {
    return std::uint64_t{std::bit_cast<std::uint32_t>(depth)} << 32 | color;
  }
  [[nodiscard]] std::uint64_t Load(std::size_t pixel) const {
    return pixels_[pixel].load(std::memory_order_relaxed);
  }
  void DrawPixel(std::int64_t x, std::int64_t y, double depth, Rgb color) {
    if (x < 0 || y < 0 || x >= size_.width || y >= size_.height) return;
    auto& pixel = pixels_[static_cast<std::size_t>(y) * size_.width + static_cast<std::size_t>(x)];
    const std::uint64_t drawn = Pack(static_cast<float>(depth), color);
    std::uint64_t there = pixel.load(std::memory_order_relaxed);
    while (drawn < there && !pixel.compare_exchange_weak(there, drawn, std::memory_order_relaxed)) {
    }
  }

  PictureSize size_;
  std::vector<std::atomic<std::uint64_t>> pixels_;
};

}  // namespace tarnhost
