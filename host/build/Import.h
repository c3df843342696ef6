// Makes a repository out of scans.
#pragma once

#include <OOCPointCloud/StreamStore.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

struct ImportOptions {
  std::vector<std::filesystem::path> inputs;  ///< scan files, and folders of them; at least one
  std::filesystem::path output;               ///< the repository's folder
  ScanOptions scanOptions;                    ///< what text files do not say of themselves
  bool overwrite = false;                     ///< replace a repository that is there
  /// Keep the name of each point's file, also of a single one; of several it always is. Not looked
  /// at by an append, which does as the repository does.
  bool nameSources = false;
  /// Keep each point's place in its source, so that an export restores the order. Not looked at by
  /// an append.
  bool keepOrder = false;
  std::uint64_t memoryBytes = 0;  ///< about the most memory to use; 0: a quarter of the machine's
  std::optional<std::uint64_t> timePoint;  ///< microseconds since 1970 UTC; default: now
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
  /// Told, before anything is written there, how many bytes of temporary disk the import is going
  /// to take in which folder; not called when it takes none. May be empty.
  std::function<void(std::uint64_t, const std::filesystem::path&)> temporaryNotice;
  /// Told what is no failure but should be known: files named twice, points without a place that
  /// are left out. A sentence without final stop, as soon as it is known. May be empty.
  std::function<void(const std::string&)> notice;
};

struct ImportReport {
  std::uint64_t iteration = 0;  ///< the newest one, when it is done
  std::uint64_t scanCount = 0;
  std::uint64_t pointCount = 0;
  std::uint64_t nodeCount = 0;
  std::uint64_t blockCount = 0;
  std::uint64_t sourceBytes = 0;  ///< of the scan files
  std::uint64_t storedBytes = 0;  ///< of all streams
};

/// Imports scans as the first update iteration of a new repository.
///
/// The repository is built beside its place and moved there when it is complete; whatever goes
/// wrong, nothing is left behind and what was there before is untouched. The result depends on the
/// scans and the time point alone, not on the number of threads.
///
/// Errors: those of the scans; kScansDiffer; kAlreadyExists; kNoSpace, kAccessDenied, kIoError;
/// kStopped; kOutOfMemory.
Outcome ImportScans(const ImportOptions& options, ImportReport& report);

/// The same into any store, for hosts with a storage of their own. Nothing is committed on failure.
/// `temporaryFolder` is where points are kept that do not fit into memory; nothing stays there.
Outcome ImportIntoStore(const ImportOptions& options, std::unique_ptr<OOCPCIStreamStore> store,
                        const std::filesystem::path& temporaryFolder, ImportReport& report);

}  // namespace tarnhost
