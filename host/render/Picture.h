// A finished picture, and its way into a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "host/common/Outcome.h"
#include "host/render/Camera.h"

namespace tarnhost {

/// Largest width and height of a picture, pixels.
inline constexpr std::uint32_t kMostPixels = 16384;

/// Rows from the top, three bytes a pixel: red, green, blue (sRGB).
struct Picture {
  PictureSize size;
  std::vector<std::uint8_t> bytes;
};

/// Writes a PNG file; it appears only when it is complete.
Outcome WritePng(const Picture& picture, const std::filesystem::path& path);

/// Reads a PNG file, whatever its colours; they become red, green and blue. kScanNotRecognised for
/// what is no PNG file; kPictureRefused for one larger than kMostPixels.
Outcome ReadPng(const std::filesystem::path& path, Picture& picture);

}  // namespace tarnhost
