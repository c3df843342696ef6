// Turns drawn points into a picture whose light and shadow show the shape.
#include "host/render/Shading.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <vector>

namespace tarnhost {

namespace {

constexpr float kNothing = std::numeric_limits<float>::infinity();

/// Distances, in pixels of the finished picture, at which depths are compared, and how much each
/// counts.
struct Ring {
  float radius;
  float weight;
};
constexpr std::array<Ring, 4> kRings{
    {{0.75F, 0.30F}, {2.0F, 0.30F}, {5.0F, 0.24F}, {12.0F, 0.16F}}};
/// The first rings, whose comparisons differ from pixel to pixel.
constexpr std::size_t kNearRings = 2;
/// Opposite directions, so that a plane that is merely tilted is not taken for a step.
constexpr std::array<std::array<float, 2>, 4> kDirections{
    {{1, 0}, {0.7071F, 0.7071F}, {0, 1}, {-0.7071F, 0.7071F}}};
constexpr float kStepStrength = 0.75F;
constexpr float kHollowStrength = 1.0F;
constexpr float kRidgeStrength = 0.35F;
constexpr float kMostLight = 0.35F;
constexpr float kDeepestStep = 2.0F;
/// A gap is filled when so many of its eight neighbours are not empty.
constexpr int kNeighboursToFill = 5;

template <typename Row>
void ForEachRow(std::uint32_t rows, const Row& row) {
  tbb::parallel_for(tbb::blocked_range<std::uint32_t>(0, rows, 16),
                    [&](const tbb::blocked_range<std::uint32_t>& range) {
                      for (std::uint32_t y = range.begin(); y < range.end(); ++y) row(y);
                    });
}

/// The canvas as plain arrays.
struct Layers {
  std::int64_t width;
  std::int64_t height;
  std::vector<float> depths;
  std::vector<Rgb> colors;

  explicit Layers(const PointCanvas& canvas)
      : width(canvas.GetSize().width),
        height(canvas.GetSize().height),
        depths(static_cast<std::size_t>(width * height)),
        colors(depths.size()) {
    ForEachRow(canvas.GetSize().height, [&](std::uint32_t y) {
      for (std::size_t i = At(0, y); i < At(0, y) + static_cast<std::size_t>(width); ++i) {
        depths[i] = canvas.IsEmpty(i) ? kNothing : canvas.GetDepth(i);
        colors[i] = canvas.GetColor(i);
      }
    });
  }
  [[nodiscard]] std::size_t At(std::int64_t x, std::int64_t y) const {
    return static_cast<std::size_t>(y * width + x);
  }
  [[nodiscard]] float DepthAt(std::int64_t x, std::int64_t y) const {
    return x < 0 || y < 0 || x >= width || y >= height ? kNothing : depths[At(x, y)];
  }
};

/// Gives an empty pixel that is mostly surrounded the mean colour and the depth of its neighbours.
void FillGap(const Layers& from, std::int64_t x, std::int64_t y, Layers& to) {
  int found = 0;
  unsigned sums[3] = {0, 0, 0};
  float deepest = 0;
  for (std::int64_t row = y - 1; row <= y + 1; ++row) {
    for (std::int64_t column = x - 1; column <= x + 1; ++column) {
      const float depth = from.DepthAt(column, row);
      if (depth == kNothing) continue;
      ++found;
      deepest = std::max(deepest, depth);
      const Rgb color = from.colors[from.At(column, row)];
      for (unsigned i = 0; i < 3; ++i) sums[i] += color >> (16 - 8 * i) & 0xFFu;
    }
  }
  if (found < kNeighboursToFill) return;
  const auto count = static_cast<unsigned>(found);
  to.depths[to.At(x, y)] = deepest;
  to.colors[to.At(x, y)] = MakeRgb(sums[0] / count, sums[1] / count, sums[2] / count);
}

void FillGaps(Layers& layers, std::uint32_t rounds) {
  for (std::uint32_t round = 0; round < rounds; ++round) {
    const Layers from = layers;
    ForEachRow(static_cast<std::uint32_t>(layers.height), [&](std::uint32_t y) {
      for (std::int64_t x = 0; x < from.width; ++x) {
        if (from.depths[from.At(x, y)] == kNothing) FillGap(from, x, y, layers);
      }
    });
  }
}

/// How light a pixel is: 1 as it is, less in hollows and behind steps, more on ridges.
class Lighting {
 public:
  Lighting(const Layers& layers, const Camera& camera, float factor)
      : layers_(layers), camera_(camera) {
    for (std::size_t ring = 0; ring < kRings.size(); ++ring) {
      const float radius = std::max(1.0F, kRings[ring].radius * factor);
      for (std::size_t i = 0; i < kDirections.size(); ++i) {
        Offset& offset = offsets_[ring][i];
        offset.x = static_cast<std::int64_t>(std::lround(kDirections[i][0] * radius));
        offset.y = static_cast<std::int64_t>(std::lround(kDirections[i][1] * radius));
        offset.place = offset.y * layers.width + offset.x;
        reach_ = std::max({reach_, std::abs(offset.x), std::abs(offset.y)});
      }
    }
  }

  /// What a comparison of depths tells.
  struct Relief {
    float steps = 0;    ///< how much stands out before the place
    float hollows = 0;  ///< how far it lies below its surroundings
  };

