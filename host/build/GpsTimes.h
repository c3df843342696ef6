// How scans that come into one cloud count their GPS times.
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "host/build/Import.h"
#include "host/cloud/SourceRecord.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

enum class GpsTimes { kWeekSeconds, kAdjustedSeconds };

/// What the first of the sources that has GPS times says of them, or nothing.
[[nodiscard]] std::optional<GpsTimes> GpsTimesOf(std::span<const SourceRecord> sources);

/// Tells of each scan whose GPS times count from another moment than those of the cloud, which are
/// given, or where it has none, are the first ones stated.
void TellOfOtherTimes(const ImportOptions& options, std::optional<GpsTimes> times,
                      std::span<const std::unique_ptr<ScanFile>> scans);

}  // namespace tarnhost
