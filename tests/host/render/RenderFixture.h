// What tests of whole pictures share.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "host/render/Render.h"
#include "host/render/Shading.h"
#include "tests/support/ScanFolder.h"

namespace oocpctest {

inline tarnhost::Picture Render(tarnhost::Cloud& cloud, const tarnhost::RenderOptions& options,
                                tarnhost::RenderReport* report = nullptr) {
  tarnhost::Picture picture;
  tarnhost::RenderReport own;
  EXPECT_TRUE(
      IsOk(tarnhost::RenderPicture(cloud, options, picture, report == nullptr ? own : *report)));
  EXPECT_EQ(picture.bytes.size(), std::size_t{options.size.width} * options.size.height * 3);
  return picture;
}

using Pixel = std::array<int, 3>;

inline Pixel PixelAt(const tarnhost::Picture& picture, std::size_t index) {
  return {picture.bytes.at(3 * index), picture.bytes.at(3 * index + 1),
          picture.bytes.at(3 * index + 2)};
}

/// A picture of nothing.
inline tarnhost::Picture Background(tarnhost::PictureSize size) {
  tarnhost::PointCanvas canvas(size);
  return tarnhost::ShadePicture(canvas, tarnhost::Camera::Fit(tarnhost::View::kTop, {}, {}, size),
                                1);
}

/// Which pixels differ from the background.
inline std::vector<bool> DrawnPixels(const tarnhost::Picture& picture) {
  const tarnhost::Picture background = Background(picture.size);
  std::vector<bool> drawn;
  for (std::size_t i = 0; i < picture.bytes.size() / 3; ++i) {
    drawn.push_back(PixelAt(picture, i) != PixelAt(background, i));
  }
  return drawn;
}

/// Which pixels are no further than `reach` from one that is set, along a row or column.
inline std::vector<bool> Widened(const std::vector<bool>& set, tarnhost::PictureSize size,
                                 int reach) {
  std::vector<bool> widened(set.size());
  const int width = static_cast<int>(size.width);
  const int height = static_cast<int>(size.height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (!set[static_cast<std::size_t>(y * width + x)]) continue;
      for (int row = std::max(0, y - reach); row <= std::min(height - 1, y + reach); ++row) {
        for (int column = std::max(0, x - reach); column <= std::min(width - 1, x + reach);
             ++column) {
          widened[static_cast<std::size_t>(row * width + column)] = true;
        }
      }
    }
  }
  return widened;
}

}  // namespace oocpctest
