// Makes the levels of detail of an iteration anew, out of its octree and its positions.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryWriter.h>

#include <cstdint>

#include "host/build/LodBuilder.h"
#include "host/cloud/Cloud.h"

namespace tarnhost {

/// Describes the levels of detail of the newest iteration that `catalogue` has for an iteration
/// `nodeStreamId`, without looking at those that there are. A leaf is divided into levels as an
/// import does it, where that agrees with the order of its points; else it is one level. kBadRecord
/// when the octree is none; errors are those of reading.
Outcome RebuildLevels(Cloud& cloud, const OOCPCCatalogue& catalogue, std::uint64_t nodeStreamId,
                      BuiltLod& lod);

}  // namespace tarnhost
