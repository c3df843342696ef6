// Writes a cloud back into a scan file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"
#include "host/formats/LasWriter.h"

namespace tarnhost {

/// What a LAS file made out of the cloud looks like besides its points: that of the first source,
/// less what was true of that file's order of points alone.
/// kScanUnsupported when the cloud has no source.
Outcome FrameForLas(const Cloud& cloud, LasFrame& frame);

/// The columns of the cloud in the order in which a LAS writer of this layout takes them.
Outcome ColumnsForLas(const Cloud& cloud, const LasRecordLayout& layout,
                      std::vector<std::string>& columns);

/// kBadRecord when an iteration's nodes do not hold the points that it states.
Outcome CheckPointCount(const Cloud& cloud, std::uint64_t written, std::uint64_t stated);

/// Writes all points of an iteration into a LAS or LAZ file, as its name says. With one source and
/// all its points the header comes out byte for byte. The file appears only when it is complete.
Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount);

}  // namespace tarnhost
