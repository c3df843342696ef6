// Scans as others see them: with the layout of a cloud, or with the name of the file at each point.
#pragma once

#include <memory>

#include "host/build/PointLayout.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A scan whose records are packed as they are read (see PackedLayout), with the dimensions and the
/// transform of `layout`. Dimensions that the scan does not have are 0, but for those of the tags.
/// Prepare() fails (kScansDiffer) when a position does not fit into 32 bits.
/// kScansDiffer when the scan has a dimension that the layout has not, or not without loss, or its
/// positions are no whole steps of the layout's.
Outcome AdaptScan(std::unique_ptr<ScanFile> scan, const PointLayout& layout, const ScanTags& tags,
                  std::unique_ptr<ScanFile>& adapted);

/// A scan with the dimensions that tags add, behind its own. Costs a copy of each record.
[[nodiscard]] std::unique_ptr<ScanFile> TagScan(std::unique_ptr<ScanFile> scan,
                                                const ScanTags& tags);

}  // namespace tarnhost
