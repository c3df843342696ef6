// A LAS header for the points of a cloud whose sources differ.
#pragma once

#include "host/cloud/Cloud.h"
#include "host/cloud/LargestValues.h"
#include "host/formats/LasFrame.h"

namespace tarnhost {

/// Whether points of a LAS file with this header have a place for each column of the cloud, less
/// those that tell the source, with bits for its largest value, and the cloud's scale and offset.
[[nodiscard]] bool HoldsColumns(const Cloud& cloud, const LasHeader& header,
                                LargestValues& largest);

/// The frame of a LAS file without points that holds all columns of the cloud, less those that tell
/// the source: the smallest point format with a place for most of them, and bits for their values,
/// the others as extra bytes. Everything else is that of the first LAS source, if there is one;
/// records that only other sources have stand behind its own, and the coordinate system is that of
/// the first source that states one. kScanUnsupported when a column has no place in a LAS file.
Outcome MakeMergedFrame(const Cloud& cloud, LargestValues& largest, LasFrame& frame);

}  // namespace tarnhost
