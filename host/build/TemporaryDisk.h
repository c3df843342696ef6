// Whether the disk has room for what does not fit into memory.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/build/Import.h"
#include "host/build/PointSet.h"
#include "host/common/Outcome.h"

namespace tarnhost {

/// Disk that getting scans ready takes of which `memoryBytes` may be kept in memory.
[[nodiscard]] std::uint64_t CountScratchDisk(std::span<const std::unique_ptr<ScanFile>> scans,
                                             std::uint64_t memoryBytes);

/// Most disk that putting points of so many bytes aside takes, with what is known of them.
[[nodiscard]] std::uint64_t CountSortingDisk(std::uint64_t pointCount, std::size_t recordBytes);

/// Tells the user that so many bytes are going to be taken in a folder, beside the repository
/// itself; kNoSpace when they are not there.
[[nodiscard]] Outcome AnnounceTemporaryDisk(const ImportOptions& options,
                                            const std::filesystem::path& folder,
                                            std::uint64_t bytes);

}  // namespace tarnhost
