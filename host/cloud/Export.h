// Writes a cloud back into a scan file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"
#include "host/formats/LasWriter.h"

namespace tarnhost {

/// What a LAS file made out of the cloud looks like besides its points: that of the first source.
/// kScanUnsupported when the cloud has no source.
Outcome FrameForLas(const Cloud& cloud, LasFrame& frame);

/// The columns of the cloud in the order in which a LAS writer takes them.
Outcome ColumnsForLas(const Cloud& cloud, const LasWriter& writer,
                      std::vector<std::string>& columns);

/// Writes all points of an iteration. With one source and all its points the header comes out byte
/// for byte. The file appears only when it is complete.
Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount);

}  // namespace tarnhost