  /// Of the near surroundings, which differ from pixel to pixel.
  [[nodiscard]] Relief Near(std::int64_t x, std::int64_t y) const {
    return Compare(x, y, 0, kNearRings);
  }
  /// Of the far ones, which hardly do.
  [[nodiscard]] Relief Far(std::int64_t x, std::int64_t y) const {
    return Compare(x, y, kNearRings, kRings.size());
  }
  [[nodiscard]] static float LightOf(const Relief& near, const Relief& far) {
    const float hollows = near.hollows + far.hollows;
    const float steps = near.steps + far.steps;
    const float dark = kStepStrength * steps * 0.5F + kHollowStrength * std::max(hollows, 0.0F);
    const float light = kRidgeStrength * std::max(-hollows, 0.0F);
    return std::exp(-dark) * (1 + std::min(light, kMostLight));
  }

 private:
  struct Offset {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t place = 0;
  };

  [[nodiscard]] Relief Compare(std::int64_t x, std::int64_t y, std::size_t first,
                               std::size_t end) const {
    const bool inside =
        x >= reach_ && y >= reach_ && x < layers_.width - reach_ && y < layers_.height - reach_;
    const float* here = layers_.depths.data() + layers_.At(x, y);
    if (inside) {
      return Sum(*here, first, end,
                 [&](const Offset& o, int sign) { return here[sign * o.place]; });
    }
    return Sum(*here, first, end, [&](const Offset& o, int sign) {
      return layers_.DepthAt(x + sign * o.x, y + sign * o.y);
    });
  }

  template <typename Depths>
  [[nodiscard]] Relief Sum(float depth, std::size_t first, std::size_t end,
                           const Depths& depths) const {
    const auto unit = static_cast<float>(camera_.UnitsPerPixel(depth));
    Relief relief;
    for (std::size_t ring = first; ring < end; ++ring) {
      const float scale = 1 / (unit * kRings[ring].radius);
      float steps = 0;
      float hollows = 0;
      for (const Offset& offset : offsets_[ring]) {
        const float one = Rise(depth, depths(offset, 1), scale);
        const float other = Rise(depth, depths(offset, -1), scale);
        steps += std::max(one, 0.0F) + std::max(other, 0.0F);
        hollows += one + other;
      }
      relief.steps += kRings[ring].weight * steps / (2 * kDirections.size());
      relief.hollows += kRings[ring].weight * hollows / (2 * kDirections.size());
    }
    return relief;
  }

  /// How far a neighbour stands out before a depth, as a slope; nothing where there is none.
  [[nodiscard]] static float Rise(float depth, float there, float scale) {
    const float rise = std::clamp((depth - there) * scale, -kDeepestStep, kDeepestStep);
    return there == kNothing ? 0 : rise;
  }

  const Layers& layers_;
  const Camera& camera_;
  std::array<std::array<Offset, kDirections.size()>, kRings.size()> offsets_;
  std::int64_t reach_ = 0;
};

/// The colour behind the points: a light sky that darkens a little downwards.
std::array<float, 3> BackgroundAt(float share) {
  const std::array<float, 3> top{246, 248, 250};
  const std::array<float, 3> bottom{214, 221, 228};
  std::array<float, 3> color;
  for (std::size_t i = 0; i < 3; ++i) color[i] = top[i] + (bottom[i] - top[i]) * share;
  return color;
}

std::array<float, 3> LitColor(Rgb color, float light) {
  return {std::min(255.0F, static_cast<float>(color >> 16 & 0xFFu) * light),
          std::min(255.0F, static_cast<float>(color >> 8 & 0xFFu) * light),
          std::min(255.0F, static_cast<float>(color & 0xFFu) * light)};
}

}  // namespace

Picture ShadePicture(PointCanvas& canvas, const Camera& camera, std::uint32_t factor) {
  Layers layers(canvas);
  FillGaps(layers, factor);
  const Lighting lighting(layers, camera, static_cast<float>(factor));
  Picture picture;
  picture.size = {canvas.GetSize().width / factor, canvas.GetSize().height / factor};
  picture.bytes.resize(std::size_t{picture.size.width} * picture.size.height * 3);
  ForEachRow(picture.size.height, [&](std::uint32_t row) {
    const auto background =
        BackgroundAt(static_cast<float>(row) / static_cast<float>(picture.size.height));
    for (std::uint32_t column = 0; column < picture.size.width; ++column) {
      std::array<float, 3> sum{};
      std::optional<Lighting::Relief> far;
      for (std::uint32_t i = 0; i < factor * factor; ++i) {
        const std::int64_t x = column * factor + i % factor;
        const std::int64_t y = row * factor + i / factor;
        const std::size_t at = layers.At(x, y);
        auto color = background;
        if (layers.depths[at] != kNothing) {
          if (!far) far = lighting.Far(x, y);
          color = LitColor(layers.colors[at], Lighting::LightOf(lighting.Near(x, y), *far));
        }
        for (std::size_t part = 0; part < 3; ++part) sum[part] += color[part];
      }
      const auto samples = static_cast<float>(factor * factor);
      std::uint8_t* pixel =
          picture.bytes.data() + (std::size_t{row} * picture.size.width + column) * 3;
      for (std::size_t part = 0; part < 3; ++part) {
        pixel[part] = static_cast<std::uint8_t>(std::lround(sum[part] / samples));
      }
    }
  });
  return picture;
}

}  // namespace tarnhost
