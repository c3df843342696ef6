// Brings a damaged repository back to its newest intact iteration.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "host/cloud/Verify.h"
#include "host/repair/MendSources.h"

namespace tarnhost {

struct RepairOptions {
  std::filesystem::path repository;
  bool dryRun = false;                                  ///< find out, but change nothing
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
};

struct RepairReport {
  std::vector<Fault> faults;     ///< that were found before, as verification tells them
  std::uint64_t faultCount = 0;  ///< all
  bool fromCopy = false;         ///< the main stream was lost; its copy takes its place
  bool changesMain = false;      ///< a main stream was committed, or would be without `dryRun`
  std::uint64_t iterationsBefore = 0;
  std::uint64_t iterationsAfter = 0;
  std::uint64_t pointsBefore = 0;  ///< of the last iteration; 0 where its record is lost
  std::uint64_t pointsAfter = 0;
  /// Of these, what the repository kept beside their points is lost.
  std::vector<LostSource> lostSources;
  /// The last iteration is a further one: that before has its points, but its levels of detail are
  /// damaged.
  bool hasOtherLevels = false;
  std::vector<std::uint64_t> damagedIterations;  ///< older ones that stay, and stay damaged
  std::filesystem::path backup;                  ///< the former main stream; empty when none
};

/// Commits a main stream whose last iteration is the newest one that is wholly intact. It names of
/// each stream what there is of it, so that an iteration counts as intact where only other ones
/// need what is gone. Where records of sources are damaged, the main stream names a further stream
/// with those that are left. No byte of any stream that there was is changed, and the former main
/// stream is kept beside the new one. Where the last iteration is intact already and can be opened,
/// nothing is changed.
///
/// Errors: kNotARepository; kBeingWritten; when neither the main stream nor its copy is sound, the
/// code of the former; when no iteration is intact, the code of the first fault; kNoSpace,
/// kAccessDenied, kIoError; kStopped.
Outcome RepairRepository(const RepairOptions& options, RepairReport& report);

}  // namespace tarnhost
