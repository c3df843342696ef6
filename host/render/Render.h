// Makes a picture of a cloud from its levels of detail.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/cloud/Cloud.h"
#include "host/render/Camera.h"
#include "host/render/Picture.h"
#include "host/render/PointColors.h"

namespace tarnhost {

struct RenderOptions {
  std::uint64_t iteration = 0;
  PictureSize size;
  View view = View::kIso;
  std::optional<Viewpoint> viewpoint;  ///< source coordinates; takes the place of `view`
  ColorMode color = ColorMode::kBest;
  std::uint64_t pointBudget = 3000000;
  std::string query;   ///< points that it selects stand out; may be empty
  bool local = false;  ///< constants of the query are in the local frame
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
};

struct RenderReport {
  std::uint64_t pointCount = 0;  ///< of the iteration
  std::uint64_t drawnPoints = 0;
  std::uint64_t drawnNodes = 0;
  std::uint64_t selectedPoints = 0;  ///< of the points drawn
};

/// Draws the nodes that the picture needs, the largest in view first, within the budget. The same
/// cloud and options give the same picture, whatever the number of threads.
/// kPictureRefused for a size of 0 or above kMostPixels, an eye at its target or beyond all
/// numbers, colours that the cloud does not have; kNoLodStream; kQueryRejected; codes of reading.
Outcome RenderPicture(Cloud& cloud, const RenderOptions& options, Picture& picture,
                      RenderReport& report);

}  // namespace tarnhost
