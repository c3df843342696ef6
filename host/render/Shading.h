// Turns drawn points into a picture whose light and shadow show the shape.
#pragma once

#include "host/render/Camera.h"
#include "host/render/Picture.h"
#include "host/render/PointCanvas.h"

namespace tarnhost {

/// Fills small gaps between points, darkens what lies behind its surroundings (eye-dome lighting:
/// depths compared with those around, near and further away), lightens ridges, and shrinks the
/// canvas by `factor`, which smooths edges. Uses the canvas up.
[[nodiscard]] Picture ShadePicture(PointCanvas& canvas, const Camera& camera, std::uint32_t factor);

}  // namespace tarnhost
