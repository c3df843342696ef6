// Whether the disk has room for what does not fit into memory.
#include "host/build/TemporaryDisk.h"

#include <string>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/build/TopLevels.h"

namespace tarnhost {

namespace {

/// What nodes above the pieces may choose from is put aside, too. Of few points a piece that is one
/// candidate for nearly each of them (0.9 were seen), of more it is far less.
constexpr std::uint64_t kCandidateBytes = sizeof(Candidate);

}  // namespace

std::uint64_t CountScratchDisk(std::span<const std::unique_ptr<ScanFile>> scans,
                               std::uint64_t memoryBytes) {
  std::uint64_t disk = 0;
  for (const auto& scan : scans) {
    const std::uint64_t bytes = scan->GetScratchBytes();
    if (bytes <= memoryBytes) {
      memoryBytes -= bytes;
    } else {
      disk += bytes;
    }
  }
  return disk;
}

std::uint64_t CountSortingDisk(std::uint64_t pointCount, std::size_t recordBytes) {
  return pointCount * (recordBytes + kCandidateBytes);
}

Outcome AnnounceTemporaryDisk(const ImportOptions& options, const std::filesystem::path& folder,
                              std::uint64_t bytes) {
  if (options.temporaryNotice) options.temporaryNotice(bytes, folder);
  std::uint64_t free = 0;
  const HRESULT asked = oocpc::detail::GetFreeBytes(folder, free);
  if (oocpc::Failed(asked) || free >= bytes) return Outcome::Success();
  return Outcome::Failure(
      oocpc::result::kNoSpace,
      "the import may need " + std::to_string(bytes) + " bytes of temporary disk, and " +
          std::to_string(free) + " are free",
      folder.string(),
      "make room there, choose another disk for the repository, or allow more memory");
}

}  // namespace tarnhost
